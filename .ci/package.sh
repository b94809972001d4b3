#!/usr/bin/env bash
# Builds the binary packages into dist/ and checks each the way a user would use it
# (./run.sh package, ./run.sh package-windows; both CI stages).
#
#   .ci/package.sh debian    libostrel0, libostrel-dev and ostrel for this Debian (amd64),
#                            from build-package/ (prefix /usr, no tests); shown with
#                            dpkg-deb --info, checked by lintian (errors fail), unpacked with
#                            dpkg -x into a scratch root, where `ostrel demo` runs and
#                            examples/consumer is built with CMake and with pkg-config and runs.
#   .ci/package.sh windows   ostrel-VERSION-win64.zip and -win32.zip from build-win64-package/
#                            and build-win32-package/; the win64 zip is unpacked, and
#                            bin/ostrel.exe demo and examples/consumer built against the zip
#                            run under Wine. The win32 zip is only built (its programs cannot
#                            start on a kernel without 32-bit x86 support).
# Installs what is missing as root, otherwise names it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root_dir=$PWD

kind=${1:-}
[[ $kind == debian || $kind == windows ]] || { echo "usage: $0 debian|windows" >&2; exit 2; }

say() { echo "package: $*" >&2; }
source .ci/packages.sh

jobs=$(nproc 2>/dev/null || echo 2)
version=$(sed -n 's/^project(Ostrel VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-true}
mkdir -p dist
work=$(mktemp -d "${TMPDIR:-/tmp}/ostrel-package.XXXXXX")
trap 'rm -rf "$work"' EXIT

# package DIR CMAKE-ARGS...: configures and builds DIR without tests, then runs CPack there.
package() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOSTREL_BUILD_TESTS=OFF \
    "${launcher[@]}" "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && cpack >"$work/cpack-$(basename "$dir").log" 2>&1) || {
    cat "$work/cpack-$(basename "$dir").log"
    say "cpack failed in $dir"
    exit 1
  }
}

if [[ $kind == debian ]]; then
  ensure_packages cmake ninja-build g++ pkg-config dpkg-dev fakeroot file lintian
  arch=$(dpkg --print-architecture)
  rm -f dist/*_"$arch".deb
  package build-package -DCMAKE_INSTALL_PREFIX=/usr -DOSTREL_PACKAGE_DEBIAN=ON
  debs=(dist/libostrel0_*_"$arch".deb dist/libostrel-dev_*_"$arch".deb dist/ostrel_*_"$arch".deb)
  for deb in "${debs[@]}"; do
    [[ -f $deb ]] || { say "no $deb"; exit 1; }
    echo "== $deb"
    dpkg-deb --field "$deb" Package Version Architecture Section Depends Provides
    dpkg-deb --contents "$deb" | awk '{print "   " $6 ($7 ? " " $7 " " $8 : "")}'
  done
  # lintian: errors fail the stage; warnings and notes are shown for the record.
  lintian_out=$(lintian --fail-on none --display-info "${debs[@]}" 2>&1) || true
  echo "== lintian"
  echo "${lintian_out:-(no findings)}"
  if grep -q '^E: ' <<<"$lintian_out"; then
    say "lintian reports errors"
    exit 1
  fi
  # The packages as a user meets them, unpacked into a scratch root instead of installed.
  sysroot=$work/root
  for deb in "${debs[@]}"; do dpkg -x "$deb" "$sysroot"; done
  libdir=$sysroot/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  LD_LIBRARY_PATH=$libdir "$sysroot/usr/bin/ostrel" demo >"$work/demo.txt" ||
    { say "ostrel demo from the package failed"; exit 1; }
  grep -q "^Ostrel $version: " "$work/demo.txt" || { say "ostrel demo printed no title"; exit 1; }
  bash tests/consumer_check.sh --libdir "$libdir" "$sysroot/usr"
  say "Debian packages built and checked: ${debs[*]}"
else
  ensure_packages cmake ninja-build g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix wine wine64 zip unzip
  source .ci/wine-env.sh
  rm -f dist/ostrel-*-win64.zip dist/ostrel-*-win32.zip
  for arch in x86_64 i686; do
    package "build-win${arch/x86_64/64}-package" -DOSTREL_WERROR=ON \
      -DCMAKE_TOOLCHAIN_FILE="cmake/toolchains/mingw-w64-$arch.cmake" --no-warn-unused-cli
  done
  for zip in dist/ostrel-"$version"-win64.zip dist/ostrel-"$version"-win32.zip; do
    [[ -f $zip ]] || { say "no $zip"; exit 1; }
    echo "== $zip"
    unzip -l "$zip" | awk 'NR > 3 && $4 {print "   " $4}' | grep -v '/$' | sed '$d'
  done
  unzip -q dist/ostrel-"$version"-win64.zip -d "$work"
  top=$work/ostrel-$version-win64
  wine_command wine 64 "$work/wineprefix"
  "${wine[@]}" wineboot --init >/dev/null 2>&1 || true
  (cd "$work" && "${wine[@]}" "$top/bin/ostrel.exe" demo >"$work/demo.txt" 2>&1) ||
    { cat "$work/demo.txt"; say "bin/ostrel.exe demo failed under Wine"; exit 1; }
  grep -q "^Ostrel $version: " "$work/demo.txt" || { say "bin/ostrel.exe demo printed no title"; exit 1; }
  bash tests/consumer_check.sh --toolchain "$root_dir/cmake/toolchains/mingw-w64-x86_64.cmake" \
    --runner "${wine[*]}" --libdir "$top/bin" "$top"
  say "Windows zips built; the win64 one checked under Wine"
fi
