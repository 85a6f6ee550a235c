#!/usr/bin/env bash
# Install, build and run the whole test suite twice: an optimised build, then a build under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)
scripts/build.sh release
(cd build && ctest --output-on-failure -j "$jobs")
scripts/build.sh asan
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build-asan && ctest --output-on-failure -j "$jobs")
