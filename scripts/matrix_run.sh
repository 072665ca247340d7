#!/usr/bin/env bash
# Last third of test_matrix.sh, inside a root directory of Debian: sets up,
# builds, tests and says which versions that was with.
#
#   scripts/matrix_run.sh suite
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

suite=$1

# The closing line counts a setup or build that fails as one failure.
fail() {
  printf '%s\n\n%s: 0 passed, 1 failed\n' "$1" "$suite"
  exit 1
}

installed() {
  dpkg-query -W -f '${Version}\n' "$1" 2>/dev/null || echo 'not installed'
}

bash scripts/setup.sh build runtime test || fail 'The setup failed.'
node scripts/build.mjs all || fail 'The build failed.'

# Whatever depends on the system's libraries: PipeWire, X11, GStreamer and
# OpenH264. The private /tmp holds the stage lines of these tests only.
results=$(mktemp)
node scripts/run_tests.mjs --results "$results" unit:release \
  module:pipewire_,capture_monitor,capture_window,x11_faults \
  </dev/null || true
omitted=$(grep -ho 'omitted-pipewiresrc-properties=.*' \
  /tmp/linux-capture-debug.log | cut -d= -f2 | sort -u | paste -sd ' ') || true

printf '\nDebian %s\n' "$suite"
printf '  %-12s %s\n' \
  GStreamer "$(pkg-config --modversion gstreamer-1.0)" \
  PipeWire "$(pkg-config --modversion libpipewire-0.3)" \
  WirePlumber "$(installed wireplumber)" \
  OpenH264 "$(pkg-config --modversion openh264)" \
  Node.js "$(node --version)" \
  compiler "$(c++ --version | head -n 1)"
printf '  pipewiresrc properties omitted: %s\n' "${omitted:-none}"

passed=0 failed=1
if [ -s "$results" ]; then read -r passed failed <"$results"; fi
printf '\n%s: %s passed, %s failed\n' "$suite" "$passed" "$failed"
[ "$failed" -eq 0 ]
