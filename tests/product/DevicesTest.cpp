// The built-in devices: passivity and reciprocity of every one, each model
// against an independent result (closed forms, even/odd-mode analysis,
// Chebyshev theory, loaded-Q bandwidths), the listing and the solver with
// and without scatter.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <sstream>
#include <utility>
#include <vector>

#include "product/Devices.h"
#include "support/RandomNetwork.h"

namespace {

using cplx = std::complex<double>;
using sparam::CDevice;
using sparam::FindDevice;
constexpr double kPi = 3.14159265358979323846;
constexpr double kC0 = 299792458.0;
constexpr cplx kJ{0.0, 1.0};

cplx At(const TNT::CMatrix& s, int i, int j) { return {s[i][j].re, s[i][j].im}; }

SolvedPoint Eval(const CDevice& d, double f) {
  SolvedPoint p;
  std::string why;
  EXPECT_TRUE(d.Evaluate(f, p, &why)) << d.GetName() << " at " << f << ": " << why;
  return p;
}

const CDevice& Device(const char* name) {
  const CDevice* d = FindDevice(name);
  if (!d) ADD_FAILURE() << "no device " << name;
  return d ? *d : *sparam::BuiltInDevices().front();
}

// S^H S: the identity for a lossless network, I - S^H S positive
// semi-definite for a passive one.
TNT::CMatrix Gram(const TNT::CMatrix& s) {
  const int n = s.num_rows();
  TNT::CMatrix g(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      for (int k = 0; k < n; ++k) g[i][j] += conj(s[k][i]) * s[k][j];
  return g;
}

// The largest singular value of S, from the eigenvalues of S^H S.
double LargestSingularValue(const TNT::CMatrix& s) {
  TNT::CVector values;
  TNT::CMatrix vectors;
  EXPECT_EQ(TNT::ComputeEigenVectorsAndValues(Gram(s), values, vectors), 0);
  double worst = 0.0;
  for (const auto& v : values) worst = std::max(worst, v.re);
  return std::sqrt(worst);
}

TEST(Devices, EveryDeviceIsPassiveAndReciprocalAcrossItsBand) {
  ASSERT_GE(sparam::BuiltInDevices().size(), 5u);
  for (const CDevice* d : sparam::BuiltInDevices()) {
    const int n = d->GetNumPorts();
    double worstSigma = 0.0, worstAsym = 0.0;
    for (int k = 0; k <= 400; ++k) {
      const double f = d->GetDefaultStart() + (d->GetDefaultStop() - d->GetDefaultStart()) * k / 400.0;
      const SolvedPoint p = Eval(*d, f);
      ASSERT_EQ(p.frequency, f);
      ASSERT_EQ(p.s.num_rows(), n) << d->GetName();
      ASSERT_EQ(p.s.num_cols(), n) << d->GetName();
      ASSERT_EQ(p.portImpedance ? p.portImpedance->size() : n, n) << d->GetName();
      ASSERT_EQ(p.gamma ? p.gamma->size() : n, n) << d->GetName();
      worstSigma = std::max(worstSigma, LargestSingularValue(p.s));
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) worstAsym = std::max(worstAsym, abs(p.s[i][j] - p.s[j][i]));
    }
    EXPECT_LE(worstSigma, 1.0 + 1e-12) << d->GetName();
    EXPECT_LT(worstAsym, 1e-13) << d->GetName();
  }
}

TEST(Devices, RefuseFrequenciesWithoutAResponse) {
  const struct {
    const char* device;
    double f;
    const char* why;
  } cases[] = {
      {"bandpass", 0.0, "device bandpass: no response at 0 Hz (frequencies must be positive and finite)"},
      {"line", -1e9, "device line: no response at -1 GHz (frequencies must be positive and finite)"},
      {"resonator", NAN, "device resonator: no response at nan Hz (frequencies must be positive and finite)"},
      {"waveguide", 6e9, "device waveguide: 6 GHz is at or below the TE10 cutoff 6.557140376 GHz"},
  };
  for (const auto& c : cases) {
    SolvedPoint p;
    std::string why;
    EXPECT_FALSE(Device(c.device).Evaluate(c.f, p, &why));
    EXPECT_EQ(why, c.why);
  }
}

// Chebyshev theory for the lossless 0.1 dB, 5-resonator prototype: the
// passband return loss peaks at the ripple level, |S11|^2 = 1 - 10^(-0.01),
// and at lambda = 2 the attenuation is 10 log10(1 + eps^2 T5(2)^2).
TEST(Devices, BandpassPrototypeMeetsChebyshevRippleAndStopband) {
  auto model = sparam::CoupledResonatorModel::FromLowpassPrototype(
      {1.0, 1.1468, 1.3712, 1.9750, 1.3712, 1.1468, 1.0}, 10e9, 0.02, INFINITY);
  const auto fAtLambda = [&](double lambda) {
    const double x = 0.5 * lambda * model.fbw;  // f/f0 - f0/f = lambda FBW
    return model.f0 * (x + std::sqrt(x * x + 1.0));
  };
  double worstS11 = 0.0, worstUnitarity = 0.0;
  for (int k = 0; k <= 2000; ++k) {
    const TNT::CMatrix s = model.S(fAtLambda(-1.0 + 2.0 * k / 2000.0));
    worstS11 = std::max(worstS11, abs(s[0][0]));
    worstUnitarity = std::max(worstUnitarity, testing_support::MaxAbsDiff(Gram(s), TNT::Identity(2)));
  }
  EXPECT_NEAR(worstS11, std::sqrt(1.0 - std::pow(10.0, -0.01)), 0.002);
  EXPECT_LT(worstUnitarity, 1e-13);
  const double eps2 = std::pow(10.0, 0.01) - 1.0, t5 = std::cosh(5.0 * std::acosh(2.0));
  for (double lambda : {-2.0, 2.0})
    EXPECT_NEAR(-20.0 * std::log10(abs(model.S(fAtLambda(lambda))[1][0])), 10.0 * std::log10(1.0 + eps2 * t5 * t5),
                0.05)
        << lambda;
}

// With Qu 2000 the midband loss is close to Cohn's estimate
// 4.343 sum(g) / (FBW Qu) dB, and the passband still matches near the ripple level.
TEST(Devices, BandpassDeviceHasCohnsMidbandLoss) {
  const CDevice& d = Device("bandpass");
  const double cohn = 4.343 * (2 * 1.1468 + 2 * 1.3712 + 1.9750) / (0.02 * 2000.0);
  EXPECT_NEAR(-20.0 * std::log10(abs(Eval(d, 10e9).s[1][0])), cohn, 0.05);
  for (double f : {9.93e9, 10e9, 10.07e9}) EXPECT_LT(abs(Eval(d, f).s[0][0]), 0.16) << f;
  // Far out, the skirt is the lossless Chebyshev one: at 9 GHz lambda = -10.56.
  const double lambda = (0.9 - 1.0 / 0.9) / 0.02, eps2 = std::pow(10.0, 0.01) - 1.0;
  const double t5 = std::cosh(5.0 * std::acosh(-lambda));
  EXPECT_NEAR(abs(Eval(d, 9e9).s[1][0]) * std::sqrt(1.0 + eps2 * t5 * t5), 1.0, 0.01);
}

// Even/odd-mode analysis of the branch-line hybrid (Pozar section 7.5) with
// the same lossy arms: the half-circuits are the Z0/sqrt2 arm between shunt
// stubs of half a Z0 arm, open for the even mode and shorted for the odd one.
TEST(Devices, CouplerMatchesEvenOddModeAnalysis) {
  const CDevice& d = Device("coupler");
  const double z0 = 50.0;
  double worst = 0.0;
  for (int k = 0; k <= 60; ++k) {
    const double f = 1.5e9 + 3e9 * k / 60.0;
    const cplx gl(0.002 * std::sqrt(f / 3e9), 0.5 * kPi * f / 3e9);
    const auto halfCircuit = [&](cplx stubY, cplx& gamma, cplx& t) {
      const double zs = z0 / std::sqrt(2.0);
      // [1 0; Y 1] [cosh Zs sinh; sinh/Zs cosh] [1 0; Y 1], normalised to z0.
      const cplx ch = std::cosh(gl), sh = std::sinh(gl);
      const cplx a = ch + zs * sh * stubY, b = zs * sh, c = sh / zs + 2.0 * stubY * ch + stubY * stubY * zs * sh,
                 dd = a;
      const cplx den = a + b / z0 + c * z0 + dd;
      gamma = (a + b / z0 - c * z0 - dd) / den;
      t = 2.0 / den;
    };
    cplx ge, te, go, to;
    halfCircuit(std::tanh(0.5 * gl) / z0, ge, te);
    halfCircuit(1.0 / std::tanh(0.5 * gl) / z0, go, to);
    const cplx expected[4] = {0.5 * (ge + go), 0.5 * (te + to), 0.5 * (te - to), 0.5 * (ge - go)};
    const TNT::CMatrix s = Eval(d, f).s;
    for (int i = 0; i < 4; ++i) worst = std::max(worst, std::abs(At(s, i, 0) - expected[i]));
  }
  EXPECT_LT(worst, 1e-12);
}

// At 3 GHz: the textbook quadrature split, -3 dB with 90 degrees between the
// through and coupled ports, matched and isolated, within the arms' small loss.
TEST(Devices, CouplerSplitsInQuadratureAtItsCentre) {
  const TNT::CMatrix s = Eval(Device("coupler"), 3e9).s;
  const double r = 1.0 / std::sqrt(2.0);
  const cplx ideal[4][4] = {{0, -kJ * r, -r, 0}, {-kJ * r, 0, 0, -r}, {-r, 0, 0, -kJ * r}, {0, -r, -kJ * r, 0}};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) EXPECT_LT(std::abs(At(s, i, j) - ideal[i][j]), 0.005) << i << j;
  // The arms lose 0.017 dB each at 3 GHz; the split loses about 0.04 dB.
  EXPECT_NEAR(20.0 * std::log10(abs(s[1][0])), -3.0103, 0.06);
  EXPECT_NEAR(20.0 * std::log10(abs(s[2][0])), -3.0103, 0.06);
  EXPECT_NEAR(abs(s[1][0]), abs(s[2][0]), 1e-4);
  EXPECT_NEAR(std::arg(At(s, 1, 0) / At(s, 2, 0)) * 180.0 / kPi, 90.0, 0.1);
}

