#!/usr/bin/env bash
# Installs what building, running and testing Zor needs on Debian 12 (run as root). Quiet: one
# line, the apt output goes to build-logs/install-deps.log.
set -euo pipefail
source "$(dirname "$0")/common.sh"
# Add a package here when the code needs it (one array, one line per area).
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
if [ ${#missing[@]} -eq 0 ]; then
    echo "Packages: all ${#packages[@]} installed"
    exit 0
fi
log=$zor_logs/install-deps.log
: >"$log"
export DEBIAN_FRONTEND=noninteractive
zor_step "Installing ${#missing[@]} packages (first time: 4-8 min)" "$log" \
    bash -c 'apt-get update && apt-get install -y --no-install-recommends "$@"' _ "${missing[@]}"
