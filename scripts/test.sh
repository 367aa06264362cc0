#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole suite: the normal build,
# under ASan+UBSan and under TSan, then a smoke run of every fuzz target (10 s
# each over its seeds). Pass presets to choose (e.g. "tsan", "fuzz").
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(release asan tsan fuzz)
for preset in "${presets[@]}"; do
  echo "== $preset"
  start=$SECONDS
  "$here/scripts/setup.sh" "$preset"
  if [ "$preset" = fuzz ]; then
    "$here/scripts/fuzz.sh" all "${TSL_FUZZ_SECONDS:-10}"
  else
    (cd "$here" && ctest --preset "$preset")
  fi
  echo "== $preset done in $((SECONDS - start)) s"
done
