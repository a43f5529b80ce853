#!/usr/bin/env bash
# Soak: random MIDI and parameter changes (a few non-finite and huge values
# among them) through one processor for MINUTES minutes (default 10), as fast
# as it renders; prints the RSS after warm-up and at the end. Fails on any
# non-finite sample or an RSS growth above 1 MiB.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
minutes="${1:-10}"
build="$root/build"
flags=()
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)" --target vantorengine vantor_torture >/dev/null
exec "$build/tests/vantor_torture" "$build/lib/vantor/vantorengine.so" --soak "$((minutes * 60))"
