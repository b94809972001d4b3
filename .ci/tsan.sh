#!/usr/bin/env bash
# ThreadSanitizer over the code that has threads: the main thread's queue, TThread and messages
# posted to controls (platform-layer tests), item trees built and freed on several threads
# (XML tests), the serial port's worker (device tests) and the serial program over a
# pseudo-terminal. All built by clang with -fsanitize=thread in build-tsan/; any report fails
# the run.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

source .ci/packages.sh
ensure_packages clang libclang-rt-14-dev

config=(-S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1"
        -DCMAKE_CXX_COMPILER=clang++ -DOSTREL_BUILD_TOOLS=ON
        -DCMAKE_CXX_FLAGS="-fsanitize=thread -fno-omit-frame-pointer"
        -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread)
if command -v ccache >/dev/null 2>&1; then
  config+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake "${config[@]}"
cmake --build build-tsan -j "$(nproc 2>/dev/null || echo 2)" \
  --target ostrel_rtl_tests --target ostrel_xml_tests --target ostrel_devices_tests \
  --target ostrel_tool

export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
build-tsan/tests/ostrel_rtl_tests --gtest_repeat=20 \
  --gtest_filter='MainThreadQueue.*:Thread.*:ControlMessages.*:InterfaceList.*'
build-tsan/tests/ostrel_xml_tests --gtest_repeat=5 --gtest_filter='XmlTree.TreesOnSeveralThreads'
build-tsan/tests/ostrel_devices_tests
# A report ends the program with status 66, which the check takes for a failure.
python3 tests/devices/serial_cli_check.py build-tsan/tools/ostrel
