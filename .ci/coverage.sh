#!/usr/bin/env bash
# Line and branch coverage of the library by the whole test suite (./run.sh coverage): a GCC
# build with --coverage in build-coverage/, the suite through CTest, lcov over src/ostrel.
# Prints per library folder the lines and branches hit, the totals, and the size of the tests
# against the library (lines of tests/ over lines of src/). Writes the same table to
# build-coverage/coverage.txt and an HTML report to build-coverage/html/.
#
# Branches are counted without the compiler's exception-path branches (each call that may
# throw has one), which would otherwise outnumber the branches written in the code.
# Not a CI stage: a coverage build runs the suite several times slower.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

dir=build-coverage
jobs=$(nproc 2>/dev/null || echo 2)
config=(-S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=g++
        -DCMAKE_CXX_FLAGS_DEBUG="-O0 -g" -DCMAKE_CXX_FLAGS=--coverage
        -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage)
command -v ccache >/dev/null 2>&1 && config+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake "${config[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"

lcov_rc=(--rc lcov_branch_coverage=1 --rc geninfo_no_exception_branch=1)
lcov --quiet --zerocounters --directory "$dir"
# The volume tests move 8 MB each way instead of 100: the data path is the same, and the
# instrumented build is slow. The install test copies the library elsewhere and adds nothing.
OSTREL_TEST_VOLUME_MB=8 ctest --test-dir "$dir" -j "$jobs" -E '^install$' --output-on-failure \
  >"$dir/ctest.log" 2>&1 || { tail -n 40 "$dir/ctest.log"; echo "coverage: tests failed" >&2; exit 1; }

lcov --quiet "${lcov_rc[@]}" --capture --directory "$dir" --output-file "$dir/all.info" \
  2>"$dir/lcov.log"
lcov --quiet "${lcov_rc[@]}" --extract "$dir/all.info" "$PWD/src/ostrel/*" \
  --output-file "$dir/library.info" 2>>"$dir/lcov.log"
genhtml --quiet --branch-coverage --output-directory "$dir/html" "$dir/library.info" \
  >/dev/null 2>>"$dir/lcov.log" || echo "coverage: genhtml failed (see $dir/lcov.log)" >&2

lines_of() { find "$@" -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.sh' -o -name '*.py' \) \
               -exec cat {} + | wc -l; }
{
  # LF/LH: lines found/hit, BRF/BRH: branches found/hit, per source file (SF); summed per
  # folder, then the folders in order and the total.
  printf "%-10s %18s %22s\n" folder "lines hit" "branches hit"
  awk -v root="$PWD/src/ostrel/" '
    /^SF:/ { f = substr($0, 4); sub(root, "", f); n = split(f, p, "/");
             d = (n > 1) ? p[1] : "(top)" }
    /^LF:/ { lf[d] += substr($0, 4) } /^LH:/ { lh[d] += substr($0, 4) }
    /^BRF:/ { bf[d] += substr($0, 5) } /^BRH:/ { bh[d] += substr($0, 5) }
    END { for (d in lf) print d, lh[d], lf[d], bh[d] + 0, bf[d] + 0 }' "$dir/library.info" |
    sort | awk '
    function pct(h, f) { return f ? sprintf("%5.1f%%", 100 * h / f) : "    -" }
    function row(d, a, b, c, e) { printf "%-10s %6d/%-6d %s %7d/%-7d %s\n", d, a, b, pct(a, b), c, e, pct(c, e) }
    { row($1, $2, $3, $4, $5); t2 += $2; t3 += $3; t4 += $4; t5 += $5 }
    END { row("total", t2, t3, t4, t5) }'
  tests=$(lines_of tests) library=$(lines_of src)
  awk -v t="$tests" -v l="$library" \
    'BEGIN { printf "test size: %d lines of tests/ for %d of src/ (%.1f%%)\n", t, l, 100 * t / l }'
} | tee "$dir/coverage.txt"
