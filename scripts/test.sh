#!/usr/bin/env bash
# Sets up and builds what a kind of tests needs, and runs it.
#
#   scripts/test.sh               types, unit tests, module and tools: what a
#                                 change is judged by
#   scripts/test.sh portal        captures a real desktop: a compositor, the
#                                 desktop portal and PipeWire, started for it
#   scripts/test.sh desktops      captures the compositors of GNOME and KDE, which
#                                 run without a screen or a graphics card
#   scripts/test.sh browser       plays recordings and opens previews in Chromium
#   scripts/test.sh package       installs what npm packs in an empty folder,
#                                 without a compiler in reach, and uses it there
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

kind=${1:-test}
[ $# -eq 0 ] || shift
mkdir -p build/test-results
results=build/test-results/$kind.counts

# A setup or build that fails is one failure of its own.
fail() {
  echo '0 1' >"$results"
  printf '%s\n\n0 passed, 1 failed\n' "$1"
  exit 1
}

purposes=(build runtime test)
targets=(all)
suites=("$kind")
case $kind in
  test)
    purposes+=(demo)
    suites=(types unit:release module)
    ;;
  portal)
    purposes+=(portal)
    targets=(linux_capture_addon linux-capture-portal screencopy_preload)
    ;;
  desktops)
    purposes+=(desktops)
    targets=(linux_capture_addon programs desktop_helpers fake_portal)
    ;;
  browser) purposes+=(browser) ;;
  package)
    purposes+=(demo)
    targets=(linux_capture_addon programs scene)
    ;;
  *)
    echo "test: unknown kind of tests \"$kind\"" >&2
    exit 1
    ;;
esac
[ $# -eq 0 ] || fail "unknown option $1"

bash scripts/setup.sh "${purposes[@]}" || fail 'The setup failed.'
node scripts/build.mjs "${targets[@]}" || fail 'The build failed.'

node scripts/run_tests.mjs --results "$results" "${suites[@]}"
