# 64-bit ARM Linux with Debian's cross compiler (g++-aarch64-linux-gnu). Programs built here
# run on this host under qemu-user (qemu-aarch64) through qemu-run.sh, with the target's C
# and C++ runtime from the cross compiler's root; no binfmt registration is needed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(OSTREL_CROSS_TRIPLE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${OSTREL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${OSTREL_CROSS_TRIPLE}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${OSTREL_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(OSTREL_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static)
if(OSTREL_QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/qemu-run.sh
      ${OSTREL_QEMU_AARCH64} /usr/${OSTREL_CROSS_TRIPLE})
endif()
