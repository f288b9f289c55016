#!/usr/bin/env python3
"""S->Y and S->Z throughput of sparamlib beside scikit-rf, in one run.

Runs bench_conversions (Google Benchmark, JSON output) and times scikit-rf's
s2y/s2z (s_def='traveling', the same formulas) on random data of the same
shape, then prints a table of time per point and the speed-up.
Usage: compare_conversions.py <path to bench_conversions>
"""
import json
import subprocess
import sys
import time

import numpy
for alias, target in (("complex", complex), ("float", float), ("int", int)):
    if not hasattr(numpy, alias):
        setattr(numpy, alias, target)
import skrf  # noqa: E402


def skrf_time_per_point(fn, n, points, repeats=5):
    rng = numpy.random.default_rng(1)
    s = (rng.standard_normal((points, n, n)) + 1j * rng.standard_normal((points, n, n))) * (0.5 / 3 / numpy.sqrt(n))
    z0 = rng.uniform(20, 90, n) + 1j * rng.uniform(-30, 30, n)
    best = float("inf")
    for _ in range(repeats):
        t = time.perf_counter()
        fn(s, z0, s_def="traveling")
        best = min(best, time.perf_counter() - t)
    return best / points


def main():
    bench = sys.argv[1]
    out = subprocess.run([bench, "--benchmark_format=json", "--benchmark_min_time=0.2"],
                         capture_output=True, text=True, check=True).stdout
    ours = {}
    for b in json.loads(out)["benchmarks"]:
        per_point = 1.0 / b["items_per_second"]
        ours[b["name"]] = per_point
    rows = []
    for n in (2, 8, 32, 100):
        points = 1001 if n <= 32 else 101
        for kind, fn in (("Y", skrf.network.s2y), ("Z", skrf.network.s2z)):
            theirs = skrf_time_per_point(fn, n, points)
            mine = ours[f"BM_STo{kind}/{n}"]
            rows.append((f"S->{kind}, {n} ports, per point", mine, theirs))
    for kind, fn in (("Y", skrf.network.s2y), ("Z", skrf.network.s2z)):
        theirs = skrf_time_per_point(fn, 32, 1001)
        mine = ours[f"BM_STo{kind}_Sweep/32/1001"]
        rows.append((f"S->{kind}, 1001 points x 32 ports", mine, theirs))
    print("| conversion | sparamlib | scikit-rf | speed-up |")
    print("|---|---|---|---|")
    for name, mine, theirs in rows:
        print(f"| {name} | {mine * 1e6:.3g} us/point | {theirs * 1e6:.3g} us/point | {theirs / mine:.1f}x |")


if __name__ == "__main__":
    main()