// The line against the textbook S of a mismatched line (Pozar, problem 4.x form):
// S11 = (Zc^2 - Z0^2) sinh(gl) / D, S21 = 2 Zc Z0 / D,
// D = 2 Zc Z0 cosh(gl) + (Zc^2 + Z0^2) sinh(gl); and its stated losses.
TEST(Devices, LineMatchesClosedFormAndItsLosses) {
  const CDevice& d = Device("line");
  const double zc = 60.0, z0 = 50.0, len = 0.3;
  double worst = 0.0;
  for (int k = 0; k <= 100; ++k) {
    const double f = 0.1e9 + 5.9e9 * k / 100.0;
    const SolvedPoint p = Eval(d, f);
    ASSERT_TRUE(p.gamma.has_value());
    const cplx gamma((*p.gamma)[0].re, (*p.gamma)[0].im);
    // Loss: 1 dB/m at 1 GHz like sqrt(f) plus 0.5 dB/m at 1 GHz like f.
    EXPECT_NEAR(gamma.real() * 20.0 / std::log(10.0), std::sqrt(f / 1e9) + 0.5 * f / 1e9, 1e-12);
    EXPECT_NEAR(gamma.imag(), 2.0 * kPi * f / (0.7 * kC0), 1e-12 * gamma.imag());
    const cplx gl = gamma * len;
    const cplx den = 2.0 * zc * z0 * std::cosh(gl) + (zc * zc + z0 * z0) * std::sinh(gl);
    const cplx s11 = (zc * zc - z0 * z0) * std::sinh(gl) / den, s21 = 2.0 * zc * z0 / den;
    worst = std::max({worst, std::abs(At(p.s, 0, 0) - s11), std::abs(At(p.s, 1, 1) - s11),
                      std::abs(At(p.s, 1, 0) - s21)});
  }
  EXPECT_LT(worst, 1e-13);
}

