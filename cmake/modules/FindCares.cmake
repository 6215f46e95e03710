# Finds c-ares (name resolution driven from the host loop) and gives the
# target Cares::Cares. Debian: libc-ares-dev.
find_path(Cares_INCLUDE_DIR ares.h)
find_library(Cares_LIBRARY cares)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Cares
  REQUIRED_VARS Cares_LIBRARY Cares_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "c-ares is missing (Debian: apt-get install libc-ares-dev)")
if(Cares_FOUND AND NOT TARGET Cares::Cares)
  add_library(Cares::Cares UNKNOWN IMPORTED)
  set_target_properties(Cares::Cares PROPERTIES
    IMPORTED_LOCATION ${Cares_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${Cares_INCLUDE_DIR})
endif()
mark_as_advanced(Cares_INCLUDE_DIR Cares_LIBRARY)
