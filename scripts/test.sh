#!/usr/bin/env bash
# Installs the dependencies, builds one preset (debug by default; release or asan) and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-debug}"
bash scripts/install-deps.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"