// Each resonance shows in the power the port absorbs, 1 - |S11|^2, with the
// loaded bandwidth of a parallel tank fed from 50 ohms: fk (R + 50) / (50 Q).
TEST(Devices, ResonatorShowsEachResonanceWithItsLoadedBandwidth) {
  const CDevice& d = Device("resonator");
  const struct {
    double fk, q, r;
  } tanks[] = {{1.5e9, 200, 30}, {2.3e9, 400, 50}, {3.4e9, 600, 80}, {4.4e9, 800, 120}, {5.5e9, 1000, 40}};
  const auto absorbed = [&](double f) { return 1.0 - norm(Eval(d, f).s[0][0]); };
  for (const auto& t : tanks) {
    const double peak = absorbed(t.fk);
    EXPECT_NEAR(peak, 4.0 * 50.0 * t.r / ((t.r + 50.0) * (t.r + 50.0)), 0.02) << t.fk;
    const double expectedWidth = t.fk * (t.r + 50.0) / (50.0 * t.q);
    // Half-power points by bisection on either side of the resonance.
    const auto edge = [&](double sign) {
      double in = t.fk, out = t.fk + sign * 3.0 * expectedWidth;
      for (int k = 0; k < 60; ++k) {
        const double mid = 0.5 * (in + out);
        (absorbed(mid) > 0.5 * peak ? in : out) = mid;
      }
      return in;
    };
    EXPECT_NEAR(edge(1.0) - edge(-1.0), expectedWidth, 0.03 * expectedWidth) << t.fk;
    EXPECT_GT(abs(Eval(d, t.fk + 5.0 * expectedWidth).s[0][0]), 0.9) << t.fk;
  }
}

