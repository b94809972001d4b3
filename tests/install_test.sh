#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and builds examples/consumer against it, once
# through the CMake package and once with the flags pkg-config gives; both programs must print
# examples/consumer/expected_output.txt. Exit 77 (skipped) only when pkg-config is missing,
# after the CMake half has passed.
#
# usage: install_test.sh BUILD_DIR SOURCE_DIR CXX GENERATOR SHARED(ON|OFF) [EXTRA_FLAGS]
set -euo pipefail

build=$1 source=$2 cxx=$3 generator=$4 shared=$5 flags=${6:-}
consumer=$source/examples/consumer
expected=$consumer/expected_output.txt

work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
  echo "install test: $*" >&2
  exit 1
}

# The expected output must match exactly; show a diff when it does not.
check_output() {
  local what=$1 actual=$2
  if ! diff -u "$expected" "$actual"; then
    fail "$what printed something else (diff above)"
  fi
}

echo "-- cmake --install into $prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log" || {
  cat "$work/install.log"
  fail "cmake --install failed"
}

[[ -f $prefix/include/ostrel/rtl/Strings.h ]] || fail "headers were not installed"
config=$(find "$prefix" -name OstrelConfig.cmake -print -quit)
[[ -n $config ]] || fail "OstrelConfig.cmake was not installed"

# The installed tool finds its library relative to itself.
if [[ -x $prefix/bin/ostrel ]]; then
  version=$(env -u LD_LIBRARY_PATH "$prefix/bin/ostrel" --version) || fail "installed ostrel does not run"
  [[ $version == "ostrel "* ]] || fail "installed ostrel --version printed '$version'"
fi

echo "-- find_package(Ostrel) from examples/consumer"
cmake -S "$consumer" -B "$work/consumer-build" -G "$generator" \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="$flags" \
  -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log" 2>&1 || {
  cat "$work/configure.log"
  fail "configuring the consumer failed"
}
cmake --build "$work/consumer-build" >"$work/build.log" 2>&1 || {
  cat "$work/build.log"
  fail "building the consumer failed"
}
"$work/consumer-build/consumer" >"$work/cmake-output.txt" || fail "the consumer (CMake) failed"
check_output "the consumer built with CMake" "$work/cmake-output.txt"

echo "-- pkg-config --cflags --libs ostrel"
if ! command -v pkg-config >/dev/null 2>&1; then
  echo "pkg-config is not installed: skipping its half"
  exit 77
fi
pcdir=$(dirname "$(find "$prefix" -name ostrel.pc -print -quit)")
[[ $pcdir != . ]] || fail "ostrel.pc was not installed"
export PKG_CONFIG_PATH=$pcdir
static=()
[[ $shared == ON ]] || static=(--static)
pcflags=$(pkg-config --cflags --libs "${static[@]}" ostrel) || fail "pkg-config does not know ostrel"
echo "   $pcflags"
# The flags must point into the prefix, wherever it was installed.
libdir=$(pkg-config --variable=libdir ostrel)
[[ -f $libdir/libostrel.so || -f $libdir/libostrel.a ]] ||
  fail "pkg-config's libdir '$libdir' holds no libostrel"
# shellcheck disable=SC2086  # the flags are meant to split into words
"$cxx" $flags "$consumer/main.cpp" $pcflags -o "$work/consumer-pc" 2>"$work/pc-build.log" || {
  cat "$work/pc-build.log"
  fail "compiling with pkg-config's flags failed"
}
LD_LIBRARY_PATH=$libdir "$work/consumer-pc" >"$work/pc-output.txt" || fail "the consumer (pkg-config) failed"
check_output "the consumer built with pkg-config" "$work/pc-output.txt"
echo "install test: passed"
