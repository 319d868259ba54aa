# Finds libyuv, which ships neither a CMake package nor a pkg-config file.
# Defines LibYUV_FOUND, LibYUV_INCLUDE_DIR, LibYUV_LIBRARY and the imported
# target LibYUV::LibYUV.
find_path(LibYUV_INCLUDE_DIR NAMES libyuv.h)
find_library(LibYUV_LIBRARY NAMES yuv)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibYUV REQUIRED_VARS LibYUV_LIBRARY LibYUV_INCLUDE_DIR)
mark_as_advanced(LibYUV_INCLUDE_DIR LibYUV_LIBRARY)

if(LibYUV_FOUND AND NOT TARGET LibYUV::LibYUV)
  add_library(LibYUV::LibYUV UNKNOWN IMPORTED)
  set_target_properties(LibYUV::LibYUV PROPERTIES IMPORTED_LOCATION "${LibYUV_LIBRARY}"
                        INTERFACE_INCLUDE_DIRECTORIES "${LibYUV_INCLUDE_DIR}")
endif()
