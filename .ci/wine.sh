#!/usr/bin/env bash
# The 64-bit Windows build's serial port and scanner commands run under Wine over a
# pseudo-terminal (tests/devices/wine_serial_check.py). Only where Wine, python3 and the
# cross build are there already: Wine is too large to install for this one check.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
source .ci/wine-env.sh

build=build-win64
runtime=/usr/lib/gcc/x86_64-w64-mingw32/12-posix
if ! command -v wine >/dev/null 2>&1 || ! command -v python3 >/dev/null 2>&1 ||
   [[ ! -f $build/tools/ostrel.exe ]]; then
  echo "ci: wine, python3 or the x86_64 Windows build missing; skipping the Wine serial check" >&2
  exit 0
fi
dir=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-wine.XXXXXX")
trap 'rm -rf "$dir"' EXIT
cp "$build/tools/ostrel.exe" "$build/libostrel.dll" "$runtime/libstdc++-6.dll" \
   "$runtime/libgcc_s_seh-1.dll" /usr/x86_64-w64-mingw32/lib/libwinpthread-1.dll "$dir/"
OSTREL_WINE=$(wine_loader 64) timeout 600 python3 tests/devices/wine_serial_check.py "$dir"
