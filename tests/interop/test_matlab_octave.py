#!/usr/bin/env python3
# m-files written by sparamlib, run by Octave.
#
# matlab_peer writes the files and prints every element each must define;
# Octave runs every file and prints f, S, Y, Z, Zo and Gamma back in the same
# form at full precision. Each real and imaginary part must agree to the
# precision the file was written with (relative 10^-p; the frequencies go out
# with 15 significant digits), so what we never assigned must read back zero.
# Usage: test_matlab_octave.py <matlab_peer> <octave-cli>
import os
import subprocess
import sys
import tempfile

import numpy

NAMES = ("f", "S", "Y", "Z", "Zo", "Gamma")  # every one the peer lists
# Prints one variable as the peer does: dimensions reversed, so that listing
# them column-major gives row-major order, then real and imaginary parts.
PRINT = ("if exist('{0}', 'var'), x = permute({0}, ndims({0}):-1:1); printf('{0}'); "
         "printf(' %.17g %.17g', [real(x(:)) imag(x(:))].'); printf('\\n'); end\n")


def parse(text):
    # [(path, precision, {name: [re, im, re, im, ...]})] of 'case' blocks.
    cases = []
    for name, *rest in (line.split() for line in text.splitlines() if line.strip()):
        if name == "case":
            cases.append((rest[0], int(rest[1]), {}))
        else:
            cases[-1][2][name] = numpy.array(rest, float)
    return cases


def compare(path, precision, ours, found):
    where = f"{os.path.basename(path)} (p={precision})"
    for name, a in ours.items():
        b = found.get(name, numpy.zeros(0))
        tolerance = 1e-14 if name == "f" else 10.0 ** -precision  # f: 15 digits
        if b.shape != a.shape:
            yield f"{where} {name}: {b.size // 2} elements, expected {a.size // 2}"
        elif numpy.any(abs(a - b) > tolerance * abs(a)):
            k = numpy.argmax(abs(a - b) - tolerance * abs(a))
            yield f"{where} {name}[{k // 2}].{'ri'[k % 2]}: octave {b[k]!r}, ours {a[k]!r}"


def main():
    peer, octave = sys.argv[1], sys.argv[2]
    if not (os.path.isfile(octave) and os.access(octave, os.X_OK)):
        print(f"FAIL: octave-cli not found ('{octave}'); scripts/install-deps.sh installs it")
        return 1
    with tempfile.TemporaryDirectory() as tmp:
        cases = parse(subprocess.run([peer, tmp], capture_output=True, text=True,
                                     check=True).stdout)
        program = "".join(f"clear; run('{path}'); printf('case {path} {precision}\\n');\n" +
                          "".join(PRINT.format(name) for name in NAMES)
                          for path, precision, _ in cases)
        run = subprocess.run([octave, "--no-gui", "--quiet", "--norc", "--eval", program],
                             capture_output=True, text=True)
        if run.returncode != 0:
            print(f"FAIL: octave exited with {run.returncode}:\n{run.stderr}")
            return 1
        found = {path: values for path, _, values in parse(run.stdout)}
    failures = [f for path, p, ours in cases for f in compare(path, p, ours, found.get(path, {}))]
    values = sum(a.size // 2 for case in cases for a in case[2].values())
    print(f"{len(cases)} m-files, 1..6 ports, precision 10 and 15, {values} values: "
          f"{'all equal' if not failures else f'{len(failures)} mismatches'}")
    for failure in failures:
        print("FAIL", failure)
    return 1 if failures or not cases else 0


if __name__ == "__main__":
    sys.exit(main())
