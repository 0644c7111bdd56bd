#!/usr/bin/env bash
# Installs the dependencies, builds one preset (debug by default; release, asan or tsan) and runs its
# tests: every test, except tsan, which builds and runs only the tests labelled "threads".
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-debug}"
bash scripts/install-deps.sh
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"
