// Greedy barycentric fit (AAA) by least squares, stopped at the data's noise
// floor, with spurious poles taken out and a Floater-Hormann fallback.
//
// The greedy step and the Loewner least-squares problem follow Nakatsukasa,
// Sete and Trefethen, "The AAA algorithm for rational approximation", SIAM J.
// Sci. Comput. 40 (2018), with one denominator for many functions as in
// Lietaert, Meerbergen, Perez and Vandereycken, "Automatic rational
// approximation and linearization of nonlinear eigenvalue problems" (2022).
// The poles are the finite eigenvalues of the arrowhead pencil of the AAA
// paper, section 2; doublets are found by the size of their term at the
// samples, as in that paper's cleanup step.
#include "sparamlib/fit/RationalFit.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "math/matrix/MatrixOps.h"

namespace nd {
namespace {

using Complex = AComplex<double>;

// Random combinations of the values that the least-squares step fits.
constexpr size_t kProbes = 8;
constexpr int kSupportCap = 80;
// Double precision data fit to about this relative residual, no better.
constexpr double kExactTolerance = 1e-13;
// A residual within this factor of the best one reached is the noise floor;
// the first (smallest) model that reaches it is kept.
constexpr double kKnee = 1.5;
// The fit is at a floor when its residual has not halved in this many steps
// and lies below kNoiseCeiling. A residual that stalls higher up is signal
// the samples do not resolve yet (a long line's turning phase), not
// scatter: solvers scatter by 1e-8 to 1e-5 and files carry 4 or more
// digits.
constexpr int kStallSteps = 6;
constexpr double kNoiseCeiling = 1e-3;
// A pole whose term changes no sample by more than this multiple of the
// data's precision is not supported by the data (a Froissart doublet).
constexpr double kDoubletFactor = 2.0;
// A pole that lifts the model above this multiple of the data's largest
// value on the band makes a spike, not a resonance.
constexpr double kSpikeFactor = 2.0;
constexpr int kCleanupRounds = 3;

struct Problem {
  std::vector<double> t;  // frequencies scaled to [-1, 1]
  const std::vector<Complex>* F = nullptr;
  size_t E = 0, N = 0;
  double scale = 1.0;      // largest |F|
  std::vector<Complex> G;  // probes, probe by probe
  size_t P = 0;
  std::vector<Complex> byPoint;  // the values again, sample by sample
  const Complex* at(size_t k) const { return byPoint.data() + k * E; }
  Complex f(size_t e, size_t k) const { return (*F)[e * N + k]; }
  Complex g(size_t c, size_t k) const { return G[c * N + k]; }
};

struct Model {
  std::vector<int> support;
  std::vector<Complex> a;
  double worst = 0.0;  // largest |residual| away from the support points
  double rms = 0.0;    // rms |residual| over the same points and every value
};

// The values themselves when there are few, else kProbes combinations with
// fixed pseudo-random coefficients: they share the values' poles, so the
// denominator is the same and the step costs the same for 2 ports as for 100.
void MakeProbes(Problem& p) {
  if (p.E <= kProbes) {
    p.G = *p.F;
    p.P = p.E;
    return;
  }
  std::mt19937_64 rng(0x5eed);
  auto uniform = [&] { return static_cast<double>(rng() >> 11) * 0x1p-53 * 2.0 - 1.0; };
  p.P = kProbes;
  p.G.assign(kProbes * p.N, Complex());
  for (size_t c = 0; c < kProbes; ++c)
    for (size_t e = 0; e < p.E; ++e) {
      const Complex weight(uniform(), uniform());
      for (size_t k = 0; k < p.N; ++k) p.G[c * p.N + k] += weight * p.f(e, k);
    }
}

std::vector<bool> Chosen(const Problem& p, const std::vector<int>& support) {
  std::vector<bool> chosen(p.N, false);
  for (int s : support) chosen[static_cast<size_t>(s)] = true;
  return chosen;
}

// Least-squares weights for a support set: the smallest right singular
// vector of the Loewner matrix over the other samples. The Loewner rows
// weigh each sample's error by |D| there; one pass with rows divided by the
// first solution's |D| (Sanathanan and Koerner, IEEE Trans. Automatic
// Control 8 (1963)) makes it the plain least-squares error, which matters
// when the samples scatter.
bool SolveWeights(const Problem& p, Model& model) {
  const std::vector<bool> chosen = Chosen(p, model.support);
  std::vector<size_t> rest;
  for (size_t k = 0; k < p.N; ++k)
    if (!chosen[k]) rest.push_back(k);
  const int m = static_cast<int>(model.support.size());
  if (rest.empty() || m == 0) return false;
  std::vector<double> rowScale(rest.size(), 1.0);
  for (int pass = 0; pass < 2; ++pass) {
    TNT::CMatrix L(static_cast<int>(p.P * rest.size()), m);
    for (size_t c = 0; c < p.P; ++c)
      for (size_t r = 0; r < rest.size(); ++r)
        for (int s = 0; s < m; ++s) {
          const size_t j = static_cast<size_t>(model.support[static_cast<size_t>(s)]);
          L[static_cast<int>(c * rest.size() + r)][s] =
              (p.g(c, rest[r]) - p.g(c, j)) * (rowScale[r] / (p.t[rest[r]] - p.t[j]));
        }
    TNT::CVector a;
    if (TNT::SmallestRightSingularVector(L, a) != 0) return pass > 0;
    model.a.assign(a.data(), a.data() + a.size());
    if (m < 2) return true;
    double largest = 0.0;
    for (size_t r = 0; r < rest.size(); ++r) {
      Complex den;
      for (int s = 0; s < m; ++s)
        den += model.a[static_cast<size_t>(s)] *
               (1.0 / (p.t[rest[r]] - p.t[static_cast<size_t>(model.support[static_cast<size_t>(s)])]));
      rowScale[r] = abs(den);
      largest = std::max(largest, rowScale[r]);
    }
    // 1/|D|, kept finite where D nearly vanishes (a pole at a sample).
    for (double& w : rowScale) w = 1.0 / std::max(w, 1e-8 * largest);
  }
  return true;
}

// Residuals of the model away from its support points; `worstAt[k]` gets
// the largest squared residual of any value at sample k (0 at support).
void Measure(const Problem& p, Model& model, std::vector<double>& worstAt) {
  const std::vector<bool> chosen = Chosen(p, model.support);
  const size_t m = model.support.size();
  std::vector<Complex> c(m), r(p.E);
  std::vector<const Complex*> rows(m);
  for (size_t s = 0; s < m; ++s) rows[s] = p.at(static_cast<size_t>(model.support[s]));
  double worst = 0.0, sum = 0.0;
  size_t count = 0;
  worstAt.assign(p.N, 0.0);
  for (size_t k = 0; k < p.N; ++k) {
    if (chosen[k]) continue;
    Complex den;
    for (size_t s = 0; s < m; ++s) {
      c[s] = model.a[s] * (1.0 / (p.t[k] - p.t[static_cast<size_t>(model.support[s])]));
      den += c[s];
    }
    const Complex inv = Complex(1.0) / den;
    for (size_t s = 0; s < m; ++s) c[s] = c[s] * inv;
    // Every value at once, as one combination of the support samples.
    TNT::LinearCombination(r.data(), rows.data(), c.data(), m, p.E);
    const Complex* f = p.at(k);
    double here = 0.0;
    for (size_t e = 0; e < p.E; ++e) {
      const double d = norm(f[e] - r[e]);  // squared until the end
      here = std::max(here, d);
      sum += d;
    }
    count += p.E;
    worstAt[k] = here;
    worst = std::max(worst, here);
  }
  model.worst = std::sqrt(worst);
  model.rms = count ? std::sqrt(sum / static_cast<double>(count)) : 0.0;
}

struct Pole {
  Complex at;           // scaled frequency
  double effect = 0;    // largest change its term makes at any sample
  double onAxis = 0;    // largest |value| of the model on the real axis below it (in the band)
};

// The model's largest |value| at t.
// The largest |sum_s c_s f_e(support s)| over the values.
double LargestCombination(const Problem& p, const Model& model, const std::vector<Complex>& c) {
  std::vector<const Complex*> rows(c.size());
  for (size_t s = 0; s < c.size(); ++s) rows[s] = p.at(static_cast<size_t>(model.support[s]));
  std::vector<Complex> out(p.E);
  TNT::LinearCombination(out.data(), rows.data(), c.data(), c.size(), p.E);
  double largest = 0.0;
  for (const Complex& v : out) largest = std::max(largest, norm(v));
  return std::sqrt(largest);
}

double LargestValue(const Problem& p, const Model& model, double t) {
  Complex den;
  std::vector<Complex> c(model.support.size());
  for (size_t s = 0; s < c.size(); ++s) {
    const double d = t - p.t[static_cast<size_t>(model.support[s])];
    if (d == 0.0) return 0.0;  // a support point: the model is the data there
    c[s] = model.a[s] * (1.0 / d);
    den += c[s];
  }
  return LargestCombination(p, model, c) / abs(den);
}

std::vector<Pole> Poles(const Problem& p, const Model& model) {
  const int m = static_cast<int>(model.support.size());
  std::vector<Pole> poles;
  if (m < 2) return poles;
  TNT::CMatrix A(m + 1, m + 1), B(m + 1, m + 1);
  for (int s = 0; s < m; ++s) {
    A[0][s + 1] = model.a[static_cast<size_t>(s)];
    A[s + 1][0] = Complex(1.0);
    A[s + 1][s + 1] = Complex(p.t[static_cast<size_t>(model.support[static_cast<size_t>(s)])]);
    B[s + 1][s + 1] = Complex(1.0);
  }
  TNT::CVector alpha, beta;
  if (TNT::ComputeGeneralizedEigenvalues(A, B, alpha, beta) != 0) return poles;
  const std::vector<bool> chosen = Chosen(p, model.support);
  for (int k = 0; k < alpha.size(); ++k) {
    if (abs(beta[k]) <= 1e-12 * abs(alpha[k]) || abs(beta[k]) == 0.0) continue;
    const Complex z = alpha[k] / beta[k];
    if (abs(z) > 1e6) continue;  // far outside the band: no effect worth judging
    // Residue of value e: N_e(z) / D'(z).
    Complex dd;
    std::vector<Complex> c(static_cast<size_t>(m));
    for (int s = 0; s < m; ++s) {
      const Complex inv = Complex(1.0) / (z - Complex(p.t[static_cast<size_t>(model.support[static_cast<size_t>(s)])]));
      c[static_cast<size_t>(s)] = model.a[static_cast<size_t>(s)] * inv;
      dd -= c[static_cast<size_t>(s)] * inv;
    }
    const double residue = LargestCombination(p, model, c) / abs(dd);
    // Its effect is judged at the samples the model does not interpolate:
    // at a support point the model equals the data whatever its poles.
    double nearest = INFINITY;
    for (size_t k = 0; k < p.N; ++k)
      if (!chosen[k]) nearest = std::min(nearest, abs(z - Complex(p.t[k])));
    const double onAxis = std::fabs(z.re) <= 1.0 ? LargestValue(p, model, z.re) : 0.0;
    poles.push_back({z, residue / nearest, onAxis});
  }
  return poles;
}

// Takes out the support point nearest each pole the data do not support and
// solves for the weights again. False when nothing was bad.
bool RemoveSpuriousPoles(const Problem& p, double precision, Model& model, int& removed,
                         bool& spikes) {
  const std::vector<Pole> poles = Poles(p, model);
  std::vector<int> drop;
  spikes = false;
  for (const Pole& pole : poles) {
    const bool doublet = pole.effect <= kDoubletFactor * precision * p.scale;
    const bool spike = pole.onAxis > kSpikeFactor * p.scale;
    if (!doublet && !spike) continue;
    spikes = spikes || spike;
    size_t nearest = 0;
    for (size_t s = 1; s < model.support.size(); ++s)
      if (abs(pole.at - Complex(p.t[static_cast<size_t>(model.support[s])])) <
          abs(pole.at - Complex(p.t[static_cast<size_t>(model.support[nearest])])))
        nearest = s;
    if (std::find(drop.begin(), drop.end(), static_cast<int>(nearest)) == drop.end())
      drop.push_back(static_cast<int>(nearest));
  }
  if (drop.empty() || model.support.size() <= drop.size()) return false;
  std::sort(drop.rbegin(), drop.rend());
  for (int s : drop) model.support.erase(model.support.begin() + s);
  removed += static_cast<int>(drop.size());
  if (SolveWeights(p, model)) return true;
  spikes = true;  // no weights for what is left: the fallback takes over
  return false;
}

int SupportLimit(const Problem& p, int requested) {
  // At least twice as many equations (probes x free samples) as unknowns,
  // so that the fit averages scatter instead of reproducing it.
  const int N = static_cast<int>(p.N), P = static_cast<int>(p.P);
  int limit = (P * N) / (P + 2);
  limit = std::max(limit, std::min(2, N - 1));
  if (requested > 0) limit = std::min(limit, requested);
  return std::min({limit, N - 1, kSupportCap});
}

Problem MakeProblem(const std::vector<double>& x, const std::vector<Complex>& F, size_t entries) {
  Problem p;
  p.F = &F;
  p.E = entries;
  p.N = x.size();
  // Scaled frequencies: the weights do not depend on the scale, the
  // arithmetic does.
  const double centre = 0.5 * (x.front() + x.back()), half = 0.5 * (x.back() - x.front());
  p.t.resize(p.N);
  for (size_t k = 0; k < p.N; ++k) p.t[k] = (x[k] - centre) / half;
  double scale = 0.0;
  for (const Complex& v : F) scale = std::max(scale, norm(v));
  p.scale = scale > 0.0 ? std::sqrt(scale) : 1.0;
  MakeProbes(p);
  p.byPoint.resize(p.E * p.N);
  for (size_t e = 0; e < p.E; ++e)
    for (size_t k = 0; k < p.N; ++k) p.byPoint[k * p.E + e] = p.f(e, k);
  return p;
}

// Takes out spurious poles and writes the model (or the fallback) into
// `result`.
void Finish(const Problem& p, const std::vector<double>& x, double precision, int fallbackDegree, Model model,
            std::vector<double>& worstAt, RationalFit& result) {
  const size_t N = p.N;
  const double centre = 0.5 * (x.front() + x.back()), half = 0.5 * (x.back() - x.front());
  // Poles the data do not support, and poles on or next to the band.
  bool spikes = false;
  for (int round = 0; round < kCleanupRounds; ++round) {
    if (!RemoveSpuriousPoles(p, precision, model, result.removedPoles, spikes)) break;
  }
  if (result.removedPoles > 0) {
    // One more look: a spike left after the last round means no clean model.
    Model check = model;
    int ignored = 0;
    RemoveSpuriousPoles(p, precision, check, ignored, spikes);
    Measure(p, model, worstAt);
  }
  result.residual = model.worst / p.scale;
  result.weights.assign(N, Complex());
  if (spikes) {
    // No rational model without spikes: blend every sample instead.
    result.fallback = true;
    const std::vector<double> beta = FloaterHormannWeights(p.t, fallbackDegree);
    for (size_t k = 0; k < N; ++k) result.weights[k] = Complex(beta[k]);
    result.support.resize(N);
    for (size_t k = 0; k < N; ++k) result.support[k] = static_cast<int>(k);
    result.residual = 0.0;
  } else {
    result.support = model.support;
    for (size_t s = 0; s < model.support.size(); ++s)
      result.weights[static_cast<size_t>(model.support[s])] = model.a[s];
    for (const Pole& pole : Poles(p, model)) {
      result.poles.push_back(Complex(centre) + pole.at * half);
      result.poleEffects.push_back(pole.effect / p.scale);
    }
  }
  double largest = 0.0;
  for (const Complex& w : result.weights) largest = std::max(largest, abs(w));
  if (largest > 0.0)
    for (auto& w : result.weights) w = w * (1.0 / largest);
}


}  // namespace

std::vector<double> FloaterHormannWeights(const std::vector<double>& x, int d) {
  const int N = static_cast<int>(x.size());
  d = std::clamp(d, 0, std::max(0, N - 1));
  std::vector<double> beta(x.size());
  for (int k = 0; k < N; ++k) {
    double sum = 0.0;
    for (int i = std::max(0, k - d); i <= std::min(k, N - 1 - d); ++i) {
      double product = 1.0;
      for (int j = i; j <= i + d; ++j)
        if (j != k) product /= x[static_cast<size_t>(k)] - x[static_cast<size_t>(j)];
      sum += (i % 2 == 0) ? product : -product;
    }
    beta[static_cast<size_t>(k)] = sum;
  }
  return beta;
}

RationalFit FitRational(const std::vector<double>& x, const std::vector<Complex>& F, size_t entries,
                        const RationalFitOptions& options) {
  RationalFit result;
  const size_t N = x.size();
  if (N == 0 || entries == 0) return result;
  if (N == 1) {
    result.weights = {Complex(1.0)};
    result.support = {0};
    return result;
  }
  const Problem p = MakeProblem(x, F, entries);
  const double tolerance = std::max(options.tolerance, kExactTolerance);

  // Greedy: add the sample where the worst value is furthest off.
  std::vector<Model> models;
  std::vector<double> worstAt(N);
  for (size_t k = 0; k < N; ++k) {
    for (size_t e = 0; e < entries; ++e) worstAt[k] = std::max(worstAt[k], norm(p.f(e, k) - p.f(e, 0)));
  }
  Model model;
  bool converged = false, stalled = false;
  const int limit = SupportLimit(p, options.maxSupport);
  for (int m = 1; m <= limit; ++m) {
    const std::vector<bool> chosen = Chosen(p, model.support);
    size_t next = N;
    for (size_t k = 0; k < N; ++k)
      if (!chosen[k] && (next == N || worstAt[k] > worstAt[next])) next = k;
    model.support.push_back(static_cast<int>(next));
    if (!SolveWeights(p, model)) {
      model.support.pop_back();
      break;
    }
    Measure(p, model, worstAt);
    models.push_back(model);
    result.errors.push_back(model.worst / p.scale);
    if (model.worst <= tolerance * p.scale) {
      converged = true;
      break;
    }
    const size_t n = result.errors.size();
    if (n > static_cast<size_t>(kStallSteps) && result.errors[n - 1] <= kNoiseCeiling &&
        result.errors[n - 1] > 0.5 * result.errors[n - 1 - kStallSteps]) {
      stalled = true;
      break;
    }
  }
  if (!converged && !stalled && result.errors.size() >= 4) {
    // The limit came first: a floor all the same if the last steps gained little.
    const size_t n = result.errors.size();
    stalled = result.errors[n - 1] <= kNoiseCeiling && result.errors[n - 1] > 0.5 * result.errors[n - 4];
  }
  if (models.empty()) {
    model = Model{{0}, {Complex(1.0)}};
    Measure(p, model, worstAt);
    models.push_back(model);
  }

  // Keep the first model that reaches the floor: the ones after it follow
  // the scatter.
  size_t keep = models.size() - 1;
  if (stalled) {
    double best = INFINITY;
    for (const Model& candidate : models) best = std::min(best, candidate.rms);
    for (keep = 0; models[keep].rms > kKnee * best; ++keep) {
    }
  }
  // The scatter is measured on the model with the smallest residual: the
  // knee model still carries some misfit of the signal.
  double floorRms = models[keep].rms;
  for (const Model& candidate : models)
    if (candidate.worst < models[keep].worst) floorRms = std::min(floorRms, candidate.rms);
  model = models[keep];
  result.noiseLimited = stalled && !converged;
  result.noise = result.noiseLimited ? floorRms / p.scale : 0.0;

  const double precision = std::max(tolerance, result.noise);
  Finish(p, x, precision, options.fallbackDegree, model, worstAt, result);
  return result;
}

RationalFit CleanRationalFit(const std::vector<double>& x, const std::vector<Complex>& F, size_t entries,
                             const RationalFit& fit, double precision, int fallbackDegree) {
  RationalFit result = fit;
  result.poles.clear();
  result.poleEffects.clear();
  result.removedPoles = 0;
  if (x.size() < 2 || fit.weights.size() != x.size()) return result;
  const Problem p = MakeProblem(x, F, entries);
  Model model;
  for (int s : fit.support) {
    model.support.push_back(s);
    model.a.push_back(fit.weights[static_cast<size_t>(s)]);
  }
  std::vector<double> worstAt;
  Measure(p, model, worstAt);
  Finish(p, x, std::max(precision, kExactTolerance), fallbackDegree, model, worstAt, result);
  return result;
}

}  // namespace nd
