#!/usr/bin/env bash
# Packs the npm package, installs it in an empty folder without a compiler in
# reach, and uses it there.
#
#   scripts/test_package.sh [--clean-root]
#
# With --clean-root, as root: installs it in a new Debian 12 that has what the
# README names for running the module and nothing else. That downloads some
# 300 MB of Debian packages and takes minutes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mkdir -p build/test-results

# A setup or build that fails is one failure of its own.
fail() {
  echo '0 1' >build/test-results/package.counts
  printf '%s\n\n0 passed, 1 failed\n' "$1"
  exit 1
}

suites=(package)
groups=(build runtime demo test)
case ${1:-} in
  '') ;;
  --clean-root)
    [ "$(id -u)" -eq 0 ] || fail 'A new Debian can only be made as root.'
    suites=(clean-root)
    groups+=(clean-root)
    ;;
  *) fail "unknown option $1" ;;
esac

bash scripts/setup.sh "${groups[@]}" || fail 'The setup failed.'
node scripts/build.mjs shipped scene || fail 'The build failed.'
exec node scripts/run_tests.mjs --results build/test-results/package.counts \
  "${suites[@]}"
