#!/usr/bin/env bash
# Builds the package's part for 64-bit ARM into prebuilds/, where npm packs it
# from then on, and tests the package and the module on Debian for that processor,
# which this machine emulates.
#
#   scripts/test_arm64.sh [option of test_matrix.mjs]... [suite]...
#   scripts/test_arm64.sh --prebuild       builds that part and ends
#
# Debian 12 if no suite is named; it takes an hour. Needs root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh build runtime test matrix arm64
exec bash scripts/arm64/emulator.sh \
  node scripts/test_matrix.mjs --processor arm64 "$@"
