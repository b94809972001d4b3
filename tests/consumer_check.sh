#!/usr/bin/env bash
# Checks an installed Ostrel the way a user meets it, wherever it came from (cmake --install,
# the Debian packages unpacked, the Windows zip):
#  1. every installed header compiles on its own (none needs a header that is not installed);
#  2. examples/consumer built with CMake's find_package(Ostrel) prints expected_output.txt;
#  3. the same with the flags pkg-config gives (not for a cross build).
#
# usage: consumer_check.sh [options] PREFIX
#   --cxx CXX            the compiler (default c++)
#   --generator G        CMake generator (default Ninja)
#   --flags FLAGS        extra compile and link flags (a sanitized library needs its runtime)
#   --static             the library is static (pkg-config --static)
#   --toolchain FILE     a cross build: CMake toolchain file; the pkg-config half is left out
#   --runner CMD         command prefix that runs the built program (wine64, qemu); words split
#   --libdir DIR         where the program finds the shared library at run time
# Exit 77 (skipped) only when pkg-config is missing, after the other checks passed.
set -euo pipefail

cxx=c++ generator=Ninja flags="" static=0 toolchain="" runner="" libdir=""
while [[ $# -gt 1 ]]; do
  case $1 in
    --cxx) cxx=$2; shift 2 ;;
    --generator) generator=$2; shift 2 ;;
    --flags) flags=$2; shift 2 ;;
    --static) static=1; shift ;;
    --toolchain) toolchain=$2; shift 2 ;;
    --runner) runner=$2; shift 2 ;;
    --libdir) libdir=$2; shift 2 ;;
    *) echo "consumer_check: unknown option $1" >&2; exit 2 ;;
  esac
done
[[ $# -eq 1 ]] || { echo "usage: consumer_check.sh [options] PREFIX" >&2; exit 2; }
prefix=$(cd "$1" && pwd)
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
consumer=$source/examples/consumer
expected=$consumer/expected_output.txt

work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-consumer.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
  echo "consumer check: $*" >&2
  exit 1
}
# logged LOG WHAT COMMAND...: runs the command with its output in LOG, shown if it fails.
logged() {
  local log=$1 what=$2
  shift 2
  "$@" >"$log" 2>&1 || { cat "$log"; fail "$what failed"; }
}
# run PROGRAM OUTPUT: runs a built program (through the runner) and compares its output.
run_and_compare() {
  local what=$1 program=$2 out=$work/$1.txt
  # shellcheck disable=SC2086  # the runner is meant to split into words
  LD_LIBRARY_PATH=${libdir}${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH} WINEPATH="Z:${libdir//\//\\}" \
    $runner "$program" >"$out" || fail "the consumer ($what) failed"
  # Windows programs end their lines with CR LF.
  sed -i 's/\r$//' "$out"
  diff -u "$expected" "$out" || fail "the consumer ($what) printed something else (diff above)"
}

[[ -f $prefix/include/ostrel/rtl/Strings.h ]] || fail "no headers under $prefix/include"
! find "$prefix/include" -path '*/detail/*' | grep -q . ||
  fail "internal headers were installed: $(find "$prefix/include" -path '*/detail/*' | head -n 3)"

if [[ -z $toolchain ]]; then
  echo "-- every installed header on its own"
  (cd "$prefix/include" && find ostrel -name '*.h' | sort) >"$work/headers"
  # shellcheck disable=SC2016,SC2086
  xargs -P "$(nproc 2>/dev/null || echo 2)" -I{} sh -c \
    'printf "#include <%s>\n" "$1" | "$2" -std=c++20 $3 -fsyntax-only -I"$4" -x c++ - 2>&1 ||
     { echo "  ^ in $1"; exit 1; }' sh {} "$cxx" "$flags" "$prefix/include" \
    <"$work/headers" >"$work/headers.log" || { cat "$work/headers.log"; fail "a header does not compile alone"; }
  echo "   $(wc -l <"$work/headers") headers"
fi

echo "-- find_package(Ostrel) from examples/consumer"
cross=()
# A toolchain confines package search to its own root, so the package is named directly.
[[ -n $toolchain ]] && cross=(-DCMAKE_TOOLCHAIN_FILE="$toolchain"
                              -DOstrel_DIR="$prefix/lib/cmake/Ostrel")
[[ -n $toolchain ]] || cross=(-DCMAKE_CXX_COMPILER="$cxx")
logged "$work/configure.log" "configuring the consumer" \
  cmake -S "$consumer" -B "$work/consumer-build" -G "$generator" "${cross[@]}" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" \
  -DCMAKE_PREFIX_PATH="$prefix"
logged "$work/build.log" "building the consumer" cmake --build "$work/consumer-build"
program=$(find "$work/consumer-build" -maxdepth 1 -name 'consumer' -o -maxdepth 1 -name 'consumer.exe' | head -n 1)
run_and_compare cmake "$program"

[[ -z $toolchain ]] || exit 0
echo "-- pkg-config --cflags --libs ostrel"
if ! command -v pkg-config >/dev/null 2>&1; then
  echo "pkg-config is not installed: skipping its half"
  exit 77
fi
pcdir=$(dirname "$(find "$prefix" -name ostrel.pc -print -quit)")
[[ $pcdir != . ]] || fail "ostrel.pc was not installed"
export PKG_CONFIG_PATH=$pcdir
pcstatic=()
[[ $static -eq 0 ]] || pcstatic=(--static)
pcflags=$(pkg-config --cflags --libs "${pcstatic[@]}" ostrel) || fail "pkg-config does not know ostrel"
echo "   $pcflags"
# The flags must point into the prefix, wherever it was installed.
pclibdir=$(pkg-config --variable=libdir ostrel)
[[ -f $pclibdir/libostrel.so || -f $pclibdir/libostrel.a ]] ||
  fail "pkg-config's libdir '$pclibdir' holds no libostrel"
# shellcheck disable=SC2086  # the flags are meant to split into words
logged "$work/pc-build.log" "compiling with pkg-config's flags" \
  "$cxx" $flags "$consumer/main.cpp" $pcflags -o "$work/consumer-pc"
libdir=${libdir:-$pclibdir}
run_and_compare pkg-config "$work/consumer-pc"
echo "consumer check: passed"
