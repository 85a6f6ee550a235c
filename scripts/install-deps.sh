#!/usr/bin/env bash
# Installs what building, running and testing Zor needs on Debian 12 (run as root).
set -euo pipefail
packages=(
    cmake make g++ clang pkg-config
    bison
    lua5.4 liblua5.4-dev
    libasound2-dev
    libavformat-dev libavcodec-dev libavutil-dev libswscale-dev ffmpeg
    libsqlite3-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    sox espeak-ng
)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
