#!/usr/bin/env bash
# Builds the fuzz targets with clang in build-fuzz/ and runs each fuzz/<name>.cpp for SECONDS
# (default 60). Each target starts from a scratch copy of its seeds in fuzz/corpus/<name>/, so
# the checked-in corpus stays small; inputs that fail are kept in build-fuzz/findings/.
# Exits non-zero when any target reports a finding. Called by `./run.sh fuzz` and .ci/fuzz.sh.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-60}
[[ $seconds =~ ^[0-9]+$ ]] || { echo "fuzz: SECONDS must be a whole number" >&2; exit 2; }

jobs=$(nproc 2>/dev/null || echo 2)
config=(-S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++
        -DOSTREL_BUILD_FUZZ=ON -DOSTREL_BUILD_TESTS=OFF -DOSTREL_BUILD_TOOLS=OFF
        -DBUILD_SHARED_LIBS=OFF)
if command -v ccache >/dev/null 2>&1; then
  config+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake "${config[@]}"
cmake --build build-fuzz -j "$jobs"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
findings=build-fuzz/findings
mkdir -p "$findings"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

failed=() summary=()
for src in fuzz/*.cpp; do
  name=$(basename "$src" .cpp)
  corpus=$scratch/$name
  mkdir -p "$corpus"
  if [[ -d fuzz/corpus/$name ]]; then cp -r "fuzz/corpus/$name/." "$corpus/"; fi
  echo "== fuzz $name (${seconds}s)"
  log=$scratch/$name.log
  if "build-fuzz/fuzz/$name" "$corpus" -max_total_time="$seconds" -timeout=5 \
       -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$findings/$name-" \
       >"$log" 2>&1; then
    status=ok
  else
    status=FAILED
    failed+=("$name")
    tail -n 60 "$log"
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  summary+=("$(printf '%-20s %12s runs  %s' "$name" "${runs:-?}" "$status")")
done

echo "== fuzz summary (${seconds}s per target)"
printf '%s\n' "${summary[@]}"
if [[ ${#failed[@]} -gt 0 ]]; then
  echo "fuzz: findings in ${failed[*]} (inputs in $findings/)" >&2
  exit 1
fi
