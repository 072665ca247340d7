#!/usr/bin/env bash
# Lets this machine run programs for 64-bit ARM, in root folders too, while a
# command runs; needs root.
#
#   scripts/arm64/emulator.sh COMMAND...
set -euo pipefail

fail() {
  printf 'arm64: %s\n' "$@" >&2
  exit 1
}

[ $# -gt 0 ] || fail 'usage: emulator.sh COMMAND...'
handlers=/proc/sys/fs/binfmt_misc
handler=$handlers/qemu-aarch64
registration=/usr/lib/binfmt.d/qemu-aarch64.conf
# Whoever needs the emulator holds a share of its lock. What is in the file tells
# that it was registered here, and not by the system.
lock=/run/lock/linux-capture-arm64

end() {
  # The last one ends what the first one began.
  if [ -s "$lock" ] && flock --exclusive --nonblock 9; then
    [ ! -e "$handler" ] || echo -1 >"$handler"
    : >"$lock"
  fi
}

register() {
  [ -r "$registration" ] || fail 'qemu-user-static is not installed'
  [ -e "$handlers/register" ] ||
    mount -t binfmt_misc binfmt_misc "$handlers" ||
    fail 'this system has no binfmt_misc'
  # With its flag F the kernel keeps the emulator open, so that a root folder
  # needs no copy of it.
  cat "$registration" >"$handlers/register" || [ -e "$handler" ] ||
    fail 'the emulator cannot be registered'
  echo registered >"$lock"
}

if [ "$(uname -m)" != aarch64 ]; then
  [ "$(id -u)" -eq 0 ] ||
    fail 'root folders are entered, which needs root: run this as root'
  exec 9>>"$lock"
  flock --shared 9
  trap end EXIT
  # A container often has nobody who did it when the package was installed.
  [ -e "$handler" ] || register
fi

"$@" 9>&-
