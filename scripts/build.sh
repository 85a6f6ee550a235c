#!/usr/bin/env bash
# Configures and builds one configuration: scripts/build.sh [release|asan]
set -euo pipefail
cd "$(dirname "$0")/.."
kind=${1:-release}
case "$kind" in
    release) dir=build; flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
    asan) dir=build-asan; flags=(-DCMAKE_BUILD_TYPE=Debug -DZOR_SANITIZE=ON -DZOR_BUILD_BENCH=OFF) ;;
    *) echo "usage: $0 [release|asan]" >&2; exit 2 ;;
esac
cmake -S . -B "$dir" "${flags[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)"
