// Test helper: the S matrix of an n-resonator bandpass filter from its
// coupling matrix, with unloaded Q, as engineers design them:
//   A = lambda I - j R + M - j/(Qu FBW) I,  lambda = (f/f0 - f0/f) / FBW,
//   S11 = 1 + 2j R1 [A^-1]_11,  S21 = -2j sqrt(R1 Rn) [A^-1]_n1.
// The response is a rational function of f of degree 2n.
#pragma once

#include <cmath>
#include <vector>

#include "math/matrix/MatrixOps.h"

namespace testing_support {

struct CoupledResonatorFilter {
  double f0 = 10e9, fbw = 0.05, qu = 2000.0;
  // Chebyshev 0.1 dB, 5 resonators: input/output couplings and the
  // inter-resonator couplings.
  // g = 1, 1.1468, 1.3712, 1.9750, 1.3712, 1.1468, 1: R = 1 / g1 and
  // M(i, i+1) = 1 / sqrt(g_i g_i+1).
  double r = 0.8720;
  std::vector<double> m = {0.7975, 0.6077, 0.6077, 0.7975};

  TNT::CMatrix S(double f) const {
    using C = AComplex<double>;
    const int n = static_cast<int>(m.size()) + 1;
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
};

}  // namespace testing_support
