#!/usr/bin/env bash
# Fails when a layer includes from a layer above it:
# TslCore <- Platform <- TslStream <- TslAgent; only the agent's entry point, tests,
# benchmarks and tools see the desktops, Platform/Sim and Platform/X11.
set -u
root=${1:-$(cd "$(dirname "$0")/.." && pwd)}
cd "$root/src" || exit 2
bad=0
check() { # folder, forbidden include regex
  local hits
  hits=$(grep -rnE "#include[[:space:]]+\"($2)/" "$1" --include='*.h' --include='*.cpp' 2>/dev/null)
  if [ -n "$hits" ]; then echo "layering violation in $1:"; echo "$hits"; bad=1; fi
}
check TslCore 'TslStream|TslAgent|Platform|TesselAgent|TesselHost'
hits=$(grep -rnE '#include[[:space:]]+"(TslStream|TslAgent|Platform/Sim|Platform/X11|TesselAgent|TesselHost)/' Platform --include='*.h' --include='*.cpp' | grep -vE '^Platform/(Sim|X11)/[^:]*:[0-9]+:#include[[:space:]]+"Platform/\1/')
[ -n "$hits" ] && { echo "layering violation in Platform:"; echo "$hits"; bad=1; }
check TslStream 'TslAgent|Platform/Sim|Platform/X11|TesselAgent|TesselHost'
check TslAgent 'Platform/Sim|Platform/X11|TesselAgent|TesselHost'
check TesselHost 'Platform/Sim|Platform/X11|TesselAgent'
exit $bad
