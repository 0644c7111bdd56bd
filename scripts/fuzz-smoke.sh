#!/usr/bin/env bash
# CI smoke run: every fuzz target for 20 seconds, starting from its committed seeds only, so a
# run does not depend on what earlier runs found. Crashing inputs stay in build/fuzz/smoke.
set -euo pipefail
cd "$(dirname "$0")/.."
rm -rf build/fuzz/smoke
ZEL_FUZZ_WORK=build/fuzz/smoke exec bash scripts/fuzz.sh "${FUZZ_SMOKE_SECONDS:-20}"
