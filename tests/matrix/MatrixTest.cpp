// math/matrix: the TNT containers, element-wise operations, ComplexSqrt, the
// eigen-decomposition, and SolveLinear / LUDecompose on both kernel sets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "math/matrix/MatrixOps.h"
#include "support/AssertCapture.h"

namespace TNT::detail {
bool AllowAvx2SolveKernels(bool allow);  // test hook in SolveLinear.cpp
}

namespace {

using Texts = std::vector<std::string>;
using testing_support::AssertCapture;
using TNT::CMatrix;
using TNT::Complex;

CMatrix RandomMatrix(int m, int n, std::mt19937_64& gen) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  CMatrix A(m, n);
  for (int k = 0; k < A.size(); ++k) A.data()[k] = Complex(u(gen), u(gen));
  return A;
}

CMatrix Multiply(const CMatrix& A, const CMatrix& B) {
  CMatrix C(A.num_rows(), B.num_cols());
  for (int i = 0; i < A.num_rows(); ++i)
    for (int j = 0; j < B.num_cols(); ++j)
      for (int k = 0; k < A.num_cols(); ++k) C[i][j] += A[i][k] * B[k][j];
  return C;
}

double MaxAbs(const CMatrix& A) {
  double m = 0.0;
  for (int k = 0; k < A.size(); ++k) m = std::max(m, abs(A.data()[k]));
  return m;
}

// Same shape and the same bits in every element.
bool Identical(const CMatrix& X, const CMatrix& Y) {
  return X.num_rows() == Y.num_rows() && X.num_cols() == Y.num_cols() &&
         std::equal(X.data(), X.data() + X.size(), Y.data());
}

// Selects the solve kernel set for its lifetime, then allows AVX2 again.
struct Kernels {
  explicit Kernels(bool avx2) { TNT::detail::AllowAvx2SolveKernels(avx2); }
  ~Kernels() { TNT::detail::AllowAvx2SolveKernels(true); }
};

TEST(MatrixContainer, DeepCopiesMovesAndNewsize) {
  CMatrix a(2, 3, Complex(1.0, 2.0)), copy(a), assigned(3, 2);
  assigned = a;
  a[1][2] = Complex(9.0, 9.0);
  EXPECT_EQ(copy[1][2], Complex(1.0, 2.0));
  EXPECT_TRUE(Identical(assigned, copy));
  CMatrix moved(std::move(a));
  EXPECT_EQ(a.size(), 0);  // moved-from state is defined: empty
  copy = std::move(moved);
  EXPECT_EQ(copy[1][2], Complex(9.0, 9.0));
  EXPECT_EQ(moved.size(), 0);

  copy.newsize(3, 4, Complex(0.0, 1.0));
  EXPECT_TRUE(Identical(copy, CMatrix(3, 4, Complex(0.0, 1.0))));
  EXPECT_EQ(&copy[1][0], copy.data() + 4);  // row-major rows
  copy.newsize(0, 5);
  EXPECT_EQ(copy.num_cols(), 0);  // any empty dimension gives 0 x 0
  EXPECT_EQ(CMatrix(4, -1).num_rows(), 0);
}

TEST(MatrixContainer, ValuesConstructorReportsWrongCount) {
  const std::vector<Complex> six{1, 2, 3, 4, 5, 6};
  AssertCapture capture;
  EXPECT_EQ(CMatrix(2, 3, six)[1][0], Complex(4.0));
  EXPECT_TRUE(capture.empty());
  CMatrix short_of(2, 4, six), too_many(2, 2, six);
  EXPECT_EQ(capture.conditions(), (Texts{"mn_ == m_ * n_", "mn_ == m_ * n_"}));
  EXPECT_EQ(short_of.size(), 8);
  EXPECT_EQ(short_of[1][1], Complex(6.0));
  EXPECT_EQ(short_of[1][3], Complex());  // the rest stays zero
  EXPECT_EQ(too_many[1][1], Complex(4.0));
}

