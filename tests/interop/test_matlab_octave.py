#!/usr/bin/env python3
"""m-files written by sparamlib, run by Octave.

matlab_peer writes the files and prints the exact values it wrote; Octave runs
every file and prints f, S, Y, Z, Zo and Gamma back at full precision. Each
component must agree to the precision the file was written with (relative
10^-p; the frequencies go out with 15 significant digits).
Usage: test_matlab_octave.py <matlab_peer> <octave-cli>
"""
import os
import subprocess
import sys
import tempfile

import numpy

NAMES = ("f", "S", "Y", "Z", "Zo", "Gamma")
FREQUENCY_TOLERANCE = 1e-14


def parse_peer(text):
    cases = []
    for line in text.splitlines():
        parts = line.split()
        if parts[0] == "case":
            path, precision, nf, n = parts[1], int(parts[2]), int(parts[3]), int(parts[4])
            cases.append({
                "path": path, "precision": precision,
                "f": None,
                "S": numpy.zeros((nf, n, n), complex), "Y": numpy.zeros((nf, n, n), complex),
                "Z": numpy.zeros((nf, n, n), complex),
                "Zo": numpy.zeros((nf, n), complex), "Gamma": numpy.zeros((nf, n), complex),
            })
        elif parts[0] == "f":
            cases[-1]["f"] = numpy.array([float(x) for x in parts[1:]], complex)
        else:
            values = numpy.array([float(x) for x in parts[2:]])
            target = cases[-1][parts[0]]
            target[int(parts[1]) - 1] = (values[0::2] + 1j * values[1::2]).reshape(target.shape[1:])
    return cases


def octave_program(cases):
    lines = []
    for index, case in enumerate(cases):
        lines.append(f"clear; run('{case['path']}'); printf('case {index}\\n');")
        for name in NAMES:
            lines.append(
                f"if exist('{name}', 'var'), x = {name}; printf('{name} %d\\n', numel(x)); "
                "printf('%.17g %.17g\\n', [real(x(:)) imag(x(:))].'); end")
    return "\n".join(lines)


def parse_octave(text, count):
    arrays = [dict() for _ in range(count)]
    lines = iter(text.splitlines())
    current = None
    for line in lines:
        parts = line.split()
        if not parts:
            continue
        if parts[0] == "case":
            current = arrays[int(parts[1])]
            continue
        numel = int(parts[1])
        values = numpy.array([[float(v) for v in next(lines).split()] for _ in range(numel)])
        current[parts[0]] = values[:, 0] + 1j * values[:, 1] if numel else numpy.zeros(0, complex)
    return arrays


def compare(name, ours, theirs, tolerance):
    """Failures, one line each, for components of `theirs` off by more than
    `tolerance` relative to ours; slices we never wrote must read back zero."""
    if theirs is None:
        return [f"{name}: not defined by the file"]
    if theirs.size != ours.size:
        return [f"{name}: {theirs.size} elements, expected {ours.size}"]
    # Octave lists elements column-major.
    theirs = theirs.reshape(ours.shape, order="F")
    failures = []
    for part in (numpy.real, numpy.imag):
        a, b = part(ours), part(theirs)
        bad = numpy.abs(a - b) > tolerance * numpy.abs(a)
        if bad.any():
            at = tuple(int(i) for i in numpy.argwhere(bad)[0])
            failures.append(f"{name}{at}: octave {b[at]!r}, ours {a[at]!r}")
    return failures


def main():
    if len(sys.argv) != 3:
        print(__doc__)
        return 2
    peer, octave = sys.argv[1], sys.argv[2]
    if not (os.path.isfile(octave) and os.access(octave, os.X_OK)):
        print(f"FAIL: octave-cli not found ('{octave}'); scripts/install-deps.sh installs it")
        return 1
    with tempfile.TemporaryDirectory() as tmp:
        cases = parse_peer(subprocess.run([peer, tmp], capture_output=True, text=True,
                                          check=True).stdout)
        run = subprocess.run([octave, "--no-gui", "--quiet", "--norc", "--eval",
                              octave_program(cases)], capture_output=True, text=True)
        if run.returncode != 0:
            print(f"FAIL: octave exited with {run.returncode}:\n{run.stderr}")
            return 1
        arrays = parse_octave(run.stdout, len(cases))
    failures = []
    for case, found in zip(cases, arrays):
        tolerance = 10.0 ** -case["precision"]
        for name in NAMES:
            for failure in compare(name, case[name], found.get(name),
                                   FREQUENCY_TOLERANCE if name == "f" else tolerance):
                failures.append(f"{os.path.basename(case['path'])} (p={case['precision']}): {failure}")
    values = sum(case[name].size for case in cases for name in NAMES)
    print(f"{len(cases)} m-files, 1..6 ports, precision 10 and 15, {values} values: "
          f"{'all equal' if not failures else f'{len(failures)} mismatches'}")
    for failure in failures:
        print("FAIL", failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
