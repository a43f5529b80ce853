#!/usr/bin/env bash
# The plugin in jalv under a JACK dummy server: notes from jack_midiseq, audio
# captured with jack_capture. Usage: jalv_jack.sh LV2_DIR WORKDIR WAVCHECK
set -euo pipefail
lv2dir=$1 work=$2 wavcheck=$3
mkdir -p "$work"
# A fixed server name: JACK reclaims a stale registry entry only under the same name.
export JACK_DEFAULT_SERVER=vantor-test-jalv JACK_NO_START_SERVER=1 LV2_PATH=$lv2dir
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null || true; }
trap cleanup EXIT

jackd --no-realtime -d dummy -r 48000 -p 256 >"$work/jackd.log" 2>&1 &
pids+=($!)
timeout 10 jack_wait -w >/dev/null

# jalv quits at the end of its standard input: keep it open through a fifo.
rm -f "$work/stdin" && mkfifo "$work/stdin"
exec 3<>"$work/stdin"
jalv -n vantor -x urn:norvell:vantor <"$work/stdin" >"$work/jalv.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do jack_lsp 2>/dev/null | grep -q '^vantor:out_r$' && break; sleep 0.1; done
jack_lsp | grep -q '^vantor:control$'

# A loop of 0.5 s at 48 kHz: C4 from frame 0 and E4 from 12000, each 8000 frames long.
jack_midiseq seq 24000 0 60 8000 12000 64 8000 >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 50); do jack_lsp 2>/dev/null | grep -q '^seq:out$' && break; sleep 0.1; done
jack_connect seq:out vantor:control

rm -f "$work/jalv.wav"
timeout 20 jack_capture -d 2 -f wav -b FLOAT -p vantor:out_l -p vantor:out_r -ns \
  "$work/jalv.wav" >"$work/capture.log" 2>&1
"$wavcheck" "$work/jalv.wav" --rate 48000 --min-frames 48000 --min-peak 0.01
