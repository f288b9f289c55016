// Vector fitting on responses built from known poles and residues: the
// poles and the response are recovered, entries share one pole set, noise
// is fitted to its own level and no lower, and the model is real and stable
// whatever the data's poles were.
#include "sparamlib/fit/VectorFit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using C = AComplex<double>;
constexpr double kTwoPi = 2.0 * M_PI;

// A model in pole-residue form, the same per entry except for the
// residues, d and e. Pairs are listed once (Im > 0); their conjugates carry
// the conjugate residues.
struct Truth {
  std::vector<double> real;
  std::vector<C> pairs;
  // residues[k]: entry k's residues, real poles first, then one per pair.
  std::vector<std::vector<C>> residues;
  std::vector<double> d, e;
  C operator()(size_t k, C s) const {
    C h = C(d[k]) + s * e[k];
    size_t m = 0;
    for (double a : real) h += residues[k][m++] / (s - C(a));
    for (const C& a : pairs) {
      const C r = residues[k][m++];
      h += r / (s - a) + conj(r) / (s - conj(a));
    }
    return h;
  }
  std::vector<C> AllPoles() const {
    std::vector<C> all(real.begin(), real.end());
    for (const C& a : pairs) all.insert(all.end(), {a, conj(a)});
    return all;
  }
};

// One real pole and three lightly to moderately damped pairs between 1 and
// 9 GHz, as a filter with a few resonances shows; `entries` entries with
// different residues, entry 2 blind to the highest pair.
Truth Resonator(size_t entries) {
  Truth t;
  const double G = kTwoPi * 1e9;
  t.real = {-0.8 * G};
  t.pairs = {C(-0.02 * G, 1.5 * G), C(-0.1 * G, 4.0 * G), C(-0.4 * G, 8.5 * G)};
  for (size_t k = 0; k < entries; ++k) {
    const double x = 1.0 + 0.5 * static_cast<double>(k);
    t.residues.push_back({C(0.5 * G * x), C(0.01 * G, 0.03 * G * x), C(-0.05 * G * x, 0.02 * G),
                          k == 2 ? C() : C(0.2 * G, -0.1 * G * x)});
    t.d.push_back(0.1 * x);
    t.e.push_back(0.0);
  }
  return t;
}

struct Data {
  std::vector<double> f;
  std::vector<C> F;  // entry by entry
};

Data Sample(const Truth& t, size_t N, double fmin, double fmax, double sigma = 0.0,
            unsigned seed = 1) {
  Data data;
  std::mt19937_64 rng(seed);
  std::normal_distribution<double> noise(0.0, 1.0);
  for (size_t i = 0; i < N; ++i)
    data.f.push_back(fmin + (fmax - fmin) * static_cast<double>(i) / (N - 1.0));
  for (size_t k = 0; k < t.residues.size(); ++k)
    for (double f : data.f) {
      C h = t(k, C(0.0, kTwoPi * f));
      if (sigma > 0.0) h += C(sigma * noise(rng), sigma * noise(rng));
      data.F.push_back(h);
    }
  return data;
}

// Largest distance from a true pole to the nearest fitted one, relative to
// the true pole's magnitude.
double PoleError(const std::vector<C>& truth, const std::vector<C>& fitted) {
  double worst = 0.0;
  for (const C& a : truth) {
    double nearest = INFINITY;
    for (const C& b : fitted) nearest = std::min(nearest, abs(a - b));
    worst = std::max(worst, nearest / abs(a));
  }
  return worst;
}

// Largest |model - truth| over entries at n frequencies spread over the
// band, between the samples as well as on them.
double TrueError(const nd::VectorFitResult& fit, const Truth& t, double fmin, double fmax,
                 int n = 997) {
  double worst = 0.0;
  for (int i = 0; i < n; ++i) {
    const double f = fmin + (fmax - fmin) * i / (n - 1.0);
    const std::vector<C> model = nd::EvaluateVectorFitAt(fit, f);
    for (size_t k = 0; k < model.size(); ++k)
      worst = std::max(worst, abs(model[k] - t(k, C(0.0, kTwoPi * f))));
  }
  return worst;
}

