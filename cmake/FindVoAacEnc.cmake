# vo-aacenc: imported target VoAacEnc::aacenc. The library installs no package file of CMake's.
include(FindPackageHandleStandardArgs)
find_path(VoAacEnc_INCLUDE_DIR vo-aacenc/voAAC.h)
find_library(VoAacEnc_LIBRARY NAMES vo-aacenc libvo-aacenc)
find_package_handle_standard_args(VoAacEnc REQUIRED_VARS VoAacEnc_LIBRARY VoAacEnc_INCLUDE_DIR)
if(VoAacEnc_FOUND AND NOT TARGET VoAacEnc::aacenc)
    add_library(VoAacEnc::aacenc UNKNOWN IMPORTED)
    set_target_properties(VoAacEnc::aacenc PROPERTIES
        IMPORTED_LOCATION "${VoAacEnc_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${VoAacEnc_INCLUDE_DIR}")
endif()
