# libvpx: imported target LibVpx::vpx. The library installs no package file of its own.
include(FindPackageHandleStandardArgs)
find_path(LibVpx_INCLUDE_DIR vpx/vpx_encoder.h)
find_library(LibVpx_LIBRARY NAMES vpx)
find_package_handle_standard_args(LibVpx REQUIRED_VARS LibVpx_LIBRARY LibVpx_INCLUDE_DIR)
if(LibVpx_FOUND AND NOT TARGET LibVpx::vpx)
    add_library(LibVpx::vpx UNKNOWN IMPORTED)
    set_target_properties(LibVpx::vpx PROPERTIES
        IMPORTED_LOCATION "${LibVpx_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${LibVpx_INCLUDE_DIR}")
endif()