// The waveguide's S is referred to the TE10 wave impedance: lossless, so
// unitary; the iris seen through two 20 mm lengths of guide.
TEST(Devices, WaveguideIsUnitaryInItsWaveImpedanceAndMatchesTheIris) {
  const CDevice& d = Device("waveguide");
  const double fc = kC0 / (2.0 * 22.86e-3), eta0 = 376.730313412;
  for (int k = 0; k <= 40; ++k) {
    const double f = 8.2e9 + 4.2e9 * k / 40.0;
    const SolvedPoint p = Eval(d, f);
    ASSERT_TRUE(p.portImpedance && p.gamma);
    const double root = std::sqrt(1.0 - (fc / f) * (fc / f)), beta = 2.0 * kPi * f / kC0 * root;
    for (int i = 0; i < 2; ++i) {
      EXPECT_NEAR((*p.portImpedance)[i].re, eta0 / root, 1e-9);
      EXPECT_EQ((*p.portImpedance)[i].im, 0.0);
      EXPECT_NEAR((*p.gamma)[i].im, beta, 1e-9);
    }
    EXPECT_LT(testing_support::MaxAbsDiff(Gram(p.s), TNT::Identity(2)), 1e-13) << f;
    // Shunt y on a matched line: S11 = -y / (2 + y), S21 = 2 / (2 + y),
    // shifted by the 20 mm on each side.
    const double cot = 1.0 / std::tan(0.3 * kPi);
    const cplx y = -kJ * (2.0 * kPi / beta / 22.86e-3) * cot * cot;
    const cplx shift = std::exp(-kJ * beta * 0.04);
    EXPECT_LT(std::abs(At(p.s, 0, 0) - (-y / (2.0 + y)) * shift), 1e-13) << f;
    EXPECT_LT(std::abs(At(p.s, 1, 0) - 2.0 / (2.0 + y) * shift), 1e-13) << f;
  }
}

