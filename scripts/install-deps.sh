#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, and only those that are missing, so that a warm
# machine pays nothing.
set -euo pipefail
packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev
          libpugixml-dev libcli11-dev libinih-dev
          libreaderwriterqueue-dev)  # the lock-free queue is a benchmark baseline only
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [[ ${#missing[@]} -gt 0 ]]; then
  echo "installing: ${missing[*]}"
  sudo=""
  [[ $(id -u) -ne 0 ]] && sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update
  $sudo apt-get install -y "${missing[@]}"
fi
