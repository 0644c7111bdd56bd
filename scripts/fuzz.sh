#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each one, one after another, for SECONDS (default 60)
# on its committed seed corpus in fuzz/corpus/<target>. image_fuzz also starts from the shared test
# data next to the repository when it is there (../shared/testdata): the image corpus's files under
# 16 KiB and the inputs in finds/, linked into $ZEL_FUZZ_WORK/seeds/image_fuzz.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]      e.g. scripts/fuzz.sh 600 cert_fuzz pkcs12_fuzz
#
# New inputs go to $ZEL_FUZZ_WORK/corpus/<target> (default build/fuzz/work, kept between runs),
# crashing inputs to $ZEL_FUZZ_WORK/crashes/<target>, the logs to $ZEL_FUZZ_WORK/<target>.log.
# JOBS sets the build parallelism (default 2); ZEL_FUZZ_ARGS adds libFuzzer options (e.g. -seed=1 -runs=N).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true
work_root="${ZEL_FUZZ_WORK:-build/fuzz/work}"
bash scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "${JOBS:-2}"
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for exe in build/fuzz/fuzz/*_fuzz; do targets+=("$(basename "$exe")"); done
fi
# Seeds that live outside the repository; prints the folder it made, or nothing.
shared_seeds() {
  local name="$1" shared=../shared/testdata dir="$work_root/seeds/$1" i=0 f
  [ "$name" = image_fuzz ] && [ -d "$shared/imagecorpus/files" ] || return 0
  rm -rf "$dir"
  mkdir -p "$dir"
  while IFS= read -r -d '' f; do
    i=$((i + 1))
    ln -s "$(realpath "$f")" "$dir/$i-$(basename "$f")"
  done < <(find "$shared/imagecorpus/files" "$shared/finds" -type f -size -16k ! -name '*.md' -print0 2>/dev/null | sort -z)
  echo "$dir"
}
status=0
for name in "${targets[@]}"; do
  exe="build/fuzz/fuzz/$name"
  [ -x "$exe" ] || { echo "no fuzz target $name"; status=1; continue; }
  corpus="$work_root/corpus/$name"; crashes="$work_root/crashes/$name"; log="$work_root/$name.log"
  mkdir -p "$corpus" "$crashes"
  seeds=(); [ -d "fuzz/corpus/$name" ] && seeds=("fuzz/corpus/$name")
  extra="$(shared_seeds "$name")"; [ -n "$extra" ] && seeds+=("$extra")
  echo "== $name for ${seconds}s"
  if ! "$exe" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=4096 -max_len=65536 \
      -print_final_stats=1 -artifact_prefix="$crashes/" ${ZEL_FUZZ_ARGS:-} "$corpus" "${seeds[@]}" >"$log" 2>&1; then
    echo "$name FAILED; see $log and $crashes"; tail -40 "$log"; status=1
  else
    grep -E '^stat::number_of_executed_units|DONE' "$log" | tail -2
  fi
done
exit $status
