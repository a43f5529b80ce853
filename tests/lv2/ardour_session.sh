#!/usr/bin/env bash
# Session round trip in headless Ardour (ardour7-lua, "None (Dummy)" backend):
# a MIDI track with the plugin and a preset applied is saved; a fresh process
# reloads the session and saves it again. Ardour writes a new plugin state folder
# only when the reloaded plugin's state differs from the saved one.
# Usage: ardour_session.sh LV2_DIR WORKDIR PRESETS_TTL
set -euo pipefail
lv2dir=$1 work=$2 presets=$3
export LV2_PATH=$lv2dir
ardour_lua=$(command -v ardour7-lua || command -v ardour8-lua)
rm -rf "$work" && mkdir -p "$work"
session="$work/session"

cat >"$work/create.lua" <<LUA
AudioEngine:set_backend("None (Dummy)", "", "")
assert(create_session("$session", "session", 48000), "cannot create the session")
local midi = ARDOUR.ChanCount(ARDOUR.DataType("midi"), 1)
local audio = ARDOUR.ChanCount(ARDOUR.DataType("audio"), 2)
local track = Session:new_midi_track(midi, audio, true, ARDOUR.PluginInfo(), nil, nil, 1,
  "synth", ARDOUR.PresentationInfo.max_order, ARDOUR.TrackMode.Normal, true, false):front()
local proc = ARDOUR.LuaAPI.new_plugin(Session, "urn:norvell:vantor", ARDOUR.PluginType.LV2, "")
assert(not proc:isnil(), "plugin not found")
track:add_processor_by_index(proc, 0, nil, true)
local plugin = proc:to_insert():plugin(0)
assert(plugin:load_preset(plugin:preset_by_label("Wide Pad")), "cannot apply the preset")
Session:save_state("", false, false, false, false, false)
close_session()
LUA

cat >"$work/reload.lua" <<LUA
AudioEngine:set_backend("None (Dummy)", "", "")
assert(load_session("$session", "session"), "cannot load the session")
local found = false
for route in Session:get_routes():iter() do
  if not route:nth_plugin(0):isnil() then found = true end
end
assert(found, "the plugin is missing after reloading")
Session:save_state("reloaded", false, false, false, false, false)
close_session()
print("reloaded")
LUA

# The saving run may crash on exit: judge by what it wrote and by the reload.
timeout 300 "$ardour_lua" "$work/create.lua" >"$work/create.log" 2>&1 || true
saved=$(find "$session/plugins" -name state.ttl | head -1)
[ -n "$saved" ] || { echo "no plugin state saved"; tail "$work/create.log"; exit 1; }

# Every value of the saved state is the preset's.
values() { grep -o '<urn:norvell:vantor:param:[^>]*> "[^"]*"' "$1" | sort -u; }
awk '/<urn:norvell:vantor:preset:pad>/{on=1} on&&/\] \./{exit} on' "$presets" >"$work/pad.ttl"
values "$work/pad.ttl" >"$work/pad.values"
values "$saved" >"$work/saved.values"
[ "$(wc -l <"$work/pad.values")" -gt 500 ] || { echo "preset pad not found"; exit 1; }
# Same keys, same values (lilv writes 8 significant digits, the generator 9).
same() {
  awk -F'"' 'NR == FNR { want[$1] = $2; next }
             { if (!($1 in want)) { print "extra " $1; bad = 1; next }
               d = want[$1] - $2; if (d < 0) d = -d
               if (d > 1e-7) { print "differs " $1 want[$1] " " $2; bad = 1 }
               delete want[$1] }
             END { for (k in want) { print "missing " k; bad = 1 } exit bad }' "$1" "$2"
}
same "$work/pad.values" "$work/saved.values" || { echo "saved state is not the preset"; exit 1; }

timeout 300 "$ardour_lua" "$work/reload.lua" >"$work/reload.log" 2>&1
grep -q '^reloaded' "$work/reload.log"
states=$(find "$session/plugins" -name state.ttl | wc -l)
[ "$states" -eq 1 ] || { echo "the reloaded plugin's state differs:"; diff <(values "$saved") \
  <(values "$(find "$session/plugins" -name state.ttl | sort | tail -1)"); exit 1; }
echo "session round trip: $(wc -l <"$work/saved.values") values came back"
