#!/usr/bin/env bash
# ThreadSanitizer over the main thread's queue, TThread and messages posted to controls: the
# platform-layer tests built by clang with -fsanitize=thread, their threaded suites run; any
# report fails. Configured exactly as the device tests' ThreadSanitizer stage (.ci/tsan.sh),
# so that both share the library built in build-tsan/.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

probe=$(mktemp -d)
trap 'rm -rf "$probe"' EXIT
if ! echo 'int main() { return 0; }' |
     clang++ -fsanitize=thread -x c++ - -o "$probe/a.out" >/dev/null 2>&1; then
  echo "ci: clang++ with its ThreadSanitizer runtime is not installed; skipping that stage" >&2
  exit 0
fi
config=(-S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1"
        -DCMAKE_CXX_COMPILER=clang++ -DOSTREL_BUILD_TOOLS=OFF
        -DCMAKE_CXX_FLAGS="-fsanitize=thread -fno-omit-frame-pointer"
        -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread)
if command -v ccache >/dev/null 2>&1; then
  config+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake "${config[@]}"
cmake --build build-tsan -j "$(nproc 2>/dev/null || echo 2)" --target ostrel_rtl_tests
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 build-tsan/tests/ostrel_rtl_tests \
  --gtest_repeat=20 --gtest_filter='MainThreadQueue.*:Thread.*:ControlMessages.*:InterfaceList.*'
