# Libraries of Windows that are not on the system's list of known DLLs (HKLM\SYSTEM\CurrentControlSet\Control\Session
# Manager\KnownDLLs). A program that imports one of them plainly gets it from its own folder if somebody puts a file of
# that name there. Worker and host therefore load them at the first call: by then they have told the system, before all
# else, to look for libraries in the system folder only (SetDefaultDllDirectories), and the delay-load helper's
# LoadLibrary obeys.

# kx_load_from_system_folder(TARGET LIBRARY...): TARGET and whoever links it call the functions that
# cmake/delayload/LIBRARY.def names, and load the DLL at the first call.
function(kx_load_from_system_folder target)
    foreach(library IN LISTS ARGN)
        if(MSVC)
            target_link_libraries(${target} PUBLIC ${library} delayimp)
            target_link_options(${target} PUBLIC "/DELAYLOAD:${library}.dll")
            continue()
        endif()
        set(definitions "${PROJECT_SOURCE_DIR}/cmake/delayload/${library}.def")
        set(archive "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/lib${library}_delayed.a")
        if(NOT TARGET kx_delayed_${library})
            file(MAKE_DIRECTORY "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}")
            add_custom_command(OUTPUT "${archive}"
                COMMAND "${CMAKE_DLLTOOL}" --deterministic-libraries --temp-prefix "${library}_delayed"
                    --input-def "${definitions}" --output-delaylib "lib${library}_delayed.a"
                WORKING_DIRECTORY "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}" # the tool makes symbols of the name it is given
                DEPENDS "${definitions}"
                VERBATIM)
            add_custom_target(kx_delayed_${library}_archive DEPENDS "${archive}")
            add_library(kx_delayed_${library} STATIC IMPORTED GLOBAL)
            set_target_properties(kx_delayed_${library} PROPERTIES IMPORTED_LOCATION "${archive}")
            add_dependencies(kx_delayed_${library} kx_delayed_${library}_archive)
        endif()
        target_link_libraries(${target} PUBLIC kx_delayed_${library})
    endforeach()
endfunction()
