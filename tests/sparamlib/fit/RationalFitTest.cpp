// The rational fitting core on exact, rounded and scattered data: it
// converges on rational data, finds the noise floor and measures the
// scatter, never leaves a spike between samples, and never reproduces
// scatter with a square interpolation problem.
#include "sparamlib/fit/RationalFit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using C = AComplex<double>;

// Three resonances (poles in the upper half plane, as a passive network's
// are in this frequency convention) on a constant, sampled at N uniform
// points of [1, 3] GHz, each part scattered by sigma.
struct Resonances {
  std::vector<C> poles{C(1.4e9, 8e6), C(2.0e9, 3e6), C(2.6e9, 12e6)};
  std::vector<C> residues{C(0.0, 4e6), C(1e6, 1.5e6), C(-5e6, 2e6)};
  C operator()(double f, int entry) const {
    C s(0.2 * (entry + 1), -0.1);
    for (size_t k = 0; k < poles.size(); ++k) s += residues[k] * (entry + 1.0) / (C(f) - poles[k]);
    return s;
  }
};

struct Samples {
  std::vector<double> x;
  std::vector<C> F;  // entry by entry
};

Samples Sample(int N, int entries, double sigma, unsigned seed) {
  const Resonances r;
  Samples s;
  std::mt19937_64 rng(seed);
  std::normal_distribution<double> scatter(0.0, sigma > 0.0 ? sigma : 1.0);
  for (int k = 0; k < N; ++k) s.x.push_back(1e9 + 2e9 * k / (N - 1));
  for (int e = 0; e < entries; ++e)
    for (double f : s.x) s.F.push_back(r(f, e) + (sigma > 0.0 ? C(scatter(rng), scatter(rng)) : C()));
  return s;
}

// The model's value of entry e at f.
C Evaluate(const nd::RationalFit& fit, const Samples& s, int e, double f) {
  const size_t N = s.x.size();
  C num, den;
  for (size_t k = 0; k < N; ++k) {
    if (fit.weights[k].re == 0.0 && fit.weights[k].im == 0.0) continue;
    if (f == s.x[k]) return s.F[static_cast<size_t>(e) * N + k];
    const C c = fit.weights[k] * (1.0 / (f - s.x[k]));
    num += c * s.F[static_cast<size_t>(e) * N + k];
    den += c;
  }
  return num / den;
}

// Largest error against the exact response on a grid 20 times finer.
double TrueError(const nd::RationalFit& fit, const Samples& s, int entries) {
  const Resonances r;
  double worst = 0.0;
  for (int k = 0; k <= 20 * static_cast<int>(s.x.size()); ++k) {
    const double f = 1e9 + 2e9 * k / (20.0 * s.x.size());
    for (int e = 0; e < entries; ++e) worst = std::max(worst, abs(Evaluate(fit, s, e, f) - r(f, e)));
  }
  return worst;
}

}  // namespace

TEST(RationalFit, ConvergesOnRationalDataAndFindsItsPoles) {
  const Samples s = Sample(40, 3, 0.0, 1);
  const nd::RationalFit fit = nd::FitRational(s.x, s.F, 3);
  EXPECT_FALSE(fit.noiseLimited);
  EXPECT_EQ(fit.noise, 0.0);
  EXPECT_FALSE(fit.fallback);
  EXPECT_LE(fit.residual, 1e-12);
  EXPECT_LT(TrueError(fit, s, 3), 1e-9);
  // Each pole of the data is a pole of the model.
  for (const C& pole : Resonances().poles) {
    double nearest = INFINITY;
    for (const C& p : fit.poles) nearest = std::min(nearest, abs(p - pole));
    EXPECT_LT(nearest, 1e3) << pole.re;
  }
}

TEST(RationalFit, ScatteredDataStopAtTheNoiseFloorWithoutSpikes) {
  for (double sigma : {1e-7, 1e-5}) {
    int removed = 0;
    for (unsigned seed = 1; seed <= 10; ++seed) {
      const Samples s = Sample(60, 2, sigma, seed);
      const nd::RationalFit fit = nd::FitRational(s.x, s.F, 2);
      SCOPED_TRACE("sigma " + std::to_string(sigma) + " seed " + std::to_string(seed));
      EXPECT_TRUE(fit.noiseLimited);
      // The measured scatter is |complex error|: sigma * sqrt(2) for this data.
      EXPECT_GT(fit.noise * 1.6, sigma * std::sqrt(2.0) / 3.0);
      EXPECT_LT(fit.noise * 1.6, sigma * std::sqrt(2.0) * 3.0);
      // Between the samples the model stays near the truth: no doublet or
      // near-real pole left to make a spike (which would be off by 0.1 or
      // more). The 3 MHz wide resonance is sampled every 34 MHz, so its
      // shape is set by a few scattered samples: tens of sigma, not one.
      EXPECT_LT(TrueError(fit, s, 2), 200.0 * sigma);
      // Fewer support points than samples: the scatter is averaged, not reproduced.
      EXPECT_LT(fit.support.size(), s.x.size() / 2);
      removed += fit.removedPoles;
    }
    RecordProperty("removed_poles_sigma_" + std::to_string(sigma), removed);
  }
}

