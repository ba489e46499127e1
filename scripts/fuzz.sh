#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang (a tree of its own, NIVRA_FUZZ=ON) and runs
# each for the given number of seconds (default 60), starting from the seeds in tests/fuzz/corpus.
# Findings (crash-*, leak-*, timeout-*) are left in the run folder and fail the script.
# Usage: scripts/fuzz.sh [seconds] [target...]   (NIVRA_BUILD_DIR and NIVRA_JOBS as for build.sh)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
jobs=${NIVRA_JOBS:-$(nproc)}
build=${NIVRA_BUILD_DIR:-$top/build}/fuzz
seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(rsa_fuzz frames_fuzz)
[ -f "$build/build.ninja" ] ||
  CC=clang CXX=clang++ cmake -S "$top" -B "$build" -G Ninja -DNIVRA_FUZZ=ON >/dev/null
cmake --build "$build" --target "${targets[@]}" -j "$jobs"
status=0
for target in "${targets[@]}"; do
  run="$build/runs/$target"
  mkdir -p "$run/corpus"
  echo "fuzz: $target for ${seconds}s"
  (cd "$run" && "$build/tests/fuzz/$target" -max_total_time="$seconds" -print_final_stats=1 \
      corpus "$top/tests/fuzz/corpus/$target" 2>&1 | tail -n 12) || status=1
  if ls "$run"/crash-* "$run"/leak-* "$run"/timeout-* >/dev/null 2>&1; then status=1; fi
done
exit $status
