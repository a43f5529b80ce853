#!/usr/bin/env bash
# Plays the reference chord pattern (48 kHz, 32-frame blocks, keys 48 + 3n
# held 0.9 s, released 0.1 s) through Vantor, synthv1 (LV2, through lilv) and
# amsynth (DSSI) in one run, and prints each one's real-time factor for
# 12 notes, 1 note and idle. Installs the Debian packages it needs.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="$root/build/peers"
mkdir -p "$out"

need=()
for pkg in synthv1-lv2 amsynth liblilv-dev lv2-dev dssi-dev ladspa-sdk libasound2-dev; do
  dpkg -s "$pkg" >/dev/null 2>&1 || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get install -y "${need[@]}"
fi

cc -O2 -Wall -Werror -o "$out/lv2host" "$root/bench/peers/lv2host.c" $(pkg-config --cflags --libs lilv-0)
cc -O2 -Wall -Werror -o "$out/dssihost" "$root/bench/peers/dssihost.c" -ldl -lm

flags=()
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$root/build" "${flags[@]}" >/dev/null
cmake --build "$root/build" -j2 --target vantor_bench >/dev/null

echo "== vantor (CPU time; x_realtime = audio seconds per CPU second)"
"$root/build/bench/vantor_bench" --benchmark_filter=Pattern
echo "== peers"
# synthv1 links Qt, which wants a display platform even without a window.
QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR="${XDG_RUNTIME_DIR:-$out}" \
  "$out/lv2host" http://synthv1.sourceforge.net/lv2 2>/dev/null
HOME="$out" "$out/dssihost" /usr/lib/dssi/amsynth_dssi.so 2>/dev/null
