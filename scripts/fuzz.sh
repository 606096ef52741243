#!/usr/bin/env bash
# Fuzzes every target for a while with libFuzzer (clang 14, AddressSanitizer
# and UndefinedBehaviorSanitizer), starting from the committed seeds.
#
#   scripts/fuzz.sh [seconds per target] [target...]     (default 60, all)
#
# New inputs gather in build/fuzz-corpus/<target>, findings in
# build/fuzz-findings/<target>; a finding is copied into fuzz/corpus/<target>
# once it is fixed, so that the replay tests keep it. The script fails if any
# target found something, and prints for each: runs, runs per second,
# coverage (edges), corpus size and CPU time.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(Vim25ReplyFuzz VshieldReplyFuzz AgentInputFuzz TextFuzz)
build=${HARBEC_FUZZ_BUILD:-build/fuzz}

CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DHARBEC_SANITIZE=address,undefined -DHARBEC_FUZZ=ON -DHARBEC_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target "${targets[@]}"

failed=0
printf '%-18s %10s %8s %6s %7s %8s\n' target runs runs/s edges corpus cpu-s
for t in "${targets[@]}"; do
  work=build/fuzz-corpus/$t findings=build/fuzz-findings/$t
  mkdir -p "$work" "$findings"
  log=$findings/last.log
  start=$(awk '{print $16+$17}' /proc/$$/stat)
  status=0
  # The agent's input target starts no peers; every target stays in one process.
  ASAN_OPTIONS=detect_leaks=1 "$build/fuzz/$t" "$work" "fuzz/corpus/$t" \
    -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$findings/" >"$log" 2>&1 || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  edges=$(grep -oE 'cov: [0-9]+' "$log" | tail -n 1 | cut -d' ' -f2)
  cpu=$(awk -v s="$start" '{printf "%.0f", ($16+$17-s)/100}' /proc/$$/stat)
  printf '%-18s %10s %8s %6s %7s %8s\n' "$t" "${runs:-?}" "${rate:-?}" "${edges:-?}" \
    "$(find "$work" -type f | wc -l)" "$cpu"
  if [ $status -ne 0 ]; then
    failed=1
    echo "  $t found something (status $status); see $log:" >&2
    grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$log" | head -n 5 >&2 || true
  fi
done
exit $failed
