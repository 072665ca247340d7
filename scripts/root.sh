#!/usr/bin/env bash
# Root folders of Debian releases, for tests; needs root.
#
#   scripts/root.sh make SUITE FOLDER [MIRROR]     a bare one
#   scripts/root.sh enter ROOT FOLDER COMMAND...   runs a command in one
#
# LINUX_CAPTURE_PROCESSOR, in Node's terms, makes one for another processor; this
# machine must know how to emulate it (scripts/arm64/emulator.sh). Its mirror is the one that this machine's own apt uses. A command has what
# programs expect mounted, in namespaces that end with it and with whatever it
# leaves behind; its Node.js and npm are this machine's, or the Node.js that
# LINUX_CAPTURE_NODE names.
set -euo pipefail

fail() {
  printf 'root: %s\n' "$@" >&2
  exit 1
}

find_mirror() {
  # shellcheck disable=SC2016  # The fields are apt's, not the shell's.
  apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(REPO_URI)' \
    'Created-By: Packages' |
    awk '$1 == "Debian" && $2 !~ /-/ { print $3; exit }'
}

make() {
  local suite=$1 folder=$2 mirror=${3:-} work options=()
  [ -n "$mirror" ] || mirror=$(find_mirror)
  [ -n "$mirror" ] || fail 'apt knows no mirror of Debian here:' \
    'run "apt-get update", or name one'
  work=$(mktemp -d)
  # How this machine's apt reaches a mirror (proxies, checks that are switched
  # off) holds for the root too; its hooks and lists do not.
  apt-config dump |
    grep -E '^Acquire::(https?|Check-|Max-|Retries|ForceIPv)' \
      >"$work/apt.conf" || true
  rm -rf --one-file-system "$folder.part"
  mkdir -p "$(dirname "$folder")"
  # Debian has other names than Node.js for some.
  case ${LINUX_CAPTURE_PROCESSOR:-} in
    '') ;;
    x64) options+=(--arch=amd64) ;;
    *) options+=("--arch=$LINUX_CAPTURE_PROCESSOR") ;;
  esac
  if ! mmdebstrap --mode=root --variant=apt --include=ca-certificates \
    --aptopt="$work/apt.conf" "${options[@]}" "$suite" "$folder.part" "$mirror" \
    </dev/null >"$work/log" 2>&1; then
    tail -n 25 "$work/log" >&2
    rm -rf "$work"
    fail "Debian $suite could not be made"
  fi
  cp "$work/apt.conf" "$folder.part/etc/apt/apt.conf.d/99machine"
  chmod 755 "$folder.part"
  rm -rf "$work"
  # Renamed at the end, so that an interrupted one is not taken for whole.
  mv "$folder.part" "$folder"
}

# Debian's releases differ in what is under test, not in Node.js: this machine's
# needs only the libraries of C and C++.
mount_node() {
  local root=$1 node npm
  node=${LINUX_CAPTURE_NODE:-$(readlink -f "$(command -v node)")}
  npm=$(dirname "$(dirname "$(readlink -f "$(command -v npm)")")")
  mkdir -p "$root/run/node/bin" "$root/run/node/npm"
  touch "$root/run/node/bin/node"
  mount --bind "$node" "$root/run/node/bin/node"
  mount --bind "$npm" "$root/run/node/npm"
  ln -s ../npm/bin/npm-cli.js "$root/run/node/bin/npm"
  ln -s ../npm/bin/npx-cli.js "$root/run/node/bin/npx"
}

enter_inside() {
  local root=$1 folder=$2 name certificates
  shift 2
  mount --make-rprivate /
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  mount --rbind /sys "$root/sys"
  mount -t tmpfs -o mode=755 tmpfs "$root/run"
  mkdir -p "$root/run/lock"
  mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
  # The names and certificates by which this machine reaches the network.
  cat /etc/resolv.conf >"$root/run/resolv.conf"
  ln -sfn /run/resolv.conf "$root/etc/resolv.conf"
  certificates=/etc/ssl/certs/ca-certificates.crt
  [ -r "$certificates" ] || certificates=$root$certificates
  cp "$certificates" "$root/run/certificates.crt"
  mount_node "$root"

  local environment=(
    HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive
    PATH=/run/node/bin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
    "NODE_EXTRA_CA_CERTS=/run/certificates.crt"
    "npm_config_cafile=/run/certificates.crt"
    "npm_config_registry=$(npm config get registry 2>/dev/null)"
    npm_config_update_notifier=false
  )
  for name in DISPLAY http_proxy https_proxy no_proxy HTTP_PROXY HTTPS_PROXY \
    NO_PROXY; do
    [ -z "${!name:-}" ] || environment+=("$name=${!name}")
  done
  # shellcheck disable=SC2016  # Expanded inside.
  exec chroot "$root" /usr/bin/env -i "${environment[@]}" \
    bash -c 'cd "$1" && shift && exec "$@"' enter "$folder" "$@" </dev/null
}

action=${1:-}
[ $# -gt 2 ] || fail 'usage: root.sh make SUITE FOLDER [MIRROR]' \
  'or root.sh enter ROOT FOLDER COMMAND...'
shift
case $action in
  make) make "$@" ;;
  enter)
    # A process namespace of its own ends whatever the command leaves behind,
    # and the mounts go with their namespace.
    exec unshare --mount --pid --fork --kill-child \
      bash "${BASH_SOURCE[0]}" enter-inside "$@"
    ;;
  enter-inside) enter_inside "$@" ;;
  *) fail "unknown action \"$action\"" ;;
esac
