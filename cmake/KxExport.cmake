# kx_exported_library(TARGET HEADER...): what every library of the package has: its public headers (paths from include/),
# the language level that they need, a file name without "lib", and the name that hosts link it by, inside this build
# as outside.
function(kx_exported_library target)
    list(TRANSFORM ARGN PREPEND "${PROJECT_SOURCE_DIR}/include/")
    get_target_property(type ${target} TYPE)
    set(scope PUBLIC)
    if(type STREQUAL "INTERFACE_LIBRARY")
        set(scope INTERFACE)
    else()
        set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "")
    endif()
    target_sources(${target} ${scope} FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/include" FILES ${ARGN})
    target_compile_features(${target} ${scope} cxx_std_20)
    add_library(ScreenRecordProxy::${target} ALIAS ${target})
endfunction()
