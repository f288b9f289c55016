// The state-space realisation of a vector fit: the same response as the
// pole-residue model at every frequency, a real tridiagonal A whose blocks
// carry the poles, and refusals of fits it cannot realise.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "sparamlib/fit/StateSpaceModel.h"

namespace {

using C = AComplex<double>;

// A reciprocal 2-port with one real pole and two pairs, sampled on 300
// frequencies up to 10 GHz, fitted with the right number of poles.
nd::VectorFitResult FitTwoPort() {
  const double w = 2.0 * M_PI * 1e9;
  const std::vector<C> poles = {C(-0.3 * w, 0.0), C(-0.05 * w, 2.0 * w), C(-0.05 * w, -2.0 * w),
                                C(-0.1 * w, 6.0 * w), C(-0.1 * w, -6.0 * w)};
  std::mt19937_64 rng(7);
  std::normal_distribution<double> g(0.0, 1.0);
  std::vector<std::vector<C>> residues(4, std::vector<C>(5));
  for (int k : {0, 1, 3}) {
    residues[k][0] = C(g(rng) * w, 0.0);
    for (int m : {1, 3}) {
      residues[k][m] = C(g(rng) * w, g(rng) * w);
      residues[k][m + 1] = C(residues[k][m].re, -residues[k][m].im);
    }
  }
  residues[2] = residues[1];  // reciprocal
  std::vector<double> f;
  for (int i = 0; i < 300; ++i) f.push_back(1e7 + i * (1e10 - 1e7) / 299.0);
  std::vector<C> data;
  for (int k = 0; k < 4; ++k) {
    for (double fi : f) {
      const C s(0.0, 2.0 * M_PI * fi);
      C h(0.1 * (k + 1), 0.0);
      for (int m = 0; m < 5; ++m) h = h + residues[k][m] / (s - poles[m]);
      data.push_back(h);
    }
  }
  nd::VectorFitOptions options;
  options.poles = 5;
  return nd::FitVector(f, data, 4, options);
}

TEST(StateSpaceModel, ReproducesTheFitWithATridiagonalRealA) {
  const nd::VectorFitResult fit = FitTwoPort();
  ASSERT_TRUE(fit.ok) << fit.message;
  ASSERT_LT(fit.rmsError, 1e-9);
  nd::StateSpaceModel model;
  std::string why;
  ASSERT_TRUE(nd::RealiseStateSpace(fit, 2, model, &why)) << why;
  EXPECT_EQ(model.states, 10);
  for (double f : {0.0, 3e8, 1e9, 2.05e9, 7.7e9, 2e10}) {
    const C s(0.0, 2.0 * M_PI * f);
    const TNT::CMatrix h = nd::EvaluateStateSpace(model, s);
    const std::vector<C> want = nd::EvaluateVectorFit(fit, s);
    for (int k = 0; k < 4; ++k)
      EXPECT_LE(abs(h.data()[k] - want[static_cast<size_t>(k)]), 1e-12 * (1.0 + abs(want[static_cast<size_t>(k)])))
          << "f " << f << " entry " << k;
  }
  // A's blocks carry the poles: a real pole alone on the diagonal, a pair
  // sigma +- j omega as [[sigma, omega], [-omega, sigma]].
  for (int j = 0; j < 2; ++j) {
    const int first = 5 * j;
    EXPECT_EQ(model.diagonal[first], fit.poles[0].re);
    EXPECT_EQ(model.upper[first], 0.0);
    for (int m : {1, 3}) {
      EXPECT_EQ(model.diagonal[first + m], fit.poles[m].re);
      EXPECT_EQ(model.upper[first + m], fit.poles[m].im);
      EXPECT_EQ(model.lower[first + m + 1], -fit.poles[m].im);
      EXPECT_EQ(model.upper[first + m + 1], 0.0);
    }
  }
}

TEST(StateSpaceModel, RefusesFitsItCannotRealise) {
  nd::StateSpaceModel model;
  std::string why;
  nd::VectorFitResult failed;
  failed.message = "too few samples";
  EXPECT_FALSE(nd::RealiseStateSpace(failed, 2, model, &why));
  EXPECT_NE(why.find("too few samples"), std::string::npos);
  const nd::VectorFitResult fit = FitTwoPort();
  EXPECT_FALSE(nd::RealiseStateSpace(fit, 3, model, &why));
  EXPECT_NE(why.find("expected 9 for 3 ports"), std::string::npos) << why;
  nd::VectorFitResult unpaired = fit;
  unpaired.poles[2] = C(unpaired.poles[2].re, 1.0);
  EXPECT_FALSE(nd::RealiseStateSpace(unpaired, 2, model, &why));
  EXPECT_NE(why.find("conjugate pairs"), std::string::npos) << why;
}

}  // namespace
