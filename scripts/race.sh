#!/usr/bin/env bash
# The race: our agent and view against xpra, on this machine, judged by one
# probe (bench/x11probe) that reads only what the X server shows.
#
# A guest display A shows the pattern client at 60 fps; each contestant
# forwards its window over TCP loopback to a host display B, rendering in
# software there, and the probe on B times F1 to a white square, counts the
# frames that reach the screen and the CPU both sides spend. Runs alternate
# ours, xpra, ours, xpra ..., for H.264 (x264 ultrafast/zerolatency) and for
# raw pixels. Needs no display; installs what it needs; ends what it started.
#
# Each side runs at its lowest-latency setting: xpra at speed 100 sends damage
# as it comes, and ours may capture up to 120 pictures a second (the pattern
# draws 60; RACE_OURS_FPS changes it), so that a key's picture never waits a
# whole 60th of a second behind the last one.
#
#   scripts/race.sh [--runs N] [--rounds N] [--seconds S] [--out DIR]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
runs=3 rounds=50 seconds=5 out="$here/build/race-results" ours_fps=${RACE_OURS_FPS:-120}
while [ $# -gt 0 ]; do
  case "$1" in
    --runs) runs=$2; shift 2 ;;
    --rounds) rounds=$2; shift 2 ;;
    --seconds) seconds=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    *) echo "usage: scripts/race.sh [--runs N] [--rounds N] [--seconds S] [--out DIR]" >&2; exit 2 ;;
  esac
done

# xpra with the recommended modules its fast paths use (pictures, arrays, lz4 and friends).
packages=(xpra python3-gi-cairo python3-pil python3-numpy python3-lz4 python3-lzo python3-brotli python3-cpuinfo
  python3-xdg xvfb openbox)
"$here/scripts/install-packages.sh" "${packages[@]}"
"$here/scripts/setup.sh" release >/dev/null
bin="$here/build/release"

