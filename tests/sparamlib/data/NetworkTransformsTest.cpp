// Post-processing transforms (de-embedding, mixed mode, impedance
// multiplier) and the extrapolation to DC, against closed forms.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdlib>
#include <functional>
#include <numbers>

#include "sparamlib/data/DcExtrapolation.h"
#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/data/NetworkTransforms.h"
#include "support/AssertCapture.h"
#include "support/FixedPorts.h"
#include "support/RandomNetwork.h"

using testing_support::MaxAbsDiff;
using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;
using std::numbers::pi;

namespace {

CMatrix M(int n, std::initializer_list<C> v) {
  return CMatrix(n, n, std::span<const C>(v.begin(), v.size()));
}

CVector V(std::initializer_list<C> v) {
  CVector out(static_cast<int>(v.size()));
  std::copy(v.begin(), v.end(), out.begin());
  return out;
}

C Exp(C z) {
  return C(std::exp(z.re) * std::cos(z.im), std::exp(z.re) * std::sin(z.im));
}

}  // namespace

TEST(Deembed, MovesReferencePlanesAlongTheLine) {
  // A load G at the end of a line of length d reads G exp(-2 gamma d);
  // removing d gives G back, adding 0.5 more (d < 0) lengthens the line.
  const C gamma(3.0, 40.0), load(0.3, -0.4);
  const double d = 0.02;
  CMatrix out;
  ASSERT_EQ(nd::DeembedS(M(1, {load * Exp(gamma * (-2 * d))}), V({gamma}), {d}, false, out), 0);
  EXPECT_LT(abs(out[0][0] - load), 1e-15);
  ASSERT_EQ(nd::DeembedS(M(1, {load}), V({gamma}), {-0.5}, false, out), 0);
  EXPECT_LT(abs(out[0][0] - load * Exp(gamma * -1.0)), 1e-15);

  // A matched lossy line of length L, d1 removed at port 1 and d2 at port 2,
  // is the line of length L - d1 - d2; `lossless` leaves its attenuation.
  const double L = 0.1, d1 = 0.03, d2 = 0.05;
  const C t = Exp(gamma * -L);
  ASSERT_EQ(nd::DeembedS(M(2, {C(), t, t, C()}), V({gamma, gamma}), {d1, d2}, false, out), 0);
  EXPECT_LT(abs(out[1][0] - Exp(gamma * -(L - d1 - d2))), 1e-15);
  EXPECT_LT(abs(out[0][1] - out[1][0]), 1e-15);
  ASSERT_EQ(nd::DeembedS(M(2, {C(), t, t, C()}), V({gamma, gamma}), {d1, d2}, true, out), 0);
  EXPECT_LT(abs(out[1][0] - Exp(C(-gamma.re * L, -gamma.im * (L - d1 - d2)))), 1e-15);

  // Removing d and then adding it again is exact to rounding.
  std::mt19937_64 rng(7);
  const CMatrix s = testing_support::RandomS(6, rng);
  const CVector g = V({C(1, 20), C(0.5, 35), C(0, 50), C(2, 10), C(0.1, 80), C(4, 25)});
  const std::vector<double> dist = {0.01, -0.02, 0.0, 0.05, 0.003, -0.04};
  std::vector<double> back(dist);
  for (double& v : back) v = -v;
  CMatrix there, again;
  for (bool lossless : {false, true}) {
    ASSERT_EQ(nd::DeembedS(s, g, dist, lossless, there), 0);
    ASSERT_EQ(nd::DeembedS(there, g, back, lossless, again), 0);
    EXPECT_LT(MaxAbsDiff(again, s), 1e-12);
  }

  // Too few distances or propagation constants: status 2, zero matrix.
  testing_support::AssertCapture capture;
  EXPECT_EQ(nd::DeembedS(s, g, {0.1, 0.2}, false, out), 2);
  EXPECT_EQ(testing_support::MaxAbs(out), 0.0);
  EXPECT_EQ(out.num_rows(), 6);
  EXPECT_FALSE(capture.empty());
}