// Misuse is reported; an index out of range must not touch memory outside
// the block (the sanitizer build checks that).
TEST(VectorContainer, DeepCopiesMovesNewsizeAndReportedMisuse) {
  TNT::Vector<double> v(3, 7.0), copy(v), assigned(1);
  v[0] = 1.0;
  assigned = v;
  EXPECT_EQ(copy[0], 7.0);
  EXPECT_EQ(assigned.dim(), 3);
  EXPECT_EQ(assigned[2], 7.0);
  TNT::Vector<double> moved(std::move(v));
  EXPECT_EQ(v.dim(), 0);
  copy = std::move(moved);
  EXPECT_EQ(copy[0], 1.0);
  EXPECT_EQ(moved.dim(), 0);
  copy.newsize(2, -2.0);
  EXPECT_EQ(copy.dim(), 2);
  EXPECT_EQ((copy + copy)[1], -4.0);
  EXPECT_EQ((copy - TNT::Vector<double>(2, 0.5))[0], -2.5);

  AssertCapture capture;
  copy[2] = 4.0;
  EXPECT_EQ(std::as_const(copy)[-1], 0.0);
  EXPECT_EQ(TNT::Vector<double>()[0], 0.0);
  (void)(copy + assigned);
  (void)(copy - assigned);
  EXPECT_EQ(capture.conditions(), (Texts{"i < n_", "0<=i", "i < n_", "N==B.dim()", "N==B.dim()"}));
}

TEST(MatrixOps, IdentitySumAndDifference) {
  EXPECT_TRUE(Identical(TNT::Identity(2), CMatrix(2, 2, std::vector<Complex>{1, 0, 0, 1})));
  const CMatrix A(2, 3, std::vector<Complex>{Complex(1, 2), 3, 4, Complex(0, -1), 5, 6});
  const CMatrix ones(2, 3, Complex(1.0, 1.0));
  EXPECT_EQ((A + ones)[0][0], Complex(2.0, 3.0));
  EXPECT_EQ((A - ones)[1][0], Complex(-1.0, -2.0));
  EXPECT_EQ((A - ones)[1][2], Complex(5.0, -1.0));
  AssertCapture capture;
  EXPECT_EQ((A + CMatrix(3, 2)).size() + (A - CMatrix(2, 2)).size(), 0);
  EXPECT_EQ(capture.all().size(), 2u);
}

TEST(ComplexSqrt, BranchEdgesAndPrincipalRoot) {
  EXPECT_EQ(TNT::ComplexSqrt(Complex()), Complex());
  EXPECT_EQ(TNT::ComplexSqrt(Complex(4.0)), Complex(2.0));
  EXPECT_EQ(TNT::ComplexSqrt(Complex(-4.0)), Complex(0.0, 2.0));
  EXPECT_EQ(TNT::ComplexSqrt(Complex(-4.0, -0.0)), Complex(0.0, 2.0));  // -0 counts as >= 0
  EXPECT_EQ(TNT::ComplexSqrt(Complex(0.0, 2.0)), Complex(1.0, 1.0));
  EXPECT_EQ(TNT::ComplexSqrt(Complex(0.0, -2.0)), Complex(1.0, -1.0));
  // Next to the negative real axis, on either side: no cancellation.
  for (double im : {1e-4, -1e-4}) {
    const Complex r = TNT::ComplexSqrt(Complex(-4.0, im));
    EXPECT_NEAR(r.re, 2.4999999998046875e-05, 1e-19) << im;
    EXPECT_NEAR(r.im, std::copysign(2.00000000015625, im), 1e-15) << im;
  }
  std::mt19937_64 gen(23);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::uniform_int_distribution<int> exponent(-150, 150);
  for (int trial = 0; trial < 5000; ++trial) {
    const double s = std::ldexp(1.0, exponent(gen));
    const Complex z(s * u(gen), s * u(gen)), r = TNT::ComplexSqrt(z);
    EXPECT_GE(r.re, 0.0) << z.re << " " << z.im;
    EXPECT_LE(abs(r * r - z), 1e-15 * abs(z)) << z.re << " " << z.im;
  }
}

