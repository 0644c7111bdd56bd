# A family is one source folder built as a static archive of position-independent objects.
# The shared libraries take the archives whole; the unit tests link the archives directly, so
# they can reach internal helpers that the shared library keeps hidden.
#
#   zel_add_family(NAME <target> DIR <folder> [DEPS <targets>...] [EXTRA_SOURCES <files>...])
#
# Every *.cpp in DIR except *_test.cpp goes into the archive; every *_test.cpp becomes its own
# GoogleTest executable registered with CTest. A test whose source starts threads gets the CTest
# label "threads" and joins the target threads_tests, which is all the tsan preset builds.
function(zel_add_family)
  cmake_parse_arguments(FAM "" "NAME;DIR" "DEPS;EXTRA_SOURCES" ${ARGN})
  file(GLOB _all CONFIGURE_DEPENDS "${FAM_DIR}/*.cpp")
  set(_sources ${FAM_EXTRA_SOURCES})
  set(_tests)
  foreach(_f IN LISTS _all)
    if(_f MATCHES "_test\\.cpp$")
      list(APPEND _tests ${_f})
    else()
      list(APPEND _sources ${_f})
    endif()
  endforeach()
  if(NOT _sources)
    # A family whose folder is still empty builds as an empty archive, so the tree configures.
    set(_placeholder "${CMAKE_CURRENT_BINARY_DIR}/${FAM_NAME}_empty.cpp")
    file(WRITE "${_placeholder}" "")
    set(_sources "${_placeholder}")
  endif()
  add_library(${FAM_NAME} STATIC ${_sources})
  target_link_libraries(${FAM_NAME} PUBLIC ${FAM_DEPS})
  if(ZEL_BUILD_TESTS)
    foreach(_t IN LISTS _tests)
      get_filename_component(_tn ${_t} NAME_WE)
      add_executable(${_tn} ${_t})
      target_link_libraries(${_tn} PRIVATE ${FAM_NAME} GTest::gtest GTest::gmock GTest::gtest_main Threads::Threads)
      target_compile_definitions(${_tn} PRIVATE
        ZEL_TESTDATA_DIR="${PROJECT_SOURCE_DIR}/../shared/testdata"
        ZEL_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
      zel_register_gtest(${_tn} ${_t})
    endforeach()
  endif()
endfunction()

# Registers a GoogleTest executable with CTest; `source` decides whether it carries the label "threads".
function(zel_register_gtest target source)
  file(READ "${source}" _text)
  if(_text MATCHES "std::thread")
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES LABELS threads)
    if(NOT TARGET threads_tests)
      add_custom_target(threads_tests)
    endif()
    add_dependencies(threads_tests ${target})
  else()
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
  endif()
endfunction()
