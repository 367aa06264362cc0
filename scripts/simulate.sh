#!/usr/bin/env bash
# The simulation: installs what is missing, builds, then runs a simulation
# agent listening on a unix socket in a fresh private root (removed on exit).
# Stop it with Ctrl-C.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" release
# The agent refuses roots in world-writable places; a clone in /tmp keeps
# its simulation roots in the user's cache instead.
base="$here/build/sim"
case "$(realpath -m "$base")" in
  /tmp|/tmp/*|/var/tmp|/var/tmp/*) base="${HOME:-/root}/.cache/tessel-sim" ;;
esac
mkdir -p "$base"
root=$(mktemp -d "$base/root.XXXXXX")
chmod 700 "$root"
trap 'rm -rf "$root"' EXIT
"$here/build/release/src/TesselAgent" --listen "unix:$root/agent.sock" --sim-root "$root"
