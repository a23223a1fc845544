# libyuv: imported target LibYuv::yuv. The library installs no package file of its own.
include(FindPackageHandleStandardArgs)
find_path(LibYuv_INCLUDE_DIR libyuv/scale_argb.h)
find_library(LibYuv_LIBRARY NAMES libyuv.a yuv)
find_package_handle_standard_args(LibYuv REQUIRED_VARS LibYuv_LIBRARY LibYuv_INCLUDE_DIR)
if(LibYuv_FOUND AND NOT TARGET LibYuv::yuv)
    add_library(LibYuv::yuv UNKNOWN IMPORTED)
    set_target_properties(LibYuv::yuv PROPERTIES
        IMPORTED_LOCATION "${LibYuv_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${LibYuv_INCLUDE_DIR}")
endif()
