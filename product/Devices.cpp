// The built-in analytic devices and their solver. Models are closed-form
// circuit theory in std::complex; the result is converted to the network
// data's complex type at the end.
#include "product/Devices.h"

#include "core/AString.h"
#include "product/InfoCommand.h"

#include <bit>
#include <cmath>
#include <complex>
#include <iomanip>
#include <ostream>
#include <random>
#include <utility>

namespace sparam {

namespace {

using cplx = std::complex<double>;
constexpr double kPi = 3.14159265358979323846;
constexpr double kC0 = 299792458.0;          // m/s
constexpr double kEta0 = 376.730313412;      // ohms, free-space wave impedance
constexpr double kZref = 50.0;               // ohms, the reference of every 50-ohm device
constexpr cplx kJ{0.0, 1.0};

TNT::Complex ToComplex(cplx z) { return TNT::Complex(z.real(), z.imag()); }

// A two-port chain matrix [A B; C D].
struct Abcd {
  cplx a, b, c, d;
  Abcd operator*(const Abcd& o) const {
    return {a * o.a + b * o.c, a * o.b + b * o.d, c * o.a + d * o.c, c * o.b + d * o.d};
  }
};

// A line of characteristic impedance zc and complex electrical length gl = gamma * l.
Abcd LineAbcd(cplx zc, cplx gl) {
  return {std::cosh(gl), zc * std::sinh(gl), std::sinh(gl) / zc, std::cosh(gl)};
}

// S of a two-port from its chain matrix, both ports referred to the same real
// impedance z0 (Pozar, "Microwave Engineering", 4th ed., Table 4.2).
TNT::CMatrix AbcdToS(const Abcd& m, double z0) {
  const cplx b = m.b / z0, c = m.c * z0;
  const cplx den = m.a + b + c + m.d;
  TNT::CMatrix s(2, 2);
  s[0][0] = ToComplex((m.a + b - c - m.d) / den);
  s[0][1] = ToComplex(2.0 * (m.a * m.d - m.b * m.c) / den);
  s[1][0] = ToComplex(2.0 / den);
  s[1][1] = ToComplex((-m.a + b - c + m.d) / den);
  return s;
}

bool CheckFrequency(const CDevice& device, double f, std::string* why) {
  if (std::isfinite(f) && f > 0.0) return true;
  if (why)
    *why = "device " + std::string(device.GetName()) + ": no response at " + FormatFrequency(f) +
           " (frequencies must be positive and finite)";
  return false;
}

// A device with a fixed name, description, port count and band; subclasses
// supply the response.
class CFixedDevice : public CDevice {
 public:
  CFixedDevice(std::string_view name, std::string_view description, int ports, double start,
               double stop)
      : m_Name(name), m_Description(description), m_Ports(ports), m_Start(start), m_Stop(stop) {}
  std::string_view GetName() const override { return m_Name; }
  std::string_view GetDescription() const override { return m_Description; }
  int GetNumPorts() const override { return m_Ports; }
  double GetDefaultStart() const override { return m_Start; }
  double GetDefaultStop() const override { return m_Stop; }
  bool Evaluate(double f, SolvedPoint& out, std::string* why) const override {
    if (!CheckFrequency(*this, f, why)) return false;
    out.frequency = f;
    out.portImpedance.reset();
    out.gamma.reset();
    return Response(f, out, why);
  }

 protected:
  virtual bool Response(double f, SolvedPoint& out, std::string* why) const = 0;

 private:
  std::string_view m_Name, m_Description;
  int m_Ports;
  double m_Start, m_Stop;
};

// 5-resonator Chebyshev 0.1 dB filter at 10 GHz, 2 % bandwidth, Qu 2000:
// g-values from Matthaei, Young and Jones, Table 4.05-2(a).
class CBandpassDevice : public CFixedDevice {
 public:
  CBandpassDevice()
      : CFixedDevice("bandpass",
                     "5-resonator Chebyshev 0.1 dB coupled-resonator filter, 10 GHz, 2 % bandwidth, Qu 2000",
                     2, 9e9, 11e9),
        m_Model(CoupledResonatorModel::FromLowpassPrototype(
            {1.0, 1.1468, 1.3712, 1.9750, 1.3712, 1.1468, 1.0}, 10e9, 0.02, 2000.0)) {}

