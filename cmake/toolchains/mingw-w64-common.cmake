# Shared part of the mingw-w64 toolchain files: set OSTREL_MINGW_TRIPLE and
# CMAKE_SYSTEM_PROCESSOR, then include this file. The posix-threads compiler variant is used:
# the library relies on std::thread and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)

set(CMAKE_C_COMPILER ${OSTREL_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${OSTREL_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${OSTREL_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${OSTREL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
