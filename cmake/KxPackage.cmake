# Two zips, by cpack: what a user unpacks and runs, and a host's project builds against; and the debug symbols of the same
# files. scripts/package.sh makes both.
set(own_targets ScreenRecordProxy Util IPCMessage LogTool KXVCR kxrecord)

# The symbols lie beside nothing that runs: a debugger is told where they are.
if(MINGW)
    foreach(target IN LISTS own_targets)
        install(CODE "
            file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/symbols\")
            execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --only-keep-debug \"$<TARGET_FILE:${target}>\"
                \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/symbols/$<TARGET_FILE_NAME:${target}>.debug\"
                COMMAND_ERROR_IS_FATAL ANY)" COMPONENT Symbols EXCLUDE_FROM_ALL)
    endforeach()
endif()

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_VENDOR "The ScreenRecordProxy authors")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/zip")
set(CPACK_STRIP_FILES ON)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_COMPONENTS_ALL Runtime Development Symbols)
set(CPACK_COMPONENT_RUNTIME_GROUP Package)
set(CPACK_COMPONENT_DEVELOPMENT_GROUP Package)
set(CPACK_COMPONENT_SYMBOLS_GROUP Symbols)
set(CPACK_ARCHIVE_PACKAGE_FILE_NAME "ScreenRecordProxy-${PROJECT_VERSION}-win64")
set(CPACK_ARCHIVE_SYMBOLS_FILE_NAME "ScreenRecordProxy-${PROJECT_VERSION}-win64-symbols")
include(CPack)
