// Vector fitting: a pole-residue model of many complex responses sampled at
// the same frequencies, with one set of poles shared by all of them (a
// network's entries share its natural frequencies),
//
//   H_k(s) = sum_m r_km / (s - a_m) + d_k + s e_k,   s = j 2 pi f.
//
// The poles are stable and come as real poles or conjugate pairs, with real
// residues on real poles and conjugate residues on a pair, so the model is
// real: H_k(conj s) = conj H_k(s). It is the starting point of a state-space
// model and of a passivity check; this file holds the fit alone.
//
// Method: relaxed vector fitting (Gustavsen and Semlyen, IEEE Trans. Power
// Delivery 14(3), 1999; the relaxed scaling function, Gustavsen, IEEE
// Trans. Power Delivery 21(3), 2006) with the pole-identification step
// reduced entry by entry through QR (Deschrijver, Mrozowski, Dhaene and De
// Zutter, IEEE Microwave Wireless Compon. Lett. 18(6), 2008), so its cost
// grows linearly with the number of entries.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "core/AComplex.h"

namespace nd {

struct VectorFitOptions {
  // Number of poles of the model (real poles count one, pairs two). An odd
  // count starts with one real pole.
  int poles = 10;
  // Largest number of pole relocations.
  int iterations = 20;
  // The relocations stop early when no pole moves by more than this,
  // relative to its magnitude; 0 runs every iteration.
  double poleTolerance = 1e-12;
  // Relaxed scaling function (a free constant term with a norm constraint)
  // instead of one fixed at 1 at high frequency: converges faster and
  // does not stall on noisy data.
  bool relax = true;
  bool fitD = true;   // constant term d_k
  bool fitE = false;  // proportional term s e_k
  // Starting poles: pairs -beta/100 +- j beta with beta spaced over the
  // band (2 pi f_min to 2 pi f_max; f_min = 0 is taken as f_max / 1000),
  // logarithmically or, for a band less than a decade wide, often better,
  // linearly.
  bool logSpacedStart = true;
  // Least-squares weights: empty (all 1), one per frequency (shared by all
  // entries) or one per value, entry by entry like the data.
  std::vector<double> weights;
};

struct VectorFitResult {
  bool ok = false;
  std::string message;  // why the fit failed, when it did
  // Poles in rad/s: real poles, then each pair as (a, conj a) with Im a > 0.
  std::vector<AComplex<double>> poles;
  // residues[k][m] belongs to entry k and poles[m].
  std::vector<std::vector<AComplex<double>>> residues;
  std::vector<double> d, e;  // per entry; 0 when not fitted
  int iterations = 0;        // pole relocations made
  double poleChange = 0.0;   // largest relative pole movement in the last relocation
  // Relaxed relocations whose scaling function came out with a vanishing
  // constant term and were solved again with it fixed at 1.
  int fixedSigmaSteps = 0;
  // Unweighted |model - data| over every entry and sample.
  double rmsError = 0.0;
  double maxError = 0.0;
};

// Fits F[k * N + i] (entry k at frequency f[i] in Hz, N = f.size()) for
// `entries` entries. Frequencies need not be ordered but must be >= 0 and
// span more than one value; 2 N real equations per entry must exceed the
// unknowns.
VectorFitResult FitVector(const std::vector<double>& f, const std::vector<AComplex<double>>& F,
                          std::size_t entries, const VectorFitOptions& options = {});

// The model's values of every entry at the complex frequency s (rad/s);
// s = j 2 pi f on the frequency axis.
std::vector<AComplex<double>> EvaluateVectorFit(const VectorFitResult& fit, AComplex<double> s);

// The same at the frequency f in Hz.
std::vector<AComplex<double>> EvaluateVectorFitAt(const VectorFitResult& fit, double f);

}  // namespace nd