// A v = lambda v with unit columns, and the eigenvalues add up to the trace
// (which a repeated pair would miss); the last matrix is upper triangular.
TEST(Eigen, EigenpairsOfRandomAndTriangularMatrices) {
  std::mt19937_64 gen(29);
  std::vector<CMatrix> matrices;
  for (int n = 1; n <= 12; ++n) matrices.push_back(RandomMatrix(n, n, gen));
  const std::vector<Complex> t{Complex(1.0, 1.0), 2, Complex(0, 3), 0, -2, 5, 0, 0, Complex(0, 3)};
  matrices.emplace_back(3, 3, t);
  for (const CMatrix& A : matrices) {
    const int n = A.num_rows();
    TNT::CVector values;
    CMatrix vectors;
    ASSERT_EQ(TNT::ComputeEigenVectorsAndValues(A, values, vectors), 0) << n;
    ASSERT_EQ(values.dim(), n);
    ASSERT_EQ(std::pair(vectors.num_rows(), vectors.num_cols()), std::pair(n, n));
    const CMatrix AV = Multiply(A, vectors);
    Complex trace;
    for (int k = 0; k < n; ++k) {
      trace += A[k][k] - values[k];
      double residual = 0.0, length = 0.0;
      for (int i = 0; i < n; ++i) {
        residual = std::max(residual, abs(AV[i][k] - values[k] * vectors[i][k]));
        length += norm(vectors[i][k]);
      }
      EXPECT_NEAR(length, 1.0, 1e-12) << "n=" << n << " k=" << k;
      EXPECT_LT(residual, 1e-13 * n) << "n=" << n << " k=" << k;
    }
    EXPECT_LT(abs(trace), 1e-14 * n) << "n=" << n;
  }
}

// Refused input leaves the outputs alone. LAPACK's own NaN check would end
// the process, so non-finite entries are refused before it.
TEST(Eigen, EmptyNonSquareOrNonFiniteInputFails) {
  const std::string shape = "(mat.num_cols() > 0) && (mat.num_cols() == mat.num_rows())";
  const std::pair<CMatrix, int> cases[] = {
      {CMatrix(), 1},
      {CMatrix(2, 3, Complex(1.0)), 1},
      {CMatrix(2, 2, std::vector<Complex>{1, Complex(0.5, std::nan("")), 0, 1}), 0},
      {CMatrix(2, 2, std::vector<Complex>{1, 0, Complex(HUGE_VAL, 0.5), 1}), 0}};
  for (const auto& [A, reported] : cases) {
    AssertCapture capture;
    TNT::CVector values(2, Complex(7.0));
    CMatrix vectors(1, 1, Complex(8.0));
    EXPECT_NE(TNT::ComputeEigenVectorsAndValues(A, values, vectors), 0);
    EXPECT_EQ(capture.conditions(), Texts(reported, shape));
    EXPECT_TRUE(values.dim() == 2 && values[1] == Complex(7.0)) << A.num_rows();
    EXPECT_TRUE(vectors.size() == 1 && vectors[0][0] == Complex(8.0)) << A.num_rows();
  }
}

// Over random systems and several B shapes: a backward-stable residual, the
// same bits from the AVX2 and the baseline kernels (a conversion must not
// depend on the machine that ran it; without AVX2 both runs take the
// baseline), from all columns at once as from each column alone (a separate
// kernel), and when X is A or B itself.
TEST(SolveLinear, AccurateAndBitIdenticalAcrossKernelsColumnsAndAliasing) {
  std::mt19937_64 gen(20240611);
  for (int n = 1; n <= 40; ++n) {
    const CMatrix A = RandomMatrix(n, n, gen);
    for (int nrhs : {1, 2, 3, n, n + 7}) {
      const CMatrix B = RandomMatrix(n, nrhs, gen);
      CMatrix X[2] = {TNT::Identity(n + 1), CMatrix(n, n + 9)};  // wrong shapes
      for (bool avx2 : {false, true}) {
        const Kernels kernels(avx2);
        ASSERT_EQ(TNT::SolveLinear(A, B, X[avx2]), 0) << "n=" << n;
      }
      ASSERT_EQ(std::pair(X[1].num_rows(), X[1].num_cols()), std::pair(n, nrhs));
      EXPECT_LT(MaxAbs(Multiply(A, X[1]) - B) / (n * MaxAbs(A) * MaxAbs(X[1])), 5e-16 * n)
          << "n=" << n << " nrhs=" << nrhs;
      EXPECT_TRUE(Identical(X[0], X[1])) << "n=" << n << " nrhs=" << nrhs;
      CMatrix a = A, b = B;
      ASSERT_EQ(TNT::SolveLinear(a, B, a) + TNT::SolveLinear(A, b, b), 0);
      EXPECT_TRUE(Identical(a, X[1]) && Identical(b, X[1])) << "n=" << n << " nrhs=" << nrhs;
      for (int c = 0; c < nrhs; ++c) {
        CMatrix column(n, 1), x;
        for (int i = 0; i < n; ++i) column[i][0] = B[i][c];
        ASSERT_EQ(TNT::SolveLinear(A, column, x), 0);
        for (int i = 0; i < n; ++i) EXPECT_EQ(X[1][i][c], x[i][0]) << n << " " << i << " " << c;
      }
    }
  }
}

