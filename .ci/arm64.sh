#!/usr/bin/env bash
# CI stage: the library, the ostrel program and the test suite cross-built for 64-bit ARM
# Linux and run under qemu-user (./run.sh test-arm64, which installs Debian's
# g++-aarch64-linux-gnu, qemu-user and googletest when missing). Fails when a test fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
start=$SECONDS
./run.sh test-arm64
echo "ci: arm64 stage took $((SECONDS - start)) s"
