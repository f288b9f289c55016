#!/usr/bin/env python3
"""Renormalisation, mixed mode and de-embedding of sparamlib against scikit-rf.

- Renormalisation of a modal data point to complex, unequal per-port
  impedances against renormalize_s(s, z_old, z_new, s_def='traveling'),
  which is z2s(s2z(.)) with the same travelling-wave definitions (1e-12).
- Single-ended to mixed mode against Network.se2gmm (Ferrero and Pirola's
  generalised mixed-mode S), 4 to 8 ports, ports shuffled so that our pairs
  are arbitrary (1e-12). se2gmm pairs ports (0, 1), (2, 3), ... as
  (positive, negative), lists every differential mode first, then every
  common mode, then the single-ended ports; we put a pair's differential mode
  at its positive port and the common mode at its negative port, so the
  results are compared after that permutation. With real references the two
  wave definitions coincide. With complex ones se2gmm uses pseudo-waves,
  a = sqrt(Re z) / (2 |z|) (V + z I), which are k = sqrt(Re z) sqrt(z) / |z|
  times our travelling waves a = (V + z I) / (2 sqrt z) (the same k for b), so
  S_pseudo = K S K^-1 with K = diag(k): our single-ended S goes in as
  K S K^-1 and scikit-rf's mixed-mode answer comes back as K'^-1 S' K'.
  In 0.15.4 se2gmm indexes the single-ended ports by the pair number (it
  fails unless there are none or exactly p of them, p = number of pairs), so
  cases with 0 < n - 2p < p get uncoupled padding ports up to 3p ports, which
  the comparison leaves out; cases keep n - 2p <= p. It also leaves the waves
  of unpaired ports as they are whatever z0_mm says for them (we refer them
  to the new reference, a plain renormalisation), so the cases give unpaired
  ports the same reference on both sides.
  The inverse is checked against gmm2se, whose 0.15 version solves with the
  sign of its right-hand side flipped and returns -S (its own round trip
  gives -S); the sign is taken from that round trip.
- De-embedding against scikit-rf media lines (DefinedGammaZ0, lossy complex
  gamma): a line of length L with d removed at one or both ports is the line
  of length L - d or L - 2d; a random N-port with a line of its own at every
  port (scikit-rf's connect) de-embedded by those lengths is the N-port
  again; `lossless` matches lines of the phase constant alone (1e-10).

Usage: test_postproc_skrf.py <postproc_peer>
"""
import subprocess
import sys
import warnings

import numpy
# scikit-rf 0.15 still uses the aliases that numpy removed.
with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    for alias, target in (("complex", complex), ("float", float), ("int", int), ("bool", bool)):
        if not hasattr(numpy, alias):
            setattr(numpy, alias, target)
import skrf  # noqa: E402
from skrf.media import DefinedGammaZ0  # noqa: E402

rng = numpy.random.default_rng(20261205)


def random_s(n):
    return (rng.standard_normal((n, n)) + 1j * rng.standard_normal((n, n))) * (0.5 / 3 / numpy.sqrt(n))


def random_z(n, imag=30.0):
    return rng.uniform(20, 90, n) + 1j * rng.uniform(-imag, imag, n)


def text(values):
    return " ".join(f"{v.real!r} {v.imag!r}" for v in numpy.ravel(numpy.asarray(values, dtype=complex)))


class Peer:
    """Collects cases, runs the peer once, hands back each case's matrix."""

    def __init__(self, path):
        self.path, self.stdin, self.sizes = path, [], []

    def add(self, header, n, *parts):
        self.stdin.append(f"{header}\n" + "\n".join(parts) + "\n")
        self.sizes.append(n)
        return len(self.sizes) - 1

    def run(self):
        out = subprocess.run([self.path], input="".join(self.stdin), capture_output=True, text=True,
                             check=True).stdout.splitlines()
        results = []
        for line, n in zip(out, self.sizes):
            parts = line.split()
            if parts[0] != "S":
                results.append(None)
                continue
            numbers = numpy.array([float(x) for x in parts[1:]])
            results.append((numbers[0::2] + 1j * numbers[1::2]).reshape(n, n))
        return results