TEST(MixedMode, ThruPairAndIdealBalunHaveNoZButTransform) {
  // Two parallel thrus 0->1 and 2->3 at 50 ohms, paired (0, 2) and (1, 3):
  // the differential and common modes pass unchanged at 100 and 25 ohms.
  const C o(0.0), l(1.0);
  const CMatrix thru = M(4, {o, l, o, o, l, o, o, o, o, o, o, l, o, o, l, o});
  const CVector z50(4, C(50.0));
  const nd::PortPairs pairs = {{0, 2}, {1, 3}};
  CMatrix z, mm;
  ASSERT_NE(nd::ConvertSToZ(thru, nd::SqrtImpedances(z50), z), 0);  // no Z exists
  ASSERT_EQ(nd::SingleEndedToMixedMode(thru, z50, pairs, V({100, 100, 25, 25}), mm), 0);
  EXPECT_LT(MaxAbsDiff(mm, M(4, {o, l, o, o, l, o, o, o, o, o, o, l, o, o, l, o})), 1e-15);
  // Matched references are the ones used above.
  const CVector matched = nd::MatchedMixedModeImpedances(z50, pairs);
  EXPECT_TRUE(matched[0] == C(100.0) && matched[1] == C(100.0) && matched[2] == C(25.0) &&
              matched[3] == C(25.0));

  // Ideal balun: unbalanced port 0, balanced pair (1, 2). Differential in
  // goes through with 1, the common mode is reflected whole.
  const double h = std::sqrt(0.5);
  const CMatrix balun = M(3, {o, h, -h, h, 0.5, 0.5, -h, 0.5, 0.5});
  ASSERT_EQ(nd::SingleEndedToMixedMode(balun, CVector(3, C(50.0)), {{1, 2}}, V({50, 100, 25}), mm),
            0);
  EXPECT_LT(MaxAbsDiff(mm, M(3, {o, l, o, l, o, o, o, o, l})), 1e-15);
}

TEST(MixedMode, RoundTripsAndReducesToRenormalisation) {
  // The values themselves are checked against scikit-rf (interop test).
  std::mt19937_64 rng(11);
  const int n = 6;
  const CMatrix s = testing_support::RandomS(n, rng);
  const CVector z = testing_support::RandomImpedances(n, rng);
  const CVector zm = testing_support::RandomImpedances(n, rng);
  const nd::PortPairs pairs = {{4, 1}, {0, 5}};  // 2 and 3 unpaired
  CMatrix mm, se, mm2;
  ASSERT_EQ(nd::SingleEndedToMixedMode(s, z, pairs, zm, mm), 0);

  ASSERT_EQ(nd::MixedModeToSingleEnded(mm, zm, pairs, z, se), 0);
  EXPECT_LT(MaxAbsDiff(se, s), 1e-12);
  ASSERT_EQ(nd::SingleEndedToMixedMode(se, z, pairs, zm, mm2), 0);
  EXPECT_LT(MaxAbsDiff(mm2, mm), 1e-12);

  // No pairs: a plain renormalisation.
  CMatrix renorm;
  ASSERT_EQ(nd::SingleEndedToMixedMode(s, z, {}, zm, mm), 0);
  ASSERT_EQ(nd::RenormalizeS(s, nd::SqrtImpedances(z), nd::SqrtImpedances(zm), renorm), 0);
  EXPECT_LT(MaxAbsDiff(mm, renorm), 1e-13);

  // Matched references: series and parallel of the mean; bad pairs refused.
  const CVector matched = nd::MatchedMixedModeImpedances(V({40, 60, 75}), {{1, 0}});
  EXPECT_TRUE(matched[1] == C(100.0) && matched[0] == C(25.0) && matched[2] == C(75.0));
  testing_support::AssertCapture capture;
  for (const nd::PortPairs& bad :
       {nd::PortPairs{{0, 0}}, nd::PortPairs{{0, 6}}, nd::PortPairs{{0, 1}, {1, 2}}}) {
    EXPECT_EQ(nd::MatchedMixedModeImpedances(z, bad).size(), 0);
    EXPECT_EQ(nd::SingleEndedToMixedMode(s, z, bad, zm, mm), 2);
    EXPECT_EQ(nd::MixedModeToSingleEnded(s, zm, bad, z, mm), 2);
  }
  EXPECT_EQ(capture.all().size(), 6u);
}

