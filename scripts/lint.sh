#!/usr/bin/env bash
# Style and static analysis of the native code, the scripts and the JavaScript.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh build lint test bench

status=0
step() {
  local name=$1
  shift
  printf '== %s ==\n' "$name"
  "$@" || {
    printf '%s failed\n' "$name" >&2
    status=1
  }
}

# shellcheck disable=SC2317  # Called by name.
check_format() {
  find src programs bench tests/desktops tests/unit tests/support tests/fuzz \
    \( -name '*.cc' -o -name '*.h' \) -print0 |
    xargs -0 -r clang-format --dry-run -Werror
}

# File by file, since the flags of the release preset hold for the one unit that
# all the sources are joined into, and each with the headers that it names.
# shellcheck disable=SC2317  # Called by name.
check_tidy() {
  local notes
  notes=$(mktemp)
  if cmake --preset debug -B build/lint -DLINUX_CAPTURE_PRECOMPILE=OFF \
    >"$notes" 2>&1 &&
    find src programs bench tests/support -name '*.cc' -print0 |
    xargs -0 -r -n 1 -P "$(nproc)" clang-tidy -p build/lint --quiet \
      2>"$notes"; then
    rm -f "$notes"
    return 0
  fi
  # Besides real trouble this only holds one count of warnings for each file.
  grep -vE '^[0-9]+ warnings? (generated|treated)' "$notes" >&2 || true
  rm -f "$notes"
  return 1
}

# Which mutex guards what, and in which order they are taken.
# shellcheck disable=SC2317  # Called by name.
check_locks() {
  cmake --preset debug >/dev/null &&
    cmake --build --preset debug --target linux_capture_addon
}

step eslint node_modules/.bin/eslint --max-warnings 0 .
step shellcheck shellcheck scripts/*.sh scripts/*/*.sh .ci/run
step layers node scripts/check_layers.mjs
step callbacks node scripts/check_callbacks.mjs
step clang-format check_format
step locks check_locks
step clang-tidy check_tidy
exit "$status"
