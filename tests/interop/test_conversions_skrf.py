#!/usr/bin/env python3
"""S<->Y and S<->Z of sparamlib's data points against scikit-rf.

scikit-rf's s_def='traveling' uses the same travelling-wave definitions with
complex reference impedances, Z = sqrt(z0) (I - S)^-1 (I + S) sqrt(z0), so the
two must agree to rounding. Usage: test_conversions_skrf.py <conversion_peer>
"""
import subprocess
import sys

import numpy
# scikit-rf 0.15 still uses the aliases that numpy removed.
for alias, target in (("complex", complex), ("float", float), ("int", int)):
    if not hasattr(numpy, alias):
        setattr(numpy, alias, target)
import skrf  # noqa: E402

TOLERANCE = 1e-12
rng = numpy.random.default_rng(20261121)


def random_case(n):
    s = (rng.standard_normal((n, n)) + 1j * rng.standard_normal((n, n))) * (0.5 / 3 / numpy.sqrt(n))
    z0 = rng.uniform(20, 90, n) + 1j * rng.uniform(-30, 30, n)
    return s, z0


def encode(kind, m, z0):
    n = m.shape[0]
    values = [f"{kind} {n}"]
    values += [f"{v.real!r} {v.imag!r}" for v in z0]
    values += [f"{v.real!r} {v.imag!r}" for v in m.reshape(-1)]
    return "\n".join(values) + "\n"


def decode(line, n):
    parts = line.split()
    numbers = numpy.array([float(x) for x in parts[1:]])
    return parts[0], (numbers[0::2] + 1j * numbers[1::2]).reshape(n, n)


def relative_error(ours, theirs):
    return numpy.max(numpy.abs(ours - theirs)) / numpy.max(numpy.abs(theirs))


def main():
    peer = sys.argv[1]
    cases, stdin = [], ""
    for n in range(1, 9):
        for _ in range(5):
            s, z0 = random_case(n)
            y = skrf.network.s2y(s[None], z0, s_def="traveling")[0]
            z = skrf.network.s2z(s[None], z0, s_def="traveling")[0]
            cases.append((n, s, z0, y, z))
            stdin += encode("S", s, z0) + encode("Y", y, z0) + encode("Z", z, z0)
    out = subprocess.run([peer], input=stdin, capture_output=True, text=True, check=True).stdout
    lines = iter(out.splitlines())
    worst, failures = 0.0, []
    for n, s, z0, y, z in cases:
        expected = {"Y": y, "Z": z}
        for _ in range(2):
            name, ours = decode(next(lines), n)
            err = relative_error(ours, expected[name])
            worst = max(worst, err)
            if err > TOLERANCE:
                failures.append(f"S->{name} n={n}: relative error {err:.3g}")
        # Back to S from scikit-rf's own Y and Z.
        for source in ("Y", "Z"):
            name, ours = decode(next(lines), n)
            err = relative_error(ours, s)
            worst = max(worst, err)
            if err > TOLERANCE:
                failures.append(f"{source}->S n={n}: relative error {err:.3g}")
    print(f"{len(cases)} cases, n = 1..8, worst relative difference {worst:.3g}")
    for f in failures:
        print("FAIL", f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
