#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

packages=(g++ cmake make pkg-config libgtest-dev libgmock-dev libbenchmark-dev librapidxml-dev
          libsndfile1-dev libcli11-dev nlohmann-json3-dev valgrind
          dpkg-dev file # dpkg-dev and file: the Debian package's dependencies (cpack)
          clang libclang-rt-14-dev locales) # the fuzzers and the torture suite's locale row
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

# The torture suite plays the engine under a German locale (decimal comma).
if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; then
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  echo "Generating locale de_DE.UTF-8"
  $sudo sed -i 's/^# *de_DE.UTF-8 UTF-8/de_DE.UTF-8 UTF-8/' /etc/locale.gen
  $sudo locale-gen >/dev/null || echo "locale de_DE.UTF-8 not generated; its torture row will skip"
fi
