# Small helpers shared by the folder CMakeLists.

# varnek_library(NAME DIR... DEPS ...): a static library of every .cpp in the
# given folders (not below them), with the repository root on the include path.
function(varnek_library name)
  cmake_parse_arguments(ARG "" "" "DIRS;DEPS" ${ARGN})
  set(sources "")
  foreach(dir IN LISTS ARG_DIRS)
    file(GLOB found CONFIGURE_DEPENDS "${dir}/*.cpp")
    list(APPEND sources ${found})
  endforeach()
  if(sources)
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# varnek_test(NAME DIR DEPS ...): one GoogleTest program of every .cpp in DIR,
# registered with CTest test by test. Every test has a time limit.
function(varnek_test name dir)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${dir}/*.cpp")
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest_main GTest::gmock)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
    PROPERTIES TIMEOUT 120
    DISCOVERY_TIMEOUT 60)
endfunction()
