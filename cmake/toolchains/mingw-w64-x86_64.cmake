# Cross build for 64-bit Windows with Debian's mingw-w64 (package g++-mingw-w64-x86-64).
# The posix-threads compiler variant is used: the library relies on std::thread and std::mutex.
#   cmake -S . -B build-mingw64 -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-x86_64.cmake -DOSTREL_BUILD_TESTS=OFF
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(OSTREL_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${OSTREL_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${OSTREL_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${OSTREL_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${OSTREL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
