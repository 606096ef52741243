#!/usr/bin/env bash
# Installs the build into a scratch prefix; a consumer finds the library with
# find_package(Harbec), links and runs; then the installed agent runs its
# demo from the prefix alone, with the source and build trees hidden where
# the system lets a mount namespace hide them.
set -euo pipefail
build=$(cd "$1" && pwd)
source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$(dirname "$0")" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib:${LD_LIBRARY_PATH:-}" "$work/consumer/consumer"
echo "installed package found, linked and ran"

demo="$work/prefix/bin/harbec-agent --demo --once --quiet"
export LD_LIBRARY_PATH="$work/prefix/lib:${LD_LIBRARY_PATH:-}"
if unshare -rm true 2>/dev/null; then
  out=$(cd / && timeout 60 unshare -rm sh -c \
    "mount -t tmpfs none '$build' && mount -t tmpfs none '$source' && exec $demo")
  echo "installed demo ran with $source and $build hidden"
else
  out=$(cd / && timeout 60 $demo)
  echo "installed demo ran (no mount namespace to hide the trees)"
fi
grep -q '^Interface Ethernet' <<<"$out" || { echo "no interface in the demo's view:"; echo "$out"; exit 1; }
