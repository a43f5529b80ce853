#!/usr/bin/env bash
# Builds the engine, the tools and every test (Release, warnings as errors),
# then runs the tests. VANTOR_SANITIZE=1 builds into build-asan with
# AddressSanitizer and UndefinedBehaviorSanitizer instead. VANTOR_BUILD_DIR
# chooses another build folder.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/setup.sh"

build="${VANTOR_BUILD_DIR:-$root/build}"
flags=(-DVANTOR_WERROR=ON)
if [ "${VANTOR_SANITIZE:-0}" = "1" ]; then
  build="${VANTOR_BUILD_DIR:-$root/build-asan}"
  flags+=(-DVANTOR_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
fi
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)

cmake -S "$root" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)"
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 900