// The structure every fit must have: the requested pole count, stable
// poles, real poles with real residues, pairs adjacent with conjugate
// residues.
void ExpectRealStableModel(const nd::VectorFitResult& fit, int poles) {
  ASSERT_TRUE(fit.ok) << fit.message;
  ASSERT_EQ(fit.poles.size(), static_cast<size_t>(poles));
  for (const C& a : fit.poles) EXPECT_LT(a.re, 0.0) << a.re << " " << a.im;
  for (const auto& r : fit.residues) {
    ASSERT_EQ(r.size(), fit.poles.size());
    for (size_t m = 0; m < fit.poles.size(); ++m) {
      if (fit.poles[m].im == 0.0) {
        EXPECT_EQ(r[m].im, 0.0);
        continue;
      }
      ASSERT_GT(fit.poles[m].im, 0.0);
      ASSERT_LT(m + 1, fit.poles.size());
      EXPECT_EQ(fit.poles[m + 1], conj(fit.poles[m]));
      EXPECT_EQ(r[m + 1], conj(r[m]));
      ++m;
    }
  }
  // Real model: H(-j w) = conj H(j w), checked through the evaluator.
  for (double w : {1.0e9, 3.3e9, 7.7e9}) {
    const std::vector<C> up = nd::EvaluateVectorFit(fit, C(0.0, w));
    const std::vector<C> down = nd::EvaluateVectorFit(fit, C(0.0, -w));
    for (size_t k = 0; k < up.size(); ++k)
      EXPECT_LE(abs(down[k] - conj(up[k])), 1e-14 * abs(up[k]));
  }
}

}  // namespace

TEST(VectorFit, RecoversPolesAndResponseOfARationalFunction) {
  const Truth t = Resonator(1);
  const Data data = Sample(t, 200, 10e6, 10e9);
  // Both starting-pole spacings, with and without relaxation.
  for (int variant = 0; variant < 3; ++variant) {
    nd::VectorFitOptions o;
    o.poles = 7;
    o.logSpacedStart = variant != 1;
    o.relax = variant != 2;
    SCOPED_TRACE(variant);
    const nd::VectorFitResult fit = nd::FitVector(data.f, data.F, 1, o);
    ExpectRealStableModel(fit, 7);
    EXPECT_LT(PoleError(t.AllPoles(), fit.poles), 1e-8);
    EXPECT_LT(fit.rmsError, 1e-10);
    EXPECT_LT(TrueError(fit, t, 10e6, 10e9), 1e-9);
    EXPECT_NEAR(fit.d[0], t.d[0], 1e-9);
    // Converged (poles still) before the iteration limit.
    EXPECT_LT(fit.iterations, o.iterations);
    EXPECT_LT(fit.poleChange, o.poleTolerance);
    // Clean data never leave the relaxed scaling function without its constant.
    if (o.relax) {
      EXPECT_EQ(fit.fixedSigmaSteps, 0);
    }
  }
}

TEST(VectorFit, EntriesShareOnePoleSet) {
  // Four entries, one of which never sees the highest pair: the shared fit
  // still finds that pair, from the others, and gives entry 2 a residue of
  // about 0 there. The e term is fitted where the data have one.
  Truth t = Resonator(4);
  t.e = {0.0, 2e-11, 0.0, -1e-11};
  const Data data = Sample(t, 150, 0.0, 10e9);  // DC included
  nd::VectorFitOptions o;
  o.poles = 7;
  o.fitE = true;
  const nd::VectorFitResult fit = nd::FitVector(data.f, data.F, 4, o);
  ExpectRealStableModel(fit, 7);
  EXPECT_LT(PoleError(t.AllPoles(), fit.poles), 1e-8);
  EXPECT_LT(fit.rmsError, 1e-10);
  EXPECT_LT(TrueError(fit, t, 0.0, 10e9), 1e-9);
  for (size_t k = 0; k < 4; ++k) {
    EXPECT_NEAR(fit.d[k], t.d[k], 1e-8) << k;
    EXPECT_NEAR(fit.e[k], t.e[k], 1e-19) << k;
  }
  size_t high = 0;
  for (size_t m = 0; m < fit.poles.size(); ++m)
    if (fit.poles[m].im > fit.poles[high].im) high = m;
  EXPECT_LT(abs(fit.residues[2][high]), 1e-8 * abs(fit.residues[0][high]));

  // Weights given per frequency and the same weights given per value take
  // different paths to the same model.
  nd::VectorFitOptions perFrequency = o, perValue = o;
  for (size_t i = 0; i < data.f.size(); ++i)
    perFrequency.weights.push_back(1.0 + 0.01 * static_cast<double>(i));
  for (size_t k = 0; k < 4; ++k)
    perValue.weights.insert(perValue.weights.end(), perFrequency.weights.begin(),
                            perFrequency.weights.end());
  const nd::VectorFitResult a = nd::FitVector(data.f, data.F, 4, perFrequency);
  const nd::VectorFitResult b = nd::FitVector(data.f, data.F, 4, perValue);
  ASSERT_TRUE(a.ok && b.ok);
  EXPECT_LT(PoleError(t.AllPoles(), a.poles), 1e-8);
  EXPECT_LT(PoleError(a.poles, b.poles), 1e-12);
  EXPECT_NEAR(a.rmsError, b.rmsError, 1e-13);

  // Per-value weights belong to their own entry: outliers of entry 1 with
  // weight 0 leave the fit exact, though entry 0 weighs those frequencies.
  Data spoiled = data;
  nd::VectorFitOptions ignore = o;
  ignore.weights.assign(4 * data.f.size(), 1.0);
  for (size_t i = 5; i < data.f.size(); i += 14) {
    spoiled.F[data.f.size() + i] += C(0.5, -0.5);
    ignore.weights[data.f.size() + i] = 0.0;
  }
  const nd::VectorFitResult c = nd::FitVector(spoiled.f, spoiled.F, 4, ignore);
  ASSERT_TRUE(c.ok);
  EXPECT_LT(PoleError(t.AllPoles(), c.poles), 1e-8);
  EXPECT_LT(TrueError(c, t, 0.0, 10e9), 1e-9);
  EXPECT_GT(c.maxError, 0.5);  // the reported errors are unweighted
}

