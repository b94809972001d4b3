# 64-bit ARM Linux with Debian's cross compiler (g++-aarch64-linux-gnu), run under qemu-aarch64.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(OSTREL_CROSS_TRIPLE aarch64-linux-gnu)
set(OSTREL_QEMU_NAME qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/linux-qemu-common.cmake)
