#!/usr/bin/env bash
# Builds the engine and the renderer, then renders the demo piece to demo.wav.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/setup.sh"

build="$root/build"
flags=()
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)" --target vantorengine vantor-render

out="${1:-$PWD/demo.wav}"
"$build/bin/vantor-render" "$root/data/demo/demo.mid" --preset "${VANTOR_PRESET:-init}" -o "$out"
echo "Demo written to $out"
