# Finds GTK 3 (the window of the GTK host example) and gives the target
# GTK3::GTK3. Debian: libgtk-3-dev.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(GTK3_PC QUIET IMPORTED_TARGET gtk+-3.0)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GTK3
  REQUIRED_VARS GTK3_PC_FOUND
  REASON_FAILURE_MESSAGE "GTK 3 is missing (Debian: apt-get install libgtk-3-dev)")
if(GTK3_FOUND AND NOT TARGET GTK3::GTK3)
  add_library(GTK3::GTK3 INTERFACE IMPORTED)
  target_link_libraries(GTK3::GTK3 INTERFACE PkgConfig::GTK3_PC)
endif()
