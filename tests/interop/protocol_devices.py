#!/usr/bin/env python3
"""Built-in devices of sparam written again with numpy, as an external solver
speaking the line protocol of docs/solver-protocol.md: a sweep through the
protocol must see the same numbers (and so choose the same frequencies) as a
sweep of the built-in device.

    python3 protocol_devices.py bandpass|resonator|waveguide
"""
import json
import sys

import numpy as np

C0 = 299792458.0
ETA0 = 376.730313412


def bandpass(f):
    """5-resonator Chebyshev 0.1 dB filter from its coupling matrix:
    A = lambda I - jR + M - j/(Qu FBW) I, S11 = 1 + 2j R [A^-1]_11,
    S21 = -2j R [A^-1]_n1."""
    g = [1.0, 1.1468, 1.3712, 1.9750, 1.3712, 1.1468, 1.0]
    f0, fbw, qu = 10e9, 0.02, 2000.0
    n = len(g) - 2
    r = 1.0 / (g[0] * g[1])
    lam = (f / f0 - f0 / f) / fbw
    a = np.diag(np.full(n, lam - 1j / (qu * fbw)))
    a[0, 0] -= 1j * r
    a[-1, -1] -= 1j * r
    for i in range(n - 1):
        a[i, i + 1] = a[i + 1, i] = 1.0 / np.sqrt(g[i + 1] * g[i + 2])
    x = np.linalg.solve(a, np.eye(n)[:, [0, n - 1]])
    s21 = -2j * r * x[n - 1, 0]
    s = np.array([[1 + 2j * r * x[0, 0], s21], [s21, 1 + 2j * r * x[n - 1, 1]]])
    return {"s": s}


def resonator(f):
    """Five parallel RLC tanks in series terminating a 50-ohm port."""
    tanks = [(1.5e9, 200.0, 30.0), (2.3e9, 400.0, 50.0), (3.4e9, 600.0, 80.0),
             (4.4e9, 800.0, 120.0), (5.5e9, 1000.0, 40.0)]
    z = sum(r / (1 + 1j * q * (f / fk - fk / f)) for fk, q, r in tanks)
    return {"s": np.array([[(z - 50.0) / (z + 50.0)]])}


def waveguide(f):
    """WR-90 TE10 with an inductive iris between two 20 mm lengths, S referred
    to the wave impedance, which is reported as the port impedance."""
    a, half = 22.86e-3, 20e-3
    fc = C0 / (2 * a)
    if f <= fc:
        return {"error": "%.10g Hz is at or below the TE10 cutoff" % f}
    root = np.sqrt(1 - (fc / f) ** 2)
    beta = 2 * np.pi * f / C0 * root
    y = -1j * (2 * np.pi / beta / a) / np.tan(0.3 * np.pi) ** 2
    line = np.array([[np.cos(beta * half), 1j * np.sin(beta * half)],
                     [1j * np.sin(beta * half), np.cos(beta * half)]])
    (ma, mb), (mc, md) = line @ np.array([[1, 0], [y, 1]]) @ line
    den = ma + mb + mc + md
    s = np.array([[ma + mb - mc - md, 2 * (ma * md - mb * mc)],
                  [2, -ma + mb - mc + md]]) / den
    return {"s": s, "port_impedance": [ETA0 / root] * 2, "gamma": [1j * beta] * 2}


def pairs(values):
    return [[complex(v).real, complex(v).imag] for v in values]


def main():
    devices = {"bandpass": bandpass, "resonator": resonator, "waveguide": waveguide}
    if len(sys.argv) != 2 or sys.argv[1] not in devices:
        sys.stderr.write("usage: protocol_devices.py %s\n" % "|".join(devices))
        return 2
    model = devices[sys.argv[1]]
    for request in sys.stdin:
        if not request.strip():
            continue
        f = float(request)
        result = model(f)
        if "error" in result:
            answer = {"error": result["error"]}
        else:
            answer = {"frequency": f, "s": [pairs(row) for row in result["s"]]}
            for key in ("port_impedance", "gamma"):
                if key in result:
                    answer[key] = pairs(result[key])
        print(json.dumps(answer), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
