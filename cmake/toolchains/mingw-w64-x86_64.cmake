# Cross build for 64-bit Windows with Debian's mingw-w64 (package g++-mingw-w64-x86-64).
#   cmake -S . -B build-mingw64 -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-x86_64.cmake -DOSTREL_BUILD_TESTS=OFF
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(OSTREL_MINGW_TRIPLE x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-common.cmake)
