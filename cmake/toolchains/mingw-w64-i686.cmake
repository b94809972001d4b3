# Cross build for 32-bit Windows with Debian's mingw-w64 (package g++-mingw-w64-i686).
#   cmake -S . -B build-mingw32 -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-i686.cmake -DOSTREL_BUILD_TESTS=OFF
set(CMAKE_SYSTEM_PROCESSOR i686)
set(OSTREL_MINGW_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
