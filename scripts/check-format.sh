#!/usr/bin/env bash
# Fails when the lines a change touches are not laid out as .clang-format
# says. Only those lines: the files around them keep their history.
# The change is everything since BASE (default: where HEAD left main, or the
# last commit when there is no main).
set -u
cd "$(dirname "$0")/.." || exit 2
base=${1:-${TSL_FORMAT_BASE:-}}
if [ -z "$base" ]; then
  base=$(git merge-base HEAD main 2>/dev/null || git merge-base HEAD origin/main 2>/dev/null || echo HEAD~1)
  [ "$(git rev-parse HEAD)" = "$(git rev-parse "$base" 2>/dev/null)" ] && base=HEAD~1
fi
git rev-parse --verify -q "$base" >/dev/null || { echo "check-format: no commit $base; nothing checked"; exit 0; }
out=$(git clang-format --binary clang-format-14 --diff --extensions c,cc,cpp,h,hpp "$base" -- src tests bench fuzz 2>&1)
case "$out" in
  ""|*"no modified files to format"*|*"did not modify any files"*) exit 0 ;;
esac
echo "$out"
echo "check-format: lines changed since $base are not laid out as .clang-format says;"
echo "run: git clang-format $base"
exit 1
