#!/usr/bin/env bash
# Builds the engine, the tools and every test, then runs the tests.
# VANTOR_SANITIZE=1 builds into build-asan with AddressSanitizer and
# UndefinedBehaviorSanitizer instead.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/setup.sh"

build="$root/build"
flags=()
if [ "${VANTOR_SANITIZE:-0}" = "1" ]; then
  build="$root/build-asan"
  flags+=(-DVANTOR_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
fi
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)

cmake -S "$root" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)"
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 900
