#!/usr/bin/env bash
# Compares the ABI of the two shared libraries in the debug build with the committed baselines in
# abi/ and fails when an existing exported function, variable or a type they use has changed or
# gone. New exported symbols pass: they need a minor version, not a new SONAME.
#
#   scripts/abi-check.sh            check (builds the two libraries in build/debug first)
#   scripts/abi-check.sh --update   rewrite the baselines from the current build
#
# The debug build carries -g, which abidw and abidiff read the types from.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=check
case "${1:-}" in
  "") ;;
  --update) mode=update ;;
  *) echo "usage: $0 [--update]" >&2; exit 2 ;;
esac

for tool in abidw abidiff; do
  command -v "$tool" >/dev/null || { echo "$tool is missing: run scripts/install-deps.sh" >&2; exit 2; }
done

build=build/debug
[ -f "$build/CMakeCache.txt" ] || cmake --preset debug >/dev/null
cmake --build "$build" --target mrlbase zelutility >/dev/null

# No paths or source locations in the baselines: they would change with every checkout folder and
# every edited line without saying anything about the ABI. Hashed type ids keep the files stable.
abidw_options=(--no-corpus-path --no-comp-dir-path --no-show-locs --type-id-style hash)

# abidiff's exit status is a bit set.
readonly ABIDIFF_ERROR=1 ABIDIFF_USAGE_ERROR=2 ABIDIFF_ABI_CHANGE=4 ABIDIFF_ABI_INCOMPATIBLE_CHANGE=8

status=0
for lib in "$build/mrlbase/libmrlbase.so" "$build/src/libzelutility.so"; do
  name=$(basename "$lib" .so)
  baseline="abi/$name.abi"
  if ! readelf -S --wide "$lib" | grep -q '\.debug_info'; then
    echo "$lib has no debug information" >&2
    exit 2
  fi
  if [ "$mode" = update ]; then
    mkdir -p abi
    abidw "${abidw_options[@]}" --out-file "$baseline" "$lib"
    echo "wrote $baseline"
    continue
  fi
  [ -f "$baseline" ] || { echo "$baseline is missing: run $0 --update" >&2; exit 2; }

  # Added symbols are left out of this comparison, so whatever it still reports is a change to
  # something a program built against the baseline already uses. A grown or reordered class only
  # sets the ABI_CHANGE bit, so that bit fails the check as well as ABI_INCOMPATIBLE_CHANGE.
  rc=0
  report=$(abidiff --no-added-syms "$baseline" "$lib") || rc=$?
  if (( rc & (ABIDIFF_ERROR | ABIDIFF_USAGE_ERROR) )); then
    echo "abidiff could not compare $baseline with $lib (exit $rc)" >&2
    printf '%s\n' "$report" >&2
    exit 2
  fi
  if (( rc & (ABIDIFF_ABI_CHANGE | ABIDIFF_ABI_INCOMPATIBLE_CHANGE) )); then
    echo "$name: incompatible ABI change against $baseline:" >&2
    printf '%s\n' "$report" >&2
    status=1
    continue
  fi

  rc=0
  abidiff "$baseline" "$lib" >/dev/null || rc=$?
  if (( rc & ABIDIFF_ABI_CHANGE )); then
    echo "$name: compatible (new symbols only; run $0 --update to record them)"
  else
    echo "$name: unchanged"
  fi
done

if [ "$status" -ne 0 ]; then
  echo "If the change is meant, the next release bumps the major version (and the SONAME);" >&2
  echo "then run $0 --update." >&2
fi
exit "$status"
