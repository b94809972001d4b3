# Sourced by run.sh and the CI scripts: ensure_packages PKG... installs (as root) or names
# (otherwise) the Debian packages that are missing. Exits non-zero when something is missing
# and cannot be installed here; does nothing on a system without dpkg. Waits for another
# install under way (two CI stages may install side by side) instead of failing on apt's lock.
ensure_packages() {
  if ! command -v dpkg-query >/dev/null 2>&1; then
    echo "ostrel: not a Debian system; assuming these are installed: $*" >&2
    return 0
  fi
  local missing=() pkg
  for pkg in "$@"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' ||
      missing+=("$pkg")
  done
  [[ ${#missing[@]} -eq 0 ]] && return 0
  if [[ $(id -u) -ne 0 ]]; then
    echo "ostrel: missing Debian packages; install them with:" >&2
    echo "sudo apt-get install -y --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
  echo "ostrel: installing ${missing[*]}" >&2
  local lock=(-o DPkg::Lock::Timeout=900)
  DEBIAN_FRONTEND=noninteractive apt-get "${lock[@]}" update -qq
  DEBIAN_FRONTEND=noninteractive apt-get "${lock[@]}" install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
}
