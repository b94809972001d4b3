#!/usr/bin/env bash
# Builds Ostrel in build/ and runs one of its jobs:
#   ./run.sh demo [TEXT...]   the `ostrel demo` program (extra texts are passed to it)
#   ./run.sh test [ARGS...]   the whole test suite through CTest (extra arguments go to ctest)
#   ./run.sh bench            the benchmarks (short runs)
#   ./run.sh fuzz [SECONDS]   every fuzz target for SECONDS each (default 60), built by clang
#                             in build-fuzz/; fails on any finding
#   ./run.sh test-windows     the Windows builds and their tests under Wine (.ci/windows.sh)
#   ./run.sh test-arm64 [ARGS...]  the test suite cross-built for 64-bit ARM Linux and run
#                             under qemu-user, in build-arm64/ (extra arguments go to ctest)
#   ./run.sh test-i686 [ARGS...]   the same for 32-bit x86 Linux (qemu-i386), in build-i686/
#   ./run.sh package          the Debian packages (libostrel0, libostrel-dev, ostrel) in dist/
#   ./run.sh package-windows  the Windows zips (win64, win32) in dist/
#   ./run.sh docs             the API reference (Doxygen) in build/docs/html
#   ./run.sh coverage         line and branch coverage of the library by the suite
#                             (build-coverage/), per folder, and the size of the tests
# Needs Debian's build packages; as root it installs what is missing, otherwise it prints the
# command to run.
set -euo pipefail

usage() {
  echo "usage: $0 demo [TEXT...] | test [CTEST-ARGS...] | bench | fuzz [SECONDS] | test-windows |" \
       "test-arm64 [CTEST-ARGS...] | test-i686 [CTEST-ARGS...] | package | package-windows |" \
       "docs | coverage" >&2
  exit 2
}

[[ $# -ge 1 ]] || usage
[[ $1 == test-windows ]] && exec "$(dirname "${BASH_SOURCE[0]}")/.ci/windows.sh"
[[ $1 == package ]] && exec "$(dirname "${BASH_SOURCE[0]}")/.ci/package.sh" debian
[[ $1 == package-windows ]] && exec "$(dirname "${BASH_SOURCE[0]}")/.ci/package.sh" windows
mode=$1
shift
case "$mode" in
  demo | test | bench | fuzz | test-arm64 | test-i686 | coverage | docs) ;;
  *) usage ;;
esac

cd "$(dirname "${BASH_SOURCE[0]}")"

required=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev pkg-config)

source .ci/packages.sh

[[ $mode == fuzz ]] && required+=(clang libclang-rt-14-dev)
# The XML benchmark's peers (it runs without them, Ostrel alone).
[[ $mode == bench ]] && required+=(libpugixml-dev libtinyxml2-dev)
[[ $mode == coverage ]] && required+=(lcov)
[[ $mode == docs ]] && required=(doxygen python3)
ensure_packages "${required[@]}"

jobs=$(nproc 2>/dev/null || echo 2)
config=(-S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo)
if command -v ccache >/dev/null 2>&1; then
  config+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

case "$mode" in
  demo)
    cmake "${config[@]}"
    cmake --build build -j "$jobs" --target ostrel_tool
    exec build/tools/ostrel demo "$@"
    ;;
  test)
    cmake "${config[@]}"
    cmake --build build -j "$jobs"
    exec ctest --test-dir build --output-on-failure -j "$jobs" "$@"
    ;;
  test-arm64 | test-i686)
    # Debian's cross compiler, qemu-user and GoogleTest's sources (built for the target).
    triple=aarch64-linux-gnu
    [[ $mode == test-i686 ]] && triple=i686-linux-gnu
    dir=build-${mode#test-}
    ensure_packages "g++-$triple" qemu-user googletest
    cross=(-S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOSTREL_WERROR=ON
           -DCMAKE_TOOLCHAIN_FILE="cmake/toolchains/$triple.cmake")
    command -v ccache >/dev/null 2>&1 && cross+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    cmake "${cross[@]}"
    cmake --build "$dir" -j "$jobs"
    # Left out here, and said so: the install test builds a consumer with the host's tools
    # and runs it on the host (it has no cross-built form); the serial-port tests that open a
    # pseudo-terminal, or that tell devices from other files, need the termios2 ioctls, which
    # qemu-user does not pass on (ENOSYS).
    echo "run.sh: not run under qemu: install (host tools only); serial tests over a" \
         "pseudo-terminal (qemu-user has no termios2 ioctls)" >&2
    exec ctest --test-dir "$dir" --output-on-failure -j "$jobs" \
      -E '^(install|CommPortDevice\..*|CommPortOpen\..*|CommPortVolume\..*|BarcodeTest\.SerialScannerTurnsBytesIntoCodes)$' "$@"
    ;;
  bench)
    cmake "${config[@]}" -DOSTREL_BUILD_BENCH=ON
    cmake --build build -j "$jobs"
    shopt -s nullglob
    ran=0
    for src in bench/*.cpp; do
      name=$(basename "$src" .cpp)
      echo "== $name"
      "build/bench/$name" --benchmark_min_time=0.05
      ran=1
    done
    [[ $ran -eq 1 ]] || echo "run.sh: no benchmarks yet (bench/*.cpp)"
    ;;
  fuzz)
    exec bash fuzz/run_all.sh "${1:-60}"
    ;;
  coverage)
    exec bash .ci/coverage.sh
    ;;
  docs)
    # Doxyfile says how; any warning fails, and so does a class or free function without a
    # description (cmake/doxygen_check.py on the XML output).
    rm -rf build/docs
    mkdir -p build/docs
    version=$(sed -n 's/^project(Ostrel VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
    if ! OSTREL_VERSION=$version OSTREL_DOCS_DIR=build/docs doxygen Doxyfile; then
      cat build/docs/warnings.log >&2
      echo "run.sh: doxygen: $(grep -c 'warning:' build/docs/warnings.log) warning(s)" >&2
      exit 1
    fi
    echo "run.sh: doxygen: $(grep -c 'warning:' build/docs/warnings.log || true) warnings"
    python3 cmake/doxygen_check.py build/docs/xml
    echo "run.sh: the API reference is in build/docs/html/index.html"
    ;;
esac
