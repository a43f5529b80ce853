#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

packages=(g++ cmake make pkg-config libgtest-dev libgmock-dev libbenchmark-dev librapidxml-dev
          libsndfile1-dev libcli11-dev nlohmann-json3-dev valgrind
          dpkg-dev file) # dpkg-dev and file: the Debian package's dependencies (cpack)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q "${missing[@]}"
fi
