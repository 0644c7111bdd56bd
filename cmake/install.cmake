# Installs the two shared libraries, their public headers, zeltool, a CMake package
# (find_package(zelutility) gives zelutility::zelutility and zelutility::mrlbase) and pkg-config files.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zelutility)

# The installed tree is relocatable: the libraries find each other and zeltool finds them
# through $ORIGIN, and the pkg-config files locate the prefix from their own folder, so
# `cmake --install --prefix` to any folder gives a usable tree.
file(RELATIVE_PATH _zel_bin_to_lib /_p/${CMAKE_INSTALL_BINDIR} /_p/${CMAKE_INSTALL_LIBDIR})
set_target_properties(mrlbase zelutility PROPERTIES INSTALL_RPATH "$ORIGIN")
if(TARGET zeltool)
  set_target_properties(zeltool PROPERTIES INSTALL_RPATH "$ORIGIN/${_zel_bin_to_lib}")
endif()

install(TARGETS mrlbase zelutility EXPORT zelutilityTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/mrlbase/include/mrlbase ${PROJECT_SOURCE_DIR}/include/zelutility
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
if(TARGET zeltool)
  install(TARGETS zeltool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT zelutilityTargets NAMESPACE zelutility:: DESTINATION ${ZEL_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/templates/zelutilityConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zelutilityConfig.cmake INSTALL_DESTINATION ${ZEL_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zelutilityConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zelutilityConfig.cmake ${PROJECT_BINARY_DIR}/zelutilityConfigVersion.cmake
  DESTINATION ${ZEL_CMAKE_DIR})

file(RELATIVE_PATH _zel_pc_to_prefix /_p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /_p)
string(REGEX REPLACE "/$" "" _zel_pc_to_prefix "${_zel_pc_to_prefix}")
set(ZEL_PC_PREFIX "\${pcfiledir}/${_zel_pc_to_prefix}")
foreach(_dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_dir}}")
    set(ZEL_PC_${_dir} "${CMAKE_INSTALL_${_dir}}")
  else()
    set(ZEL_PC_${_dir} "\${prefix}/${CMAKE_INSTALL_${_dir}}")
  endif()
endforeach()
foreach(_pc mrlbase zelutility)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/templates/${_pc}.pc.in ${PROJECT_BINARY_DIR}/${_pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${_pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
