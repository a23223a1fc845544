# libwebm: imported target LibWebM::webm. The library installs no package file of its own.
include(FindPackageHandleStandardArgs)
find_path(LibWebM_INCLUDE_DIR mkvmuxer/mkvmuxer.h PATH_SUFFIXES libwebm webm)
find_library(LibWebM_LIBRARY NAMES webm libwebm)
find_package_handle_standard_args(LibWebM REQUIRED_VARS LibWebM_LIBRARY LibWebM_INCLUDE_DIR)
if(LibWebM_FOUND AND NOT TARGET LibWebM::webm)
    add_library(LibWebM::webm UNKNOWN IMPORTED)
    set_target_properties(LibWebM::webm PROPERTIES
        IMPORTED_LOCATION "${LibWebM_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${LibWebM_INCLUDE_DIR}")
endif()
