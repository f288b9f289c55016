// Built-in analytic devices: exact S(f) of a few classic microwave circuits
// that stand in for a field solver, so that sweeps, interpolation and the
// tool can be exercised (and demonstrated) without one. DeviceSolver hands a
// device to an interpolating sweep.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "product/SweepSolver.h"

namespace sparam {

// One analytic device. Evaluate fills the S matrix referred to the port
// impedances it reports (50 ohms when it leaves portImpedance empty), and the
// propagation constants of its port modes where the model has them. Every
// device is passive and reciprocal.
class CDevice {
 public:
  virtual ~CDevice() = default;
  virtual std::string_view GetName() const = 0;
  virtual std::string_view GetDescription() const = 0;
  virtual int GetNumPorts() const = 0;
  // The band the device is meant to be looked at in (Hz).
  virtual double GetDefaultStart() const = 0;
  virtual double GetDefaultStop() const = 0;
  // The response at `frequency` (Hz); out.frequency is set to it. False with
  // the reason in `why` where the model has no answer (f <= 0, not finite,
  // below a waveguide's cutoff).
  virtual bool Evaluate(double frequency, SolvedPoint& out, std::string* why) const = 0;
};

// The coupling-matrix model of an n-resonator bandpass filter with unloaded
// Q (Hong and Lancaster, "Microstrip Filters for RF/Microwave Applications",
// eqs. 8.40-8.41 for a synchronously tuned filter):
//   A = lambda I - j R + M - j/(Qu FBW) I,  lambda = (f/f0 - f0/f) / FBW,
//   S11 = 1 + 2j R1 [A^-1]_11,  S21 = -2j sqrt(R1 Rn) [A^-1]_n1.
// R holds the normalised external couplings 1/qe at the first and last
// resonator, M the normalised couplings between neighbours.
struct CoupledResonatorModel {
  double f0 = 10e9;
  double fbw = 0.02;
  double qu = 2000.0;
  double r = 0.0;
  std::vector<double> m;  // M(i, i+1), n - 1 of them

  // The model of a Chebyshev (or any ladder) prototype from its g-values
  // g0 .. g(n+1): R = 1 / (g0 g1), M(i, i+1) = 1 / sqrt(g_i g_i+1).
  static CoupledResonatorModel FromLowpassPrototype(const std::vector<double>& g, double f0,
                                                    double fbw, double qu);
  int GetNumResonators() const { return static_cast<int>(m.size()) + 1; }
  // The 2 x 2 S matrix at f (Hz, > 0).
  TNT::CMatrix S(double f) const;
};

// Every built-in device, in the order `sparam devices` lists them.
const std::vector<const CDevice*>& BuiltInDevices();

// The built-in device of that name (exact, lower case), or null.
const CDevice* FindDevice(std::string_view name);

// One line per device: name, ports, default band, description. Returns 0
// (the exit status of the command that prints it).
int ListDevices(std::ostream& out);

// Solves a device. With noise 0 every answer is the device's exact response
// at the requested frequency. With noise > 0 it stands in for a real field
// solver, whose answers scatter by 1e-8 to 1e-5 around the truth: every S
// entry gets independent Gaussian scatter, its real and its imaginary part
// each drawn from N(0, noise^2), so an entry's complex error has RMS
// noise * sqrt(2). The scatter is absolute (not relative to |S_ij|), as a
// solver's convergence error is. S_ij and S_ji are scattered independently:
// a solver's answers are not exactly reciprocal, and a sweep must not rely
// on them being so. Port impedances and propagation constants stay exact.
//
// The scatter at a frequency depends only on the seed and the frequency's
// bit pattern (hashed with splitmix64 into a std::mt19937_64 for that solve,
// normal deviates by Box-Muller rather than std::normal_distribution, whose
// output differs between standard libraries). So an answer does not depend
// on the order of solves, solving a frequency twice gives the same answer,
// and a resumed sweep sees the data the interrupted one saw.
class DeviceSolver : public ISweepSolver {
 public:
  // `noise` is the standard deviation of each part (>= 0 and finite;
  // otherwise every solve fails and says why).
  explicit DeviceSolver(const CDevice& device, double noise = 0.0, std::uint64_t seed = 0)
      : m_Device(device), m_Noise(noise), m_Seed(seed) {}
  int GetNumPorts() const override { return m_Device.GetNumPorts(); }
  bool Solve(double frequency, double tolerance, SolvedPoint& out, std::string* why) override;
  // "device NAME", and with scatter "device NAME with scatter 1e-06, seed 3".
  std::string Describe() const override;
  const CDevice& GetDevice() const { return m_Device; }
  double GetNoise() const { return m_Noise; }
  std::uint64_t GetSeed() const { return m_Seed; }

 private:
  const CDevice& m_Device;
  double m_Noise;
  std::uint64_t m_Seed;
};

}  // namespace sparam
