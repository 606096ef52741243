#!/usr/bin/env bash
# Runs the side-by-side benchmarks of the library, the govmomi client
# (testing/peers/govclient) and the unparsed floor against the vCenter simulator,
# and writes the figures as a Markdown table on stdout (and into
# $OUT, default build-dir/peers.md).
#
#   bench/peers.sh [build-dir]
#
# HARBEC_BENCH_LARGE=0 skips the larger inventory, whose size
# HARBEC_BENCH_LARGE_SIZE gives as HOSTSxVMS_PER_HOST (default 4000x12:
# 4,000 hosts and 48,000 VMs, a reply of about 300 MB; hosts in clusters of
# 50); HARBEC_BENCH_LATENCY_SETS sets the number of changes (default 1000,
# about 4 minutes).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
out=${OUT:-$build/peers.md}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --build "$build" -j2 --target FirstSyncBench ChangeLatencyBench >&2

standard="-standalone-host 0 -cluster 4 -host 50 -vm 25"
size=${HARBEC_BENCH_LARGE_SIZE:-4000x12}
hosts=${size%x*}
per_host=${size#*x}
large="-standalone-host 0 -cluster $(((hosts + 49) / 50)) -host $((hosts < 50 ? hosts : 50)) -vm $per_host"

run_sync() {  # name, simulator arguments
  echo "first sync: $2" >&2
  HARBEC_BENCH_VCSIM_ARGS="$2" "$build/bench/FirstSyncBench" \
    --benchmark_out="$work/$1.json" --benchmark_out_format=json >&2
}
run_sync standard "$standard"
if [ "${HARBEC_BENCH_LARGE:-1}" != 0 ]; then run_sync large "$large"; fi
echo "change latency" >&2
"$build/bench/ChangeLatencyBench" --benchmark_out="$work/latency.json" --benchmark_out_format=json >&2

settle=$(sed -n 's/.*settleTime *= *\([0-9]*\) \* time.Millisecond.*/\1/p' "$here/../testing/peers/vcsim/pc.go")
cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)

python3 - "$work" "$(nproc)" "$cpu" "$settle" "$(date -u +%Y-%m-%d)" <<'EOF' | tee "$out"
import json, os, sys

work, nproc, cpu, settle, day = sys.argv[1:6]

def load(name):
    path = os.path.join(work, name + ".json")
    if not os.path.exists(path):
        return None
    out = {b["name"].split("/")[0]: b for b in json.load(open(path))["benchmarks"]}
    # The first syncs take turns in one benchmark; its counters are
    # "Client.figure".
    for key, value in out.pop("BM_FirstSync", {}).items():
        if "." in key:
            client, figure = key.split(".", 1)
            out.setdefault("BM_FirstSync_" + client, {})[figure] = value
    return out

def sync_table(title, b):
    lib, gov, floor = b["BM_FirstSync_Library"], b["BM_FirstSync_Govmomi"], b["BM_FirstSync_Floor"]
    wall = lambda x: x["wall_s"]
    kernel_vms = lib["hosts"]
    print(f"### {title}: {int(lib['hosts'])} hosts, {int(lib['vms'] - kernel_vms)} VMs, "
          f"reply {floor['bytes'] / 1e6:.1f} MB\n")
    print("| Client | Wall s | CPU s | Peak MB | CPU vs libHarbec | Peak vs libHarbec |")
    print("|---|---:|---:|---:|---:|---:|")
    for label, x in (("libHarbec", lib), ("govmomi (Go)", gov), ("Floor: reply read off the socket, unparsed", floor)):
        print(f"| {label} | {wall(x):.2f} | {x['cpu_s']:.3f} | {x['peak_MB']:.1f} | "
              f"{x['cpu_s'] / lib['cpu_s']:.2f}x | {x['peak_MB'] / lib['peak_MB']:.2f}x |")
    print(f"\nlibHarbec takes {lib['cpu_s'] / floor['cpu_s']:.1f}x the floor's CPU time "
          f"and {wall(lib) / wall(floor):.2f}x its wall time; govmomi takes "
          f"{gov['cpu_s'] / lib['cpu_s']:.1f}x libHarbec's CPU time and "
          f"{gov['peak_MB'] / lib['peak_MB']:.1f}x its peak memory. "
          f"Wall time includes the simulator producing the reply.\n")
    link = b.get("BM_UpdateLinkStatus")
    if link:
        print(f"One `updateLinkStatus` for a port key no NIC holds (the whole walk): "
              f"{link['real_time']:.0f} µs.\n")

print(f"Taken {day} on {nproc} CPUs ({cpu}); medians of 5 rounds in which the clients take turns, "
      "each client in a process of its own, the simulator in another.\n")
for name, title in (("standard", "First full sync"), ("large", "First full sync, larger inventory")):
    b = load(name)
    if b:
        sync_table(title, b)

# How each client's cost grows from the standard inventory to the larger:
# CPU per MB of reply and per object of the reply, the larger
# over the standard. The reply of the larger inventory has relatively more
# hosts (12 VMs each against 25), so both measures are given; the objects
# are those of the reply, as govmomi counts them (both ask the same).
std_, big = load("standard"), load("large")
if std_ and big:
    print("### Cost per object, larger inventory against the standard\n")
    print("| Client | CPU per reply MB, standard ms | larger ms | growth | CPU per object, standard µs | larger µs | growth |")
    print("|---|---:|---:|---:|---:|---:|---:|")
    mb = lambda b: b["BM_FirstSync_Floor"]["bytes"] / 1e6
    objects = lambda b: b["BM_FirstSync_Govmomi"]["objects"]
    for label, name in (("libHarbec", "BM_FirstSync_Library"), ("govmomi (Go)", "BM_FirstSync_Govmomi")):
        a, z = std_[name]["cpu_s"], big[name]["cpu_s"]
        pa, pz = 1e3 * a / mb(std_), 1e3 * z / mb(big)
        oa, oz = 1e6 * a / objects(std_), 1e6 * z / objects(big)
        print(f"| {label} | {pa:.2f} | {pz:.2f} | {pz / pa:.2f}x | {oa:.1f} | {oz:.1f} | {oz / oa:.2f}x |")
    print()

lat = load("latency")
if lat:
    l = lat["BM_ChangeLatency"]
    print(f"### Latency of a change, {int(l['iterations'])} small update sets\n")
    print("| Path | Median ms | 99th percentile ms |")
    print("|---|---:|---:|")
    print(f"| libHarbec, own part: reply arrives → listener notified | {l['lib_own_p50_ms']:.2f} | {l['lib_own_p99_ms']:.2f} |")
    print(f"| libHarbec, end to end: change in the simulator → listener | {l['lib_e2e_p50_ms']:.1f} | {l['lib_e2e_p99_ms']:.1f} |")
    print(f"| govmomi, end to end: change in the simulator → applied | {l['gov_e2e_p50_ms']:.1f} | {l['gov_e2e_p99_ms']:.1f} |")
    print(f"\nEnd to end both clients carry the simulator's floor: it gathers changes for {settle} ms "
          "before it answers a `WaitForUpdates`, then collects the filter's objects anew.")
EOF
