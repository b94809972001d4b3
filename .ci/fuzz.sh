#!/usr/bin/env bash
# Continuous integration: every fuzz target for a short while, so that a parser regression
# that the fuzzers find at once fails the run. OSTREL_CI_FUZZ_SECONDS sets the time per target.
# run.sh installs clang and its runtime (libclang-rt-14-dev) when they are missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
exec ./run.sh fuzz "${OSTREL_CI_FUZZ_SECONDS:-20}"
