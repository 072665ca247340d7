#!/usr/bin/env bash
# Installs what the named purposes of lib/system_packages.json need, then the npm
# packages. Does nothing, quickly, when everything is there.
#
#   scripts/setup.sh [build|runtime|demo|test|portal|desktops|browser|bench|lint]...
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
  printf 'setup: %s\n' "$@" >&2
  exit 1
}

command -v node >/dev/null ||
  fail 'Node.js 20 or later is needed, and no "node" was found in PATH.'
command -v npm >/dev/null ||
  fail 'npm is needed, and no "npm" was found in PATH.'

mapfile -t missing < <(node scripts/packages.mjs missing "$@" </dev/null)
# The substitution hides the exit status of a wrong group name; ask again.
[ ${#missing[@]} -gt 0 ] || node scripts/packages.mjs missing "$@" </dev/null

if [ ${#missing[@]} -gt 0 ]; then
  if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    fail 'these are missing, under the names that Debian and Ubuntu use:' \
      "  ${missing[*]}" \
      'Install their counterparts with the package manager of this system.'
  fi
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
      fail 'packages are missing and there is no sudo. Run as root:' \
        "  apt-get install --no-install-recommends ${missing[*]}"
    as_root=(sudo)
  fi
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  log=$(mktemp)
  trap 'rm -f "$log"' EXIT
  if ! { "${as_root[@]}" apt-get update -q &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -q --no-install-recommends "${missing[@]}"; } \
    </dev/null >"$log" 2>&1; then
    tail -n 25 "$log" >&2
    fail 'the packages above could not be installed.'
  fi
  rm -f "$log"
fi

# npm writes node_modules/.package-lock.json last, so it also tells a finished
# installation from an interrupted one.
if [ ! -e node_modules/.package-lock.json ] ||
  [ package-lock.json -nt node_modules/.package-lock.json ]; then
  echo 'setup: installing the npm packages'
  npm ci --no-audit --no-fund --loglevel=error </dev/null
  touch node_modules/.package-lock.json
fi
