#!/bin/sh
# Runs a cross-built Linux program under qemu-user, for CMake as the cross build's emulator:
#   qemu-run.sh QEMU TARGET_ROOT PROGRAM [ARGS...]
# The program sees this script as its own path (argv[0]). A program that starts itself again
# through that path (GoogleTest's death tests do) thus has the host run this script, which
# finds the program, the emulator and the root in its environment and runs it under qemu
# once more; no binfmt registration is needed.
set -e
if [ -z "${OSTREL_QEMU_PROGRAM:-}" ]; then
  [ $# -ge 3 ] || { echo "usage: $0 QEMU TARGET_ROOT PROGRAM [ARGS...]" >&2; exit 2; }
  OSTREL_QEMU=$1 OSTREL_QEMU_ROOT=$2 OSTREL_QEMU_PROGRAM=$3
  export OSTREL_QEMU OSTREL_QEMU_ROOT OSTREL_QEMU_PROGRAM
  shift 3
fi
# The target's libraries are named to its loader outright: the loader also reads the host's
# /etc/ld.so.cache, which on an amd64 host lists Debian's own 32-bit x86 libc (/lib32), a
# build other than the cross root's loader. That mixed pair starts single-threaded programs
# but spins forever in the first pthread_create. Emulated code runs tens of times slower than
# the host's own, so the tests' time limits are widened by OSTREL_TEST_SLOWDOWN.
exec "$OSTREL_QEMU" -L "$OSTREL_QEMU_ROOT" -E "LD_LIBRARY_PATH=$OSTREL_QEMU_ROOT/lib" \
  -E OSTREL_TEST_SLOWDOWN=50 -0 "$0" "$OSTREL_QEMU_PROGRAM" "$@"
