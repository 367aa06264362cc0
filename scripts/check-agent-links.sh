#!/usr/bin/env bash
# Fails when the agent executable is linked with a library of the host's
# half: the window toolkit and the video decoder have no business in the
# guest. Both the link line (a linker that drops unused libraries would
# hide them from ldd) and what the executable needs are checked.
set -u
build=${1:?the build folder}
agent=${2:?the agent executable}
host='libSDL2|libavcodec|-lSDL2|-lavcodec'
if [ -f "$build/build.ninja" ]; then
  target=$(realpath --relative-to="$build" "$agent")
  line=$(ninja -C "$build" -t commands "$target" | tail -1)
  if grep -oE "[^ ]*($host)[^ ]*" <<<"$line"; then
    echo "the agent's link line names host libraries"
    exit 1
  fi
fi
needed=$(ldd "$agent") || { echo "ldd $agent failed"; exit 2; }
if grep -E "$host" <<<"$needed"; then
  echo "the agent needs host libraries"
  exit 1
fi
exit 0