TEST(ScaleImpedance, ScalesZAndReferencesKeepingS) {
  std::mt19937_64 rng(3);
  testing_support::FixedPorts owner(3);
  const CMatrix s = testing_support::RandomS(3, rng);
  const CVector z = testing_support::RandomImpedances(3, rng);
  CNetworkModalData point(&owner, 1e9);
  point.SetSMatrix(std::make_unique<CMatrix>(s));
  point.SetPortImpedance(std::make_unique<CVector>(z));
  const CMatrix y0 = *point.GetYMatrix(true), z0 = *point.GetZMatrix(true);
  nd::ScaleImpedance(2.0, point);
  EXPECT_EQ(MaxAbsDiff(*point.GetSMatrix(false), s), 0.0);
  for (int k = 0; k < 3; ++k) EXPECT_EQ((*point.GetPortImpedance())[k], z[k] * 2.0);
  for (int k = 0; k < 9; ++k) {
    EXPECT_LT(abs(point.GetZMatrix(true)->data()[k] - z0.data()[k] * 2.0),
              1e-12 * abs(z0.data()[k]) + 1e-12);
    EXPECT_LT(abs(point.GetYMatrix(true)->data()[k] - y0.data()[k] * 0.5), 1e-14);
  }

  // A point that stores Z or Y: that matrix and the references scale, the S
  // it gives does not.
  for (bool storesZ : {true, false}) {
    CNetworkModalData stored(&owner, 1e9);
    if (storesZ)
      stored.SetZMatrix(std::make_unique<CMatrix>(z0));
    else
      stored.SetYMatrix(std::make_unique<CMatrix>(y0));
    stored.SetPortImpedance(std::make_unique<CVector>(z));
    const CMatrix sBefore = *stored.GetSMatrix(true);
    nd::ScaleImpedance(0.5, stored);
    if (storesZ)
      EXPECT_EQ((*stored.GetZMatrix(false))[1][2], z0[1][2] * 0.5);
    else
      EXPECT_EQ((*stored.GetYMatrix(false))[1][2], y0[1][2] * 2.0);
    EXPECT_LT(MaxAbsDiff(*stored.GetSMatrix(true), sBefore), 1e-14);
  }

  CNetworkModalData stored(&owner, 1e9);
  stored.SetZMatrix(std::make_unique<CMatrix>(z0));
  testing_support::AssertCapture capture;
  for (double bad : {0.0, -1.0, std::nan("")}) nd::ScaleImpedance(bad, stored);
  EXPECT_EQ((*stored.GetZMatrix(false))[1][2], z0[1][2]);
  EXPECT_EQ(capture.all().size(), 3u);
}

namespace {

// An environment variable set for one scope and restored after it.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old, had_ = true;
    if (value)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~ScopedEnv() {
    if (had_)
      setenv(name_, old_.c_str(), 1);
    else
      unsetenv(name_);
  }

 private:
  const char* name_;
  std::string old_;
  bool had_ = false;
};

using Entry = std::function<std::complex<double>(std::complex<double>)>;