 protected:
  bool Response(double f, SolvedPoint& out, std::string*) const override {
    out.s = m_Model.S(f);
    return true;
  }

 private:
  CoupledResonatorModel m_Model;
};

// Branch-line quadrature hybrid (Pozar section 7.5): quarter-wave arms of
// Z0/sqrt2 between ports 1-2 and 4-3, and of Z0 between 1-4 and 2-3. Port 2 is
// the through port, 3 the coupled and 4 the isolated port. The lines carry a
// small conductor loss growing like sqrt(f); it also keeps the nodal matrix
// finite at multiples of twice the centre frequency, where a lossless
// half-wave arm's admittance has a pole.
class CCouplerDevice : public CFixedDevice {
 public:
  CCouplerDevice()
      : CFixedDevice("coupler", "branch-line 3 dB quadrature hybrid, 3 GHz, 50 and 35.36 ohm arms", 4,
                     1.5e9, 4.5e9) {}

 protected:
  bool Response(double f, SolvedPoint& out, std::string* why) const override {
    constexpr double f0 = 3e9;
    constexpr double alphaL0 = 0.002;  // nepers per quarter-wave arm at f0 (0.017 dB)
    const cplx gl(alphaL0 * std::sqrt(f / f0), 0.5 * kPi * f / f0);
    const double series = kZref / std::sqrt(2.0);
    struct Arm {
      int p, q;
      double zc;
    };
    const Arm arms[] = {{0, 1, series}, {3, 2, series}, {0, 3, kZref}, {1, 2, kZref}};
    // Nodal admittance matrix of the four arms; every node is a port. A line's
    // Y parameters are coth(gl)/Zc on the diagonal and -csch(gl)/Zc off it.
    cplx y[4][4] = {};
    const cplx coth = std::cosh(gl) / std::sinh(gl), csch = 1.0 / std::sinh(gl);
    for (const Arm& arm : arms) {
      y[arm.p][arm.p] += coth / arm.zc;
      y[arm.q][arm.q] += coth / arm.zc;
      y[arm.p][arm.q] -= csch / arm.zc;
      y[arm.q][arm.p] -= csch / arm.zc;
    }
    // S = (I + Z0 Y)^-1 (I - Z0 Y).
    TNT::CMatrix plus(4, 4), minus(4, 4);
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) {
        const cplx zy = kZref * y[i][j];
        plus[i][j] = ToComplex((i == j ? 1.0 : 0.0) + zy);
        minus[i][j] = ToComplex((i == j ? 1.0 : 0.0) - zy);
      }
    if (TNT::SolveLinear(plus, minus, out.s) == 0) return true;
    if (why) *why = "device coupler: singular network at " + FormatFrequency(f);
    return false;
  }
};

// 0.3 m of 60-ohm line between 50-ohm ports, phase velocity 0.7 c. Conductor
// loss 1 dB/m at 1 GHz growing like sqrt(f), dielectric loss 0.5 dB/m at
// 1 GHz growing like f. The ports carry the line's mode, so its propagation
// constant is reported; the port impedance is the 50-ohm reference.
class CLineDevice : public CFixedDevice {
 public:
  CLineDevice()
      : CFixedDevice("line", "0.3 m lossy 60-ohm line (0.7 c, skin and dielectric loss) between 50-ohm ports",
                     2, 0.1e9, 6e9) {}
  static cplx Gamma(double f) {
    constexpr double nepersPerDb = 1.0 / 8.685889638065035;  // 20 / ln 10
    const double ghz = f / 1e9;
    const double alpha = (1.0 * std::sqrt(ghz) + 0.5 * ghz) * nepersPerDb;
    return {alpha, 2.0 * kPi * f / (0.7 * kC0)};
  }
  static constexpr double kLength = 0.3, kZc = 60.0;

