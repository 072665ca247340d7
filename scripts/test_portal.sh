#!/usr/bin/env bash
# Captures a real desktop: a compositor, the desktop portal, PipeWire and the
# portal program, all started for the purpose and ended afterwards.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mkdir -p build/test-results

# A setup or build that fails is one failure of its own.
fail() {
  echo '0 1' >build/test-results/portal.counts
  printf '%s\n\n0 passed, 1 failed\n' "$1"
  exit 1
}

bash scripts/setup.sh build runtime test portal || fail 'The setup failed.'
node scripts/build.mjs linux_capture_addon linux-capture-portal \
  screencopy_preload || fail 'The build failed.'
exec node scripts/run_tests.mjs --results build/test-results/portal.counts \
  portal
