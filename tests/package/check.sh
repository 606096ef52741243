#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then configures, builds
# and runs a consumer that finds it with find_package(Harbec).
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$(dirname "$0")" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib:${LD_LIBRARY_PATH:-}" "$work/consumer/consumer"
echo "installed package found, linked and ran"
