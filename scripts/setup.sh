#!/usr/bin/env bash
# Installs the Debian packages the project needs (only those missing), then
# configures and builds. Usage: scripts/setup.sh [preset]   (default: release)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
preset=${1:-release}

packages=(
  build-essential cmake ninja-build pkg-config ccache
  libasio-dev nlohmann-json3-dev
  libx264-dev libavcodec-dev libavutil-dev libyuv-dev libswscale-dev
  libsodium-dev libicu-dev libplist-dev libcurl4-openssl-dev openssl
  libspdlog-dev libfmt-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libsdl2-dev xvfb libxtst-dev libcli11-dev
  libxcb1-dev libxcb-composite0-dev libxcb-damage0-dev libxcb-render0-dev libxcb-shm0-dev libxcb-xtest0-dev libxcb-xfixes0-dev
  libxcb-res0-dev libxcb-keysyms1-dev openbox xterm x11-apps x11-utils
  libatspi2.0-dev at-spi2-core dbus libglib2.0-bin gtk-3-examples
  clang-14 lld-14 lld llvm-14 libclang-rt-14-dev python3
  xclip libglib2.0-dev
)

"$here/scripts/install-packages.sh" "${packages[@]}"

cd "$here"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
