#!/usr/bin/env bash
# vantor-jack under JACK dummy servers at periods 256, 64 and 1000: notes from
# jack_midiseq, audio captured with jack_capture and measured with sox; the
# three ways to end it (quit on stdin, SIGTERM, SIGINT) and no busy loop once
# standard input is closed. Usage: live_jack.sh VANTOR_JACK WORKDIR
set -euo pipefail
program=$1 work=$2
mkdir -p "$work"
export JACK_NO_START_SERVER=1
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null || true; }
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

wait_port() { # wait_port PORT
  for _ in $(seq 100); do jack_lsp 2>/dev/null | grep -qx "$1" && return; sleep 0.1; done
  fail "port $1 never appeared"
}

# Server names are unique to this build tree yet stable from run to run: JACK keeps
# a registry of a few servers, and only a server of the same name reclaims the
# entry of one that died without unregistering.
tree=$(printf %s "$work" | cksum | cut -d' ' -f1)
start_server() { # start_server PERIOD
  export JACK_DEFAULT_SERVER="vantor-live-$tree-$1"
  jackd --no-realtime -d dummy -r 48000 -p "$1" >"$work/jackd-$1.log" 2>&1 &
  server=$!
  pids+=($server)
  timeout 10 jack_wait -w >/dev/null
}

stop_server() {
  kill "$seq" "$server" 2>/dev/null || true
  wait "$seq" "$server" 2>/dev/null || true
}

play_and_check() { # play_and_check PERIOD: two notes looping every 0.5 s, 2 s captured
  jack_midiseq seq 24000 0 60 8000 12000 64 8000 >/dev/null 2>&1 &
  seq=$!
  pids+=($seq)
  wait_port seq:out
  jack_connect seq:out vantor:midi_in
  local wav="$work/live-$1.wav"
  rm -f "$wav"
  timeout 20 jack_capture -d 2 -f wav -b FLOAT -p vantor:out_L -p vantor:out_R -ns "$wav" \
    >"$work/capture-$1.log" 2>&1
  local rms
  rms=$(sox "$wav" -n stat 2>&1 | awk '/RMS +amplitude/ {print $3}')
  echo "period $1: RMS $rms"
  awk -v r="$rms" 'BEGIN { exit !(r > 0.002 && r < 0.5) }' || fail "period $1: RMS $rms"
}

# await_exit SECONDS WHY: the client must end within SECONDS (else fail with WHY);
# its exit status is left in $status.
await_exit() {
  timeout "$1" tail -s 0.02 --pid="$client" -f /dev/null || fail "$2"
  status=0
  wait "$client" || status=$?
}

cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }

# Period 256, commands through a fifo: 'quit' ends it with status 0 within a second.
start_server 256
rm -f "$work/stdin" && mkfifo "$work/stdin"
exec 3<>"$work/stdin"
"$program" --preset pad --autoconnect=none <"$work/stdin" >"$work/vantor-256.log" 2>&1 &
client=$!
pids+=($client)
wait_port vantor:out_R
play_and_check 256
echo "save $work/live.state" >&3
start=$(date +%s%N)
echo quit >&3
await_exit 5 "quit did not end vantor-jack"
elapsed=$((($(date +%s%N) - start) / 1000000))
echo "quit: status $status after $elapsed ms"
[ "$status" -eq 0 ] && [ "$elapsed" -lt 1000 ] || fail "quit: status $status after $elapsed ms"
[ -s "$work/live.state" ] || fail "save wrote no state"
exec 3>&-
stop_server

# Period 64, standard input closed: it keeps running without spinning, plays,
# and SIGTERM ends it with status 0.
start_server 64
"$program" --load-state "$work/live.state" --autoconnect=none </dev/null \
  >"$work/vantor-64.log" 2>&1 &
client=$!
pids+=($client)
wait_port vantor:out_R
sleep 0.5
before=$(cpu_ticks "$client")
sleep 2
ticks=$(($(cpu_ticks "$client") - before))
echo "stdin closed: $ticks CPU ticks in 2 s idle (of $((2 * $(getconf CLK_TCK))))"
[ "$ticks" -lt "$(getconf CLK_TCK)" ] || fail "busy with stdin closed: $ticks ticks in 2 s"
play_and_check 64
kill -TERM "$client"
await_exit 5 "SIGTERM did not end vantor-jack"
[ "$status" -eq 0 ] || fail "SIGTERM: status $status"
stop_server

# Period 1000 (not a multiple of the engine block); SIGINT ends it with status 0.
start_server 1000
"$program" --preset pad --autoconnect=none </dev/null >"$work/vantor-1000.log" 2>&1 &
client=$!
pids+=($client)
wait_port vantor:out_R
play_and_check 1000
kill -INT "$client"
await_exit 5 "SIGINT did not end vantor-jack"
[ "$status" -eq 0 ] || fail "SIGINT: status $status"
stop_server

# A preset command gives the whole sound of that preset, as a fresh start with it
# would: nothing of the previous preset stays behind.
start_server 256
rm -f "$work/switch" && mkfifo "$work/switch"
exec 4<>"$work/switch"
"$program" --preset sync_lead --autoconnect=none <"$work/switch" >"$work/vantor-switch.log" 2>&1 &
client=$!
pids+=($client)
wait_port vantor:out_R
echo "preset pad" >&4
echo "save $work/switched.state" >&4
echo quit >&4
await_exit 5 "quit did not end vantor-jack"
[ "$status" -eq 0 ] || fail "preset switch: status $status"
exec 4>&-
stop_server
"$(dirname "$program")/vantor-render" --preset pad --save-state "$work/pad.state" -q
cmp -s "$work/switched.state" "$work/pad.state" || fail "preset switch left values behind"

# Losing the server is an error: a message and status 1.
start_server 256
"$program" --preset pad --autoconnect=none </dev/null >"$work/vantor-lost.log" 2>&1 &
client=$!
pids+=($client)
for _ in $(seq 100); do grep -q "playing as" "$work/vantor-lost.log" && break; sleep 0.1; done
kill "$server"
await_exit 10 "vantor-jack outlived its server"
[ "$status" -eq 1 ] || fail "server lost: status $status"
grep -q "shut down" "$work/vantor-lost.log" || fail "server lost: no message"
echo "all live checks passed"