// Entries far outside float range (every pivot comparison ties) and near the
// limits of |z|^2 in double still solve.
TEST(LinearCombination, SumsInOrderWithTheSameBitsOnBothKernelSets) {
  std::mt19937_64 gen(11);
  for (int count : {1, 3, 4, 5, 1025}) {
    const CMatrix X = RandomMatrix(3, count, gen), a = RandomMatrix(1, 3, gen);
    const Complex* rows[] = {X[0], X[1], X[2]};
    CMatrix results[2] = {CMatrix(1, count), CMatrix(1, count)};
    for (bool avx2 : {false, true}) {
      Kernels kernels(avx2);
      TNT::LinearCombination(results[avx2][0], rows, a[0], 3, static_cast<size_t>(count));
    }
    EXPECT_TRUE(Identical(results[0], results[1])) << count;
    for (int e = 0; e < count; ++e) {
      const Complex expected = Complex() + a[0][0] * X[0][e] + a[0][1] * X[1][e] + a[0][2] * X[2][e];
      ASSERT_EQ(results[0][0][e], expected) << count << " " << e;
    }
  }
}

TEST(SolveLinear, ScaledSystemsSolve) {
  std::mt19937_64 gen(3);
  CMatrix A = RandomMatrix(5, 5, gen), B = RandomMatrix(5, 2, gen);
  for (int i = 0; i < 5; ++i) A[i][i] = Complex(4.0);  // well conditioned
  for (double scale : {1e-170, 1e-300, 1e170, 1e300}) {
    CMatrix As = A, X;
    for (int k = 0; k < As.size(); ++k) As.data()[k] *= scale;
    ASSERT_EQ(TNT::SolveLinear(As, B, X), 0) << scale;
    EXPECT_LT(MaxAbs(Multiply(As, X) - B), 1e-14) << scale;
  }
}

// Every failure leaves X as zeros of A.cols x B.cols, whatever X held, on
// both kernel sets (orders from 5 up run the AVX2 ones).
TEST(SolveLinear, FailuresGiveStatusAndZeroX) {
  std::mt19937_64 gen(31);
  // M with element (i, j), or all of column j for i < 0, set to z.
  auto with = [](CMatrix M, int i, int j, Complex z) {
    for (int r = 0; r < M.num_rows(); ++r) M[r][j] = r == i || i < 0 ? z : M[r][j];
    return M;
  };
  const struct {
    CMatrix A, B;
    int status;
  } cases[] = {
      {CMatrix(), CMatrix(3, 2, Complex(1.0)), 2},
      {CMatrix(3, 2, Complex(1.0)), CMatrix(3, 4, Complex(1.0)), 2},  // A not square
      {TNT::Identity(3), CMatrix(2, 2, Complex(1.0)), 2},             // B rows differ
      // A zero column stays exactly zero until its step.
      {with(RandomMatrix(4, 4, gen), -1, 2, 0.0), TNT::Identity(4), 1},
      {with(RandomMatrix(9, 9, gen), -1, 6, 0.0), TNT::Identity(9), 1},
      // The pivot 1e-310 is not zero, but x0 = 1e310 is not a double.
      {with(TNT::Identity(2), 0, 0, 1e-310), CMatrix(2, 1, Complex(1.0)), 3},
      {with(TNT::Identity(7), 4, 4, 1e-200), with(RandomMatrix(7, 6, gen), 4, 3, 1e200), 3},
      // A NaN that reaches only part of X.
      {RandomMatrix(8, 8, gen), with(RandomMatrix(8, 3, gen), 7, 1, std::nan("")), 3},
  };
  for (bool avx2 : {false, true}) {
    const Kernels kernels(avx2);
    for (const auto& c : cases) {
      const CMatrix zeros(c.A.num_cols(), c.B.num_cols());
      for (CMatrix X : {CMatrix(2, 3, Complex(7.0)),
                        CMatrix(zeros.num_rows(), zeros.num_cols(), Complex(7.0))}) {
        EXPECT_EQ(TNT::SolveLinear(c.A, c.B, X), c.status) << "avx2=" << avx2;
        EXPECT_TRUE(Identical(X, zeros)) << "avx2=" << avx2 << " status " << c.status;
      }
    }
  }
}

