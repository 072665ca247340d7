#!/usr/bin/env bash
# What CI runs: the tests, those on a real desktop, those in a browser, those of
# the npm package, those on the compositors of GNOME and KDE, the same unit tests
# in the development presets and under the sanitizers, a short run of the module
# under stress, the exported symbols, style and static analysis.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

passed=0
failed=0

count_good() { passed=$((passed + 1)); }
count_bad() {
  failed=$((failed + 1))
  printf 'FAILED: %s\n' "$1" >&2
}

# Adds the counts that a run of tests left in a file.
add_counts() {
  local good bad
  if [ -r "$1" ] && read -r good bad <"$1"; then
    passed=$((passed + good))
    failed=$((failed + bad))
  else
    count_bad "$2"
  fi
}

results=build/test-results
mkdir -p "$results"
rm -f "$results"/*.counts

npm test </dev/null || true
add_counts "$results/test.counts" 'npm test'

npm run test:portal </dev/null || true
add_counts "$results/portal.counts" 'npm run test:portal'

npm run test:browser </dev/null || true
add_counts "$results/browser.counts" 'npm run test:browser'

npm run test:package </dev/null || true
add_counts "$results/package.counts" 'npm run test:package'

# After those that are to pass on a machine without the packages of a desktop.
npm run test:desktops </dev/null || true
add_counts "$results/desktops.counts" 'npm run test:desktops'

# The development preset is built by the compiler that knows the rules of locks.
bash scripts/setup.sh build test lint </dev/null

# The development preset is built whole, the others for the unit tests alone.
for preset in debug asan tsan; do
  target=unit_tests
  [ "$preset" != debug ] || target=all
  if cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset" \
    --parallel "$(nproc)" --target "$target" </dev/null; then
    count_good
    node scripts/run_tests.mjs --results "$results/$preset.counts" \
      "unit:$preset" </dev/null || true
    add_counts "$results/$preset.counts" "the unit tests of $preset"
  else
    count_bad "the build of $preset"
  fi
done

node tests/stress/run_stress.mjs --quick --results "$results/stress.counts" \
  </dev/null || true
add_counts "$results/stress.counts" 'the module under stress'

if bash scripts/check_exports.sh; then
  count_good
else
  count_bad 'the exported symbols'
fi
if bash scripts/lint.sh </dev/null; then count_good; else count_bad 'lint'; fi

printf '\n%d passed, %d failed\n' "$passed" "$failed"
[ "$failed" -eq 0 ]
