// Test helper: the 5-resonator Chebyshev 0.1 dB bandpass filter of the
// interpolation tests, 5 % wide at 10 GHz with Qu 2000, on the
// coupling-matrix model of the built-in devices. Its response is a rational
// function of f of degree 2n.
#pragma once

#include "product/Devices.h"

namespace testing_support {

struct CoupledResonatorFilter {
  // R = 1 / g1 and M(i, i+1) = 1 / sqrt(g_i g_i+1) for
  // g = 1, 1.1468, 1.3712, 1.9750, 1.3712, 1.1468, 1, rounded to 4 digits.
  sparam::CoupledResonatorModel model{10e9, 0.05, 2000.0, 0.8720, {0.7975, 0.6077, 0.6077, 0.7975}};

  TNT::CMatrix S(double f) const { return model.S(f); }
};

}  // namespace testing_support