run=$(mktemp -d)
started=()
stop_all() {
  local pid
  for ((i = ${#started[@]} - 1; i >= 0; i--)); do
    pid=${started[$i]}
    kill -TERM "$pid" 2>/dev/null || true
  done
  for pid in "${started[@]}"; do
    for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  started=()
}
trap 'stop_all; rm -rf "$run"' EXIT
trap 'exit 130' INT TERM

# Starts an Xvfb on a free display; sets $display and $xpid.
start_display() {
  local fd="$run/display.$RANDOM"
  Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$fd" 2>/dev/null &
  xpid=$!
  started+=("$xpid")
  for _ in $(seq 200); do [ -s "$fd" ] && break; sleep 0.05; done
  display=":$(head -n1 "$fd")"
}

free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }

wait_for_port() {
  for _ in $(seq 300); do
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return 0
    sleep 0.1
  done
  return 1
}

# Debian's xpra starts an X session on the display it serves (its
# 60_server.conf says `start = /etc/X11/Xsession true`), and a command line
# can only add to that list: the server sees a copy without it, through a
# private mount of its own.
xpra_config="$run/60_server.conf"
grep -v -E '^\s*(start|dbus-launch)\s*=' /etc/xpra/conf.d/60_server.conf >"$xpra_config"
if [ "$(id -u)" -eq 0 ] && unshare --mount true 2>/dev/null; then
  xpra_private=(unshare --mount --propagation private sh -c
    'mount --bind "$0" /etc/xpra/conf.d/60_server.conf && exec "$@"' "$xpra_config")
  session_note="Debian's X session start for xpra: overridden (a private copy of 60_server.conf)"
else
  xpra_private=()
  session_note="Debian's X session start for xpra: NOT overridden (needs root for a private mount)"
fi
mkdir -p "$run/home" "$run/xdg" "$run/xpra"
chmod 700 "$run/xdg"
xpra_quality=80
xpra_common=(--mmap=no --speed=100 --min-speed=100 --quality=$xpra_quality --min-quality=$xpra_quality
  --video-scaling=off --clipboard=no --notifications=no --bell=no --webcam=no --speaker=off --microphone=off
  --av-sync=no --printing=no --file-transfer=no --socket-dir="$run/xpra" --socket-dirs="$run/xpra")

# One run: $1 contestant (ours|xpra), $2 codec class (h264|raw), $3 run number.
race_once() {
  local who=$1 codec=$2 n=$3 guest host gpid hpid port server client
  start_display; guest=$display; gpid=$xpid
  start_display; host=$display; hpid=$xpid
  DISPLAY=$guest "$bin/tools/x11-testpattern" --fps 60 --position 0,0 >/dev/null 2>&1 &
  started+=($!)
  port=$(free_port)
  if [ "$who" = ours ]; then
    DISPLAY=$guest "$bin/src/TesselAgent" --desktop x11 --listen "tcp:127.0.0.1:$port" >"$run/agent.out" 2>"$run/agent.log" &
    server=$!
    started+=("$server")
    wait_for_port "$port"
    DISPLAY=$host SDL_RENDER_DRIVER=software SDL_FRAMEBUFFER_ACCELERATION=0 \
      "$bin/src/tessel" view --connect "tcp:127.0.0.1:$port" --window "Tsl TestPattern" --codec "$codec" --fps "$ours_fps" \
      >"$run/view.out" 2>"$run/view.log" &
    client=$!
  else
    local encoding=h264
    [ "$codec" = raw ] && encoding=rgb
    HOME="$run/home" XDG_RUNTIME_DIR="$run/xdg" DISPLAY=$guest "${xpra_private[@]}" xpra start "$guest" \
      --use-display=yes --daemon=no --bind=none --bind-tcp="127.0.0.1:$port" --mdns=no --html=off \
      --pulseaudio=no --dbus-proxy=no --dbus-control=no --systemd-run=no --start-via-proxy=no --xsettings=no \
      --exit-with-children=no --start-new-commands=no --log-dir="$run" \
      --encoding=$encoding --video-encoders=x264 "${xpra_common[@]}" >"$run/xpra-server.log" 2>&1 &
    server=$!
    started+=("$server")
    wait_for_port "$port"
    HOME="$run/home" XDG_RUNTIME_DIR="$run/xdg" DISPLAY=$host xpra attach "tcp://127.0.0.1:$port/" \
      --opengl=no --encoding=$encoding --title=@title@ --tray=no --system-tray=no --border=no \
      --desktop-scaling=off "${xpra_common[@]}" >"$run/xpra-client.log" 2>&1 &
    client=$!
  fi
  started+=("$client")
  echo "== $who, $codec, run $n: guest $guest, host $host" >&2
  if ! DISPLAY=$host "$bin/bench/x11probe" --rounds "$rounds" --seconds "$seconds" --label "$who" --codec "$codec" \
      --server-pids "$server" --client-pids "$client" --xserver-pids "$gpid,$hpid" >"$run/run-$who-$codec-$n.json"; then
    echo "race.sh: the probe failed for $who ($codec); its logs follow" >&2
    tail -n 20 "$run"/*.log >&2 || true
    stop_all
    return 1
  fi
  stop_all
}

for codec in h264 raw; do
  for n in $(seq "$runs"); do
    race_once ours "$codec" "$n"
    race_once xpra "$codec" "$n"
  done
done

{
  echo "Machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), load average $(cut -d' ' -f1-3 /proc/loadavg)"
  echo "Pattern: 640x400 at 60 fps on Xvfb 1280x800x24; TCP loopback; host side rendered in software"
  echo "Ours: TesselAgent --desktop x11, tessel view --codec h264|raw --fps $ours_fps; H.264 by x264 preset ultrafast, tune zerolatency, ABR, CABAC, sliced threads"
  echo "xpra $(xpra --version 2>/dev/null | awk '{print $2}'): encoding h264 (x264) or rgb; ${xpra_common[*]//$run/RUN}; client --opengl=no --desktop-scaling=off"
  echo "$session_note"
} >"$run/notes.txt"
mkdir -p "$out"
cp "$run"/run-*.json "$out/"
"$bin/bench/race_report" --out "$out" --ours ours --peer xpra --notes "$run/notes.txt" "$out"/run-*.json
