#!/usr/bin/env bash
# Plays recordings and opens previews of the command in a real browser.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mkdir -p build/test-results

# A setup or build that fails is one failure of its own.
fail() {
  echo '0 1' >build/test-results/browser.counts
  printf '%s\n\n0 passed, 1 failed\n' "$1"
  exit 1
}

bash scripts/setup.sh build runtime test browser || fail 'The setup failed.'
node scripts/build.mjs all || fail 'The build failed.'
exec node scripts/run_tests.mjs --results build/test-results/browser.counts \
  browser
