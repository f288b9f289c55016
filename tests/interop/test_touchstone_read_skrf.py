#!/usr/bin/env python3
# Touchstone files written by scikit-rf, read by our reader and by scikit-rf.
#
# Networks of 1 to 8 ports with seeded random S (some entries exactly 0, one
# tiny), frequency units Hz to GHz, MA/DB/RI, a 50 or 75 ohm reference, and
# named or unnamed ports, built with scikit-rf's own Network and written with
# its write_touchstone. Both readers must agree: the same frequencies, the
# same S to 1e-13 of the largest entry (the two only differ in how they turn
# a magnitude and an angle into a complex number), the same reference, and
# the port names.
# Usage: test_touchstone_read_skrf.py <touchstone_read_peer>
import itertools
import json
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

TOLERANCE = 1e-13


def make_network(rng, ports, unit, z0, named):
    f = numpy.sort(rng.uniform(0.1, 20.0, 7)) * {"hz": 1e6, "khz": 1e6, "mhz": 1e7, "ghz": 1e9}[unit]
    freq = skrf.Frequency.from_f(f, unit="hz")
    freq.unit = unit
    s = (rng.standard_normal((7, ports, ports)) + 1j * rng.standard_normal((7, ports, ports))) * 0.3
    s[0, 0, 0] = 0.0
    s[1, -1, 0] = 1e-30
    net = skrf.Network(frequency=freq, s=s, z0=z0, name="net")
    if named:
        net.port_names = [f"P{k + 1}" for k in range(ports)]
    return net


def main():
    rng = numpy.random.default_rng(20261123)
    cases = list(itertools.product(range(1, 9), ("ma", "db", "ri"), ("hz", "khz", "mhz", "ghz")))
    failures = []
    worst = 0.0
    with tempfile.TemporaryDirectory() as directory:
        files = []
        for k, (ports, form, unit) in enumerate(cases):
            z0 = 75.0 if k % 3 == 0 else 50.0
            net = make_network(rng, ports, unit, z0, named=k % 2 == 0)
            name = f"case{k}"
            net.write_touchstone(filename=name, dir=directory, form=form)
            files.append(os.path.join(directory, f"{name}.s{ports}p"))
        out = subprocess.run([sys.argv[1], *files], capture_output=True, text=True, check=True).stdout
        for path, (ports, form, unit), line in zip(files, cases, out.splitlines()):
            ours = json.loads(line)
            label = f"{os.path.basename(path)} ({ports} ports {form} {unit})"
            if "error" in ours:
                failures.append(f"{label}: {ours['error']}")
                continue
            theirs = skrf.Network(path)
            s = numpy.array([complex(*v) for v in ours["s"]]).reshape(theirs.s.shape)
            scale = max(abs(theirs.s).max(), 1e-300)
            error = abs(s - theirs.s).max() / scale
            worst = max(worst, error)
            z0 = numpy.array([complex(*v) for v in ours["z0"]])
            checks = (
                (numpy.array_equal(ours["f"], theirs.f), f"frequencies {ours['f']} != {list(theirs.f)}"),
                (error <= TOLERANCE, f"S differs by {error:.3g} of the largest entry"),
                (numpy.array_equal(z0, theirs.z0[0]), f"reference {z0} != {theirs.z0[0]}"),
                (theirs.port_names is None or ours["names"] == list(theirs.port_names),
                 f"names {ours['names']} != {theirs.port_names}"),
            )
            failures += [f"{label}: {text}" for ok, text in checks if not ok]
    for failure in failures[:20]:
        print("FAIL", failure)
    status = "FAILED" if failures else "ok"
    print(f"touchstone read/scikit-rf {status}: {len(cases)} files of 1-8 ports, MA/DB/RI, Hz-GHz, "
          f"50/75 ohms written by scikit-rf {skrf.__version__}; {len(failures)} mismatches; "
          f"worst S difference {worst:.2g} of the largest entry")
    return 0 if status == "ok" else 1


if __name__ == "__main__":
    sys.exit(main())
