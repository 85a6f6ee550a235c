#!/usr/bin/env bash
# The main job: install, build, and run the example graph on the bundled sample input.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$zor_root"
bash scripts/install-deps.sh
bash scripts/build.sh release
echo
build/host/zor-run examples/main.lua
