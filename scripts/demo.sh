#!/usr/bin/env bash
# Installs the dependencies, builds the release preset and runs the main job: the page-editing demo.
# It decodes examples/page.png, erases the pen stroke, draws a Chinese and Latin caption, finds the
# content rectangle and saves build/demo/page-edited.png.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release
cmake --build --preset release -j "$(nproc)" --target zeltool
mkdir -p build/demo
./build/release/tools/zeltool demo build/demo/page-edited.png
