#!/usr/bin/env bash
# The main job: installs what is missing, builds, then runs `tessel sim`: a
# simulated guest (the real agent in a private folder tree) streams the test
# pattern to the host, which shows it in a window (headless without a
# display) and measures input to pixel. Options go to `tessel sim`
# (see `tessel sim --help`); results land in build/sim-results.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" release
exec "$here/build/release/src/tessel" sim --out "$here/build/sim-results" "$@"
