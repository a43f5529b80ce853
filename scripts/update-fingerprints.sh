#!/usr/bin/env bash
# Rewrites tests/data/sound_fingerprints.json from the current engine: run it
# only after a change meant to alter the sound, and commit the result with it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
flags=()
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$root/build" "${flags[@]}" >/dev/null
cmake --build "$root/build" -j2 --target processor_sound_fingerprint_test >/dev/null
cd "$root/build/tests"
VANTOR_WRITE_FINGERPRINTS=1 ./processor_sound_fingerprint_test
