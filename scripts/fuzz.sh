#!/usr/bin/env bash
# Runs each libFuzzer target (engine description, state blob then renders,
# MIDI stream with parameter changes) for SECONDS seconds (default 60) under
# AddressSanitizer and UndefinedBehaviorSanitizer, built with clang into
# build-fuzz. Each run starts from the committed corpus in tests/fuzz/corpus;
# new inputs go to a scratch folder, and every input that fails is copied
# into the committed corpus so it is replayed from then on.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-60}"
build="$root/build-fuzz"
flags=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo)
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root/tests/fuzz" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)" >/dev/null

failed=0
for target in description state midi; do
  corpus="$root/tests/fuzz/corpus/$target"
  scratch="$(mktemp -d)"
  artifacts="$(mktemp -d)"
  mkdir -p "$corpus"
  start=$(date +%s)
  if ASAN_OPTIONS=detect_leaks=0 "$build/bin/fuzz_$target" -max_total_time="$seconds" \
       -timeout=20 -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$artifacts/" \
       "$scratch" "$corpus" >"$artifacts/log" 2>&1; then
    echo "fuzz $target: $(($(date +%s) - start)) s without a finding" \
         "($(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' "$artifacts/log" | grep -o '[0-9]*$') runs)"
  else
    failed=1
    tail -40 "$artifacts/log"
    for input in "$artifacts"/crash-* "$artifacts"/timeout-* "$artifacts"/oom-* "$artifacts"/leak-*; do
      [ -e "$input" ] || continue
      cp "$input" "$corpus/"
      echo "fuzz $target: FAILED, input kept as tests/fuzz/corpus/$target/$(basename "$input")"
    done
  fi
  rm -rf "$scratch" "$artifacts"
done
exit $failed
