#!/usr/bin/env bash
# The main job: installs what is missing, builds the host agent, and runs
# its demo once: the vCenter simulator and the vShield Manager stand-in
# start on 127.0.0.1, the agent syncs with both and prints what stands
# behind each interface of the switch. Extra arguments go to the agent
# (--json, or leave out --once by running the agent itself); only the
# view goes to stdout.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh >&2

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
cmake --build build/release -j"$(nproc)" --target harbec-agent >&2
exec build/release/agent/harbec-agent --demo --once "$@"
