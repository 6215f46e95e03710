# Finds GLib (the main loop of GTK and Qt hosts) and gives the target
# GLib::GLib. Debian: libglib2.0-dev.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(GLib_PC QUIET IMPORTED_TARGET glib-2.0)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GLib
  REQUIRED_VARS GLib_PC_FOUND
  REASON_FAILURE_MESSAGE "GLib is missing (Debian: apt-get install libglib2.0-dev)")
if(GLib_FOUND AND NOT TARGET GLib::GLib)
  add_library(GLib::GLib INTERFACE IMPORTED)
  target_link_libraries(GLib::GLib INTERFACE PkgConfig::GLib_PC)
endif()
