#!/usr/bin/env bash
# Builds the fuzz targets (preset "fuzz") and runs one or all of them, as
# many at once as there are cores, each for SECONDS over its seeds in
# fuzz/corpus/<target>/.
# Usage: scripts/fuzz.sh [TARGET|all] [SECONDS]   (defaults: all, 60)
# New inputs collect in build/fuzz/corpus/<target>/ (kept between runs);
# crashes, leaks, timeouts and out-of-memory inputs land in
# build/fuzz/findings/<target>/. Exits 1 when anything was found.
# fuzz/<target>.dict is passed as the dictionary, and fuzz/<target>.options
# (one line of libFuzzer flags) adds to the defaults.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
which=${1:-all}
seconds=${2:-60}
cd "$here"

mkdir -p build/fuzz/logs
if ! { cmake --preset fuzz && cmake --build --preset fuzz; } >build/fuzz/logs/build.log 2>&1; then
  tail -40 build/fuzz/logs/build.log >&2
  echo "fuzz build failed (build/fuzz/logs/build.log)" >&2
  exit 1
fi
bin=build/fuzz/fuzz
# Targets that read files work in a scratch folder; memory-backed is faster.
[ -w /dev/shm ] && export TMPDIR=/dev/shm

targets=()
if [ "$which" = all ]; then
  for src in fuzz/*.cpp; do targets+=("$(basename "$src" .cpp)"); done
else
  [ -f "fuzz/$which.cpp" ] || { echo "no fuzz target $which (fuzz/$which.cpp)" >&2; exit 2; }
  targets=("$which")
fi

# One target's run; its row and whether it found anything go to files, so
# that runs side by side print in order.
rows=$(mktemp -d)
trap 'rm -rf "$rows"' EXIT
run_one() {
  local t=$1
  local work=build/fuzz/corpus/$t findings=build/fuzz/findings/$t log=build/fuzz/logs/$t.log
  mkdir -p "$work" "$findings" "$(dirname "$log")"
  local seeds=()
  [ -d "fuzz/corpus/$t" ] && seeds+=("fuzz/corpus/$t")
  local flags=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
               -artifact_prefix="$findings/")
  [ -f "fuzz/$t.dict" ] && flags+=(-dict="fuzz/$t.dict")
  if [ -f "fuzz/$t.options" ]; then read -ra extra < "fuzz/$t.options"; flags+=("${extra[@]}"); fi
  local before after rc=0
  before=$(find "$findings" -type f | wc -l)
  nice "$bin/$t" "${flags[@]}" "$work" "${seeds[@]}" >"$log" 2>&1 || rc=$?
  after=$(find "$findings" -type f | wc -l)
  local execs line cov ft corpus found note
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  line=$(grep -E '^#[0-9]+' "$log" | grep -E 'cov: ' | tail -1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$line")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$line")
  corpus=$(sed -n 's/.* corp: \([0-9]*\/[0-9a-zA-Z]*\).*/\1/p' <<<"$line")
  found=$((after - before))
  note=$found
  if [ "$rc" -ne 0 ] || [ "$found" -gt 0 ]; then
    note="$found (exit $rc; see $log)"
    touch "$rows/$t.found"
  fi
  printf '%-24s %12s %8s %8s %8s  %s\n' "$t" "${execs:-?}" "${cov:-?}" "${ft:-?}" "${corpus:-?}" "$note" >"$rows/$t.row"
}

# Each run is one process on one core: as many side by side as there are cores.
cores=$(nproc)
for t in "${targets[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "$cores" ]; do wait -n || true; done
  run_one "$t" &
done
wait

status=0
printf '%-24s %12s %8s %8s %8s  %s\n' target executions cov ft corpus findings
for t in "${targets[@]}"; do
  cat "$rows/$t.row" 2>/dev/null || { echo "$t: no result"; status=1; }
  [ ! -e "$rows/$t.found" ] || status=1
done
exit $status
