# Puts what a Windows program needs at run time into the folder that it is started from.

# kx_stage_runtime(FOLDER): the compiler's run-time DLLs and log4cplus, shared by every module of the process
# because log4cplus hands out a stream object of its own.
function(kx_stage_runtime folder)
    if(MSVC)
        return()
    endif()
    foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll libssp-0.dll)
        execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${name}
            OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(NOT IS_ABSOLUTE "${path}")
            find_file(path_of_${name} ${name} PATHS /usr/x86_64-w64-mingw32/lib NO_CACHE REQUIRED NO_DEFAULT_PATH)
            set(path "${path_of_${name}}")
        endif()
        configure_file("${path}" "${folder}/${name}" COPYONLY)
    endforeach()
    get_target_property(log4cplus_dll log4cplus::log4cplus IMPORTED_LOCATION_RELEASE)
    get_filename_component(log4cplus_name "${log4cplus_dll}" NAME)
    configure_file("${log4cplus_dll}" "${folder}/${log4cplus_name}" COPYONLY)
endfunction()

# kx_stage_encoder(FOLDER): the H.264 encoder that the worker loads from its own folder.
function(kx_stage_encoder folder)
    configure_file("${OpenH264_DLL}" "${folder}/openh264.dll" COPYONLY)
endfunction()

# kx_stage_targets(NAME FOLDER TARGET...): a target NAME that copies built DLLs and programs into FOLDER
# when they differ from what is there.
function(kx_stage_targets name folder)
    set(commands)
    foreach(target IN LISTS ARGN)
        list(APPEND commands COMMAND ${CMAKE_COMMAND} -E copy_if_different "$<TARGET_FILE:${target}>" "${folder}/")
    endforeach()
    add_custom_target(${name} ALL ${commands} DEPENDS ${ARGN} VERBATIM)
endfunction()
