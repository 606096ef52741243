#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole suite: once plainly,
# once under AddressSanitizer with UndefinedBehaviorSanitizer (clang, with
# the fuzz targets, which then run for HARBEC_FUZZ_SECONDS each, default 45),
# and once under ThreadSanitizer. HARBEC_SANITIZERS=0 skips all but the
# plain run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

jobs=$(nproc)

run_suite() {  # build dir, extra cmake arguments...
  local dir=$1
  shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  ctest --test-dir "$dir" --output-on-failure -j"$jobs"
}

run_suite build/release
if [ "${HARBEC_SANITIZERS:-1}" != 0 ]; then
  CC=clang-14 CXX=clang++-14 run_suite build/fuzz -DHARBEC_SANITIZE=address,undefined -DHARBEC_FUZZ=ON \
    -DHARBEC_BUILD_BENCH=OFF
  scripts/fuzz.sh "${HARBEC_FUZZ_SECONDS:-45}"
  run_suite build/tsan -DHARBEC_SANITIZE=thread -DHARBEC_BUILD_BENCH=OFF
fi
