#!/usr/bin/env bash
# Makes a bare Debian 12 with this machine's Node.js and npm in it.
#
#   scripts/make_clean_root.sh FOLDER
set -euo pipefail

root=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# How this machine's apt reaches a mirror also holds for the new system.
apt-config dump |
  grep -E '^Acquire::(http|https|Check|Max-|Retries)' >"$work/apt.conf" || true
# shellcheck disable=SC2016  # The fields are apt's, not the shell's.
mirror=$(apt-get indextargets \
  --format '$(ORIGIN) $(REPO_URI)' 'Created-By: Packages' |
  awk '$1 == "Debian" { print $2; exit }')
[ -n "$mirror" ] || {
  echo 'make_clean_root: apt knows no mirror of Debian here' >&2
  exit 1
}
if ! mmdebstrap --mode=root --variant=apt --aptopt="$work/apt.conf" \
  bookworm "$root" "$mirror" </dev/null >"$work/log" 2>&1; then
  tail -n 25 "$work/log" >&2
  exit 1
fi
cp "$work/apt.conf" "$root/etc/apt/apt.conf.d/99machine"
chmod 755 "$root"

# Of the machine's libraries it needs only those of C and C++.
npm=$(dirname "$(dirname "$(readlink -f "$(command -v npm)")")")
cp "$(readlink -f "$(command -v node)")" "$root/usr/local/bin/node"
cp -r "$npm" "$root/usr/local/lib/npm"
ln -s ../lib/npm/bin/npm-cli.js "$root/usr/local/bin/npm"
ln -s ../lib/npm/bin/npx-cli.js "$root/usr/local/bin/npx"
