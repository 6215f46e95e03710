# Finds Cairo (the picture control's drawing and PNG output) and gives the
# target Cairo::Cairo. Debian: libcairo2-dev.
find_path(Cairo_INCLUDE_DIR cairo.h PATH_SUFFIXES cairo)
find_library(Cairo_LIBRARY cairo)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Cairo
  REQUIRED_VARS Cairo_LIBRARY Cairo_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "Cairo is missing (Debian: apt-get install libcairo2-dev)")
if(Cairo_FOUND AND NOT TARGET Cairo::Cairo)
  add_library(Cairo::Cairo UNKNOWN IMPORTED)
  set_target_properties(Cairo::Cairo PROPERTIES
    IMPORTED_LOCATION ${Cairo_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${Cairo_INCLUDE_DIR})
endif()
mark_as_advanced(Cairo_INCLUDE_DIR Cairo_LIBRARY)
