#!/usr/bin/env bash
# ThreadSanitizer row of the torture suite: the engine and the C host built
# with -fsanitize=thread into build-tsan; two processors rendered and
# destroyed on two threads with logging on must give no report.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-tsan"
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTOR_BENCH=OFF
       "-DCMAKE_C_FLAGS=-fsanitize=thread" "-DCMAKE_CXX_FLAGS=-fsanitize=thread"
       "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread" "-DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread")
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)" --target vantorengine vantor_torture >/dev/null
TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1" \
  "$build/tests/vantor_torture" "$build/lib/vantor/vantorengine.so" 10