// S at the sample frequencies for 1-port or 2-port entries g_ij(f).
std::vector<CMatrix> Sample(const std::vector<double>& f, const std::vector<Entry>& entries) {
  const int n = entries.size() == 1 ? 1 : 2;
  std::vector<CMatrix> s;
  for (double x : f) {
    CMatrix m(n, n);
    for (int k = 0; k < n * n; ++k) {
      const std::complex<double> v = entries[static_cast<size_t>(k)](x);
      m.data()[k] = C(v.real(), v.imag());
    }
    s.push_back(m);
  }
  return s;
}

// S of a uniform RLGC line of length 0.1 m between 50-ohm ports at a
// complex frequency, from its ABCD matrix (Pozar, Microwave Engineering,
// table 4.2). cosh and sinh(x)/x are even in gamma, so S is analytic in f.
std::complex<double> LineS(std::complex<double> f, int entry) {
  using Z = std::complex<double>;
  const double R = 5.0, L = 250e-9, G = 0.01, Cap = 100e-12, len = 0.1, z0 = 50.0;
  const Z jw(0.0, 2 * pi), zs = R + jw * f * L, yp = G + jw * f * Cap;
  const Z x = std::sqrt(zs * yp) * len;
  const Z sinhc = std::abs(x) < 1e-4 ? 1.0 + x * x / 6.0 : std::sinh(x) / x;
  const Z a = std::cosh(x), b = zs * len * sinhc, c = yp * len * sinhc;
  const Z den = 2.0 * a + b / z0 + c * z0;
  return entry == 0 || entry == 3 ? (b / z0 - c * z0) / den : 2.0 / den;
}

// A bound of max |g^(k)| on [0, fLast] from Cauchy's estimate on the circle
// |f| = radius, inside which g has no pole: k! max|g| / (radius - fLast)^k,
// with 5 % over the sampled maximum.
double CauchyBound(const Entry& g, double radius, double fLast, int k) {
  double largest = 0.0;
  for (int i = 0; i < 4096; ++i)
    largest = std::max(largest, std::abs(g(std::polar(radius, 2 * pi * i / 4096))));
  double factorial = 1.0;
  for (int i = 2; i <= k; ++i) factorial *= i;
  return 1.05 * factorial * largest / std::pow(radius - fLast, k);
}

}  // namespace