TEST(RationalFit, OnePortNeverBecomesASquareInterpolationProblem) {
  // One value and 12 samples: at most 12 / 3 = 4 support points, whatever
  // the tolerance asks for.
  const Samples s = Sample(12, 1, 1e-4, 3);
  nd::RationalFitOptions options;
  options.tolerance = 0.0;
  const nd::RationalFit fit = nd::FitRational(s.x, s.F, 1, options);
  EXPECT_LE(fit.support.size(), 4u);
}

TEST(RationalFit, DoubletsAreTakenOut) {
  // A converged fit with one more support point of tiny weight has a
  // Froissart doublet next to that point: a pole and a zero that cancel at
  // every sample. Cleaning takes the point out and keeps the accuracy.
  const Samples s = Sample(40, 3, 0.0, 1);
  const nd::RationalFit fit = nd::FitRational(s.x, s.F, 3);
  ASSERT_FALSE(fit.noiseLimited);
  int extra = -1;
  for (int k = 1; k < 39 && extra < 0; ++k)
    if (fit.weights[static_cast<size_t>(k)].re == 0.0 && fit.weights[static_cast<size_t>(k)].im == 0.0) extra = k;
  ASSERT_GE(extra, 0);
  nd::RationalFit doubled = fit;
  doubled.weights[static_cast<size_t>(extra)] = C(1e-13, 1e-13);
  doubled.support.push_back(extra);

  const nd::RationalFit cleaned = nd::CleanRationalFit(s.x, s.F, 3, doubled, 1e-12);
  EXPECT_EQ(cleaned.removedPoles, 1);
  EXPECT_FALSE(cleaned.fallback);
  EXPECT_EQ(std::count(cleaned.support.begin(), cleaned.support.end(), extra), 0);
  EXPECT_EQ(cleaned.poles.size(), fit.poles.size());
  EXPECT_LT(TrueError(cleaned, s, 3), 1e-9);
  // What the data support stays: cleaning the converged fit changes nothing.
  EXPECT_EQ(nd::CleanRationalFit(s.x, s.F, 3, fit, 1e-12).removedPoles, 0);
}

TEST(RationalFit, OverfittedScatterLeavesNoSpikeBetweenSamples) {
  // Scatter of 3e-3 lies above what the fit takes for a noise floor, so it
  // keeps adding support points up to its limit and follows the scatter:
  // the poles it places for that must not lift the model between samples.
  double largest = 0.0;
  for (unsigned seed = 1; seed <= 10; ++seed) {
    const Samples s = Sample(80, 1, 3e-3, seed);
    const nd::RationalFit fit = nd::FitRational(s.x, s.F, 1);
    double data = 0.0;
    for (const C& v : s.F) data = std::max(data, abs(v));
    for (int k = 0; k <= 4000; ++k) {
      const double f = 1e9 + 2e9 * k / 4000.0;
      largest = std::max(largest, abs(Evaluate(fit, s, 0, f)) / data);
    }
  }
  EXPECT_LT(largest, 2.0) << "largest |model| / largest |data|";
}

TEST(RationalFit, FloaterHormannWeightsReproduceCubics) {
  std::vector<double> x{0.0, 0.3, 0.7, 1.2, 1.5, 2.4, 3.0};
  const std::vector<double> w = nd::FloaterHormannWeights(x, 3);
  auto cubic = [](double t) { return 1.0 - 2.0 * t + 0.5 * t * t * t; };
  for (double t : {0.1, 0.95, 2.0, 2.9}) {
    double num = 0.0, den = 0.0;
    for (size_t k = 0; k < x.size(); ++k) {
      num += w[k] * cubic(x[k]) / (t - x[k]);
      den += w[k] / (t - x[k]);
    }
    EXPECT_NEAR(num / den, cubic(t), 1e-12) << t;
  }
}
