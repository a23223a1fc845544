# One interface target carries the language level, warnings, definitions and hardening that every target of this project
# has. Targets link it privately, so that none of it reaches who links them.
set(CMAKE_CXX_EXTENSIONS OFF)
add_library(kx_options INTERFACE)
# Exported headers are included by their path in include/, all others by their path in the repository.
target_include_directories(kx_options INTERFACE "${PROJECT_SOURCE_DIR}/include" "${PROJECT_SOURCE_DIR}")
target_compile_features(kx_options INTERFACE cxx_std_20)
target_compile_definitions(kx_options INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX WINVER=0x0A00 _WIN32_WINNT=0x0A00)

if(MSVC)
    target_compile_options(kx_options INTERFACE /W4 $<$<BOOL:${KX_WARNINGS_AS_ERRORS}>:/WX> /permissive- /utf-8 /EHsc /guard:cf /Zc:__cplusplus
        /wd4251 # private members of exported classes: host and library share one C++ run-time library
    )
    target_link_options(kx_options INTERFACE /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /guard:cf)
else()
    # Folders of this machine stand in no file that is built. Those of the dependencies may have been reached through a
    # link, in whose place the packages name the folder that it leads to.
    set(kx_mapped_folders "${PROJECT_SOURCE_DIR}/=" "${PROJECT_BINARY_DIR}/=build/")
    foreach(prefix IN LISTS CMAKE_PREFIX_PATH)
        file(REAL_PATH "${prefix}" folder)
        list(APPEND kx_mapped_folders "${folder}/=deps/" "${prefix}/=deps/")
        list(APPEND kx_kept_folders "${folder}/=${folder}/" "${prefix}/=${prefix}/")
    endforeach()
    list(TRANSFORM kx_mapped_folders PREPEND "-ffile-prefix-map=")
    target_compile_options(kx_options INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
        -Woverloaded-virtual -Wnull-dereference -Wformat=2 -Wundef $<$<BOOL:${KX_WARNINGS_AS_ERRORS}>:-Werror>
        -fstack-protector-strong -fcf-protection
        ${kx_mapped_folders}
        $<$<BOOL:${KX_DEBUG_SYMBOLS}>:-g1>)
    target_compile_definitions(kx_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
    target_link_options(kx_options INTERFACE
        -fstack-protector-strong -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va -Wl,--exclude-all-symbols
        -Wl,--no-insert-timestamp) # the same sources make the same bytes
endif()

# Counters for gcov, put on the product and the suite libraries by the coverage preset.
add_library(kx_coverage INTERFACE)
if(KX_COVERAGE)
    # gcovr leaves out a source of whose headers it cannot open one: those of the dependencies keep their folders here.
    list(TRANSFORM kx_kept_folders PREPEND "-fprofile-prefix-map=")
    target_compile_options(kx_coverage INTERFACE --coverage -fprofile-update=atomic ${kx_kept_folders})
    target_link_options(kx_coverage INTERFACE --coverage)
endif()
