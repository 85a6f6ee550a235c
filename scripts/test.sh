#!/usr/bin/env bash
# Install, build and run the whole test suite with both compilers: the optimised build with g++
# (the one that ships), then a build with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer. Quiet: one line per stage; a failure names its log.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$zor_root"
bash scripts/install-deps.sh

# zor_ctest KIND DIR: the suite of one build; on failure the failed tests and their log.
zor_ctest() {
    local kind=$1 dir=$2 log=$zor_logs/test-$1.log
    : >"$log"
    local start=$SECONDS
    printf '%-52s ' "Testing $kind ..."
    if (cd "$dir" && ctest --output-on-failure -j "$(nproc)") >>"$log" 2>&1; then
        echo "$(grep -o 'out of [0-9]*' "$log" | tail -1 | cut -d' ' -f3) tests passed ($((SECONDS - start)) s)"
        return 0
    fi
    echo "FAILED after $((SECONDS - start)) s"
    grep -E '^\s+[0-9]+ - .*\((Failed|Timeout|Subprocess|SEGFAULT|Not Run)' "$log" || true
    echo "---- the whole output is in $log ----"
    exit 1
}

bash scripts/build.sh release
zor_ctest release build
bash scripts/build.sh asan
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
zor_ctest asan build-asan
echo "All tests passed with g++ and with clang under the sanitizers."