TEST(Devices, ListingLookupAndSolver) {
  std::ostringstream out;
  EXPECT_EQ(sparam::ListDevices(out), 0);
  std::istringstream lines(out.str());
  std::string line;
  std::vector<std::string> all;
  while (std::getline(lines, line)) all.push_back(line);
  ASSERT_EQ(all.size(), sparam::BuiltInDevices().size());
  EXPECT_EQ(all[0],
            "bandpass   2 ports  9 GHz - 11 GHz      5-resonator Chebyshev 0.1 dB coupled-resonator filter, "
            "10 GHz, 2 % bandwidth, Qu 2000");
  EXPECT_EQ(all[3].substr(0, 37), "resonator  1 port   1 GHz - 6 GHz    ");

  EXPECT_EQ(FindDevice("nonesuch"), nullptr);
  EXPECT_EQ(FindDevice("Bandpass"), nullptr);
  for (const CDevice* d : sparam::BuiltInDevices()) {
    EXPECT_EQ(FindDevice(d->GetName()), d);
    EXPECT_LT(d->GetDefaultStart(), d->GetDefaultStop());
    sparam::DeviceSolver solver(*d);
    EXPECT_EQ(solver.GetNumPorts(), d->GetNumPorts());
    EXPECT_EQ(solver.Describe(), "device " + std::string(d->GetName()));
    SolvedPoint p;
    std::string why;
    const double f = 0.5 * (d->GetDefaultStart() + d->GetDefaultStop());
    ASSERT_TRUE(solver.Solve(f, 0.0, p, &why)) << why;
    EXPECT_EQ(p.frequency, f);
    EXPECT_EQ(testing_support::MaxAbsDiff(p.s, Eval(*d, f).s), 0.0);
    EXPECT_FALSE(solver.Solve(0.0, 1e9, p, &why));
    EXPECT_NE(why.find("no response at 0 Hz"), std::string::npos) << why;
  }
}

// DeviceSolver with scatter stands in for a field solver. A sweep and its
// resume must see the same data, so an answer may depend on the seed and the
// frequency only; the scatter must be the stated Gaussian, independent
// between entries, parts, S_ij and S_ji, and frequencies, or the sweep's
// noise-floor measurement is tested against the wrong thing.

SolvedPoint SolveAt(sparam::DeviceSolver& solver, double f) {
  SolvedPoint p;
  std::string why;
  EXPECT_TRUE(solver.Solve(f, 0.0, p, &why)) << solver.Describe() << " at " << f << ": " << why;
  return p;
}

// Every entry of a - b differs from the same entry of c - d by more than `apart`.
bool EveryEntryApart(const TNT::CMatrix& a, const TNT::CMatrix& b, const TNT::CMatrix& c,
                     const TNT::CMatrix& d, double apart) {
  for (int e = 0; e < a.size(); ++e)
    if (abs((a.data()[e] - b.data()[e]) - (c.data()[e] - d.data()[e])) <= apart) return false;
  return true;
}

