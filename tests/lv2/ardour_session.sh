#!/usr/bin/env bash
# Session round trip in headless Ardour (ardour7-lua, "None (Dummy)" backend):
# a MIDI track with the plugin gets a preset, then a few parameters set one by
# one as a user turns knobs, and the session is saved. A fresh process reloads
# it, changes one more value so that Ardour writes the plugin's state anew, and
# saves again: every value of that state must be the first one's.
# Usage: ardour_session.sh LV2_DIR WORKDIR PRESETS_TTL
set -euo pipefail
lv2dir=$1 work=$2 presets=$3
export LV2_PATH=$lv2dir
ardour_lua=$(command -v ardour7-lua || command -v ardour8-lua)
rm -rf "$work" && mkdir -p "$work"
session="$work/session"
param=urn:norvell:vantor:param:

# Knobs turned after the preset: name, value sent and, when the plugin moves it onto
# the eight-decimal state grid, the value it keeps; then the one changed after the
# reload. Values are written as the state writes them.
knobs="voice1_vcf_cutoff 0.30000001
master_volume 0.41999999
voice3_pan 0.1
voice7_detune 0.61000001
effect1_selector 0.07142857
zone2_min_note 0.2519685
vib_speed 0.0371
voice1_env1_attack 0.0123456789 0.01234568"
marker="master_fine_tune 0.52999997"

# Lua: set the listed properties through Ardour's plugin property controls.
lua_setter() {
  echo "local want = {}"
  while read -r name value _; do echo "want[\"$name\"] = $value"; done
  cat <<'LUA'
local insert = track_plugin()
local auto = insert:to_automatable()
local count = 0
for p in auto:all_automatable_params():iter() do
  local control = auto:automation_control(p, false)
  local name = control:name():gsub("^property%-urn:norvell:vantor:param:", "")
  if want[name] then
    control:set_value(want[name], PBD.GroupControlDisposition.NoGroup)
    count = count + 1
  end
end
local expected = 0
for _ in pairs(want) do expected = expected + 1 end
assert(count == expected, "only " .. count .. " of " .. expected .. " properties found")
-- The values reach the plugin in the next process cycles.
ARDOUR.LuaAPI.wait_for_process_callback(20, 5000)
LUA
}

common='AudioEngine:set_backend("None (Dummy)", "", "")
function track_plugin()
  for route in Session:get_routes():iter() do
    local proc = route:nth_plugin(0)
    if not proc:isnil() then return proc end
  end
  error("the plugin is missing")
end'

{
  echo "$common"
  cat <<LUA
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
ARDOUR.LuaAPI.wait_for_process_callback(5, 5000)
LUA
  lua_setter <<<"$knobs"
  cat <<'LUA'
Session:save_state("", false, false, false, false, false)
close_session()
LUA
} >"$work/create.lua"

{
  echo "$common"
  cat <<LUA
assert(load_session("$session", "session"), "cannot load the session")
LUA
  lua_setter <<<"$marker"
  cat <<'LUA'
Session:save_state("reloaded", false, false, false, false, false)
close_session()
print("reloaded")
LUA
} >"$work/reload.lua"

values() { grep -o "<$param[^>]*> \"[^\"]*\"" "$1" | sed "s/^<$param//; s/> \"/ /; s/\"$//" | sort; }
# Overrides the values of list $1 with the name-value(-kept value) lines in $2.
with() { awk 'NR == FNR { v[$1] = NF > 2 ? $3 : $2; next } { print $1, ($1 in v ? v[$1] : $2) }' \
  <(echo "$2") "$1"; }
# Same names and values, as text: the generator writes presets as the state does.
same() { diff "$1" "$2" >"$work/diff" || { head -20 "$work/diff"; return 1; }; }

# The saving run may crash on exit: judge by what it wrote and by the reload.
timeout 300 "$ardour_lua" "$work/create.lua" >"$work/create.log" 2>&1 || true
saved=$(find "$session/plugins" -name state.ttl | head -1)
[ -n "$saved" ] || { echo "no plugin state saved"; tail "$work/create.log"; exit 1; }

awk '/<urn:norvell:vantor:preset:pad>/{on=1} on&&/\] \./{exit} on' "$presets" >"$work/pad.ttl"
values "$work/pad.ttl" >"$work/pad.values"
[ "$(wc -l <"$work/pad.values")" -gt 500 ] || { echo "preset pad not found"; exit 1; }
with "$work/pad.values" "$knobs" >"$work/expected.values"
values "$saved" >"$work/saved.values"
same "$work/expected.values" "$work/saved.values" ||
  { echo "the saved state is not the preset with the knobs turned"; exit 1; }

timeout 300 "$ardour_lua" "$work/reload.lua" >"$work/reload.log" 2>&1 || true
grep -q '^reloaded' "$work/reload.log" || { echo "reload failed"; tail "$work/reload.log"; exit 1; }
reloaded=$(find "$session/plugins" -name state.ttl -newer "$saved" | head -1)
[ -n "$reloaded" ] || { echo "no plugin state saved after the reload"; exit 1; }
with "$work/saved.values" "$marker" >"$work/expected2.values"
values "$reloaded" >"$work/reloaded.values"
same "$work/expected2.values" "$work/reloaded.values" ||
  { echo "values changed through the reload"; exit 1; }
echo "session round trip: $(wc -l <"$work/reloaded.values") values came back"
