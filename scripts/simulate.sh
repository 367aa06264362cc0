#!/usr/bin/env bash
# The main job: installs what is missing, builds, then runs `tessel sim`: a
# simulated guest (the real agent in a private folder tree) streams the test
# pattern to the host, which shows it in a window (headless without a
# display) and measures input to pixel. Options go to `tessel sim`
# (see `tessel sim --help`); results land in build/sim-results.
#
# With --desktop x11 the guest is a real X desktop instead: an Xvfb display
# of its own with openbox, the pattern client and an xterm, served by the
# agent in X11 mode; `tessel view` dials it and measures input to pixel
# over real X11. The remaining options go to `tessel view`.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
desktop=sim
if [ "${1:-}" = "--desktop" ]; then
  desktop=${2:-}
  shift 2 || { echo "simulate.sh: --desktop takes sim or x11" >&2; exit 2; }
fi
case "$desktop" in
  sim|x11) ;;
  *) echo "simulate.sh: --desktop takes sim or x11" >&2; exit 2 ;;
esac

"$here/scripts/setup.sh" release
bin="$here/build/release"
if [ "$desktop" = sim ]; then
  exec "$bin/src/tessel" sim --out "$here/build/sim-results" "$@"
fi

run=$(mktemp -d)
chmod 700 "$run"
pids=()
cleanup() {
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$run"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Waits up to ten seconds for a condition.
await() {
  for _ in $(seq 100); do
    if eval "$1"; then return 0; fi
    sleep 0.1
  done
  echo "simulate.sh: $2" >&2
  exit 1
}

Xvfb -displayfd 3 -screen 0 1920x1080x24 -nolisten tcp 3>"$run/display" 2>"$run/xvfb.log" &
pids+=($!)
await '[ -s "$run/display" ]' "Xvfb did not start"
guest=":$(head -n1 "$run/display")"
DISPLAY=$guest openbox --sm-disable >"$run/openbox.log" 2>&1 &
pids+=($!)
wm_ready() {
  local id
  id=$(DISPLAY=$guest xprop -root -notype _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -o '0x[0-9a-f]*') || return 1
  DISPLAY=$guest xprop -id "$id" -notype _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q "$id"
}
await wm_ready "openbox did not start"
DISPLAY=$guest "$bin/tools/x11-testpattern" --fps 60 --position 40,40 >"$run/pattern.log" 2>&1 &
pids+=($!)
DISPLAY=$guest xterm -T "Tsl XTerm" -geometry 80x24+760+40 >"$run/xterm.log" 2>&1 &
pids+=($!)
DISPLAY=$guest "$bin/src/TesselAgent" --desktop x11 --listen "unix:$run/agent.sock" >"$run/agent.out" 2>"$run/agent.log" &
pids+=($!)
await 'grep -q "listening on" "$run/agent.out"' "the agent did not start: $(cat "$run/agent.log")"

measure=(--measure 100)
window=()
# Headless, only the measured window is streamed: the xterm's frames would
# go nowhere and take the guest's time.
[ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && window=(--window "Tsl TestPattern")
for a in "$@"; do
  case "$a" in
    --measure|--measure=*) measure=() ;;
    --window|--window=*) window=() ;;
  esac
done
echo "Guest display $guest: openbox, the test pattern and an xterm; the agent on unix:$run/agent.sock"
"$bin/src/tessel" view --connect "unix:$run/agent.sock" "${window[@]}" "${measure[@]}" \
  --out "$here/build/sim-results" "$@"
