# Finds libblkid (volume labels and UUIDs) and gives the target Blkid::Blkid.
# Debian: libblkid-dev.
find_path(Blkid_INCLUDE_DIR blkid/blkid.h)
find_library(Blkid_LIBRARY blkid)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Blkid
  REQUIRED_VARS Blkid_LIBRARY Blkid_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "libblkid is missing (Debian: apt-get install libblkid-dev)")
if(Blkid_FOUND AND NOT TARGET Blkid::Blkid)
  add_library(Blkid::Blkid UNKNOWN IMPORTED)
  set_target_properties(Blkid::Blkid PROPERTIES
    IMPORTED_LOCATION ${Blkid_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${Blkid_INCLUDE_DIR})
endif()
mark_as_advanced(Blkid_INCLUDE_DIR Blkid_LIBRARY)
