#!/usr/bin/env bash
# Formats every tracked C and C++ source with the repository's .clang-format,
# or with --check lists the files that drift from it and fails.
# The formatter is Debian 12's clang-format 14 (installed by setup.sh); other
# major versions lay some constructs out differently.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/setup.sh" >/dev/null
formatter=clang-format-14
cd "$root"
mapfile -t files < <(git ls-files '*.c' '*.h' '*.cpp')
if [ "${1:-}" = "--check" ]; then
  drifting=()
  for f in "${files[@]}"; do
    "$formatter" --dry-run --Werror "$f" >/dev/null 2>&1 || drifting+=("$f")
  done
  if [ ${#drifting[@]} -gt 0 ]; then
    echo "not formatted (run scripts/format.sh):"
    printf '  %s\n' "${drifting[@]}"
    exit 1
  fi
  echo "format: ${#files[@]} files match .clang-format"
else
  "$formatter" -i "${files[@]}"
fi
