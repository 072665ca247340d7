#!/usr/bin/env bash
# What CI runs: the tests, those on a real desktop, those in a browser, those of
# the npm package, those on the compositors of GNOME and KDE, the same unit tests
# in the development presets and under the sanitizers, a short run of the module
# under stress, the exported symbols, style and static analysis.
#
# The tests mostly wait for pictures and sound, so what only computes goes on
# beside them, in what they leave of the processors.
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

# Runs one step and leaves its counts in a file of its name.
leave_counts() {
  local file=$results/$1.counts
  shift
  if "$@"; then echo '1 0' >"$file"; else echo '0 1' >"$file"; fi
}

# Builds one preset and runs its unit tests; these not at the low priority, since
# they look at times. The development preset is built whole, by the compiler that
# knows the rules of locks; the others for the unit tests and the stress.
check_preset() {
  local preset=$1 targets=(unit_tests linux_capture_addon)
  [ "$preset" != debug ] || targets=(all)
  echo "== $preset =="
  leave_counts "$preset-build" build_preset "$preset" "${targets[@]}"
  node scripts/run_tests.mjs --results "$results/$preset.counts" "unit:$preset" ||
    true
}

build_preset() {
  local preset=$1
  shift
  nice -n 19 cmake --preset "$preset" >/dev/null &&
    nice -n 19 cmake --build --preset "$preset" --parallel "$(nproc)" \
      --target "$@"
}

compute() {
  local preset
  for preset in "${presets[@]}"; do check_preset "$preset"; done
  leave_counts lint nice -n 19 bash scripts/lint.sh
}

presets=(debug asan tsan)
kinds=(test portal browser package desktops)
results=build/test-results
mkdir -p "$results"
rm -f "$results"/*.counts

# Before anything runs beside it: two of apt at once would be in each other's way.
bash scripts/setup.sh build test bench lint </dev/null

# A group of its own, so that all of it ends with this script.
set -m
compute </dev/null >"$results/beside.log" 2>&1 &
beside=$!
set +m
trap 'kill -- -"$beside" 2>/dev/null || true' EXIT

# The desktops last, after those that are to pass on a machine without the
# packages of a desktop.
for kind in "${kinds[@]}"; do
  bash scripts/test.sh "$([ "$kind" = test ] || echo "$kind")" </dev/null || true
  add_counts "$results/$kind.counts" "the tests of kind $kind"
done

wait "$beside" || true
cat "$results/beside.log"
for preset in "${presets[@]}"; do
  add_counts "$results/$preset-build.counts" "the build of $preset"
  add_counts "$results/$preset.counts" "the unit tests of $preset"
done
add_counts "$results/lint.counts" lint

node tests/stress/run_stress.mjs --quick --results "$results/stress.counts" \
  </dev/null || true
add_counts "$results/stress.counts" 'the module under stress'

if bash scripts/check_exports.sh; then
  count_good
else
  count_bad 'the exported symbols'
fi

printf '\n%d passed, %d failed\n' "$passed" "$failed"
[ "$failed" -eq 0 ]
