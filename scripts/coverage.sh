#!/usr/bin/env bash
# Line, function and branch coverage of the library and the agent by the
# whole test suite, with gcovr. Everything in the tree counts except what
# is listed below (tests, benchmarks, peers, fuzzers, build trees, and with
# the build trees the generated vim25 stubs).
#
#   scripts/coverage.sh [build-dir]      (default build/coverage)
#
# An HTML report goes to <build-dir>/coverage/index.html. The agent's
# program, run as a child by its tests, counts as well as the code the
# tests run in their own process.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
command -v gcovr >/dev/null || { sudo=""; [ "$(id -u)" -ne 0 ] && sudo=sudo; $sudo apt-get install -y -qq gcovr; }

build=${1:-build/coverage}
not_product=(tests/ bench/ fuzz/ testing/ tools/ build/ "$build/")

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DHARBEC_BUILD_BENCH=OFF \
  -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$build" -j"$(nproc)"
find "$build" -name '*.gcda' -delete
status=0
ctest --test-dir "$build" -j"$(nproc)" --timeout 120 >"$build/ctest.log" || status=$?
tail -n 3 "$build/ctest.log"

excludes=()
for p in "${not_product[@]}"; do excludes+=(--exclude "$(pwd)/${p%/}/"); done
mkdir -p "$build/coverage"
# Threaded tests leave counts that gcov cannot always parse.
gcovr -r . "$build" --gcov-ignore-parse-errors "${excludes[@]}" \
  --html-details "$build/coverage/index.html" --print-summary --txt "$build/coverage/summary.txt" |
  grep -E '^(lines|functions|branches):'
exit $status
