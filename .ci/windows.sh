#!/usr/bin/env bash
# The Windows stage: the library, the ostrel program and the test suites cross-built for 32-
# and 64-bit Windows with mingw-w64 (warnings as errors), then run under Wine, headless.
#
# Each test program is started once, directly (one Wine start per program, not per test case),
# and counts as passed only when it exited 0 AND printed GoogleTest's summary: a Wine that
# cannot run the program (a 32-bit one under a 64-bit-only Wine) prints nothing and exits 0.
# The program test (tests/cli_test.sh) runs ostrel.exe under Wine as well.
#
# 64-bit programs run under Wine's 64-bit loader directly (.ci/wine-env.sh says why). 32-bit
# programs run only where 32-bit Wine (wine32:i386) is installed or can be installed without
# touching the system's amd64 packages, and a 32-bit program is seen to start; otherwise they
# are built, and one line says why they were not run (on a kernel without 32-bit x86 support
# that is always so: the 32-bit x86 code paths are tested by the i686 Linux stage instead).
# Everything else missing is installed (as root) or named.
#
# usage: .ci/windows.sh            (also: ./run.sh test-windows)
# Builds go to build-win64/ and build-win32/; Wine's prefix lives inside each.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
source .ci/wine-env.sh

required=(cmake ninja-build g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix wine wine64
          googletest)

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
is_root() { [[ $(id -u) -eq 0 ]]; }
say() { echo "windows: $*" >&2; }

source .ci/packages.sh
ensure_packages "${required[@]}"

# 32-bit Wine, tried only in a way that cannot harm the amd64 system: apt's plan is simulated
# first and refused when it would remove anything or upgrade a package that is not i386 (the
# i386 and amd64 versions of a library must match, so a newer i386 list would drag core amd64
# packages along). On refusal or failure the i386 architecture is taken away again.
# Prints the reason and returns 1 when 32-bit Wine is not to be had.
wine32_reason=""
ensure_wine32() {
  installed wine32:i386 && return 0
  if ! is_root; then
    wine32_reason="wine32:i386 is not installed (as root: dpkg --add-architecture i386, then install wine32:i386)"
    return 1
  fi
  local added=0 plan
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    dpkg --add-architecture i386
    added=1
  fi
  export DEBIAN_FRONTEND=noninteractive
  local out
  if ! out=$(apt-get update -qq 2>&1); then
    wine32_reason="apt-get update fails once the i386 architecture is added ($(grep -m 1 -E '^(E|W):' <<<"$out" | cut -c 1-160))"
  elif ! plan=$(apt-get install -s --no-install-recommends wine32:i386 2>&1); then
    wine32_reason="apt cannot plan the installation of wine32:i386: $(tail -n 1 <<<"$plan")"
  elif grep -Eq '^Remv ' <<<"$plan"; then
    wine32_reason="installing wine32:i386 would remove packages"
  elif grep -E '^Inst [^ ]+ \[' <<<"$plan" | grep -Evq '^Inst [^ ]+:i386 '; then
    wine32_reason="installing wine32:i386 would upgrade amd64 packages ($(grep -E '^Inst [^ ]+ \[' <<<"$plan" | grep -Ev '^Inst [^ ]+:i386 ' | awk '{print $2}' | head -n 3 | tr '\n' ' ')...)"
  elif ! apt-get install -y -qq --no-install-recommends wine32:i386 >/dev/null 2>&1; then
    wine32_reason="apt-get install wine32:i386 failed"
  else
    return 0
  fi
  if [[ $added -eq 1 ]] && ! dpkg -l | awk '{print $2}' | grep -q ':i386$'; then
    dpkg --remove-architecture i386
    apt-get update -qq >/dev/null 2>&1 || true
  fi
  return 1
}

jobs=$(nproc 2>/dev/null || echo 2)
version=$(sed -n 's/^project(Ostrel VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
failures=0

# build ARCH DIR: configures and builds everything for one Windows target.
build() {
  local config=(-S . -B "$2" -G Ninja -DCMAKE_TOOLCHAIN_FILE="cmake/toolchains/mingw-w64-$1.cmake"
                -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOSTREL_WERROR=ON)
  if command -v ccache >/dev/null 2>&1; then
    config+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
  fi
  cmake "${config[@]}" --no-warn-unused-cli >/dev/null
  cmake --build "$2" -j "$jobs"
}

# run_suites DIR BITS: every test program of the build once under Wine, then the program test.
run_suites() {
  local dir=$1 exe name log wine
  wine_command wine "$2" "$PWD/$dir/wineprefix"
  # The prefix is made once, before the first program, so its set-up does not count as a run.
  "${wine[@]}" wineboot --init >/dev/null 2>&1 || true
  for exe in "$dir"/tests/*_tests.exe; do  # the test suites (not the example programs)
    name=$(basename "$exe" .exe)
    log=$dir/$name.log
    local rc=0
    OSTREL_TEST_DATA=$PWD/tests/data "${wine[@]}" "$exe" >"$log" 2>&1 || rc=$?
    if [[ $rc -ne 0 ]] || ! grep -Eq '^\[==========\] [0-9]+ tests? from .* ran\.' "$log"; then
      # The failed tests' own output and the summary; everything after the last test started
      # when the program died before its summary.
      awk '/^\[ RUN      \]/ {block = $0 "\n"; inside = 1; next}
           inside {block = block $0 "\n"}
           inside && /^\[  FAILED  \]/ {printf "%s", block; inside = 0}
           inside && /^\[       OK \]|^\[  SKIPPED \]/ {inside = 0}
           /^\[==========\] [0-9]+ tests? from .* ran/ {summary = 1}
           summary {print}
           END {if (inside) printf "%s", block}' "$log"
      if [[ $rc -eq 0 ]]; then
        say "FAIL $dir/$name: no GoogleTest summary (did Wine run it at all?)"
      else
        say "FAIL $dir/$name: exit status $rc"
      fi
      failures=$((failures + 1))
    else
      # A skipped test says why; its reason is part of the record.
      awk '/: Skipped$/ {on = 1; next} on && /^\[  SKIPPED \]/ {print; on = 0; next}
           on {print "           " $0}' "$log"
      say "ok   $dir/$name: $(grep -E '^\[==========\] ' "$log" | tail -n 1)"
    fi
  done
  if bash tests/cli_test.sh "$dir/tools/ostrel.exe" "$version" "${wine[@]}"; then
    say "ok   $dir/tools/ostrel.exe: program test"
  else
    say "FAIL $dir/tools/ostrel.exe: program test"
    failures=$((failures + 1))
  fi
}

build x86_64 build-win64
build i686 build-win32
run_suites build-win64 64
if ensure_wine32 && wine32_reason=$(wine_32bit_reason build-win32/tools/ostrel.exe \
                                      "$PWD/build-win32/wineprefix"); then
  run_suites build-win32 32
else
  say "32-bit tests built but not run: $wine32_reason"
fi

if [[ $failures -gt 0 ]]; then
  say "$failures Windows check(s) failed"
  exit 1
fi
say "all Windows checks passed"
