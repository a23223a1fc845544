# What a package of the library carries: programs and DLLs, the import library, headers and a package file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS ScreenRecordProxy Util IPCMessage LogTool KXVCR kxrecord
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kxscreenrecord")
