#!/usr/bin/env bash
# Installs the Debian 12 packages zoltools needs to build, test and benchmark, if any is
# missing. Safe to run again: it does nothing when everything is there.
set -euo pipefail

packages=(
    cmake g++ clang make git
    android-liblog-dev android-libutils-dev android-libcutils-dev
    libgtest-dev libgmock-dev googletest
    libbenchmark-dev libspdlog-dev libyuv-dev
    libcli11-dev libpng-dev
    chromium
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing missing packages: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
