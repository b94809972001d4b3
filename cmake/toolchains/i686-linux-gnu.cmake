# 32-bit x86 Linux with Debian's cross compiler (g++-i686-linux-gnu), run under qemu-i386:
# the original platform's word size (4-byte pointers, the 12-byte x87 long double, no 128-bit
# integer) on a machine whose kernel runs no 32-bit x86 code.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(OSTREL_CROSS_TRIPLE i686-linux-gnu)
set(OSTREL_QEMU_NAME qemu-i386)
include(${CMAKE_CURRENT_LIST_DIR}/linux-qemu-common.cmake)
