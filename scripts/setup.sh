#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

packages=(g++ cmake make pkg-config libgtest-dev libgmock-dev libbenchmark-dev librapidxml-dev
          libsndfile1-dev libcli11-dev nlohmann-json3-dev valgrind
          dpkg-dev file # dpkg-dev and file: the Debian package's dependencies (cpack)
          clang libclang-rt-14-dev locales # the fuzzers and the torture suite's locale row
          clang-format-14) # the format check: its major version is pinned, layouts differ between them
# The plugin and the hosts its tests play it in; their recommended packages
# (desktop session tools) are not needed.
plugin_packages=(lv2-dev serdi sordi lilv-utils liblilv-dev jalv jackd2 jack-capture sox libjack-jackd2-dev ardour)

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
updated=0
install() { # install [apt-get options...] -- packages...
  local options=() missing=()
  while [ "$1" != "--" ]; do options+=("$1"); shift; done
  shift
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing: ${missing[*]}"
  [ $updated -eq 1 ] || $sudo apt-get update -q
  updated=1
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q "${options[@]}" "${missing[@]}"
}
install -- "${packages[@]}"
install --no-install-recommends -- "${plugin_packages[@]}"

# The torture suite plays the engine under a German locale (decimal comma).
if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; then
  echo "Generating locale de_DE.UTF-8"
  $sudo sed -i 's/^# *de_DE.UTF-8 UTF-8/de_DE.UTF-8 UTF-8/' /etc/locale.gen
  $sudo locale-gen >/dev/null || echo "locale de_DE.UTF-8 not generated; its torture row will skip"
fi