TEST(DeviceScatter, AnswerDependsOnlyOnSeedAndFrequency) {
  const CDevice& d = Device("coupler");
  const double f3 = 3e9, f3Next = std::nextafter(3e9, 4e9);
  const std::vector<double> fs = {1.5e9, 2.2e9, f3, f3Next, 4.5e9};
  sparam::DeviceSolver forward(d, 1e-6, 7), backward(d, 1e-6, 7);
  std::vector<TNT::CMatrix> first;
  for (double f : fs) first.push_back(SolveAt(forward, f).s);
  for (size_t k = fs.size(); k-- > 0;)
    EXPECT_EQ(testing_support::MaxAbsDiff(SolveAt(backward, fs[k]).s, first[k]), 0.0) << fs[k];
  EXPECT_EQ(testing_support::MaxAbsDiff(SolveAt(forward, fs[1]).s, first[1]), 0.0);

  // The scatter is there, and frequencies one ulp apart (same exact answer to
  // rounding) get unrelated scatter rather than the same draw.
  const TNT::CMatrix exact3 = Eval(d, f3).s, exact3Next = Eval(d, f3Next).s;
  EXPECT_GT(testing_support::MaxAbsDiff(first[2], exact3), 1e-7);
  EXPECT_TRUE(EveryEntryApart(first[2], exact3, first[3], exact3Next, 1e-9));

  // Other seeds, including ones that differ only in the top bit, give other scatter.
  const std::uint64_t seeds[] = {0, 1, 2, 8, std::uint64_t{1} << 63};
  std::vector<TNT::CMatrix> bySeed;
  for (std::uint64_t seed : seeds) {
    sparam::DeviceSolver solver(d, 1e-6, seed);
    bySeed.push_back(SolveAt(solver, f3).s);
    EXPECT_TRUE(EveryEntryApart(bySeed.back(), exact3, first[2], exact3, 1e-9)) << seed;
  }
  for (size_t a = 0; a < bySeed.size(); ++a)
    for (size_t b = a + 1; b < bySeed.size(); ++b)
      EXPECT_TRUE(EveryEntryApart(bySeed[a], exact3, bySeed[b], exact3, 1e-9)) << seeds[a] << " " << seeds[b];
}

// 400 answers of the 4-port coupler give 6400 draws per part. Each bound is
// five standard errors of its statistic, so a correct generator passes (the
// seed is fixed, so the test is deterministic) while a width off by 5 % or
// more, a uniform instead of a normal draw, or a draw shared between parts,
// between S_ij and S_ji or with the neighbouring frequency fails.
TEST(DeviceScatter, ScatterIsIndependentGaussianOfTheStatedSize) {
  const CDevice& d = Device("coupler");
  constexpr double kNoise = 1e-5;
  constexpr int kAnswers = 400;
  sparam::DeviceSolver solver(d, kNoise, 11);
  std::vector<TNT::CMatrix> dev;
  for (int k = 0; k < kAnswers; ++k) {
    const double f = 1.5e9 + 3e9 * k / (kAnswers - 1);
    const TNT::CMatrix noisy = SolveAt(solver, f).s, exact = Eval(d, f).s;
    TNT::CMatrix diff(4, 4);
    for (int e = 0; e < 16; ++e) diff.data()[e] = (noisy.data()[e] - exact.data()[e]) * (1.0 / kNoise);
    dev.push_back(diff);
  }
  for (const bool imag : {false, true}) {
    double sum = 0.0, sum2 = 0.0;
    int beyond2 = 0, n = 0;
    for (const auto& m : dev)
      for (int e = 0; e < 16; ++e, ++n) {
        const double x = imag ? m.data()[e].im : m.data()[e].re;
        sum += x;
        sum2 += x * x;
        beyond2 += std::abs(x) > 2.0;
      }
    const double mean = sum / n, sd = std::sqrt((sum2 - n * mean * mean) / (n - 1));
    EXPECT_LT(std::abs(mean), 5.0 / std::sqrt(n)) << imag;
    EXPECT_NEAR(sd, 1.0, 5.0 / std::sqrt(2.0 * n)) << imag;
    // P(|x| > 2 sigma) = erfc(sqrt 2) = 0.0455 for a normal draw.
    const double p = std::erfc(std::sqrt(2.0));
    EXPECT_NEAR(static_cast<double>(beyond2) / n, p, 5.0 * std::sqrt(p * (1.0 - p) / n)) << imag;
  }
  // Correlation coefficients of pairs that must be independent.
  const auto correlation = [&](auto pair) {
    double xy = 0.0, xx = 0.0, yy = 0.0;
    int n = 0;
    for (size_t k = 0; k + 1 < dev.size(); ++k)
      for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j, ++n) {
          const auto [x, y] = pair(k, i, j);
          xy += x * y;
          xx += x * x;
          yy += y * y;
        }
    return std::make_pair(xy / std::sqrt(xx * yy), 5.0 / std::sqrt(n));
  };
  const auto [reIm, reImBound] = correlation([&](size_t k, int i, int j) {
    return std::make_pair(dev[k][i][j].re, dev[k][i][j].im);
  });
  EXPECT_LT(std::abs(reIm), reImBound);
  const auto [transpose, transposeBound] = correlation([&](size_t k, int i, int j) {
    return std::make_pair(dev[k][i][j].re, i == j ? dev[k + 1][i][j].re : dev[k][j][i].re);
  });
  EXPECT_LT(std::abs(transpose), transposeBound);
  const auto [neighbour, neighbourBound] = correlation([&](size_t k, int i, int j) {
    return std::make_pair(dev[k][i][j].im, dev[k + 1][i][j].im);
  });
  EXPECT_LT(std::abs(neighbour), neighbourBound);
}

