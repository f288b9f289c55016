#!/usr/bin/env python3
"""Interpolation of sparamlib beside scikit-rf, in one run.

Runs bench_interpolate (32 ports, 50 solved points onto 10,001 frequencies),
which leaves the solved points and the true response at every 100th target
frequency in a temporary folder, then times scikit-rf's
Network.interpolate(kind='cubic') on the same solved points and checks its
values against the true response, and prints one table.
Usage: compare_interpolate.py <path to bench_interpolate> [repeats]
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


def main():
    bench = sys.argv[1]
    repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    with tempfile.TemporaryDirectory() as directory:
        ours = json.loads(subprocess.run([bench, "--write", directory], capture_output=True, text=True,
                                         check=True).stdout)
        solved = skrf.Network(os.path.join(directory, "solved.s32p"))
        truth = skrf.Network(os.path.join(directory, "truth.s32p"))
    targets = skrf.Frequency(solved.f[0], solved.f[-1], ours["targets"], unit="hz")
    best = float("inf")
    for _ in range(repeats):
        t = time.perf_counter()
        interpolated = solved.interpolate(targets, kind="cubic")
        best = min(best, time.perf_counter() - t)
    # The true response stands at every 100th target frequency.
    worst = numpy.abs(interpolated.s[::100] - truth.s).max()

    bri = ours["bri"]
    print(f"Interpolation, {ours['ports']} ports, {ours['points']} solved points onto "
          f"{ours['targets']} frequencies (pole-residue model, 6 resonances of Q 8-40)")
    print(f"(scikit-rf {skrf.__version__} best of {repeats}; sparamlib best of 3, points read one by "
          "one and released as a writer does)")
    def against(seconds):
        ratio = best / seconds
        return f"{ratio:.1f}x faster" if ratio >= 1 else f"{1 / ratio:.0f}x slower"

    print("| method | time | worst error vs model | against scikit-rf cubic |")
    print("|---|---|---|---|")
    print(f"| scikit-rf interpolate(kind='cubic') | {best * 1e3:.0f} ms | {worst:.2g} | |")
    print(f"| sparamlib BRI, evaluation | {bri['eval_s'] * 1e3:.0f} ms | {bri['worst']:.2g} | "
          f"{against(bri['eval_s'])} |")
    print(f"| sparamlib BRI, weight fit ({bri['support']} support points), once | "
          f"{bri['fit_s'] * 1e3:.0f} ms | | |")
    for n in ours["neville"]:
        full = n["per_frequency_s"] * ours["targets"]
        print(f"| sparamlib Neville, {n['points']} points ({n['frequencies']} frequencies timed, "
              f"{n['per_frequency_s'] * 1e3:.1f} ms each) | {full:.0f} s for {ours['targets']} | "
              f"{n['worst']:.2g} | {against(full)} |")


if __name__ == "__main__":
    main()
