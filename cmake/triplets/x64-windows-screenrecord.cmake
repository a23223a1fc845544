# For the package manager: libraries of others are linked into the programs and DLLs, except for two.
set(VCPKG_TARGET_ARCHITECTURE x64)
set(VCPKG_CRT_LINKAGE dynamic)
set(VCPKG_LIBRARY_LINKAGE static)

# One copy for all modules of a host: it lends out objects of its own. Its thread pool outlives main, and the library then
# waits for it for ever.
if(PORT STREQUAL "log4cplus")
    set(VCPKG_LIBRARY_LINKAGE dynamic)
    set(VCPKG_CMAKE_CONFIGURE_OPTIONS -DLOG4CPLUS_ENABLE_THREAD_POOL=OFF)
endif()

# The worker loads it by its path, so that it can be exchanged.
if(PORT STREQUAL "openh264")
    set(VCPKG_LIBRARY_LINKAGE dynamic)
endif()
