#!/usr/bin/env bash
# Runs the tests that depend on the system's libraries on other releases of
# Debian than this machine's, each in a root directory of its own.
#
#   scripts/test_matrix.sh [--fresh] [--mirror URL] [suite]...
#
# A suite is "testing" (the default), "trixie" or any other of Debian. The root
# directories stay under ${XDG_CACHE_HOME:-~/.cache}/linux-capture-addon/matrix,
# 2 GB each; --fresh makes the named ones anew. The mirror is the one this
# machine's own apt uses for Debian. Needs root, or sudo to become it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
  printf 'test:matrix: %s\n' "$@" >&2
  exit 1
}

fresh=false
mirror=
suites=()
while [ $# -gt 0 ]; do
  case $1 in
    --fresh) fresh=true ;;
    --mirror)
      [ $# -gt 1 ] || fail '--mirror needs the URL of a Debian mirror'
      mirror=$2
      shift
      ;;
    -*) fail "unknown option $1" ;;
    *)
      # It becomes part of a path that is removed.
      [[ $1 =~ ^[a-z]+$ ]] || fail "\"$1\" is not the name of a suite"
      suites+=("$1")
      ;;
  esac
  shift
done
[ ${#suites[@]} -gt 0 ] || suites=(testing)

if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null ||
    fail 'root directories are made and entered, which needs root,' \
      'and there is no sudo to become root with. Run this as root.'
  echo 'test:matrix: making and entering root directories needs root: sudo'
  arguments=("${suites[@]}")
  [ -z "$mirror" ] || arguments=(--mirror "$mirror" "${arguments[@]}")
  [ "$fresh" = false ] || arguments=(--fresh "${arguments[@]}")
  # With the user's own cache and way to the network, and the user's Node.js,
  # which root may not have in its PATH.
  exec sudo --preserve-env=http_proxy,https_proxy,no_proxy \
    env "PATH=$PATH" "XDG_CACHE_HOME=${XDG_CACHE_HOME:-$HOME/.cache}" \
    bash scripts/test_matrix.sh "${arguments[@]}"
fi

cache=${XDG_CACHE_HOME:-$HOME/.cache}/linux-capture-addon/matrix
mapfile -t missing < <(node scripts/packages.mjs missing matrix </dev/null)
if [ ${#missing[@]} -gt 0 ]; then
  echo "test:matrix: installing ${missing[*]}"
  DEBIAN_FRONTEND=noninteractive apt-get install -y -q \
    --no-install-recommends "${missing[@]}" </dev/null >/dev/null ||
    fail "install these first: ${missing[*]}"
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# How this machine's apt reaches a mirror (proxies, checks that are switched
# off) holds for the roots; its hooks and lists do not.
apt-config dump |
  grep -E '^Acquire::(https?|Check-Valid-Until|Check-Date|Retries|ForceIPv)' \
    >"$work/apt.conf" || true

find_mirror() {
  # shellcheck disable=SC2016  # The fields are apt's, not the shell's.
  apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(REPO_URI)' \
    'Created-By: Packages' |
    awk '$1 == "Debian" && $2 !~ /-/ { print $3; exit }'
}

make_root() {
  local suite=$1 root=$cache/$1
  if [ "$fresh" = true ]; then
    rm -rf --one-file-system "$root"
  fi
  [ ! -d "$root" ] || return 0
  [ -n "$mirror" ] || mirror=$(find_mirror)
  [ -n "$mirror" ] || fail 'apt knows no mirror of Debian here:' \
    'run "apt-get update", or name one with --mirror URL'
  mkdir -p "$cache"
  rm -rf --one-file-system "$root.part"
  echo "test:matrix: making a root directory of Debian $suite"
  # Renamed at the end, so that an interrupted one is not taken for whole.
  if ! mmdebstrap --mode=root --variant=apt --include=ca-certificates \
    --aptopt="$work/apt.conf" "$suite" "$root.part" "$mirror" \
    </dev/null >"$work/mmdebstrap.log" 2>&1; then
    tail -n 25 "$work/mmdebstrap.log" >&2
    return 1
  fi
  mv "$root.part" "$root"
}

# What git would keep of the work tree as it is now; build results and
# installed packages of an earlier run stay, since they belong to that root.
copy_project() {
  local project=$1/project
  mkdir -p "$project"
  find "$project" -mindepth 1 -maxdepth 1 ! -name build ! -name node_modules \
    -exec rm -rf {} +
  # The owner is another user than root when sudo was needed.
  git -c safe.directory="$PWD" ls-files -z --cached --others \
    --exclude-standard >"$work/files"
  while IFS= read -r -d '' file; do
    [ ! -e "$file" ] || printf '%s\0' "$file"
  done <"$work/files" |
    tar --create --null --files-from=- |
    tar --extract --no-same-owner --directory="$project"
}

status=0
for suite in "${suites[@]}"; do
  printf '\n=== Debian %s ===\n' "$suite"
  root=$cache/$suite
  # A process namespace of its own ends whatever a test leaves behind, and the
  # mounts go with their namespace.
  if make_root "$suite" && copy_project "$root" &&
    cp "$work/apt.conf" "$root/etc/apt/apt.conf.d/99machine" &&
    unshare --mount --pid --fork --kill-child \
      bash scripts/matrix_enter.sh "$suite" "$root" </dev/null; then
    :
  else
    # The tests print a line of their own when they have run.
    status=1
  fi
done
exit "$status"