// Rectangular factorisations give the same bits on both kernel sets, and
// with rows k and pivots[k]-1 swapped in order, P A = L U.
TEST(LUDecompose, FactorsReproducePermutedMatrixOnBothKernelSets) {
  std::mt19937_64 gen(13);
  for (auto [m, n] : std::vector<std::pair<int, int>>{{6, 6}, {7, 3}, {9, 6}, {6, 9}, {23, 18}}) {
    const CMatrix A = RandomMatrix(m, n, gen);
    const int r = std::min(m, n);
    CMatrix LU[2] = {A, A}, PA = A, L(m, r), U(r, n);
    TNT::Vector<int> pivots[2];
    for (bool avx2 : {false, true}) {
      const Kernels kernels(avx2);
      ASSERT_EQ(TNT::LUDecompose(LU[avx2], pivots[avx2]), 0);
    }
    EXPECT_TRUE(Identical(LU[0], LU[1])) << m << "x" << n;
    ASSERT_EQ(pivots[0].dim(), r);
    for (int k = 0; k < r; ++k) {
      EXPECT_EQ(pivots[1][k], pivots[0][k]);
      ASSERT_TRUE(pivots[0][k] > k && pivots[0][k] <= m) << pivots[0][k];
      for (int j = 0; j < n; ++j) std::swap(PA[k][j], PA[pivots[0][k] - 1][j]);
    }
    for (int i = 0; i < m; ++i)
      for (int j = 0; j < n; ++j) {
        if (j < r && i >= j) L[i][j] = i == j ? Complex(1.0) : LU[0][i][j];
        if (i < r && i <= j) U[i][j] = LU[0][i][j];
      }
    EXPECT_LT(MaxAbs(Multiply(L, U) - PA), 1e-14 * n) << m << "x" << n;
  }
}

// The pivot is the first row whose magnitude, rounded to float, is largest,
// at every scale (subnormal and huge included) and across the point where
// two doubles round to different floats.
TEST(LUDecompose, PivotMagnitudesAreComparedInSinglePrecision) {
  auto first_pivot = [](const std::vector<Complex>& column) {
    CMatrix A(static_cast<int>(column.size()), 1, column);
    TNT::Vector<int> pivots;
    EXPECT_EQ(TNT::LUDecompose(A, pivots), 0);
    return pivots[0];
  };
  // One ulp either side of the midpoint between the floats 1 and 1 + 2^-23.
  const double mid = 1.0 + std::ldexp(1.0, -24);
  const double below = std::nextafter(mid, 0.0), above = std::nextafter(mid, 2.0);
  EXPECT_EQ(first_pivot({below, -above}), 2);
  EXPECT_EQ(first_pivot({Complex(0.0, above), below}), 1);

  std::mt19937_64 gen(17);
  std::uniform_int_distribution<int> pick(0, 10);
  std::uniform_real_distribution<double> angle(0.0, 6.283185307179586);
  const double offsets[] = {-1e-6, -1e-9, -1e-15, 0.0, 1e-15, 1e-9, 2.9e-8, 3e-8, 6e-8, 1e-7, 1e-6};
  for (double scale : {1.0, 1e-30, 1e-45, 1e-155, 1e-200, 1e-310, 1e30, 1e39, 1e154, 1e200}) {
    for (int trial = 0; trial < 200; ++trial) {
      std::vector<Complex> column(8);
      std::vector<float> magnitudes(8);
      for (int i = 0; i < 8; ++i) {
        const double r = scale * (1.0 + offsets[pick(gen)]), t = angle(gen);
        column[i] = Complex(r * std::cos(t), r * std::sin(t));
        magnitudes[i] = static_cast<float>(std::hypot(column[i].re, column[i].im));
      }
      const auto largest = std::max_element(magnitudes.begin(), magnitudes.end());  // the first
      ASSERT_EQ(first_pivot(column), largest - magnitudes.begin() + 1) << scale << " " << trial;
    }
  }
}

}  // namespace