 protected:
  bool Response(double f, SolvedPoint& out, std::string*) const override {
    const cplx gamma = Gamma(f);
    out.s = AbcdToS(LineAbcd(kZc, gamma * kLength), kZref);
    out.gamma = TNT::CVector(2, ToComplex(gamma));
    return true;
  }
};

// A one-port terminated in five parallel RLC tanks in series (the first
// Foster form). Each tank's impedance is R / (1 + j Q (f/fk - fk/f)); at its
// resonance the port sees about R, elsewhere almost a short.
class CResonatorDevice : public CFixedDevice {
 public:
  struct Tank {
    double fk, q, r;
  };
  static constexpr Tank kTanks[] = {
      {1.5e9, 200.0, 30.0}, {2.3e9, 400.0, 50.0}, {3.4e9, 600.0, 80.0},
      {4.4e9, 800.0, 120.0}, {5.5e9, 1000.0, 40.0}};
  CResonatorDevice()
      : CFixedDevice("resonator", "one-port with five parallel-RLC resonances, Q 200 to 1000, 1.5 to 5.5 GHz",
                     1, 1e9, 6e9) {}

 protected:
  bool Response(double f, SolvedPoint& out, std::string*) const override {
    cplx z = 0.0;
    for (const Tank& t : kTanks) z += t.r / (1.0 + kJ * t.q * (f / t.fk - t.fk / f));
    out.s = TNT::CMatrix(1, 1, ToComplex((z - kZref) / (z + kZref)));
    return true;
  }
};

// WR-90 rectangular waveguide (a = 22.86 mm) in its TE10 mode with a
// symmetric inductive iris (aperture d = 0.6 a) halfway along 40 mm. The
// iris is the shunt susceptance B/Y0 = -(lambda_g / a) cot^2(pi d / 2a)
// (Marcuvitz, "Waveguide Handbook", section 5.1a, small-aperture form). S is
// referred to the TE10 wave impedance eta0 / sqrt(1 - (fc/f)^2), which the
// device reports as its port impedance, with gamma = j beta.
class CWaveguideDevice : public CFixedDevice {
 public:
  static constexpr double kA = 22.86e-3, kHalfLength = 20e-3, kApertureRatio = 0.6;
  static double Cutoff() { return kC0 / (2.0 * kA); }
  CWaveguideDevice()
      : CFixedDevice("waveguide",
                     "WR-90 TE10 guide with an inductive iris, referred to the wave impedance", 2,
                     8.2e9, 12.4e9) {}

 protected:
  bool Response(double f, SolvedPoint& out, std::string* why) const override {
    const double root2 = 1.0 - (Cutoff() / f) * (Cutoff() / f);
    if (root2 <= 0.0) {
      if (why) *why = "device waveguide: " + FormatFrequency(f) + " is at or below the TE10 cutoff " +
                      FormatFrequency(Cutoff());
      return false;
    }
    const double root = std::sqrt(root2);
    const double beta = 2.0 * kPi * f / kC0 * root;
    const double lambdaG = 2.0 * kPi / beta;
    const double cot = 1.0 / std::tan(0.5 * kPi * kApertureRatio);
    const cplx y = -kJ * (lambdaG / kA) * cot * cot;  // normalised to the wave admittance
    const Abcd half = LineAbcd(1.0, kJ * beta * kHalfLength);
    const Abcd iris{1.0, 0.0, y, 1.0};
    out.s = AbcdToS(half * iris * half, 1.0);
    out.portImpedance = TNT::CVector(2, TNT::Complex(kEta0 / root));
    out.gamma = TNT::CVector(2, TNT::Complex(0.0, beta));
    return true;
  }
};

}  // namespace

CoupledResonatorModel CoupledResonatorModel::FromLowpassPrototype(const std::vector<double>& g,
                                                                  double f0, double fbw, double qu) {
  CoupledResonatorModel model;
  model.f0 = f0;
  model.fbw = fbw;
  model.qu = qu;
  const size_t n = g.size() - 2;  // resonators; g(0) and g(n+1) are the terminations
  model.r = 1.0 / (g[0] * g[1]);
  for (size_t i = 1; i < n; ++i) model.m.push_back(1.0 / std::sqrt(g[i] * g[i + 1]));
  return model;
}

