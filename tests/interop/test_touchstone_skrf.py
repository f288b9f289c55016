#!/usr/bin/env python3
"""Our Touchstone files read by scikit-rf.

touchstone_peer writes S-parameter files (1 to 10 ports, MA/DB/RI, 8 and 12
digits, renormalised to 50 ohms or left at 50-ohm ports) and prints the exact
numbers behind each. scikit-rf must read back what we meant: the frequencies
and S values rounded to the printed digits, a 50-ohm reference, and our port
names. For renormalised files the S we wrote must also be scikit-rf's own
renormalisation of the solver's S (travelling waves, as our conversions use).
Usage: test_touchstone_skrf.py <touchstone_peer>
"""
import json
import math
import os
import subprocess
import sys
import tempfile

import numpy
# scikit-rf 0.15 still uses the aliases that numpy removed.
for alias, target in (("complex", complex), ("float", float), ("int", int)):
    if not hasattr(numpy, alias):
        setattr(numpy, alias, target)
import skrf  # noqa: E402

RENORM_TOLERANCE = 1e-9  # relative, renormalisation of random matrices


def printed(x, digits):
    """x as a file with `digits` significant digits holds it."""
    return float("%.*g" % (digits, x))


def from_pair(a, b, form):
    if form == "RI":
        return complex(a, b)
    mag = a if form == "MA" else 10.0 ** (a / 20.0)
    return mag * numpy.exp(1j * numpy.deg2rad(b))


def rounding_bound(s, a, b, form, digits):
    """Largest |error| in s that rounding a and b to `digits` can cause."""
    u = 0.5 * 10.0 ** (1 - digits)
    if form == "RI":
        return u * (abs(a) + abs(b))
    angle = abs(s) * u * abs(b) * math.pi / 180.0
    if form == "MA":
        return u * abs(a) + angle
    return abs(s) * (10.0 ** (u * abs(a) / 20.0) - 1.0) + angle


def check_case(directory, case):
    errors = []
    form, digits, n = case["format"], case["precision"], case["ports"]
    net = skrf.Network(os.path.join(directory, case["file"]))
    points = case["points"]
    if net.s.shape != (len(points), n, n):
        return [f"shape {net.s.shape}"], 0.0, 0.0
    if not numpy.all(net.z0 == 50):
        errors.append(f"reference {net.z0[0]}")
    names = [f"Port{k + 1}:1" for k in range(n)]
    if list(net.port_names or []) != names:
        errors.append(f"port names {net.port_names}")
    worst_exact, worst_renorm = 0.0, 0.0
    for k, point in enumerate(points):
        f = printed(point["f"] / 1e9, digits) * 1e9
        if abs(net.f[k] - f) > 1e-15 * f:
            errors.append(f"frequency {net.f[k]!r} != {f!r}")
        s = numpy.array([complex(*z) for z in point["s"]]).reshape(n, n)
        for i in range(n):
            for j in range(n):
                # Two-ports are written column by column; pairs are row by row.
                a, b = point["pairs"][i * n + j]
                theirs = net.s[k, i, j]
                expected = from_pair(printed(a, digits), printed(b, digits), form)
                exact = abs(theirs - expected) / max(abs(expected), 1e-300)
                worst_exact = max(worst_exact, exact)
                if exact > 1e-12:
                    errors.append(f"point {k} S{i + 1}{j + 1}: {theirs} != {expected}")
                if abs(theirs - s[i, j]) > rounding_bound(s[i, j], a, b, form, digits) * (1 + 1e-9):
                    errors.append(f"point {k} S{i + 1}{j + 1}: {theirs} not {s[i, j]} to {digits} digits")
        if case["renormalised"]:
            s_solver = numpy.array([complex(*z) for z in point["s_solver"]]).reshape(1, n, n)
            z_solver = numpy.array([complex(*z) for z in point["z_solver"]])
            ref = skrf.network.renormalize_s(s_solver, z_solver, 50.0, s_def="traveling")[0]
            diff = numpy.max(numpy.abs(s - ref)) / numpy.max(numpy.abs(ref))
            worst_renorm = max(worst_renorm, diff)
            if diff > RENORM_TOLERANCE:
                errors.append(f"point {k}: renormalised S differs by {diff:.3g}")
    return errors, worst_exact, worst_renorm


def main():
    peer = sys.argv[1]
    with tempfile.TemporaryDirectory() as directory:
        out = subprocess.run([peer, directory], capture_output=True, text=True, check=True).stdout
        cases = [json.loads(line) for line in out.splitlines()]
        failures, worst_exact, worst_renorm = [], 0.0, 0.0
        for case in cases:
            errors, exact, renorm = check_case(directory, case)
            worst_exact, worst_renorm = max(worst_exact, exact), max(worst_renorm, renorm)
            failures += [f"{case['file']} ({case['ports']} ports {case['format']} "
                         f"p={case['precision']}): {e}" for e in errors]
    for failure in failures[:20]:
        print("FAIL", failure)
    ports = sorted({c["ports"] for c in cases})
    renormalised = sum(c["renormalised"] for c in cases)
    status = "FAILED" if failures or not cases else "ok"
    print(f"touchstone/scikit-rf {status}: {len(cases)} files, {ports[0] if ports else 0}-"
          f"{ports[-1] if ports else 0} ports, MA/DB/RI, 8 and 12 digits, {renormalised} "
          f"renormalised; {len(failures)} mismatches; worst error against the printed "
          f"digits {worst_exact:.2g}, worst renormalisation difference {worst_renorm:.2g}")
    return 1 if failures or not cases else 0


if __name__ == "__main__":
    sys.exit(main())
