#!/usr/bin/env bash
# CI smoke run: every fuzz target from its seeds only (the committed ones, and for image_fuzz the
# small files of the shared image corpus when it sits next to the repository; see scripts/fuzz.sh),
# with a fixed random seed and a fixed number of inputs, so the run is the same on every machine and
# a red CI means a reproducible finding, not bad luck. Longer, open-ended runs are scripts/fuzz.sh.
# Crashing inputs stay in build/fuzz/smoke.
set -euo pipefail
cd "$(dirname "$0")/.."
rm -rf build/fuzz/smoke
ZEL_FUZZ_WORK=build/fuzz/smoke ZEL_FUZZ_ARGS="-seed=1 -runs=${FUZZ_SMOKE_RUNS:-150000}" \
  exec bash scripts/fuzz.sh "${FUZZ_SMOKE_SECONDS:-120}"