TNT::CMatrix CoupledResonatorModel::S(double f) const {
  using C = TNT::Complex;
  const int n = GetNumResonators();
  const double lambda = (f / f0 - f0 / f) / fbw;
  TNT::CMatrix A(n, n);
  for (int i = 0; i < n; ++i) A[i][i] = C(lambda, -1.0 / (qu * fbw));
  A[0][0] += C(0.0, -r);
  A[n - 1][n - 1] += C(0.0, -r);
  for (int i = 0; i + 1 < n; ++i) A[i][i + 1] = A[i + 1][i] = C(m[static_cast<size_t>(i)]);
  // Two right-hand sides give the first and last columns of A^-1.
  TNT::CMatrix B(n, 2), X;
  B[0][0] = C(1.0);
  B[n - 1][1] = C(1.0);
  TNT::SolveLinear(A, B, X);
  TNT::CMatrix s(2, 2);
  s[0][0] = C(1.0) + C(0.0, 2.0 * r) * X[0][0];
  s[1][1] = C(1.0) + C(0.0, 2.0 * r) * X[n - 1][1];
  s[1][0] = s[0][1] = C(0.0, -2.0 * r) * X[n - 1][0];
  return s;
}

const std::vector<const CDevice*>& BuiltInDevices() {
  static const CBandpassDevice bandpass;
  static const CCouplerDevice coupler;
  static const CLineDevice line;
  static const CResonatorDevice resonator;
  static const CWaveguideDevice waveguide;
  static const std::vector<const CDevice*> all = {&bandpass, &coupler, &line, &resonator, &waveguide};
  return all;
}

const CDevice* FindDevice(std::string_view name) {
  for (const CDevice* device : BuiltInDevices())
    if (device->GetName() == name) return device;
  return nullptr;
}

int ListDevices(std::ostream& out) {
  for (const CDevice* d : BuiltInDevices()) {
    const std::string band = FormatFrequency(d->GetDefaultStart()) + " - " + FormatFrequency(d->GetDefaultStop());
    out << std::left << std::setw(11) << d->GetName() << d->GetNumPorts()
        << (d->GetNumPorts() == 1 ? " port   " : " ports  ") << std::setw(20) << band
        << d->GetDescription() << '\n';
  }
  return 0;
}

namespace {

// One step of splitmix64 (Steele, Lea and Flood, "Fast splittable
// pseudorandom number generators", OOPSLA 2014; constants as in Vigna's
// public-domain splitmix64.c) used as a hash: a bijection whose output bits
// each depend on every input bit, so that frequencies one ulp apart, and
// seeds 1 and 2, start unrelated generator streams.
std::uint64_t SplitMix64(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15ULL;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

// Two independent standard normal deviates by the Box-Muller transform from
// two uniform draws; u1 lies in (0, 1] so that the logarithm is finite.
std::pair<double, double> StandardNormalPair(std::mt19937_64& rng) {
  const double u1 = static_cast<double>((rng() >> 11) + 1) * 0x1.0p-53;
  const double u2 = static_cast<double>(rng() >> 11) * 0x1.0p-53;
  const double r = std::sqrt(-2.0 * std::log(u1)), theta = 2.0 * kPi * u2;
  return {r * std::cos(theta), r * std::sin(theta)};
}

}  // namespace

bool DeviceSolver::Solve(double frequency, double, SolvedPoint& out, std::string* why) {
  if (!(std::isfinite(m_Noise) && m_Noise >= 0.0)) {
    if (why)
      *why = "device " + std::string(m_Device.GetName()) +
             ": the scatter must be finite and not negative (is " + AString::Format("%g", m_Noise) +
             ")";
    return false;
  }
  if (!m_Device.Evaluate(frequency, out, why)) return false;
  if (m_Noise == 0.0) return true;
  std::mt19937_64 rng(SplitMix64(SplitMix64(m_Seed) ^ std::bit_cast<std::uint64_t>(frequency)));
  TNT::CMatrix& s = out.s;
  for (int i = 0; i < s.num_rows(); ++i)
    for (int j = 0; j < s.num_cols(); ++j) {
      const auto [re, im] = StandardNormalPair(rng);
      s[i][j] += TNT::Complex(m_Noise * re, m_Noise * im);
    }
  return true;
}

std::string DeviceSolver::Describe() const {
  std::string text = "device " + std::string(m_Device.GetName());
  if (m_Noise > 0.0)
    text += AString::Format(" with scatter %g, seed %llu", m_Noise,
                            static_cast<unsigned long long>(m_Seed));
  return text;
}

}  // namespace sparam
