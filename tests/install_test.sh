#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and checks it as a user would
# (tests/consumer_check.sh: the headers alone, examples/consumer through CMake and through
# pkg-config). Exit 77 (skipped) only when pkg-config is missing, after the rest has passed.
#
# usage: install_test.sh BUILD_DIR SOURCE_DIR CXX GENERATOR SHARED(ON|OFF) [EXTRA_FLAGS]
set -euo pipefail

build=$1 source=$2 cxx=$3 generator=$4 shared=$5 flags=${6:-}

work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
  echo "install test: $*" >&2
  exit 1
}

echo "-- cmake --install into $prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log" || {
  cat "$work/install.log"
  fail "cmake --install failed"
}

config=$(find "$prefix" -name OstrelConfig.cmake -print -quit)
[[ -n $config ]] || fail "OstrelConfig.cmake was not installed"

# The installed tool finds its library relative to itself.
if [[ -x $prefix/bin/ostrel ]]; then
  version=$(env -u LD_LIBRARY_PATH "$prefix/bin/ostrel" --version) || fail "installed ostrel does not run"
  [[ $version == "ostrel "* ]] || fail "installed ostrel --version printed '$version'"
fi

static=()
[[ $shared == ON ]] || static=(--static)
rc=0
bash "$source/tests/consumer_check.sh" --cxx "$cxx" --generator "$generator" \
  --flags "$flags" "${static[@]}" "$prefix" || rc=$?
exit $rc
