# Finds Boost.Context (the stack switching under the loop's strands) and gives
# the target BoostContext::BoostContext. Debian: libboost-context-dev.
find_path(BoostContext_INCLUDE_DIR boost/context/fiber.hpp)
find_library(BoostContext_LIBRARY boost_context)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(BoostContext
  REQUIRED_VARS BoostContext_LIBRARY BoostContext_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "Boost.Context is missing (Debian: apt-get install libboost-context-dev)")
if(BoostContext_FOUND AND NOT TARGET BoostContext::BoostContext)
  add_library(BoostContext::BoostContext UNKNOWN IMPORTED)
  set_target_properties(BoostContext::BoostContext PROPERTIES
    IMPORTED_LOCATION ${BoostContext_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${BoostContext_INCLUDE_DIR})
endif()
mark_as_advanced(BoostContext_INCLUDE_DIR BoostContext_LIBRARY)
