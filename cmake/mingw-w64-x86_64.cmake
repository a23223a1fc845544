# Cross compiler: 64-bit Windows from Linux, POSIX thread model (std::mutex and std::thread need it).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_ASM_NASM_COMPILER nasm)

# In the form that the cache keeps what is found in: a second configuration then changes no command.
cmake_path(ABSOLUTE_PATH CMAKE_CURRENT_LIST_DIR NORMALIZE OUTPUT_VARIABLE KX_TOOLCHAIN_FOLDER)
cmake_path(GET KX_TOOLCHAIN_FOLDER PARENT_PATH KX_REPOSITORY)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${KX_REPOSITORY}/build/deps/x86_64-w64-mingw32"
    "${KX_REPOSITORY}/build/deps/x86_64-w64-mingw32-static")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs of the target run through this, so that ctest and try_run work on the build machine.
set(CMAKE_CROSSCOMPILING_EMULATOR "${KX_REPOSITORY}/scripts/wine-run.sh")
