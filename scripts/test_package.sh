#!/usr/bin/env bash
# Packs the npm package, installs it in an empty folder without a compiler in
# reach, and uses it there.
#
#   scripts/test_package.sh [--clean-root]
#
# With --clean-root, as root: installs it in a new and bare Debian 12, and then
# the Debian packages that its messages ask for, until it takes a picture there.
# That downloads Debian packages and takes minutes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mkdir -p build/test-results

# A setup or build that fails is one failure of its own.
fail() {
  echo '0 1' >build/test-results/package.counts
  printf '%s\n\n0 passed, 1 failed\n' "$1"
  exit 1
}

suite=package
groups=(build runtime demo test)
case ${1:-} in
  '') ;;
  --clean-root)
    [ "$(id -u)" -eq 0 ] || fail 'A new Debian can only be made as root.'
    suite=clean-root
    groups+=(clean-root)
    ;;
  *) fail "unknown option $1" ;;
esac

bash scripts/setup.sh "${groups[@]}" || fail 'The setup failed.'
node scripts/build.mjs linux_capture_addon programs scene ||
  fail 'The build failed.'

if [ "$suite" = clean-root ]; then
  LINUX_CAPTURE_CLEAN_ROOT=$(mktemp -d)
  export LINUX_CAPTURE_CLEAN_ROOT
  trap 'rm -rf --one-file-system "$LINUX_CAPTURE_CLEAN_ROOT"' EXIT
  bash scripts/make_clean_root.sh "$LINUX_CAPTURE_CLEAN_ROOT" ||
    fail 'The new Debian could not be made.'
fi
node scripts/run_tests.mjs --results build/test-results/package.counts "$suite"
