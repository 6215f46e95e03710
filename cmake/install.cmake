# cmake --install: headers under include/varnek, every library archive, the
# CMake package Varnek (target Varnek::varnek) and varnek.pc. Component "dev"
# is what a host builds against, "demo" the demo host and its service files.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VARNEK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Varnek)
get_property(varnek_libraries GLOBAL PROPERTY VARNEK_LIBRARIES)

install(TARGETS ${varnek_libraries} EXPORT VarnekTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(EXPORT VarnekTargets NAMESPACE Varnek:: DESTINATION ${VARNEK_CMAKE_DIR} COMPONENT dev)

# Public headers: exactly the listed ones, each in its folder under
# include/varnek, and the umbrella. Library-only headers (internal/ folders,
# *_internal.h) and the simulation stay in the tree.
include(cmake/public_headers.cmake)
foreach(header IN LISTS VARNEK_PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/varnek/${folder} COMPONENT dev)
endforeach()
install(FILES varnek.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/varnek COMPONENT dev)

# The package: dependencies first (find_dependency names the one missing),
# then the exported targets.
get_property(varnek_find_dependencies GLOBAL PROPERTY VARNEK_FIND_DEPENDENCIES)
set(VARNEK_CONFIG_DEPENDENCIES "")
foreach(dep IN LISTS varnek_find_dependencies)
  string(APPEND VARNEK_CONFIG_DEPENDENCIES "find_dependency(${dep})\n")
endforeach()
configure_package_config_file(cmake/VarnekConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/VarnekConfig.cmake
  INSTALL_DESTINATION ${VARNEK_CMAKE_DIR})
# 0.x: a minor version may change the interface, so only the same minor fits.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/VarnekConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/VarnekConfig.cmake
  ${PROJECT_BINARY_DIR}/package/VarnekConfigVersion.cmake
  DESTINATION ${VARNEK_CMAKE_DIR} COMPONENT dev)
install(DIRECTORY cmake/modules/ DESTINATION ${VARNEK_CMAKE_DIR}/modules COMPONENT dev
  FILES_MATCHING PATTERN "Find*.cmake")

# varnek.pc: the archives in link order (each before what it uses), found
# relative to the .pc file so that any install prefix works.
set(VARNEK_PC_ARCHIVES "")
foreach(lib IN LISTS varnek_libraries)
  get_target_property(type ${lib} TYPE)
  if(type STREQUAL "STATIC_LIBRARY")
    set(VARNEK_PC_ARCHIVES "-l${lib} ${VARNEK_PC_ARCHIVES}")
  endif()
endforeach()
get_property(pc_requires GLOBAL PROPERTY VARNEK_PC_REQUIRES)
get_property(pc_libs GLOBAL PROPERTY VARNEK_PC_LIBS)
list(JOIN pc_requires ", " VARNEK_PC_REQUIRES)
list(JOIN pc_libs " " VARNEK_PC_LIBS)
file(RELATIVE_PATH VARNEK_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" VARNEK_PC_PREFIX "${VARNEK_PC_PREFIX}")
configure_file(cmake/varnek.pc.in ${PROJECT_BINARY_DIR}/package/varnek.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/varnek.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The paging tool with its manual page and bash completion.
if(TARGET varnek-page)
  install(TARGETS varnek-page RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT demo)
  install(FILES examples/page/varnek-page.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT demo)
  install(FILES examples/page/varnek-page.bash-completion
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME varnek-page COMPONENT demo)
endif()
# The demo host as a service: the binary, its systemd unit and users, the
# environment file and the proxy site as examples.
if(TARGET varnek-demo)
  install(TARGETS varnek-demo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT demo)
  install(FILES deploy/varnek-demo@.service DESTINATION lib/systemd/system COMPONENT demo)
  install(FILES deploy/demo.env deploy/nginx-varnek.conf
    DESTINATION ${CMAKE_INSTALL_DATADIR}/varnek-demo COMPONENT demo)
endif()
