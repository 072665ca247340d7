#!/usr/bin/env bash
# Second half of test_matrix.sh, in namespaces of its own: mounts what programs
# expect into a root directory of Debian and runs the tests inside.
#
#   scripts/matrix_enter.sh suite root
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

suite=$1
root=$2

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
if [ -r "$certificates" ]; then
  cp "$certificates" "$root/run/certificates.crt"
else
  cp "$root$certificates" "$root/run/certificates.crt"
fi

# This machine's Node.js needs only the C and C++ libraries, so that the suites
# differ in what is under test and not in it.
node=$(readlink -f "$(command -v node)")
npm=$(dirname "$(dirname "$(readlink -f "$(command -v npm)")")")
mkdir -p "$root/run/node/bin" "$root/run/node/npm"
touch "$root/run/node/bin/node"
mount --bind "$node" "$root/run/node/bin/node"
mount --bind "$npm" "$root/run/node/npm"
ln -s ../npm/bin/npm-cli.js "$root/run/node/bin/npm"
ln -s ../npm/bin/npx-cli.js "$root/run/node/bin/npx"

environment=(
  HOME=/root LANG=C.UTF-8
  PATH=/run/node/bin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
  "NODE_EXTRA_CA_CERTS=/run/certificates.crt"
  "npm_config_cafile=/run/certificates.crt"
  "npm_config_registry=$(npm config get registry 2>/dev/null)"
)
for name in http_proxy https_proxy no_proxy HTTP_PROXY HTTPS_PROXY NO_PROXY; do
  [ -z "${!name:-}" ] || environment+=("$name=${!name}")
done

exec chroot "$root" /usr/bin/env -i "${environment[@]}" \
  bash /project/scripts/matrix_run.sh "$suite"