TEST(VectorFit, NoisyDataFitToTheNoiseLevel) {
  const double sigma = 1e-6;
  const Truth t = Resonator(2);
  for (unsigned seed : {1u, 2u, 3u}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const Data data = Sample(t, 300, 10e6, 10e9, sigma, seed);
    nd::VectorFitOptions o;
    o.poles = 7;
    const nd::VectorFitResult fit = nd::FitVector(data.f, data.F, 2, o);
    ExpectRealStableModel(fit, 7);
    // The residual is the noise (|complex noise| has rms sigma sqrt 2): not
    // above it (a poor model) and not far below (following the noise).
    EXPECT_LT(fit.rmsError, 1.1 * sigma * std::sqrt(2.0));
    EXPECT_GT(fit.rmsError, 0.9 * sigma * std::sqrt(2.0));
    // Between the samples the model stays near the truth: the least-squares
    // fit averages the noise down.
    EXPECT_LT(TrueError(fit, t, 10e6, 10e9), 3.0 * sigma);
    EXPECT_LT(PoleError(t.AllPoles(), fit.poles), 1e-4);
  }
}

TEST(VectorFit, UnstablePolesAreFlippedIntoTheLeftHalfPlane) {
  // Data with an unstable pair and an unstable real pole (a measurement
  // with a delay, or a wrong sign): the model keeps the pole count and
  // structure, every pole stable, and lands on the mirrored poles.
  Truth t = Resonator(1);
  t.real[0] = -t.real[0];
  t.pairs[1].re = -t.pairs[1].re;
  const Data data = Sample(t, 200, 10e6, 10e9);
  nd::VectorFitOptions o;
  o.poles = 7;
  o.iterations = 10;
  const nd::VectorFitResult fit = nd::FitVector(data.f, data.F, 1, o);
  ExpectRealStableModel(fit, 7);
  Truth mirrored = t;
  mirrored.real[0] = -std::fabs(t.real[0]);
  mirrored.pairs[1].re = -std::fabs(t.pairs[1].re);
  EXPECT_LT(PoleError(mirrored.AllPoles(), fit.poles), 1e-6);
  // A stable model cannot reproduce an unstable response exactly.
  EXPECT_GT(fit.rmsError, 1e-6);
}

TEST(VectorFit, RefusesDataItCannotFit) {
  const Truth t = Resonator(1);
  const Data data = Sample(t, 20, 1e9, 2e9);
  nd::VectorFitOptions o;
  o.poles = 20;  // 41 unknowns for 40 real equations
  EXPECT_FALSE(nd::FitVector(data.f, data.F, 1, o).ok);
  o.poles = 4;
  EXPECT_TRUE(nd::FitVector(data.f, data.F, 1, o).ok);
  EXPECT_FALSE(nd::FitVector(data.f, data.F, 2, o).ok);  // values for one entry only
  o.weights = {1.0, 2.0};
  EXPECT_FALSE(nd::FitVector(data.f, data.F, 1, o).ok);
  o.weights.clear();
  std::vector<double> negative = data.f;
  negative[3] = -1.0;
  EXPECT_FALSE(nd::FitVector(negative, data.F, 1, o).ok);
  std::vector<double> one(data.f.size(), 1e9);
  EXPECT_FALSE(nd::FitVector(one, data.F, 1, o).ok);
}