double MaxAbsDiff(const TNT::CVector& a, const TNT::CVector& b) {
  if (a.size() != b.size()) return INFINITY;
  double worst = 0.0;
  for (int k = 0; k < a.size(); ++k) worst = std::max(worst, abs(a[k] - b[k]));
  return worst;
}

TEST(DeviceScatter, NoScatterIsTheExactDeviceAndPortDataStayExact) {
  for (const CDevice* d : sparam::BuiltInDevices()) {
    sparam::DeviceSolver exact(*d, 0.0, 5), noisy(*d, 1e-5, 5);
    for (int k = 0; k <= 50; ++k) {
      const double f = d->GetDefaultStart() + (d->GetDefaultStop() - d->GetDefaultStart()) * k / 50.0;
      const SolvedPoint truth = Eval(*d, f), a = SolveAt(exact, f), b = SolveAt(noisy, f);
      EXPECT_EQ(testing_support::MaxAbsDiff(a.s, truth.s), 0.0) << d->GetName() << " " << f;
      EXPECT_EQ(b.frequency, f);
      for (const SolvedPoint* p : {&a, &b}) {
        ASSERT_EQ(p->portImpedance.has_value(), truth.portImpedance.has_value()) << d->GetName();
        ASSERT_EQ(p->gamma.has_value(), truth.gamma.has_value()) << d->GetName();
        if (truth.portImpedance) {
          EXPECT_EQ(MaxAbsDiff(*p->portImpedance, *truth.portImpedance), 0.0) << d->GetName();
        }
        if (truth.gamma) {
          EXPECT_EQ(MaxAbsDiff(*p->gamma, *truth.gamma), 0.0) << d->GetName();
        }
      }
    }
  }
}

TEST(DeviceScatter, DescribesItselfAndRefusesAnUnusableScatter) {
  const CDevice& d = Device("resonator");
  sparam::DeviceSolver solver(d, 1e-6, 3);
  EXPECT_EQ(solver.GetNoise(), 1e-6);
  EXPECT_EQ(solver.GetSeed(), 3u);
  EXPECT_EQ(solver.Describe(), "device resonator with scatter 1e-06, seed 3");
  SolvedPoint p;
  std::string why;
  EXPECT_FALSE(solver.Solve(0.0, 0.0, p, &why));
  EXPECT_NE(why.find("no response at 0 Hz"), std::string::npos) << why;
  for (double bad : {-1e-6, double(NAN), double(INFINITY)}) {
    sparam::DeviceSolver broken(d, bad, 3);
    EXPECT_FALSE(broken.Solve(2e9, 0.0, p, &why)) << bad;
    EXPECT_NE(why.find("device resonator: the scatter must be finite and not negative"), std::string::npos)
        << why;
  }
}

}  // namespace
