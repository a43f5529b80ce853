#!/usr/bin/env bash
# The bundle generator on presets that name only what differs from init: each
# preset's state still holds the whole sound, and presets are grouped in banks by
# their category, those without one in the factory bank.
# Usage: presets_gen.sh LV2GEN ENGINE INIT_JSON WORKDIR
set -euo pipefail
lv2gen=$1 engine=$2 init=$3 work=$4
rm -rf "$work" && mkdir -p "$work/presets" "$work/bundle"
cp "$init" "$work/presets/init.json"
cat >"$work/presets/low.json" <<'JSON'
{"name": "Low", "category": "Bass & Sub", "author": "test", "values": {"voice1_vcf_cutoff": 0.2}}
JSON
cat >"$work/presets/deep.json" <<'JSON'
{"name": "Deep", "category": "Bass & Sub", "values": {"master_volume": 0.3}}
JSON
cat >"$work/presets/plain.json" <<'JSON'
{"name": "Plain", "values": {}}
JSON
"$lv2gen" "$engine" "$work/presets" "$work/bundle"
serdi -q -i turtle -o ntriples "$work/bundle/presets.ttl" >"$work/presets.nt"

# "preset bank" and "preset parameter value" lines from the triples.
awk -v param='<urn:norvell:vantor:param:' '
  $2 == "<http://lv2plug.in/ns/ext/presets#bank>" { print "bank", $1, $3 }
  $2 == "<http://www.w3.org/2000/01/rdf-schema#label>" { print "label", $1, substr($0, index($0, $3)) }
  $2 == "<http://lv2plug.in/ns/ext/state#state>" { owner[$3] = $1 }
  index($2, param) == 1 { split($3, v, "\""); n++; node[n] = $1; key[n] = $2; value[n] = v[2] }
  END { for (i = 1; i <= n; i++) print "value", owner[node[i]], key[i], value[i] }' \
  "$work/presets.nt" | sed 's/ \.$//' | sort >"$work/facts"

fail() { echo "$*"; exit 1; }
preset() { echo "<urn:norvell:vantor:preset:$1>"; }
bank_of() { awk -v p="$(preset "$1")" '$1 == "bank" && $2 == p { print $3 }' "$work/facts"; }
sound_of() { awk -v p="$(preset "$1")" '$1 == "value" && $2 == p { print $3, $4 }' "$work/facts"; }

bass=$(bank_of low)
[ "$bass" = "<urn:norvell:vantor:bank:bass-sub>" ] || fail "low is in bank '$bass'"
[ "$(bank_of deep)" = "$bass" ] || fail "deep is not in low's bank"
[ "$(bank_of plain)" = "<urn:norvell:vantor:bank:factory>" ] || fail "plain is not in the factory bank"
grep -qx "label $bass \"Bass & Sub\"" "$work/facts" || fail "the bank is not labelled by its category"

sound_of init >"$work/init.values"
[ "$(wc -l <"$work/init.values")" -gt 500 ] || fail "init holds only $(wc -l <"$work/init.values") values"
diff <(sound_of plain) "$work/init.values" >/dev/null || fail "plain is not the init sound"
diff <(sound_of low) "$work/init.values" | grep '^[<>]' >"$work/low.diff" || true
expected="< <urn:norvell:vantor:param:voice1_vcf_cutoff> 0.2"
[ "$(grep '^<' "$work/low.diff")" = "$expected" ] && [ "$(grep -c '^>' "$work/low.diff")" = 1 ] ||
  fail "low differs from init in more than its one value: $(cat "$work/low.diff")"
echo "presets: whole sounds from diffs, banks by category"
