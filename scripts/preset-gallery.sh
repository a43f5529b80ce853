#!/usr/bin/env bash
# Renders every shipped preset playing its category's phrase (data/demo/phrase-CATEGORY.mid),
# then writes docs/presets/NAME.ogg, a spectrogram docs/presets/NAME.png and the page
# docs/presets.md. With --check it only renders and prints each preset's peak level.
#   scripts/preset-gallery.sh [--check]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
check=0
[ "${1:-}" = "--check" ] && check=1
for tool in jq sox; do
  command -v $tool >/dev/null || { echo "needs $tool: apt-get install jq sox libsox-fmt-base" >&2; exit 1; }
done

build="$root/build"
flags=()
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j2 --target vantor-render vantor_presets >/dev/null

out="$root/docs/presets"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
# Only the shipped presets, never the user's own folder.
export XDG_DATA_HOME="$work/no-user-presets"

# Categories in page order; a preset whose category is not listed goes last.
order=(Init Basses Leads Pads Plucks Keys Brass FX Sequences)
rank() { local i; for i in "${!order[@]}"; do [ "${order[$i]}" = "$1" ] && { echo "$i"; return; }; done; echo 99; }

rows=()
for file in "$root"/data/presets/*.json; do
  name="$(basename "$file" .json)"
  category="$(jq -r '.category // "Other"' "$file")"
  rows+=("$(rank "$category")	$category	$name")
done
mapfile -t rows < <(printf '%s\n' "${rows[@]}" | sort -t$'\t' -k1,1n -k3,3)

page="$work/presets.md"
{
  echo "# Preset gallery"
  echo
  echo "Every shipped preset playing a short phrase for its category (\`data/demo/phrase-*.mid\`,"
  echo "120 bpm, seed 1). Listen to the Ogg Vorbis file; the picture is the spectrogram of the render"
  echo "(time across, 0 to 22 kHz up). \`scripts/preset-gallery.sh\` regenerates the sounds, the pictures and this page."
  echo
} > "$page"
last=""
for row in "${rows[@]}"; do
  IFS=$'\t' read -r _ category name <<< "$row"
  file="$root/data/presets/$name.json"
  phrase="$root/data/demo/phrase-$(tr 'A-Z' 'a-z' <<< "$category").mid"
  [ -f "$phrase" ] || phrase="$root/data/demo/phrase-init.mid"
  wav="$work/$name.wav"
  "$build/bin/vantor-render" "$phrase" -o "$wav" --preset "$name" --seed 1 --tail 3 --quiet
  peak="$(sox "$wav" -n stat 2>&1 | awk '/Maximum amplitude/ {max=$3} /Minimum amplitude/ {min=-$3} END {p = max > min ? max : min; printf "%.1f", 20 * log(p) / log(10)}')"
  printf '%-22s %-10s %6s dBFS\n' "$name" "$category" "$peak"
  [ $check -eq 1 ] && continue

  sox "$wav" -r 32000 -C 0 "$out/$name.ogg"
  # The title holds a blank, so sox never takes it for the name of an effect (pad, echo ...).
  sox "$wav" -n remix - spectrogram -x 400 -y 129 -z 90 -t "$name - $category" -o "$out/$name.png"
  if [ "$category" != "$last" ]; then
    printf '## %s\n\n' "$category" >> "$page"
    last="$category"
  fi
  {
    printf '### %s (`%s`)\n\n' "$(jq -r '.name' "$file")" "$name"
    printf '%s\n\n' "$(jq -r '.description // ""' "$file")"
    printf 'Tags: %s. Peak %s dBFS. [Listen](presets/%s.ogg)\n\n' \
      "$(jq -r '(.tags // []) | join(", ")' "$file")" "$peak" "$name"
    printf '![%s spectrogram](presets/%s.png)\n\n' "$name" "$name"
  } >> "$page"
done
[ $check -eq 1 ] || cp "$page" "$root/docs/presets.md"
