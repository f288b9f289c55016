#!/usr/bin/env python3
# Our Touchstone files read by scikit-rf.
#
# touchstone_peer writes S-parameter files (1 to 10 ports, MA/DB/RI, 8 and 12
# digits, renormalised to 50 ohms or left at 50-ohm ports) and prints the exact
# numbers behind each. scikit-rf must read back what we meant: the frequencies
# and S values rounded to the printed digits, a 50-ohm reference, and our port
# names. For renormalised files the S we wrote must also be scikit-rf's own
# renormalisation of the solver's S (travelling waves, as our conversions use).
# Usage: test_touchstone_skrf.py <touchstone_peer>
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
    # x as a file with `digits` significant digits holds it.
    return float("%.*g" % (digits, x))


def as_read(z, form, digits):
    # z written as the file's two numbers (computed as the format defines
    # them, with the C library's functions) and read back.
    z = complex(z)
    if form == "RI":
        return complex(printed(z.real, digits), printed(z.imag, digits))
    mag = abs(z)
    a = printed(mag if form == "MA" else 20.0 * math.log10(mag), digits)
    b = printed(math.atan2(z.imag, z.real) * 180.0 / math.pi, digits)
    return (a if form == "MA" else 10.0 ** (a / 20.0)) * numpy.exp(1j * numpy.deg2rad(b))


def check_case(directory, case):
    # Failures for one file, the worst error against the printed digits and
    # the worst renormalisation difference.
    form, digits, n = case["format"], case["precision"], case["ports"]
    net = skrf.Network(os.path.join(directory, case["file"]))
    points = case["points"]
    if net.s.shape != (len(points), n, n):
        return [f"shape {net.s.shape}"], 0.0, 0.0
    f = numpy.array([printed(p["f"] / 1e9, digits) * 1e9 for p in points])
    s, s_solver, z_solver = (numpy.array([[complex(*z) for z in p[key]] for p in points])
                             for key in ("s", "s_solver", "z_solver"))
    s, s_solver = s.reshape(net.s.shape), s_solver.reshape(net.s.shape)
    expected = numpy.vectorize(lambda z: as_read(z, form, digits))(s)
    exact = abs(net.s - expected) / numpy.maximum(abs(expected), 1e-300)
    ref = skrf.network.renormalize_s(s_solver, z_solver, 50.0, s_def="traveling")
    renorm = (abs(s - ref).max(axis=(1, 2)) / abs(ref).max(axis=(1, 2))).max()
    k, i, j = numpy.unravel_index(exact.argmax(), exact.shape)
    errors = [text for bad, text in (
        (not numpy.all(net.z0 == 50), f"reference {net.z0[0]}"),
        (list(net.port_names or []) != [f"Port{m + 1}:1" for m in range(n)],
         f"port names {net.port_names}"),
        (numpy.any(abs(net.f - f) > 1e-15 * f), f"frequencies {net.f!r} != {f!r}"),
        (exact.max() > 1e-12,
         f"point {k} S{i + 1}{j + 1}: {net.s[k, i, j]} != {expected[k, i, j]}"),
        (renorm > RENORM_TOLERANCE, f"renormalised S differs by {renorm:.3g}")) if bad]
    return errors, exact.max(), renorm if case["renormalised"] else 0.0


def main():
    with tempfile.TemporaryDirectory() as directory:
        out = subprocess.run([sys.argv[1], directory], capture_output=True, text=True,
                             check=True).stdout
        cases = [json.loads(line) for line in out.splitlines()]
        results = [check_case(directory, case) for case in cases]
    failures = [f"{c['file']} ({c['ports']} ports {c['format']} p={c['precision']}): {e}"
                for c, (errors, _, _) in zip(cases, results) for e in errors]
    for failure in failures[:20]:
        print("FAIL", failure)
    combinations = {(c["ports"], c["format"], c["precision"], c["renormalised"]) for c in cases}
    status = "FAILED" if failures or len(combinations) != 120 else "ok"
    print(f"touchstone/scikit-rf {status}: {len(combinations)} of the 120 combinations of 1-10 "
          f"ports, MA/DB/RI, 8 and 12 digits, renormalised or not; {len(failures)} mismatches; "
          f"worst error against the printed digits {max(r[1] for r in results):.2g}, "
          f"worst renormalisation difference {max(r[2] for r in results):.2g}")
    return 0 if status == "ok" else 1


if __name__ == "__main__":
    sys.exit(main())
