# What a package of the library carries: programs and DLLs, the import library, headers and a package file, so that
# a host's project says find_package(ScreenRecordProxy) and links ScreenRecordProxy::ScreenRecordProxy.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS ScreenRecordProxy Util IPCMessage LogTool EXPORT ScreenRecordProxyTargets
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/screenrecordproxy")
install(TARGETS KXVCR kxrecord RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/openh264.dll" DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/screenrecordproxy")
install(FILES "${PROJECT_SOURCE_DIR}/suite/util/ProductProfile.sample.xml"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/screenrecordproxy")
install(DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/config" DESTINATION "${CMAKE_INSTALL_BINDIR}")
if(MINGW)
    install(DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/" DESTINATION "${CMAKE_INSTALL_BINDIR}"
        FILES_MATCHING PATTERN "lib*.dll" PATTERN "config" EXCLUDE)
endif()

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/ScreenRecordProxy")
install(EXPORT ScreenRecordProxyTargets NAMESPACE ScreenRecordProxy:: DESTINATION "${package_folder}")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/ScreenRecordProxyConfig.cmake.in"
    "${CMAKE_BINARY_DIR}/ScreenRecordProxyConfig.cmake" INSTALL_DESTINATION "${package_folder}")
write_basic_package_version_file("${CMAKE_BINARY_DIR}/ScreenRecordProxyConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/ScreenRecordProxyConfig.cmake"
    "${CMAKE_BINARY_DIR}/ScreenRecordProxyConfigVersion.cmake" DESTINATION "${package_folder}")
