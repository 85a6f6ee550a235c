#!/usr/bin/env bash
# Configures and builds one configuration: scripts/build.sh [release|asan]
#   release  build/       g++, -O2 with debug information (what ships; benchmarks are built here)
#   asan     build-asan/  clang, AddressSanitizer and UndefinedBehaviorSanitizer, no benchmarks
# Quiet: one line per stage, the compiler's output in build-logs/build-<kind>.log.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$zor_root"
kind=${1:-release}
case "$kind" in
    release)
        dir=build; cc=gcc; cxx=g++
        flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
    asan)
        dir=build-asan; cc=clang; cxx=clang++
        flags=(-DCMAKE_BUILD_TYPE=Debug -DZOR_SANITIZE=ON -DZOR_BUILD_BENCH=OFF) ;;
    *) echo "usage: $0 [release|asan]" >&2; exit 2 ;;
esac
# A build directory made with another compiler cannot switch: start it afresh.
if [ -f "$dir/CMakeCache.txt" ]; then
    cached=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$dir/CMakeCache.txt")
    [ "$(readlink -f "$cached")" = "$(readlink -f "$(command -v "$cxx")")" ] || rm -rf "$dir"
fi
log=$zor_logs/build-$kind.log
: >"$log"
zor_step "Configuring $kind ($cxx)" "$log" \
    env CC="$cc" CXX="$cxx" cmake -S . -B "$dir" "${flags[@]}"
zor_step "Building $kind (-j$(nproc))" "$log" cmake --build "$dir" -j "$(nproc)"
