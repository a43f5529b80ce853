#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

packages=(g++ cmake make pkg-config libgtest-dev libgmock-dev libbenchmark-dev librapidxml-dev
          libsndfile1-dev libcli11-dev nlohmann-json3-dev valgrind)
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
