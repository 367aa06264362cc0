#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole suite: the normal build,
# under ASan+UBSan and under TSan, then a smoke run of every fuzz target (10 s
# each over its seeds). Pass presets to choose (e.g. "tsan", "fuzz").
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(release asan tsan fuzz)
# A cold machine (no compiler cache, two cores) takes about half an hour for
# all four; a preset not begun within the first hour is skipped, loudly, so
# that a run always ends with the results it has. TSL_TEST_HOUR changes it.
hour=${TSL_TEST_HOUR:-3600}
times=()
# Each stage's time, and the run's, on the way out whatever ended it.
summary() {
  echo "== stage times:${times[*]:+ ${times[*]}}; total $SECONDS s"
}
trap summary EXIT
for preset in "${presets[@]}"; do
  if [ "$SECONDS" -ge "$hour" ]; then
    echo "== $preset SKIPPED: the run is past $hour s before it began"
    times+=("$preset=skipped")
    continue
  fi
  echo "== $preset"
  start=$SECONDS
  "$here/scripts/setup.sh" "$preset"
  built=$((SECONDS - start))
  echo "== $preset built in $built s"
  if [ "$preset" = fuzz ]; then
    "$here/scripts/fuzz.sh" all "${TSL_FUZZ_SECONDS:-10}"
  else
    (cd "$here" && ctest --preset "$preset")
  fi
  echo "== $preset done in $((SECONDS - start)) s (build $built s, tests $((SECONDS - start - built)) s)"
  times+=("$preset=$((SECONDS - start))s")
done
