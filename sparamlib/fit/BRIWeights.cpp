// AAA fit of a shared denominator and Floater-Hormann blending over every
// solved frequency.
#include "sparamlib/fit/BRIWeights.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "sparamlib/fit/InterpolateBRI.h"

namespace nd {
namespace {

using Complex = AComplex<double>;

// Relative difference below which S_ji counts as a copy of S_ij.
constexpr double kMirrorTolerance = 1e-12;
// Support points beyond this make the blending degree cap meaningless.
constexpr int kSupportCap = 60;

// The entries (flat row-major indices) that carry information: every entry,
// or only i <= j when the matrices are symmetric at every point.
std::vector<int> DistinctEntries(const std::vector<const TNT::CMatrix*>& values, int n,
                                 double scale) {
  bool symmetric = true;
  for (const TNT::CMatrix* m : values)
    for (int i = 0; i < n && symmetric; ++i)
      for (int j = i + 1; j < n && symmetric; ++j)
        symmetric = abs((*m)[i][j] - (*m)[j][i]) <= kMirrorTolerance * scale;
  std::vector<int> entries;
  for (int i = 0; i < n; ++i)
    for (int j = symmetric ? i : 0; j < n; ++j) entries.push_back(i * n + j);
  return entries;
}

// Number of random combinations of entries the least-squares step fits.
constexpr size_t kProbes = 8;

// Data of the probes, probe by probe: the entries themselves when there are
// few, else kProbes combinations with fixed pseudo-random coefficients (the
// same weights on every run).
std::vector<Complex> Probes(const std::vector<Complex>& F, size_t E, size_t N) {
  if (E <= kProbes) return F;
  std::mt19937_64 rng(0x5eed);
  auto uniform = [&] { return static_cast<double>(rng() >> 11) * 0x1p-53 * 2.0 - 1.0; };
  std::vector<Complex> G(kProbes * N);
  for (size_t c = 0; c < kProbes; ++c)
    for (size_t e = 0; e < E; ++e) {
      const Complex weight(uniform(), uniform());
      for (size_t k = 0; k < N; ++k) G[c * N + k] += weight * F[e * N + k];
    }
  return G;
}

// Floater-Hormann weights of blending degree d at the nodes t (ascending):
// they reproduce polynomials up to degree d and give an interpolant without
// real poles.
std::vector<double> BlendingWeights(const std::vector<double>& t, int d) {
  const int N = static_cast<int>(t.size());
  std::vector<double> beta(t.size());
  for (int k = 0; k < N; ++k) {
    double sum = 0.0;
    for (int i = std::max(0, k - d); i <= std::min(k, N - 1 - d); ++i) {
      double product = 1.0;
      for (int j = i; j <= i + d; ++j)
        if (j != k) product /= t[static_cast<size_t>(k)] - t[static_cast<size_t>(j)];
      sum += (i % 2 == 0) ? product : -product;
    }
    beta[static_cast<size_t>(k)] = sum;
  }
  return beta;
}

// The greedy rational fit (AAA) of all entries with one denominator
// D(t) = sum_s a_s / (t - t_s) over the chosen support points.
struct Denominator {
  std::vector<int> support;
  std::vector<Complex> a;
  std::vector<double> errors;
};

Denominator FitDenominator(const std::vector<double>& t, const std::vector<Complex>& F,
                           size_t E, double scale, const BRIFitOptions& options) {
  const size_t N = t.size();
  int limit = options.maxSupport > 0 ? options.maxSupport : static_cast<int>((N + 1) / 2);
  limit = std::min({limit, static_cast<int>(N) - 1, kSupportCap});
  auto f = [&](size_t e, size_t k) { return F[e * N + k]; };
  // The least-squares step sees fixed random combinations of the entries
  // (probes): they share the entries' poles, so the denominator is the
  // same, and the step costs the same for 2 ports as for 100. Choosing the
  // support points and judging the fit still look at every entry.
  const std::vector<Complex> G = Probes(F, E, N);
  const size_t P = G.size() / N;
  auto g = [&](size_t c, size_t k) { return G[c * N + k]; };

  Denominator fit;
  std::vector<bool> chosen(N, false);
  // The current approximation R at every node, first the mean per entry.
  std::vector<Complex> R(E * N);
  for (size_t e = 0; e < E; ++e) {
    Complex mean;
    for (size_t k = 0; k < N; ++k) mean += f(e, k);
    mean = mean * (1.0 / static_cast<double>(N));
    for (size_t k = 0; k < N; ++k) R[e * N + k] = mean;
  }
  for (int m = 1; m <= limit; ++m) {
    // Next support point: where the worst entry is furthest off.
    size_t next = 0;
    double worst = -1.0;
    for (size_t k = 0; k < N; ++k) {
      if (chosen[k]) continue;
      double r = 0.0;
      for (size_t e = 0; e < E; ++e) r = std::max(r, norm(f(e, k) - R[e * N + k]));
      if (r > worst) worst = r, next = k;
    }
    chosen[next] = true;
    fit.support.push_back(static_cast<int>(next));

    // Loewner matrix: rows (probe, free node), columns support points.
    std::vector<size_t> rest;
    for (size_t k = 0; k < N; ++k)
      if (!chosen[k]) rest.push_back(k);
    TNT::CMatrix L(static_cast<int>(P * rest.size()), m);
    for (size_t c = 0; c < P; ++c)
      for (size_t r = 0; r < rest.size(); ++r)
        for (int s = 0; s < m; ++s) {
          const size_t j = static_cast<size_t>(fit.support[static_cast<size_t>(s)]);
          L[static_cast<int>(c * rest.size() + r)][s] =
              (g(c, rest[r]) - g(c, j)) * (1.0 / (t[rest[r]] - t[j]));
        }
    TNT::CVector a;
    if (TNT::SmallestRightSingularVector(L, a) != 0) break;
    fit.a.assign(a.data(), a.data() + a.size());

    // New approximation at the free nodes and its largest residual.
    double residual = 0.0;
    for (size_t k : rest) {
      Complex den;
      std::vector<Complex> c(static_cast<size_t>(m));
      for (int s = 0; s < m; ++s) {
        c[static_cast<size_t>(s)] =
            fit.a[static_cast<size_t>(s)] *
            (1.0 / (t[k] - t[static_cast<size_t>(fit.support[static_cast<size_t>(s)])]));
        den += c[static_cast<size_t>(s)];
      }
      for (size_t e = 0; e < E; ++e) {
        Complex num;
        for (int s = 0; s < m; ++s)
          num += c[static_cast<size_t>(s)] * f(e, static_cast<size_t>(fit.support[static_cast<size_t>(s)]));
        R[e * N + k] = num / den;
        residual = std::max(residual, norm(f(e, k) - R[e * N + k]));
      }
    }
    residual = std::sqrt(residual);  // squared magnitudes above
    fit.errors.push_back(residual / scale);
    if (residual <= options.tolerance * scale) break;
  }
  return fit;
}

// Weights that interpolate every solved point: the fitted denominator q at
// each point times the Floater-Hormann weights, i.e. the blended
// interpolant of q S over the blended interpolant of q. Both reproduce
// polynomials up to the blending degree, so rational data of the fitted
// degree comes out exactly.
void BlendOverAllPoints(const std::vector<double>& t, const Denominator& fit,
                        const BRIFitOptions& options, std::vector<Complex>& weights) {
  const size_t N = t.size();
  // q(t) = D(t) * prod_s (t - t_s) at every point.
  for (size_t k = 0; k < N; ++k) {
    Complex sum;
    double product = 1.0;
    int self = -1;
    for (size_t s = 0; s < fit.support.size(); ++s) {
      const size_t j = static_cast<size_t>(fit.support[s]);
      if (j == k) {
        self = static_cast<int>(s);
        continue;
      }
      product *= t[k] - t[j];
      sum += fit.a[s] * (1.0 / (t[k] - t[j]));
    }
    weights[k] = self >= 0 ? fit.a[static_cast<size_t>(self)] * product : sum * product;
  }
  const int degree = std::clamp(static_cast<int>(fit.support.size()) - 1, 0,
                                std::min(options.maxDegree, static_cast<int>(N) - 1));
  const std::vector<double> beta = BlendingWeights(t, degree);
  for (size_t k = 0; k < N; ++k) weights[k] = weights[k] * beta[k];
}

}  // namespace

BarycentricFit FitBarycentricWeights(const std::vector<double>& x,
                                     const std::vector<const TNT::CMatrix*>& values,
                                     const BRIFitOptions& options) {
  const size_t N = x.size();
  if (N == 0) return {};
  const int n = values.front()->num_rows();
  double scale = 0.0;
  for (const TNT::CMatrix* m : values)
    for (int e = 0; e < m->size(); ++e) scale = std::max(scale, norm(m->data()[e]));
  scale = std::sqrt(scale);
  const std::vector<int> entries = DistinctEntries(values, n, scale == 0.0 ? 1.0 : scale);
  std::vector<Complex> F(entries.size() * N);
  for (size_t e = 0; e < entries.size(); ++e)
    for (size_t k = 0; k < N; ++k) F[e * N + k] = values[k]->data()[entries[e]];
  return FitBarycentricData(x, F, entries.size(), options);
}

BarycentricFit FitBarycentricData(const std::vector<double>& x, const std::vector<Complex>& F,
                                  size_t entries, const BRIFitOptions& options) {
  BarycentricFit result;
  const size_t N = x.size();
  if (N == 0) return result;
  if (N == 1) {
    result.weights = {Complex(1.0)};
    result.support = {0};
    return result;
  }
  // Normalised frequencies in [-1, 1]: the weights are invariant to the
  // scale, the arithmetic is not.
  const double centre = 0.5 * (x.front() + x.back()), half = 0.5 * (x.back() - x.front());
  std::vector<double> t(N);
  for (size_t k = 0; k < N; ++k) t[k] = (x[k] - centre) / half;
  double scale = 0.0;
  for (const Complex& v : F) scale = std::max(scale, norm(v));
  scale = std::sqrt(scale);
  if (scale == 0.0) scale = 1.0;
  const Denominator fit = FitDenominator(t, F, entries, scale, options);
  result.support = fit.support;
  result.errors = fit.errors;

  result.weights.resize(N);
  if (!fit.errors.empty() && fit.errors.back() <= options.tolerance) {
    // The fit reproduces every solved point within the tolerance: its own
    // barycentric form is the interpolant, and the other points get weight
    // 0, so an evaluation only touches the support points.
    for (size_t s = 0; s < fit.support.size(); ++s)
      result.weights[static_cast<size_t>(fit.support[s])] = fit.a[s];
  } else {
    BlendOverAllPoints(t, fit, options, result.weights);
  }
  double largest = 0.0;
  for (const Complex& w : result.weights) largest = std::max(largest, abs(w));
  if (largest > 0.0)
    for (auto& w : result.weights) w = w * (1.0 / largest);
  return result;
}

}  // namespace nd
