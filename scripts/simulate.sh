#!/usr/bin/env bash
# The simulation: installs what is missing, builds, then runs a simulation
# agent listening on a unix socket in a fresh private root (removed on exit).
# Stop it with Ctrl-C.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" release
mkdir -p "$here/build/sim"
root=$(mktemp -d "$here/build/sim/root.XXXXXX")
chmod 700 "$root"
trap 'rm -rf "$root"' EXIT
"$here/build/release/src/TesselAgent" --listen "unix:$root/agent.sock" --sim-root "$root"
