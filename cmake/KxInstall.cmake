# The package, in three parts, each with what it needs and no more: Proxy (the library, for hosts), Suite (utilities and
# message channel, for the suite's other modules and for workers) and Log (the shared log, which brings log4cplus). A
# host's project says find_package(ScreenRecordProxy COMPONENTS Proxy) and links ScreenRecordProxy::ScreenRecordProxy.
include(GNUInstallDirs)
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON) # installs what was built, and does not build the tests for it
include(CMakePackageConfigHelpers)

set(include_folder "${CMAKE_INSTALL_INCLUDEDIR}/screenrecordproxy")
set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/ScreenRecordProxy")

# The strip tool writes the time of day into what it strips, unless it is told a time.
install(CODE [[
        set(kx_source_date "$ENV{SOURCE_DATE_EPOCH}")
        set(ENV{SOURCE_DATE_EPOCH} 0)]] COMPONENT Runtime)

# kx_install_part(PART LIBRARY...): DLLs, import libraries, headers and the targets' file of one part.
function(kx_install_part part)
    install(TARGETS ${ARGN} EXPORT ScreenRecordProxy${part}Targets
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Runtime
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT Development
        FILE_SET HEADERS DESTINATION "${include_folder}" COMPONENT Development)
    install(EXPORT ScreenRecordProxy${part}Targets NAMESPACE ScreenRecordProxy::
        DESTINATION "${package_folder}" COMPONENT Development)
endfunction()

kx_install_part(Protocol WorkerProtocol)
kx_install_part(Suite Util IPCMessage)
kx_install_part(Log LogTool)
kx_install_part(Proxy ScreenRecordProxy)
install(TARGETS KXVCR kxrecord RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Runtime)

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/ScreenRecordProxyConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/ScreenRecordProxyConfig.cmake" INSTALL_DESTINATION "${package_folder}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/ScreenRecordProxyConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/ScreenRecordProxyConfig.cmake"
    "${PROJECT_BINARY_DIR}/ScreenRecordProxyConfigVersion.cmake"
    DESTINATION "${package_folder}" COMPONENT Development)

# The libraries of others that the programs load. Stripped here, since CMake strips its own targets only.
set(runtime_files "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/openh264.dll")
if(MINGW)
    foreach(library libgcc_s_seh-1 liblog4cplus libssp-0 libstdc++-6 libwinpthread-1)
        list(APPEND runtime_files "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${library}.dll")
    endforeach()
endif()
install(PROGRAMS ${runtime_files} DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Runtime)
if(MINGW)
    install(CODE "
        if(CMAKE_INSTALL_DO_STRIP)
            foreach(file ${runtime_files})
                cmake_path(GET file FILENAME name)
                execute_process(COMMAND \"${CMAKE_STRIP}\"
                    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/\${name}\" COMMAND_ERROR_IS_FATAL ANY)
            endforeach()
        endif()" COMPONENT Runtime)
endif()

# The host starts the worker only when its digest is the one in the manifest: it is taken from the file as it is
# installed, after whatever the installation did to it. Who signs the worker later runs "kxrecord manifest KXVCR.exe".
install(CODE "
    set(FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/KXVCR.exe\")
    set(MANIFEST \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/config/CheckFileIntergrity.xml\")
    include(\"${CMAKE_CURRENT_LIST_DIR}/WriteManifest.cmake\")" COMPONENT Runtime)

# Samples of the files in bin/config; docs/configuration.md says what each is for.
install(FILES "${PROJECT_SOURCE_DIR}/suite/util/ProductProfile.sample.xml"
    "${PROJECT_SOURCE_DIR}/samples/CheckFileIntergrity.sample.xml"
    "${PROJECT_SOURCE_DIR}/samples/DeviceFuncSwitchConf.sample.xml"
    "${PROJECT_SOURCE_DIR}/samples/KXVCR.sample.ini"
    "${PROJECT_SOURCE_DIR}/samples/LogType.sample.xml"
    "${PROJECT_SOURCE_DIR}/samples/log4cplus.sample.properties"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/screenrecordproxy" COMPONENT Runtime)

# Documents, and the reference if scripts/package.sh has built it.
foreach(document README.md LICENSE CHANGELOG.md SECURITY.md)
    install(FILES "${PROJECT_SOURCE_DIR}/${document}" DESTINATION . COMPONENT Runtime)
endforeach()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs/" DESTINATION docs COMPONENT Runtime PATTERN Doxyfile EXCLUDE)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/build/doxygen/html/" DESTINATION docs/reference COMPONENT Runtime OPTIONAL)

# What is inside: licences and the bill of materials. Last, because it lists the files as they are installed.
if(CMAKE_CROSSCOMPILING)
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    install(CODE "
        if(kx_source_date STREQUAL \"\")
            unset(ENV{SOURCE_DATE_EPOCH})
        else()
            set(ENV{SOURCE_DATE_EPOCH} \"\${kx_source_date}\")
        endif()
        execute_process(COMMAND \"${Python3_EXECUTABLE}\" -B \"${PROJECT_SOURCE_DIR}/scripts/bill_of_materials.py\"
            --version ${PROJECT_VERSION} \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\" COMMAND_ERROR_IS_FATAL ANY)"
        COMPONENT Runtime)
endif()
