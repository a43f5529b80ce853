#!/usr/bin/env bash
# Builds the Debian package from a Release build, unpacks it into a scratch
# root and renders the demo with the unpacked renderer from another folder;
# then does the same with a plain `cmake --install` to a scratch prefix.
# The WAV files are checked with the tests' wavcheck (length, audible).
# VANTOR_BUILD_DIR: the Release build folder (default build/, as test.sh).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/setup.sh"

build="${VANTOR_BUILD_DIR:-$root/build}"
flags=(-DVANTOR_WERROR=ON)
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)" --target vantorengine vantor-render vantor-listparams \
  vantor_presets vantor_doc tools_render_wavcheck

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
wavcheck="$build/tests/tools_render_wavcheck"
demo_frames=1177879 # the demo's 26.709 s at 44100 Hz, before the release tail

# Renders the demo from an unrelated folder with the renderer of PREFIX.
check_prefix() {
  local prefix="$1" out="$scratch/out-$2"
  for f in bin/vantor-render bin/vantor-listparams lib/vantor/vantorengine.so \
           lib/vantor/vantorengine.xml lib/vantor/log.conf share/vantor/presets/init.json \
           share/doc/vantor/demo.mid share/doc/vantor/README.md; do
    [ -e "$prefix/$f" ] || { echo "package-check: missing $prefix/$f" >&2; exit 1; }
  done
  mkdir -p "$out"
  (cd "$out" && "$prefix/bin/vantor-render" "$prefix/share/doc/vantor/demo.mid" -o demo.wav \
     --seed 1 --quiet > stdout.txt)
  if [ -s "$out/stdout.txt" ]; then
    echo "package-check: the renderer wrote to standard output:" >&2
    cat "$out/stdout.txt" >&2
    exit 1
  fi
  "$wavcheck" "$out/demo.wav" --rate 44100 --min-frames "$demo_frames" --min-peak 0.01
  # Read the whole list first: grep -q would stop reading early and break the pipe.
  presets=$("$prefix/bin/vantor-render" --list-presets)
  grep -q "^pad  " <<<"$presets"
  [ "$("$prefix/bin/vantor-listparams" | wc -l)" -gt 4000 ]
  echo "package-check: $2 renders the demo"
}

# cmake --install into a prefix, then moved: the prefix is relocatable.
cmake --install "$build" --prefix "$scratch/staged" >/dev/null
mv "$scratch/staged" "$scratch/moved"
check_prefix "$scratch/moved" install

# The Debian package, unpacked into a scratch root.
(cd "$build" && cpack -G DEB -B "$scratch/deb" >/dev/null)
deb="$(ls "$scratch"/deb/vantor_*.deb)"
echo "package-check: $(basename "$deb")"
dpkg-deb -f "$deb" Depends
dpkg-deb -f "$deb" Depends | grep -q libsndfile1 ||
  { echo "package-check: the package does not depend on libsndfile1" >&2; exit 1; }
dpkg -x "$deb" "$scratch/root"
check_prefix "$scratch/root/usr" deb
cp "$deb" "$build/"
