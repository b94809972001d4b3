# Shared part of the Linux cross toolchain files: set OSTREL_CROSS_TRIPLE (Debian's cross
# compiler prefix), CMAKE_SYSTEM_PROCESSOR and OSTREL_QEMU_NAME (qemu-user's program for the
# target), then include this file. Programs built here run on this host under qemu-user
# through qemu-run.sh, with the target's C and C++ runtime from the cross compiler's root;
# no binfmt registration is needed.
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${OSTREL_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${OSTREL_CROSS_TRIPLE}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${OSTREL_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(OSTREL_QEMU NAMES ${OSTREL_QEMU_NAME} ${OSTREL_QEMU_NAME}-static)
if(OSTREL_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/qemu-run.sh
      ${OSTREL_QEMU} /usr/${OSTREL_CROSS_TRIPLE})
endif()