class Checks:
    def __init__(self):
        self.worst, self.failures, self.count = {}, [], {}

    def compare(self, group, label, ours, theirs, tolerance):
        self.count[group] = self.count.get(group, 0) + 1
        if ours is None:
            self.failures.append(f"{group} {label}: the peer failed")
            return
        err = numpy.max(numpy.abs(ours - theirs)) / max(numpy.max(numpy.abs(theirs)), 1e-300)
        self.worst[group] = max(self.worst.get(group, 0.0), err)
        if not err <= tolerance:
            self.failures.append(f"{group} {label}: relative difference {err:.3g} > {tolerance:g}")


def pseudo_factor(z):
    """k with pseudo-wave = k * travelling wave, per port."""
    return numpy.sqrt(z.real) * numpy.sqrt(z) / numpy.abs(z)


def main():
    peer, checks, expected = Peer(sys.argv[1]), Checks(), []
    freq1 = skrf.Frequency(1, 1, 1, "ghz")

    # Renormalisation to complex, unequal references.
    for n in range(1, 9):
        for _ in range(5):
            s, z_old, z_new = random_s(n), random_z(n), random_z(n, 60.0)
            theirs = skrf.network.renormalize_s(s[None], z_old[None], z_new[None], s_def="traveling")[0]
            case = peer.add(f"RENORM {n}", n, text(z_old), text(z_new), text(s))
            expected.append(("renormalize", f"n={n}", case, theirs, 1e-12))

    # Mixed mode, both ways; real references first, then complex ones.
    gmm2se_sign = None
    for n in range(4, 9):
        for p in range((n + 2) // 3, n // 2 + 1):
            for complex_refs in (False, True):
                perm = rng.permutation(n)  # scikit-rf's port i is our port perm[i]
                imag = 30.0 if complex_refs else 0.0
                z, zmm = random_z(n, imag), random_z(n, imag)
                zmm[2 * p:] = z[perm[2 * p:]]  # see above: unpaired ports keep theirs
                s = random_s(n)
                k_se, k_mm = pseudo_factor(z), pseudo_factor(zmm)
                # Uncoupled padding ports (reflection only, reference kept)
                # bring the single-ended count to p, see above.
                pad = 3 * p - n if n > 2 * p else 0
                z_pad = random_z(pad, imag)
                big = numpy.zeros((n + pad, n + pad), dtype=complex)
                big[:n, :n] = (k_se[:, None] * s / k_se[None, :])[numpy.ix_(perm, perm)]
                big[n:, n:] = numpy.diag(random_s(pad).diagonal()) if pad else big[n:, n:]
                z_big = numpy.concatenate((z[perm], z_pad))
                net = skrf.Network(frequency=freq1, s=big[None], z0=z_big[None])
                net.se2gmm(p=p, z0_mm=numpy.concatenate((zmm, z_pad))[None])
                mm_travelling = net.s[0][:n, :n] / k_mm[:, None] * k_mm[None, :]
                back = net.copy()
                back.gmm2se(p=p, z0_se=z_big[None].copy())
                if gmm2se_sign is None:
                    gmm2se_sign = -1.0 if numpy.allclose(back.s[0], -big, atol=1e-12) else 1.0
                # Position in our mixed-mode matrix of scikit-rf's index i.
                ours_at = numpy.concatenate((perm[0:2 * p:2], perm[1:2 * p:2], perm[2 * p:]))
                z_mixed = numpy.empty(n, dtype=complex)
                z_mixed[ours_at] = zmm
                mm_ours_order = numpy.empty((n, n), dtype=complex)
                mm_ours_order[numpy.ix_(ours_at, ours_at)] = mm_travelling
                pairs = f"{p} " + " ".join(f"{perm[2 * l]} {perm[2 * l + 1]}" for l in range(p))
                label = f"n={n} p={p} {'complex' if complex_refs else 'real'} references"
                case = peer.add(f"MIXED {n} {pairs}", n, text(z), text(z_mixed), text(s))
                expected.append(("se2gmm", label, case, mm_ours_order, 1e-12))
                # Back from scikit-rf's mixed-mode matrix, against gmm2se.
                se_back = gmm2se_sign * back.s[0][:n, :n]
                se_ours_order = numpy.empty((n, n), dtype=complex)
                se_ours_order[numpy.ix_(perm, perm)] = se_back / k_se[perm][:, None] * k_se[perm][None, :]
                case = peer.add(f"SINGLE {n} {pairs}", n, text(z_mixed), text(z), text(mm_ours_order))
                expected.append(("gmm2se", label, case, se_ours_order, 1e-12))

    # De-embedding: lossy lines of a media with complex gamma per frequency.
    freq = skrf.Frequency(1, 5, 3, "ghz")
    gamma = numpy.array([0.8 + 21j, 1.3 + 42j, 2.1 + 105j])
    lossy = DefinedGammaZ0(freq, z0=50, Z0=50, gamma=gamma)
    phase = DefinedGammaZ0(freq, z0=50, Z0=50, gamma=1j * gamma.imag)
    length, d = 0.1, 0.03
    line = lossy.line(length, "m")
    cases = [("L - 2d", (d, d), False, lossy.line(length - 2 * d, "m")),
             ("L - d at port 1", (d, 0.0), False, lossy.line(length - d, "m")),
             ("L - d at port 2", (0.0, d), False, lossy.line(length - d, "m")),
             ("L + d (d < 0)", (-d, 0.0), False, lossy.line(length + d, "m")),
             ("lossless, L - 2d", (d, d), True, phase.line(-d, "m") ** line ** phase.line(-d, "m"))]
    for label, dist, lossless, theirs in cases:
        for i in range(len(freq)):
            case = peer.add(f"DEEMBED 2 {int(lossless)}", 2, text([gamma[i]] * 2),
                            " ".join(repr(v) for v in dist), text(line.s[i]))
            expected.append(("deembed line", f"{label} at {freq.f[i]:g} Hz", case, theirs.s[i], 1e-10))
    # A random N-port with a line of its own at each port.
    for n in range(2, 7):
        dut = skrf.Network(frequency=freq, s=numpy.stack([random_s(n) for _ in range(len(freq))]), z0=50)
        gammas = [gamma * rng.uniform(0.5, 2.0) for _ in range(n)]
        dists = rng.uniform(-0.05, 0.05, n)
        embedded = dut
        for k in range(n):
            media = DefinedGammaZ0(freq, z0=50, Z0=50, gamma=gammas[k])
            # connect(line, 1, x, k) puts the line's free end first, then x's
            # other ports in order; move it back to position k.
            joined = skrf.connect(media.line(dists[k], "m"), 1, embedded, k)
            order = [k] + [j for j in range(n) if j != k]
            s = numpy.empty_like(joined.s)
            s[:, numpy.ix_(order, order)[0], numpy.ix_(order, order)[1]] = joined.s
            embedded = skrf.Network(frequency=freq, s=s, z0=50)
        for i in range(len(freq)):
            case = peer.add(f"DEEMBED {n} 0", n, text([g[i] for g in gammas]),
                            " ".join(repr(v) for v in dists), text(embedded.s[i]))
            expected.append(("deembed N-port", f"n={n} at {freq.f[i]:g} Hz", case, dut.s[i], 1e-10))

    results = peer.run()
    for group, label, case, theirs, tolerance in expected:
        checks.compare(group, label, results[case], theirs, tolerance)
    for group in checks.count:
        print(f"{group}: {checks.count[group]} cases, worst relative difference "
              f"{checks.worst.get(group, float('nan')):.3g}")
    print(f"scikit-rf {skrf.__version__}: gmm2se taken with sign {gmm2se_sign:+g}")
    for f in checks.failures:
        print("FAIL", f)
    return 1 if checks.failures else 0


if __name__ == "__main__":
    sys.exit(main())
