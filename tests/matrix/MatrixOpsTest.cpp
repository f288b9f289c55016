// ComplexSqrt and the eigen-decomposition through LAPACK.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "math/matrix/MatrixOps.h"
#include "support/AssertCapture.h"

namespace {

using TNT::CMatrix;
using TNT::Complex;

CMatrix RandomMatrix(int m, int n, std::mt19937_64& gen) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  CMatrix A(m, n);
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) A[i][j] = Complex(u(gen), u(gen));
  return A;
}

TEST(ComplexSqrt, BranchEdges) {
  EXPECT_EQ(TNT::ComplexSqrt(Complex()), Complex());
  EXPECT_EQ(TNT::ComplexSqrt(Complex(-0.0, 0.0)), Complex());
  EXPECT_EQ(TNT::ComplexSqrt(Complex(4.0)), Complex(2.0));
  EXPECT_EQ(TNT::ComplexSqrt(Complex(-4.0)), Complex(0.0, 2.0));
  EXPECT_EQ(TNT::ComplexSqrt(Complex(-4.0, -0.0)), Complex(0.0, 2.0));  // -0 counts as >= 0
  EXPECT_EQ(TNT::ComplexSqrt(Complex(0.0, 2.0)), Complex(1.0, 1.0));
  EXPECT_EQ(TNT::ComplexSqrt(Complex(0.0, -2.0)), Complex(1.0, -1.0));
  const Complex below = TNT::ComplexSqrt(Complex(-4.0, -0.0001));
  EXPECT_GT(below.re, 0.0);
  EXPECT_NEAR(below.im, -2.0, 1e-9);
  const Complex above = TNT::ComplexSqrt(Complex(-4.0, 0.0001));
  EXPECT_NEAR(above.re, 2.5e-5, 1e-14);
  EXPECT_NEAR(above.im, 2.0, 1e-9);
}

TEST(ComplexSqrt, PrincipalRootOverRandomInputs) {
  std::mt19937_64 gen(23);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::uniform_int_distribution<int> exponent(-150, 150);
  for (int trial = 0; trial < 5000; ++trial) {
    const double s = std::ldexp(1.0, exponent(gen));
    const Complex z(s * u(gen), s * u(gen));
    const Complex r = TNT::ComplexSqrt(z);
    EXPECT_GE(r.re, 0.0) << z.re << " " << z.im;
    EXPECT_LE(abs(r * r - z), 1e-15 * abs(z)) << z.re << " " << z.im;
  }
}

TEST(Eigen, RandomMatricesSatisfyAvEqualsLambdaV) {
  std::mt19937_64 gen(29);
  for (int n = 1; n <= 12; ++n) {
    const CMatrix A = RandomMatrix(n, n, gen);
    TNT::CVector values;
    CMatrix vectors;
    ASSERT_EQ(TNT::ComputeEigenVectorsAndValues(A, values, vectors), 0) << n;
    ASSERT_EQ(values.dim(), n);
    ASSERT_EQ(vectors.num_rows(), n);
    ASSERT_EQ(vectors.num_cols(), n);
    for (int k = 0; k < n; ++k) {
      double residual = 0.0, length = 0.0;
      for (int i = 0; i < n; ++i) {
        Complex av;
        for (int j = 0; j < n; ++j) av += A[i][j] * vectors[j][k];
        residual = std::max(residual, abs(av - values[k] * vectors[i][k]));
        length += norm(vectors[i][k]);
      }
      EXPECT_NEAR(length, 1.0, 1e-12) << "n=" << n << " k=" << k;  // unit columns
      EXPECT_LT(residual, 1e-13 * n) << "n=" << n << " k=" << k;
    }
  }
}

// Upper triangular: the eigenvalues are the diagonal, and the eigenvector of
// the first entry is e1 (up to phase), which a transposed result would miss.
TEST(Eigen, TriangularMatrixHasItsDiagonal) {
  const std::vector<Complex> t{Complex(1.0, 1.0), 2, Complex(0, 3), 0, -2, 5, 0, 0, Complex(0, 3)};
  TNT::CVector values;
  CMatrix vectors;
  ASSERT_EQ(TNT::ComputeEigenVectorsAndValues(CMatrix(3, 3, t), values, vectors), 0);
  for (const Complex& d : {t[0], t[4], t[8]}) {
    int found = 0;
    for (int k = 0; k < 3; ++k) found += abs(values[k] - d) < 1e-14 ? 1 : 0;
    EXPECT_EQ(found, 1) << d.re << "+" << d.im << "i";
  }
  for (int k = 0; k < 3; ++k) {
    if (abs(values[k] - t[0]) > 1e-14) continue;
    EXPECT_NEAR(abs(vectors[0][k]), 1.0, 1e-14);
    EXPECT_NEAR(abs(vectors[1][k]) + abs(vectors[2][k]), 0.0, 1e-14);
  }
}

TEST(Eigen, EmptyOrNonSquareIsReportedAndLeavesOutputs) {
  testing_support::AssertCapture capture;
  TNT::CVector values(2, Complex(7.0));
  CMatrix vectors(1, 1, Complex(8.0));
  EXPECT_NE(TNT::ComputeEigenVectorsAndValues(CMatrix(), values, vectors), 0);
  EXPECT_NE(TNT::ComputeEigenVectorsAndValues(CMatrix(2, 3, Complex(1.0)), values, vectors), 0);
  EXPECT_EQ(capture.conditions(),
            (std::vector<std::string>(2, "(mat.num_cols() > 0) && (mat.num_cols() == mat.num_rows())")));
  EXPECT_EQ(values.dim(), 2);
  EXPECT_EQ(values[1], Complex(7.0));
  EXPECT_EQ(vectors[0][0], Complex(8.0));
}

// LAPACK's own NaN check would end the process; the entry point refuses
// non-finite input instead and leaves the outputs alone.
TEST(Eigen, NonFiniteEntriesFailAndLeaveOutputs) {
  for (double bad : {std::nan(""), HUGE_VAL}) {
    CMatrix A = TNT::Identity(3);
    A[1][2] = Complex(0.5, bad);
    TNT::CVector values(1, Complex(7.0));
    CMatrix vectors;
    EXPECT_NE(TNT::ComputeEigenVectorsAndValues(A, values, vectors), 0);
    EXPECT_EQ(values.dim(), 1);
    EXPECT_EQ(values[0], Complex(7.0));
    EXPECT_EQ(vectors.size(), 0);
  }
}

}  // namespace
