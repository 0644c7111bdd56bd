# Installs the two shared libraries, their public headers, zeltool, a CMake package
# (find_package(zelutility) gives zelutility::zelutility and zelutility::mrlbase) and pkg-config files.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zelutility)

install(TARGETS mrlbase zelutility EXPORT zelutilityTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
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

foreach(_pc mrlbase zelutility)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/templates/${_pc}.pc.in ${PROJECT_BINARY_DIR}/${_pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${_pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
