#!/usr/bin/env bash
# CI's robustness stage: the ThreadSanitizer row of the torture suite, then
# every fuzz target for SECONDS seconds (default 60). The rest of the torture
# suite runs with the ordinary tests (ctest -R torture).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/tsan.sh"
"$root/scripts/fuzz.sh" "${1:-60}"