TEST(DcExtrapolation, SettingsFromTheEnvironment) {
  ScopedEnv o("DC_EXTRAP_POLYNOMIAL_ORDER", nullptr), n("DC_EXTRAP_NUM_SAMPLES", nullptr),
      d("DC_EXTRAP_SAMPLE_DELTA", nullptr);
  nd::DcExtrapolationSettings s;
  std::string why;
  ASSERT_TRUE(nd::ReadDcExtrapolationSettings(s, &why));
  EXPECT_TRUE(s.order == 1 && s.samples == 6 && s.spacing == 0.0);
  {
    ScopedEnv a("DC_EXTRAP_POLYNOMIAL_ORDER", " 08 "), b("DC_EXTRAP_NUM_SAMPLES", "+39"),
        c("DC_EXTRAP_SAMPLE_DELTA", "2.5e2");
    ASSERT_TRUE(nd::ReadDcExtrapolationSettings(s, &why)) << why;
    EXPECT_TRUE(s.order == 8 && s.samples == 39 && s.spacing == 250.0);
  }
  const std::vector<std::pair<const char*, std::vector<const char*>>> refused = {
      {"DC_EXTRAP_POLYNOMIAL_ORDER", {"0", "10", "1.5", "abc", "", "0x3", "99999999999999999999"}},
      {"DC_EXTRAP_NUM_SAMPLES", {"0", "40", "-3", "6 samples"}},
      {"DC_EXTRAP_SAMPLE_DELTA", {"1e-3", "1e10", "0", "-5", "nan", "inf", "100Hz", "0x10"}}};
  for (const auto& [name, values] : refused)
    for (const char* value : values) {
      ScopedEnv bad(name, value);
      nd::DcExtrapolationSettings kept{3, 7, 5.0};
      why.clear();
      EXPECT_FALSE(nd::ReadDcExtrapolationSettings(kept, &why)) << name << "=" << value;
      EXPECT_NE(why.find(name), std::string::npos) << why;
      EXPECT_TRUE(kept.order == 3 && kept.samples == 7 && kept.spacing == 5.0);
    }

  // Sample frequencies: 100 Hz or half the lowest, reduced to fit the band.
  std::vector<double> f;
  ASSERT_TRUE(nd::DcSampleFrequencies(1e3, 1e9, {}, f, &why));
  EXPECT_EQ(f, (std::vector<double>{1e3, 1.1e3, 1.2e3, 1.3e3, 1.4e3, 1.5e3}));
  ASSERT_TRUE(nd::DcSampleFrequencies(100.0, 1e9, {1, 3, 0.0}, f, &why));
  EXPECT_EQ(f, (std::vector<double>{100.0, 150.0, 200.0}));
  ASSERT_TRUE(nd::DcSampleFrequencies(1e9, 1e9 + 300.0, {}, f, &why));
  EXPECT_EQ(f[1] - f[0], 50.0);
  ASSERT_TRUE(nd::DcSampleFrequencies(1e9, 1.003e9, {1, 3, 1e6}, f, &why));
  EXPECT_EQ(f[2], 1.002e9);
  ASSERT_TRUE(nd::DcSampleFrequencies(1e9, 1.002e9, {1, 4, 1e6}, f, &why));
  EXPECT_EQ(f[3], 1e9 + 3 * 5e5);
  ASSERT_TRUE(nd::DcSampleFrequencies(5e8, 5e8, {1, 1, 0.0}, f, &why));
  EXPECT_EQ(f, std::vector<double>{5e8});
  EXPECT_FALSE(nd::DcSampleFrequencies(5e8, 5e8, {}, f, &why));
  EXPECT_FALSE(nd::DcSampleFrequencies(0.0, 1e9, {}, f, &why));
}

TEST(DcExtrapolation, EachVariableChangesTheResultAsDocumented) {
  // g(f) = 0.5 - 2e-4 f + 3e-8 f^2 (+ an imaginary part that DC drops):
  // a line through the samples misses DC by what the closed-form
  // least-squares line gives; order 2 is exact; one sample gives g(f_0).
  const Entry g = [](std::complex<double> f) {
    return 0.5 - 2e-4 * f + 3e-8 * f * f + std::complex<double>(0, 1e-3) * f;
  };
  const auto run = [&](const char* order, const char* samples, const char* delta,
                       std::vector<double>& f) {
    ScopedEnv a("DC_EXTRAP_POLYNOMIAL_ORDER", order), b("DC_EXTRAP_NUM_SAMPLES", samples),
        c("DC_EXTRAP_SAMPLE_DELTA", delta);
    nd::DcExtrapolationSettings s;
    std::string why;
    CMatrix dc;
    EXPECT_TRUE(nd::ReadDcExtrapolationSettings(s, &why) &&
                nd::DcSampleFrequencies(1e3, 1e6, s, f, &why) &&
                nd::ExtrapolateToDC(f, Sample(f, {g}), s.order, dc, &why))
        << why;
    EXPECT_EQ(dc[0][0].im, 0.0);
    return dc[0][0].re;
  };
  const auto leastSquaresLine = [&](const std::vector<double>& f) {
    double fm = 0, gm = 0, sfg = 0, sff = 0;
    for (double x : f) fm += x / f.size(), gm += g(x).real() / f.size();
    for (double x : f) sfg += (x - fm) * (g(x).real() - gm), sff += (x - fm) * (x - fm);
    return gm - sfg / sff * fm;
  };
  std::vector<double> f;
  const double byDefault = run(nullptr, nullptr, nullptr, f);
  EXPECT_EQ(f.size(), 6u);
  EXPECT_EQ(f[1] - f[0], 100.0);
  EXPECT_NEAR(byDefault, leastSquaresLine(f), 1e-12);
  EXPECT_GT(std::fabs(byDefault - 0.5), 1e-3);
  EXPECT_NEAR(run("2", nullptr, nullptr, f), 0.5, 1e-11);
  const double wide = run(nullptr, nullptr, "1e3", f);
  EXPECT_EQ(f.back(), 6e3);
  EXPECT_NEAR(wide, leastSquaresLine(f), 1e-12);
  EXPECT_GT(std::fabs(wide - byDefault), 1e-3);
  EXPECT_NEAR(run("9", "1", nullptr, f), g(1e3).real(), 1e-15);  // degree min(9, 1 - 1) = 0
  EXPECT_NEAR(run("9", "3", "1e4", f), 0.5, 1e-11);              // degree 2
}

