#!/usr/bin/env bash
# CI stage: the library, the ostrel program and the test suite cross-built for 32-bit x86
# Linux and run under qemu-i386 (./run.sh test-i686, which installs Debian's
# g++-i686-linux-gnu, qemu-user and googletest when missing). The original platform's word
# size meets the tests here: 4-byte pointers, the 12-byte x87 long double, the two-half
# 128-bit arithmetic and the fixed-size records. Fails when a test fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
start=$SECONDS
./run.sh test-i686
echo "ci: i686 stage took $((SECONDS - start)) s"
