#!/usr/bin/env bash
# Renders the comparison set through the engine built from a commit and the
# engine built from the working tree, and prints the differences per case.
#   scripts/compare.sh [COMMIT [CASE_FILTER]]    (COMMIT defaults to HEAD)
# The commit is checked out in a detached worktree under build-compare/ (kept
# between runs so rebuilds are incremental); each engine is built in build/ of
# its own tree, where it finds its own resources.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
commit="${1:-HEAD}"
filter="${2:-}"
flags=()
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)

work="$root/build-compare"
mkdir -p "$work"
base="$work/tree"
sha="$(git -C "$root" rev-parse --verify "$commit^{commit}")"
if [ -e "$base/.git" ]; then
  git -C "$base" checkout --quiet --detach "$sha"
else
  git -C "$root" worktree prune
  git -C "$root" worktree add --quiet --detach "$base" "$sha"
fi

cmake -S "$base" -B "$base/build" -DVANTOR_BENCH=OFF "${flags[@]}" >/dev/null
cmake --build "$base/build" -j2 --target vantorengine >/dev/null
cmake -S "$root" -B "$root/build" "${flags[@]}" >/dev/null
cmake --build "$root/build" -j2 --target vantorengine vantor-compare >/dev/null

# The library's place in the build tree moved once; take whichever holds it.
engine() {
  for candidate in "$1/lib/vantor/vantorengine.so" "$1/lib/vantorengine.so"; do
    [ -f "$candidate" ] && { echo "$candidate"; return; }
  done
  echo "no engine library in $1" >&2
  exit 2
}
"$root/build/bin/vantor-compare" "$(engine "$base/build")" "$(engine "$root/build")" \
  "$root/data/presets" $filter
