// Test helper: seeded random complex matrices and port impedances.
#pragma once

#include <random>

#include "math/matrix/MatrixOps.h"

namespace testing_support {

// Entries of modulus below ~0.5, so I + S and I - S are well conditioned.
inline TNT::CMatrix RandomS(int n, std::mt19937_64& rng, double scale = 0.5 / 3.0) {
  std::normal_distribution<double> g(0.0, scale / std::sqrt(static_cast<double>(n)));
  TNT::CMatrix s(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) s[i][j] = AComplex<double>(g(rng), g(rng));
  return s;
}

// Unequal complex port impedances around 50 ohms with a positive real part.
inline TNT::CVector RandomImpedances(int n, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> re(20.0, 90.0), im(-30.0, 30.0);
  TNT::CVector z(n);
  for (int k = 0; k < n; ++k) z[k] = AComplex<double>(re(rng), im(rng));
  return z;
}

inline double MaxAbsDiff(const TNT::CMatrix& a, const TNT::CMatrix& b) {
  double worst = 0.0;
  for (int k = 0; k < a.size(); ++k) worst = std::max(worst, abs(a.data()[k] - b.data()[k]));
  return worst;
}

inline double MaxAbs(const TNT::CMatrix& a) {
  double worst = 0.0;
  for (int k = 0; k < a.size(); ++k) worst = std::max(worst, abs(a.data()[k]));
  return worst;
}

}  // namespace testing_support
