#!/usr/bin/env python3
# Files written by `sparam export`, read by scikit-rf and run by Octave.
#
# Sources: a Touchstone file scikit-rf writes at 75 ohms (converted to a
# project), and swept projects of the built-in coupler (50-ohm ports, with
# propagation constants) and waveguide (wave impedances that vary with
# frequency). Every Touchstone export (S, Y, Z; MA, DB, RI; .sNp and .ts)
# is read by scikit-rf; the numbers must agree with independent truth at
# the printed precision:
#   - the 75-ohm source: S is scikit-rf's own network, Y and Z its s2y/s2z;
#   - the sweeps: Y and Z from scikit-rf's conversion of the S file, and for
#     the waveguide the 50-ohm S file against scikit-rf's z2s of the Z file
#     (so our renormalisation is checked by another implementation).
# scikit-rf 0.15 reads Y and Z files only through its Touchstone parser
# (Network refuses them), and stops at [Two-Port Data Order], which version 2
# requires of two-ports; for those files that one line is left out before it
# reads them (it assumes 21_12, which is the order we write).
# Differential pairs set with `sparam setup` must export as scikit-rf's se2gmm,
# and de-embedding set there must turn the built-in line into the shorter one.
# Every m-file, for every combination of --quantities, must run in Octave,
# and its S must equal the S scikit-rf read (for the waveguide the S at its
# own wave impedances, which MATLAB files keep beside Zo).
# Usage: test_export_files.py <sparam> <octave-cli>
import itertools
import os
import shutil
import subprocess
import sys
import tempfile
import warnings

import numpy
# scikit-rf 0.15 still uses the aliases that numpy removed.
for alias, target in (("complex", complex), ("float", float), ("int", int), ("bool", bool)):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        if not hasattr(numpy, alias):
            setattr(numpy, alias, target)
import skrf  # noqa: E402

PRECISION = 10
TOLERANCE = 5 * 10.0 ** (1 - PRECISION)  # relative, on the matrix's largest entry


def sparam(binary, *args):
    run = subprocess.run([binary, *args], capture_output=True, text=True)
    if run.returncode != 0:
        raise RuntimeError(f"sparam {' '.join(args)}: {run.stderr.strip()}")
    return run.stderr


def read_touchstone(path):
    """(frequencies, values, parameter letter, version) as scikit-rf's parser reads them."""
    with open(path) as f:
        lines = f.readlines()
    readable = path + ".skrf" + os.path.splitext(path)[1]
    with open(readable, "w") as f:
        f.writelines(l for l in lines if not l.lower().startswith("[two-port data order]"))
    t = skrf.io.touchstone.Touchstone(readable)
    f, values = t.get_sparameter_arrays()
    return f, values, t.get_format().split()[1], t.version, float(t.resistance)


def close(a, b):
    return numpy.max(abs(a - b)) <= TOLERANCE * max(numpy.max(abs(b)), 1e-300)


