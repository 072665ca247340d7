#!/usr/bin/env bash
# Everything a change is judged by on this machine: setup, build, all tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# A setup or build that fails is one failure of its own.
fail() {
  mkdir -p build/test-results
  echo '0 1' >build/test-results/test.counts
  printf '%s\n\n0 passed, 1 failed\n' "$1"
  exit 1
}

bash scripts/setup.sh build runtime demo test || fail 'The setup failed.'
node scripts/build.mjs all || fail 'The build failed.'
mkdir -p build/test-results
exec node scripts/run_tests.mjs --results build/test-results/test.counts \
  types unit:release module
