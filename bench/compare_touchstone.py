#!/usr/bin/env python3
"""Touchstone writing of sparamlib beside scikit-rf, in one run.

Runs bench_touchstone (Google Benchmark, JSON output) and times scikit-rf's
Network.write_touchstone on a network of the same shape (1001 frequencies x
32 ports of random S, MA form), once with its default number output and once
with the same "%-16.8G " layout ours writes, then prints time, MB/s and the
speed-up over each.
Usage: compare_touchstone.py <path to bench_touchstone> [repeats]
"""
import json
import os
import subprocess
import sys
import tempfile
import time

import numpy
# scikit-rf 0.15 still uses the aliases that numpy removed.
for alias, target in (("complex", complex), ("float", float), ("int", int)):
    if not hasattr(numpy, alias):
        setattr(numpy, alias, target)
import skrf  # noqa: E402

PORTS, POINTS = 32, 1001


def skrf_write(repeats, **formats):
    """Best time and file size of write_touchstone over `repeats` runs."""
    rng = numpy.random.default_rng(1)
    s = (rng.standard_normal((POINTS, PORTS, PORTS)) + 1j * rng.standard_normal((POINTS, PORTS, PORTS))) * 0.3
    freq = skrf.Frequency.from_f(numpy.linspace(1e9, 10e9, POINTS), unit="ghz")
    net = skrf.Network(frequency=freq, s=s, z0=50.0, name="bench")
    best = float("inf")
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, f"bench.s{PORTS}p")
        for _ in range(repeats):
            # A new file each time, as bench_touchstone writes.
            if os.path.exists(path):
                os.remove(path)
            t = time.perf_counter()
            net.write_touchstone(filename="bench", dir=directory, form="ma", **formats)
            best = min(best, time.perf_counter() - t)
        size = os.path.getsize(path)
    return best, size


def main():
    bench = sys.argv[1]
    repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    out = subprocess.run([bench, "--benchmark_format=json", "--benchmark_filter=BM_WriteTouchstone",
                          "--benchmark_min_time=2"], capture_output=True, text=True, check=True).stdout
    result = json.loads(out)
    (ours,) = [b for b in result["benchmarks"] if b["name"].startswith("BM_WriteTouchstone")]
    if ours.get("error_occurred"):
        sys.exit(f"bench_touchstone: {ours.get('error_message')}")
    unit = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[ours["time_unit"]]
    mine, mine_bytes = ours["real_time"] * unit, ours["file_bytes"]
    layout = "{:<16.8G}"
    rows = [("sparamlib (%-16.8G)", mine, mine_bytes)]
    t, size = skrf_write(repeats, format_spec_A=layout, format_spec_B=layout, format_spec_freq=layout)
    rows.append(("scikit-rf, same layout", t, size))
    t, size = skrf_write(repeats)
    rows.append(("scikit-rf, default output", t, size))
    cpu = "?"
    if os.path.exists("/proc/cpuinfo"):
        with open("/proc/cpuinfo") as info:
            cpu = next((line.split(":", 1)[1].strip() for line in info if line.startswith("model name")), "?")
    print(f"Touchstone write, {POINTS} frequencies x {PORTS} ports, MA, to a new file")
    print(f"({cpu}, {result['context'].get('num_cpus', '?')} CPUs; bench_touchstone as built, "
          f"Google Benchmark mean over 2 s; scikit-rf {skrf.__version__} best of {repeats})")
    print("| writer | time | file | MB/s | sparamlib speed-up |")
    print("|---|---|---|---|---|")
    for name, seconds, size in rows:
        print(f"| {name} | {seconds * 1e3:.0f} ms | {size / 1e6:.1f} MB | {size / 1e6 / seconds:.1f} | "
              f"{seconds / mine:.1f}x |")


if __name__ == "__main__":
    main()