def main():
    binary, octave = sys.argv[1], sys.argv[2]
    failures = []
    with tempfile.TemporaryDirectory() as tmp:
        p = lambda name: os.path.join(tmp, name)
        # A two-port at 75 ohms from scikit-rf's own building blocks.
        freq = skrf.Frequency(1, 3, 21, "GHz")
        line = skrf.media.DefinedGammaZ0(freq, z0=75.0, Z0=60.0, gamma=1j * freq.w / 2e8 + 0.2)
        net = line.line(0.12, "m") ** line.shunt_capacitor(0.4e-12) ** line.line(0.05, "m")
        net.write_touchstone(p("line75"))
        sparam(binary, "convert", p("line75.s2p"), p("line75.ndp"))
        sparam(binary, "sweep", "--device", "coupler", "-o", p("coupler.ndp"))
        sparam(binary, "sweep", "--device", "waveguide", "-o", p("guide.ndp"))

        truth = {}
        for project, ports in (("line75", 2), ("coupler", 4), ("guide", 2)):
            s_read = {}
            for kind, display, ext in itertools.product("SYZ", ("MA", "DB", "RI"), (f".s{ports}p", ".ts")):
                name = p(f"{project}_{kind}_{display}{ext}")
                sparam(binary, "export", p(project + ".ndp"), name, "--kind", kind,
                       "--display", display, "--precision", str(PRECISION))
                f, values, letter, version, r = read_touchstone(name)
                expect_v2 = ext == ".ts" or kind != "S"
                if letter != kind.lower() or (version == "2.0") != expect_v2:
                    failures.append(f"{name}: read as {letter} version {version}")
                if kind == "S":
                    s_read[(display, ext)] = (f, values, r)
                    if kind == "S" and ext != ".ts":
                        # Network (not only the parser) reads S files whole.
                        n = skrf.Network(name)
                        if not close(n.s, values):
                            failures.append(f"{name}: Network and parser disagree")
                else:
                    truth.setdefault(project, {})[(kind, display, ext)] = (f, values, r)
            f, s, r = s_read[("RI", f".s{ports}p")]
            for key, (f2, s2, r2) in s_read.items():
                if not close(s2, s) or r2 != r or not numpy.allclose(f2, f, rtol=1e-12):
                    failures.append(f"{project} S {key}: differs from the RI .s{ports}p file")
            reference = skrf.Network(frequency=skrf.Frequency.from_f(f, unit="hz"), s=s, z0=r)
            if project == "line75":
                if r != 75.0 or not close(s, net.s):
                    failures.append(f"line75: S at R {r} differs from scikit-rf's network")
                reference = net
            for (kind, display, ext), (f2, values, r2) in truth.get(project, {}).items():
                want = reference.y if kind == "Y" else reference.z
                if not close(values, want):
                    failures.append(f"{project} {kind} {display} {ext}: differs from scikit-rf's "
                                    f"conversion by {numpy.max(abs(values - want)):.3g}")
            if project == "guide":
                f2, z, _ = truth["guide"][("Z", "RI", ".ts")]
                renormalised = skrf.network.z2s(z, 50.0)
                if r != 50.0 or not close(s, renormalised):
                    failures.append("guide: the 50-ohm S file is not scikit-rf's z2s of the Z file")
            truth[project] = truth.get(project, {})
            truth[project]["S"] = s
            if project == "guide":
                # MATLAB states no reference: its S stays at the wave impedances
                # (written as Zo beside it), as --no-renorm keeps them.
                sparam(binary, "export", p("guide.ndp"), p("guide_native.s2p"), "--no-renorm",
                       "--display", "RI", "--precision", str(PRECISION))
                truth[project]["S"] = read_touchstone(p("guide_native.s2p"))[1]

        # Differential pairs chosen with `sparam setup`, exported as version 2:
        # the file states the matched references per port ([Reference] 100 25
        # 100 25) and holds scikit-rf's se2gmm of the plain coupler. se2gmm
        # pairs ports (1,2), (3,4) and lists d1 d2 c1 c2; ours keep a pair's
        # differential mode at its positive port and the common at the negative.
        shutil.copy(p("coupler.ndp"), p("pairs.ndp"))
        sparam(binary, "setup", p("pairs.ndp"), "--pair", "D1=1,2", "--pair", "D2=3,4", "--matched")
        sparam(binary, "export", p("pairs.ndp"), p("pairs.ts"), "--display", "RI",
               "--precision", str(PRECISION))
        text = open(p("pairs.ts")).read()
        if "[Reference]\n100 25 100 25 \n" not in text or "! Port[1] = D1_Diff" not in text:
            failures.append("pairs.ts: matched references or pair names missing")
        _, mixed, _, _, _ = read_touchstone(p("pairs.ts"))
        plain = skrf.Network(p("coupler_S_RI.s4p"))
        plain.se2gmm(p=2, z0_mm=numpy.array([[100, 100, 25, 25]] * len(plain.f), dtype=complex))
        ours_at = [0, 2, 1, 3]
        want = numpy.empty_like(plain.s)
        want[:, numpy.ix_(ours_at, ours_at)[0], numpy.ix_(ours_at, ours_at)[1]] = plain.s
        if not close(mixed, want):
            failures.append(f"pairs.ts: differs from scikit-rf's se2gmm by {numpy.max(abs(mixed - want)):.3g}")

        # De-embedding through the whole chain of commands: the built-in line
        # (0.3 m of 60-ohm line, gamma from Devices.cpp's formula) referred to
        # 60 ohms is matched at its ports; with 5 cm de-embedded at each port
        # it must be the analytic 0.2 m line: S11 = 0, S21 = exp(-gamma 0.2).
        sparam(binary, "sweep", "--device", "line", "--tol", "1e-6", "-o", p("line.ndp"))
        sparam(binary, "export", p("line.ndp"), p("line60.ts"), "--renorm", "60", "--gamma",
               "--display", "RI", "--precision", "17")
        sparam(binary, "convert", p("line60.ts"), p("line60.ndp"))
        sparam(binary, "setup", p("line60.ndp"), "--deembed", "1=5cm,2=5cm")
        sparam(binary, "export", p("line60.ndp"), p("short.ts"), "--display", "RI", "--precision", "17")
        f, short, _, _, r = read_touchstone(p("short.ts"))
        ghz = f / 1e9
        alpha = (numpy.sqrt(ghz) + 0.5 * ghz) / (20.0 / numpy.log(10.0))
        gamma = alpha + 2j * numpy.pi * f / (0.7 * 299792458.0)
        want = numpy.zeros_like(short)
        want[:, 0, 1] = want[:, 1, 0] = numpy.exp(-gamma * 0.2)
        worst = numpy.max(abs(short - want))
        if r != 60.0 or worst > 1e-10:
            failures.append(f"de-embedded line: R {r}, differs from the 0.2 m line by {worst:.3g}")

        # Every --quantities combination, on each project, run by Octave.
        quantities = ("S", "Y", "Z", "Zo", "Gamma")
        program = []
        gamma_written = False
        for project in ("line75", "coupler", "guide"):
            for k in range(1, len(quantities) + 1):
                for combo in itertools.combinations(quantities, k):
                    name = p(f"{project}_{'_'.join(combo)}.m")
                    args = ("export", p(project + ".ndp"), name, "--quantities", ",".join(combo),
                            "--precision", str(PRECISION))
                    run = subprocess.run([binary, *args], capture_output=True, text=True)
                    if run.returncode != 0:
                        # Only Gamma asked of points without propagation constants
                        # (the Touchstone source, the coupler): refused, nothing written.
                        if (combo != ("Gamma",) or os.path.exists(name)
                                or "no point has Gamma" not in run.stderr):
                            failures.append(f"{name}: {run.returncode} {run.stderr}")
                        continue
                    gamma_written |= "Gamma(" in open(name).read()
                    check = ""
                    if "S" in combo:
                        check = (f"x = permute(S, [1 2 3]); printf('S {project} %.17g %.17g\\n', "
                                 "[real(x(:)) imag(x(:))].');")
                    program.append(f"clear; run('{name}'); printf('ran {name}\\n'); {check}\n")
        if not gamma_written:
            failures.append("no m-file carried Gamma: the waveguide's propagation constants are lost")
        run = subprocess.run([octave, "--no-gui", "--quiet", "--norc", "--eval", "".join(program)],
                             capture_output=True, text=True)
        ran = [l for l in run.stdout.splitlines() if l.startswith("ran ")]
        if run.returncode != 0 or len(ran) != len(program):
            failures.append(f"octave ran {len(ran)} of {len(program)} m-files: {run.stderr.strip()[:400]}")
        for project in ("line75", "coupler", "guide"):
            rows = [l.split()[2:] for l in run.stdout.splitlines() if l.startswith(f"S {project} ")]
            s = truth[project]["S"]
            per_file = s.size
            values = numpy.array(rows, float)
            if len(values) == 0 or len(values) % per_file:
                failures.append(f"{project}: Octave printed {len(values)} S values")
                continue
            # MATLAB S(k,i,j) listed column-major: k fastest, then i, then j.
            got = values[:, 0] + 1j * values[:, 1]
            for chunk in got.reshape(-1, per_file):
                m = chunk.reshape(s.shape[2], s.shape[1], s.shape[0]).transpose(2, 1, 0)
                if not close(m, s):
                    failures.append(f"{project}: S from Octave differs from scikit-rf's read by "
                                    f"{numpy.max(abs(m - s)):.3g}")
                    break
    for line in failures:
        print("FAIL:", line)
    print(f"{'FAILED' if failures else 'OK'}: Touchstone exports of 3 projects x S/Y/Z x MA/DB/RI x "
          f".sNp/.ts read by scikit-rf {skrf.__version__}; {len(program)} m-files run by Octave")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
