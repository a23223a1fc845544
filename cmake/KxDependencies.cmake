# Libraries that the project calls. A Windows package manager brings them from vcpkg.json, scripts/bootstrap.sh
# builds them for the cross presets; both end in the same imported targets.
find_package(log4cplus CONFIG REQUIRED)
find_package(Log4cplusStatic REQUIRED)
if(MINGW)
    # The linker sorts imports by the paths of their libraries. From the build's folder this one has the same path on every
    # machine, and the same sources make the same bytes.
    get_target_property(log4cplus_import log4cplus::log4cplus IMPORTED_IMPLIB_RELEASE)
    configure_file("${log4cplus_import}" "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/liblog4cplus.dll.a" COPYONLY)
    set_target_properties(log4cplus::log4cplus PROPERTIES
        IMPORTED_IMPLIB_RELEASE "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/liblog4cplus.dll.a")
endif()
find_package(Botan REQUIRED)
find_package(tinyxml2 CONFIG REQUIRED)
find_package(CLI11 CONFIG REQUIRED)
find_package(nlohmann_json CONFIG REQUIRED)
find_package(Boost 1.81 REQUIRED) # headers alone: Asio and Beast
find_package(libjpeg-turbo CONFIG REQUIRED)
find_package(LibWebM REQUIRED)
find_package(LibVpx REQUIRED)
find_package(LibYuv REQUIRED)
find_package(OpenH264 REQUIRED)
find_package(VoAacEnc REQUIRED)
find_package(Opus REQUIRED)
if(KX_BUILD_TESTS)
    find_package(GTest CONFIG REQUIRED)
endif()
