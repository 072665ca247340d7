#!/usr/bin/env bash
# Runs a command in a root folder, with what programs expect mounted in a
# namespace that ends with the command.
#
#   scripts/enter_root.sh ROOT FOLDER COMMAND...
set -euo pipefail

if [ "${1:-}" != --inside ]; then
  exec unshare --mount --pid --fork --kill-child \
    bash "${BASH_SOURCE[0]}" --inside "$@"
fi
shift
root=$1
folder=$2
shift 2
mount --make-rprivate /
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mount -t tmpfs -o mode=755 tmpfs "$root/run"
mkdir -p "$root/run/lock"
mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
cat /etc/resolv.conf >"$root/run/resolv.conf"
mount --bind "$root/run/resolv.conf" "$root/etc/resolv.conf" 2>/dev/null ||
  cp /etc/resolv.conf "$root/etc/resolv.conf"

environment=(
  HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive
  PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
  "DISPLAY=${DISPLAY:-}"
)
for name in http_proxy https_proxy no_proxy; do
  [ -z "${!name:-}" ] || environment+=("$name=${!name}")
done
# shellcheck disable=SC2016  # Expanded inside.
exec chroot "$root" /usr/bin/env -i "${environment[@]}" \
  bash -c 'cd "$1" && shift && exec "$@"' enter "$folder" "$@" </dev/null
