#!/usr/bin/env bash
# The main job: install, build, and run the example graph on the bundled sample input.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release
build/host/zor-run examples/main.lua
