# Sourced by the Windows scripts: how to start a Windows program of a given width under Wine.
#
# /usr/bin/wine hands every program to the 32-bit loader as soon as 32-bit Wine is installed,
# 64-bit ones included; on a kernel that runs no 32-bit x86 code that loader cannot start
# ("Exec format error", status 126), so every program would fail. So 64-bit programs go to the
# 64-bit loader directly, and 32-bit ones to the 32-bit loader only after a probe showed that
# it starts (wine_32bit_reason).

# wine_loader BITS: prints the loader for programs of 32 or 64 bits ("" when there is none).
wine_loader() {
  local c
  if [[ $1 == 64 ]]; then
    for c in wine64 /usr/lib/wine/wine64 /usr/lib64/wine/wine64; do
      command -v "$c" 2>/dev/null && return 0
    done
  else
    for c in /usr/lib/wine/wine /usr/lib/i386-linux-gnu/wine/wine; do
      [[ -x $c ]] && { echo "$c"; return 0; }
    done
    # Debian's layout without its 32-bit loader: plain wine would be the 64-bit one.
    [[ -d /usr/lib/wine ]] && return 0
  fi
  command -v wine 2>/dev/null || true
}

# wine_command ARRAY BITS PREFIX: sets the array ARRAY to the command that runs a program of
# BITS under a headless Wine with its own prefix PREFIX (no user setting read or changed).
wine_command() {
  local -n cmd=$1
  cmd=(env WINEPREFIX="$3" WINEDEBUG=-all WINEDLLOVERRIDES=winemenubuilder.exe=d DISPLAY=
       "$(wine_loader "$2")")
}

# wine_32bit_reason PROGRAM PREFIX: runs the 32-bit PROGRAM with "--version"; prints nothing
# when it started, otherwise why 32-bit programs cannot run here (and returns 1).
wine_32bit_reason() {
  local loader out rc=0
  loader=$(wine_loader 32)
  if [[ -z $loader ]]; then
    echo "no 32-bit Wine loader is installed (wine32:i386)"
    return 1
  fi
  local wine
  wine_command wine 32 "$2"
  out=$("${wine[@]}" "$1" --version 2>&1) || rc=$?
  [[ $rc -eq 0 && $out == *ostrel* ]] && return 0
  if [[ $rc -eq 126 || $out == *"Exec format error"* ]]; then
    echo "this kernel does not execute 32-bit x86 programs, so the 32-bit Wine loader cannot" \
         "start (Exec format error)"
  else
    echo "the 32-bit Wine loader $loader cannot start a program (status $rc: $(head -n 1 <<<"$out" | cut -c 1-120))"
  fi
  return 1
}
