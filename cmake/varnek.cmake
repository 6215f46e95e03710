# Small helpers shared by the folder CMakeLists.

# Hosts and the library itself include headers as <varnek/runtime/...>: in the
# build, include/varnek in the binary folder holds links to the library's
# folders and the umbrella header, and nothing else of the source tree (tests,
# examples and tools are not reachable through the prefix); once installed
# the public headers sit under <prefix>/include/varnek.
set(VARNEK_BUILD_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)
set(varnek_prefix_dir ${VARNEK_BUILD_INCLUDE_DIR}/varnek)
if(IS_SYMLINK ${varnek_prefix_dir})
  file(REMOVE ${varnek_prefix_dir})  # a build folder made when the prefix was the whole tree
endif()
file(MAKE_DIRECTORY ${varnek_prefix_dir})
foreach(entry runtime platform adds server varnek.h)
  if(NOT EXISTS ${varnek_prefix_dir}/${entry})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${entry} ${varnek_prefix_dir}/${entry} SYMBOLIC)
  endif()
endforeach()

# Every library target in the order declared (each after what it uses); the
# install, the pkg-config file and the exported package are made from it.
set_property(GLOBAL PROPERTY VARNEK_LIBRARIES "")

# varnek_dependency(PACKAGE DEB dev-package [PC module] [LIBS flags]): finds an
# outside package the libraries link, and records it for the installed
# package (find_dependency), varnek.pc (Requires or Libs) and the -dev
# Debian package's Depends. One line per dependency, next to its link.
function(varnek_dependency package)
  cmake_parse_arguments(ARG "" "DEB;PC" "LIBS" ${ARGN})
  find_package(${package} REQUIRED)
  set_property(GLOBAL APPEND PROPERTY VARNEK_FIND_DEPENDENCIES ${package})
  set_property(GLOBAL APPEND PROPERTY VARNEK_DEB_DEPENDS ${ARG_DEB})
  if(ARG_PC)
    set_property(GLOBAL APPEND PROPERTY VARNEK_PC_REQUIRES ${ARG_PC})
  endif()
  if(ARG_LIBS)
    set_property(GLOBAL APPEND PROPERTY VARNEK_PC_LIBS ${ARG_LIBS})
  endif()
endfunction()

# Hardening for the library's own code. The sanitizer and fuzz builds keep
# their own flags; fortification needs an optimising build.
function(varnek_harden name)
  if(VARNEK_SANITIZE OR VARNEK_FUZZ)
    return()
  endif()
  target_compile_options(${name} PRIVATE -fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
  target_compile_definitions(${name} PRIVATE _GLIBCXX_ASSERTIONS)
  # Programs also get read-only relocations, bound before main runs.
  get_target_property(type ${name} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_link_options(${name} PRIVATE -Wl,-z,relro -Wl,-z,now)
  endif()
endfunction()

# Hardens every program declared in `dir` and the folders below it, so that a
# program added anywhere (examples, tests, benches, fuzz replays) has it too.
function(varnek_harden_programs dir)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      varnek_harden(${target})
    endif()
  endforeach()
  get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(subdir IN LISTS subdirs)
    varnek_harden_programs(${subdir})
  endforeach()
endfunction()

# varnek_library(NAME DIRS dir... DEPS ... PRIVATE_DEPS ...): a static library
# of every .cpp in the given folders (not below them). Its users include its
# headers with the varnek/ prefix; its own sources may still reach the source
# root directly. DEPS are part of its interface; PRIVATE_DEPS (outside
# libraries its sources use) are linked but their headers stay its own.
function(varnek_library name)
  cmake_parse_arguments(ARG "" "" "DIRS;DEPS;PRIVATE_DEPS" ${ARGN})
  set(sources "")
  foreach(dir IN LISTS ARG_DIRS)
    file(GLOB found CONFIGURE_DEPENDS "${dir}/*.cpp")
    list(APPEND sources ${found})
  endforeach()
  set(includes $<BUILD_INTERFACE:${VARNEK_BUILD_INCLUDE_DIR}> $<INSTALL_INTERFACE:include>)
  if(sources)
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${includes} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    varnek_harden(${name})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${includes})
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
  endif()
  set_property(GLOBAL APPEND PROPERTY VARNEK_LIBRARIES ${name})
endfunction()

# varnek_test(NAME DIR [PURE] DEPS ...): one GoogleTest program of every .cpp
# in DIR, registered with CTest test by test, with the test doubles linked
# (PURE: only DEPS, for code that needs no platform). Every test has a time
# limit.
function(varnek_test name dir)
  cmake_parse_arguments(ARG "PURE" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${dir}/*.cpp")
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  if(NOT ARG_PURE)
    list(APPEND ARG_DEPS varnek_test_doubles)
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest_main GTest::gmock)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
    PROPERTIES TIMEOUT 120
    DISCOVERY_TIMEOUT 60)
endfunction()
