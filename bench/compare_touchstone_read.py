#!/usr/bin/env python3
"""Touchstone reading of sparamlib beside scikit-rf, in one run.

Writes the benchmark file (1001 frequencies x 32 ports, MA, 8 digits, about
40 MB) with bench_touchstone_read --make, times our reader with Google
Benchmark (which first checks what it reads against the data written), times
skrf.Network(file) on the same file, and measures the peak memory of one read
of each in a fresh process: the growth of the peak resident set over the
resident set before the read, next to the bytes of network data then held.
Usage: compare_touchstone_read.py <path to bench_touchstone_read> [repeats]
"""
import json
import os
import subprocess
import sys
import tempfile
import time

SKRF_PREAMBLE = """
import numpy
for alias, target in (("complex", complex), ("float", float), ("int", int)):
    if not hasattr(numpy, alias):
        setattr(numpy, alias, target)
import skrf
"""

SKRF_PEAK = SKRF_PREAMBLE + """
import json, sys
def status(field):
    with open("/proc/self/status") as f:
        return next(int(l.split()[1]) for l in f if l.startswith(field))
before = status("VmRSS:")
net = skrf.Network(sys.argv[1])
peak = status("VmHWM:")
held = net.s.nbytes + net.z0.nbytes + net.f.nbytes
print(json.dumps({"held_bytes": held, "peak_kib": peak, "rss_before_kib": before,
                  "peak_growth_over_held": (peak - before) * 1024.0 / held}))
"""

SKRF_TIME = SKRF_PREAMBLE + """
import json, sys, time
best = float("inf")
for _ in range(int(sys.argv[2])):
    t = time.perf_counter()
    skrf.Network(sys.argv[1])
    best = min(best, time.perf_counter() - t)
print(json.dumps({"seconds": best, "version": skrf.__version__}))
"""


def last_json(command):
    """The JSON line a program prints last (scikit-rf prints notes before it)."""
    out = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    return json.loads(out.strip().splitlines()[-1])


def main():
    bench = sys.argv[1]
    repeats = sys.argv[2] if len(sys.argv) > 2 else "2"
    python = sys.executable
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "bench.s32p")
        size = int(subprocess.run([bench, "--make", path], capture_output=True, text=True, check=True).stdout)
        out = subprocess.run([bench, "--benchmark_format=json", "--benchmark_filter=BM_ReadTouchstone",
                              "--benchmark_min_time=2"], capture_output=True, text=True, check=True).stdout
        result = json.loads(out)
        (ours,) = result["benchmarks"]
        if ours.get("error_occurred"):
            sys.exit(f"bench_touchstone_read: {ours.get('error_message')}")
        unit = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[ours["time_unit"]]
        mine = ours["real_time"] * unit
        our_peak = last_json([bench, "--read-peak", path])
        theirs = last_json([python, "-c", SKRF_TIME, path, repeats])
        their_peak = last_json([python, "-c", SKRF_PEAK, path])
    cpu = "?"
    if os.path.exists("/proc/cpuinfo"):
        with open("/proc/cpuinfo") as info:
            cpu = next((line.split(":", 1)[1].strip() for line in info if line.startswith("model name")), "?")
    load = os.getloadavg()[0]
    print(f"Touchstone read, 1001 frequencies x 32 ports, MA, 8 digits, {size / 1e6:.1f} MB")
    print(f"({cpu}, {result['context'].get('num_cpus', '?')} CPUs, load {load:.1f}; bench_touchstone_read "
          f"as built, Google Benchmark mean over 2 s; scikit-rf {theirs['version']} best of {repeats})")
    print("| reader | time | MB/s | peak memory growth | data held | growth / held |")
    print("|---|---|---|---|---|---|")
    for name, seconds, peak in (("sparamlib", mine, our_peak), ("scikit-rf Network(file)", theirs["seconds"],
                                                                 their_peak)):
        growth = (peak["peak_kib"] - peak["rss_before_kib"]) / 1024.0
        print(f"| {name} | {seconds * 1e3:.0f} ms | {size / 1e6 / seconds:.1f} | {growth:.1f} MiB | "
              f"{peak['held_bytes'] / 2**20:.1f} MiB | {peak['peak_growth_over_held']:.2f} |")
    print(f"sparamlib speed-up over scikit-rf: {theirs['seconds'] / mine:.1f}x")


if __name__ == "__main__":
    main()
