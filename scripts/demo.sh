#!/usr/bin/env bash
# Installs the dependencies, builds the release preset and runs the main job: the page-editing demo.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release
cmake --build --preset release -j "$(nproc)" --target zeltool
./build/release/tools/zeltool json examples/page.json
