# openh264: imported target OpenH264::headers, and OpenH264_DLL, the library that the worker loads at run time.
include(FindPackageHandleStandardArgs)
find_path(OpenH264_INCLUDE_DIR wels/codec_api.h)
find_program(OpenH264_DLL NAMES openh264.dll openh264-7.dll PATHS "${OpenH264_INCLUDE_DIR}/../bin" NO_DEFAULT_PATH)
find_package_handle_standard_args(OpenH264 REQUIRED_VARS OpenH264_DLL OpenH264_INCLUDE_DIR)
if(OpenH264_FOUND AND NOT TARGET OpenH264::headers)
    add_library(OpenH264::headers INTERFACE IMPORTED)
    set_target_properties(OpenH264::headers PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${OpenH264_INCLUDE_DIR}")
endif()
