#!/usr/bin/env bash
# Fails when the module exports anything but its two entry points: whatever
# else it exported could be mixed up with a symbol of another library.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

module=${1:-build/release/linux_capture_addon.node}
expected='napi_register_module_v1
node_api_module_get_api_version_v1'
found=$(nm -D --defined-only "$module" | awk '{ print $NF }' | LC_ALL=C sort)

if [ "$found" != "$expected" ]; then
  printf '%s exports other symbols than its entry points:\n' "$module" >&2
  diff <(printf '%s\n' "$expected") <(printf '%s\n' "$found") >&2 || true
  exit 1
fi