TEST(DcExtrapolation, StaysWithinTheStatedBound) {
  std::string why;
  // The bound's kernel: with as many samples as coefficients the fit
  // interpolates and C = f_0 f_1 ... f_d / (d+1)! (the classical remainder).
  nd::DcExtrapolationBound bound;
  ASSERT_TRUE(nd::DcExtrapolationErrorBound({2e3, 2.5e3, 4e3}, 2, bound, &why));
  EXPECT_EQ(bound.degree, 2);
  EXPECT_NEAR(bound.kernel, 2e3 * 2.5e3 * 4e3 / 6, 1e-9 * bound.kernel);

  // g = 0.5 exp(-f / 2 MHz): |g''| <= 0.5 / (2 MHz)^2 and K keeps its sign on
  // [0, f_0], so the error reaches most of the bound.
  const Entry decay = [](std::complex<double> f) { return 0.5 * std::exp(-f / 2e6); };
  std::vector<double> f;
  ASSERT_TRUE(nd::DcSampleFrequencies(2e5, 1e9, {}, f, &why));
  ASSERT_TRUE(nd::DcExtrapolationErrorBound(f, 1, bound, &why));
  CMatrix dc;
  ASSERT_TRUE(nd::ExtrapolateToDC(f, Sample(f, {decay}), 1, dc, &why));
  const double limit = bound.kernel * 0.5 / (2e6 * 2e6) + bound.noiseGain * 1e-16;
  EXPECT_LE(std::fabs(dc[0][0].re - 0.5), limit);
  EXPECT_GE(std::fabs(dc[0][0].re - 0.5), 0.5 * limit);

  // A lossy RLGC line from 1 MHz up, orders 1 and 3, against its exact DC S,
  // with max |g^(d+1)| from Cauchy's estimate on |f| = 200 MHz (the
  // denominator of S has no zero inside |f| < 1 GHz: its winding number on
  // that circle is 0).
  CMatrix exact(2, 2);
  for (int k = 0; k < 4; ++k) exact.data()[k] = C(LineS(0.0, k).real(), LineS(0.0, k).imag());
  std::vector<Entry> line;
  for (int k = 0; k < 4; ++k) line.push_back([k](std::complex<double> x) { return LineS(x, k); });
  for (int order : {1, 3}) {
    ASSERT_TRUE(nd::DcSampleFrequencies(1e6, 1e9, {order, 6, 2e4}, f, &why));
    ASSERT_TRUE(nd::DcExtrapolationErrorBound(f, order, bound, &why));
    ASSERT_TRUE(nd::ExtrapolateToDC(f, Sample(f, line), order, dc, &why));
    for (int k = 0; k < 4; ++k) {
      const double m = CauchyBound(line[static_cast<size_t>(k)], 2e8, f.back(), order + 1);
      EXPECT_LE(abs(dc.data()[k] - exact.data()[k]), bound.kernel * m + bound.noiseGain * 1e-15)
          << "order " << order << " entry " << k;
    }
    EXPECT_EQ(dc[0][1], dc[1][0]);  // the line is reciprocal
  }
  EXPECT_LT(MaxAbsDiff(dc, exact), 1e-9);

  // Highpass (series 1 pF between 50-ohm ports): DC reflection 1, no
  // transmission. The line through the samples overshoots |S11| = 1; the
  // passivity scaling brings the largest singular value back to 1.
  const double tau = 2 * pi * 2 * 50.0 * 1e-12;
  const Entry s11 = [tau](std::complex<double> x) {
    return 1.0 / (1.0 + std::complex<double>(0, tau) * x);
  };
  const Entry s21 = [&](std::complex<double> x) { return 1.0 - s11(x); };
  ASSERT_TRUE(nd::DcSampleFrequencies(1e7, 1e9, {}, f, &why));
  ASSERT_TRUE(nd::DcExtrapolationErrorBound(f, 1, bound, &why));
  ASSERT_TRUE(nd::ExtrapolateToDC(f, Sample(f, {s11, s21, s21, s11}), 1, dc, &why));
  const double raw = bound.kernel * 2 * tau * tau;  // max |S11''| = 2 tau^2 at f = 0
  EXPECT_LE(MaxAbsDiff(dc, M(2, {1.0, 0.0, 0.0, 1.0})), 2 * 2 * raw);
  EXPECT_GT(dc[0][0].re, 0.999);
  const double sum = dc[0][0].re + dc[0][1].re, difference = dc[0][0].re - dc[0][1].re;
  EXPECT_NEAR(std::max(std::fabs(sum), std::fabs(difference)), 1.0,
              1e-15);  // sigma of [[a, b], [b, a]]
}

