#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole suite: the normal build,
# then the same suite under ASan+UBSan. Pass presets to choose (e.g. "tsan").
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(release asan)
for preset in "${presets[@]}"; do
  echo "== $preset"
  "$here/scripts/setup.sh" "$preset"
  (cd "$here" && ctest --preset "$preset")
done
