// Helpers shared by the matrix tests: seeded random complex matrices, products
// and max-norms.
#pragma once

#include <algorithm>
#include <random>

#include "math/matrix/MatrixOps.h"

namespace matrix_test {

using TNT::CMatrix;
using TNT::Complex;

inline CMatrix RandomMatrix(int m, int n, std::mt19937_64& gen) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  CMatrix A(m, n);
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) A[i][j] = Complex(u(gen), u(gen));
  return A;
}

inline CMatrix Multiply(const CMatrix& A, const CMatrix& B) {
  CMatrix C(A.num_rows(), B.num_cols());
  for (int i = 0; i < A.num_rows(); ++i)
    for (int j = 0; j < B.num_cols(); ++j)
      for (int k = 0; k < A.num_cols(); ++k) C[i][j] += A[i][k] * B[k][j];
  return C;
}

inline double MaxAbs(const CMatrix& A) {
  double m = 0.0;
  for (int k = 0; k < A.size(); ++k) m = std::max(m, abs(A.data()[k]));
  return m;
}

inline bool AllZero(const CMatrix& A) {
  return std::all_of(A.data(), A.data() + A.size(), [](const Complex& z) { return z == Complex(); });
}

}  // namespace matrix_test