TEST(DcExtrapolation, RealSymmetricWhenReciprocalAndRefusesBadInput) {
  // A non-reciprocal two-port stays non-symmetric; one sample matrix is
  // symmetric only to 1e-6, which is not enough for symmetrising.
  const std::vector<double> f = {1e3, 1.1e3, 1.2e3};
  std::vector<CMatrix> s;
  for (double x : f) s.push_back(M(2, {C(0.1, x * 1e-6), C(0.2 + 1e-6), C(0.2), C(-0.1)}));
  CMatrix dc;
  std::string why;
  ASSERT_TRUE(nd::ExtrapolateToDC(f, s, 1, dc, &why));
  EXPECT_NE(dc[0][1], dc[1][0]);
  s[0][0][1] = s[1][0][1] = s[2][0][1] = C(0.2 + 1e-10);
  ASSERT_TRUE(nd::ExtrapolateToDC(f, s, 1, dc, &why));
  EXPECT_EQ(dc[0][1], dc[1][0]);
  EXPECT_NEAR(dc[0][1].re, 0.2, 1e-9);
  EXPECT_EQ(dc[0][0].im, 0.0);

  const CMatrix kept = dc;
  const auto refused = [&](const std::vector<double>& freq, const std::vector<CMatrix>& mats,
                           int order) {
    why.clear();
    const bool ok = nd::ExtrapolateToDC(freq, mats, order, dc, &why);
    return !ok && !why.empty() && MaxAbsDiff(dc, kept) == 0.0;
  };
  EXPECT_TRUE(refused(f, s, 0));
  EXPECT_TRUE(refused(f, s, 10));
  EXPECT_TRUE(refused({1e3, 1e3, 2e3}, s, 1));
  EXPECT_TRUE(refused({0.0, 1e3, 2e3}, s, 1));
  EXPECT_TRUE(refused({1e3, 2e3}, s, 1));
  EXPECT_TRUE(refused({}, {}, 1));
  std::vector<CMatrix> odd = s;
  odd[1] = CMatrix(3, 3);
  EXPECT_TRUE(refused(f, odd, 1));
  odd = s;
  odd[2][1][1] = C(std::nan(""));
  EXPECT_TRUE(refused(f, odd, 1));
}
