# log4cplus as a static library, for a program that carries it whole: imported target Log4cplusStatic::log4cplus. It lies in
# a prefix of its own (Log4cplusStatic_ROOT), because log4cplus' package file describes one kind of library only.
include(FindPackageHandleStandardArgs)
find_path(Log4cplusStatic_INCLUDE_DIR log4cplus/logger.h)
find_library(Log4cplusStatic_LIBRARY NAMES liblog4cplus.a log4cplusUS log4cplusU log4cplus)
find_package_handle_standard_args(Log4cplusStatic REQUIRED_VARS Log4cplusStatic_LIBRARY Log4cplusStatic_INCLUDE_DIR)
if(Log4cplusStatic_FOUND AND NOT TARGET Log4cplusStatic::log4cplus)
    add_library(Log4cplusStatic::log4cplus STATIC IMPORTED)
    set_target_properties(Log4cplusStatic::log4cplus PROPERTIES
        IMPORTED_LOCATION "${Log4cplusStatic_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${Log4cplusStatic_INCLUDE_DIR}"
        INTERFACE_COMPILE_DEFINITIONS "UNICODE;_UNICODE"
        INTERFACE_LINK_LIBRARIES "ws2_32;advapi32")
endif()
