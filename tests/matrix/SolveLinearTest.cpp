// SolveLinear and LUDecompose: accuracy, status codes, the zero-filled X on
// failure, and the single-precision pivot rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "math/matrix/MatrixOps.h"

namespace TNT::detail {
bool AllowAvx2SolveKernels(bool allow);  // test hook in SolveLinear.cpp
}

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

bool AllZero(const CMatrix& A) {
  return std::all_of(A.data(), A.data() + A.size(), [](const Complex& z) { return z == Complex(); });
}

// Residual of a backward-stable solve, relative to |A| |X|.
double RelativeResidual(const CMatrix& A, const CMatrix& X, const CMatrix& B) {
  double row_sum = 0.0;
  for (int i = 0; i < A.num_rows(); ++i) {
    double s = 0.0;
    for (int j = 0; j < A.num_cols(); ++j) s += abs(A[i][j]);
    row_sum = std::max(row_sum, s);
  }
  return MaxAbs(Multiply(A, X) - B) / (row_sum * MaxAbs(X));
}

TEST(SolveLinear, SmallResidualForRandomSystems) {
  std::mt19937_64 gen(20240611);
  for (int n = 1; n <= 40; ++n) {
    const CMatrix A = RandomMatrix(n, n, gen);
    for (const CMatrix& B : {RandomMatrix(n, 1, gen), RandomMatrix(n, 3, gen), TNT::Identity(n),
                             RandomMatrix(n, n + 7, gen)}) {
      CMatrix X(2, 2, Complex(5.0));  // wrong shape and content on entry
      ASSERT_EQ(TNT::SolveLinear(A, B, X), 0) << "n=" << n;
      ASSERT_EQ(X.num_rows(), n);
      ASSERT_EQ(X.num_cols(), B.num_cols());
      EXPECT_LT(RelativeResidual(A, X, B), 1e-15 * n) << "n=" << n << " nrhs=" << B.num_cols();
    }
  }
}

// Runs the body with the AVX2 kernels allowed or not, and allows them again
// afterwards whatever happens.
class KernelChoice {
 public:
  explicit KernelChoice(bool avx2) : avx2_active_(TNT::detail::AllowAvx2SolveKernels(avx2)) {}
  ~KernelChoice() { TNT::detail::AllowAvx2SolveKernels(true); }
  bool avx2_active() const { return avx2_active_; }

 private:
  bool avx2_active_;
};

// Solving all columns at once must give bit for bit what solving each column
// alone gives (the single-column path is a separate kernel, and on AVX2
// machines a different instruction set from the multi-column one).
TEST(SolveLinear, ColumnsTogetherEqualColumnsAlone) {
  for (bool avx2 : {true, false}) {
    const KernelChoice choice(avx2);
    std::mt19937_64 gen(7);
    for (int n : {1, 2, 5, 8, 17, 30}) {
      const CMatrix A = RandomMatrix(n, n, gen);
      const CMatrix B = RandomMatrix(n, 5, gen);
      CMatrix X;
      ASSERT_EQ(TNT::SolveLinear(A, B, X), 0);
      for (int c = 0; c < B.num_cols(); ++c) {
        CMatrix b(n, 1), x;
        for (int i = 0; i < n; ++i) b[i][0] = B[i][c];
        ASSERT_EQ(TNT::SolveLinear(A, b, x), 0);
        for (int i = 0; i < n; ++i)
          EXPECT_EQ(X[i][c], x[i][0]) << "avx2=" << avx2 << " n=" << n << " i=" << i << " c=" << c;
      }
    }
  }
}

TEST(SolveLinear, OutputMayBeAnInput) {
  std::mt19937_64 gen(11);
  const CMatrix A = RandomMatrix(6, 6, gen);
  const CMatrix B = RandomMatrix(6, 6, gen);
  CMatrix expected;
  ASSERT_EQ(TNT::SolveLinear(A, B, expected), 0);
  CMatrix b = B;
  ASSERT_EQ(TNT::SolveLinear(A, b, b), 0);
  CMatrix a = A;
  ASSERT_EQ(TNT::SolveLinear(a, B, a), 0);
  for (int k = 0; k < B.size(); ++k) {
    EXPECT_EQ(b.data()[k], expected.data()[k]);
    EXPECT_EQ(a.data()[k], expected.data()[k]);
  }
}

// Entries far outside float range (where every pivot comparison ties) and
// near the limits of |z|^2 in double must still solve.
TEST(SolveLinear, ScaledSystemsSolve) {
  std::mt19937_64 gen(3);
  CMatrix A = RandomMatrix(5, 5, gen) + TNT::Identity(5) + TNT::Identity(5) + TNT::Identity(5);
  const CMatrix B = RandomMatrix(5, 2, gen);
  CMatrix X;
  ASSERT_EQ(TNT::SolveLinear(A, B, X), 0);
  for (double scale : {1e-170, 1e-300, 1e170, 1e300}) {
    CMatrix As = A, Xs;
    for (int k = 0; k < As.size(); ++k) As.data()[k] *= scale;
    ASSERT_EQ(TNT::SolveLinear(As, B, Xs), 0) << scale;
    for (int k = 0; k < X.size(); ++k)
      EXPECT_LT(abs(Xs.data()[k] * scale - X.data()[k]), 1e-12 * MaxAbs(X)) << scale;
  }
}

TEST(SolveLinear, ShapeErrorsReturnTwoWithZeroX) {
  struct Case {
    CMatrix A, B;
    int rows, cols;
  };
  const std::vector<Case> cases = {
      {CMatrix(), CMatrix(3, 2, Complex(1.0)), 0, 0},
      {CMatrix(3, 2, Complex(1.0)), CMatrix(3, 4, Complex(1.0)), 2, 4},  // A not square
      {TNT::Identity(3), CMatrix(2, 2, Complex(1.0)), 3, 2},             // B rows differ
  };
  for (const Case& c : cases) {
    CMatrix X(3, 4, Complex(7.0));
    EXPECT_EQ(TNT::SolveLinear(c.A, c.B, X), 2);
    EXPECT_EQ(X.num_rows(), c.rows);
    EXPECT_EQ(X.num_cols(), c.cols);
    EXPECT_TRUE(AllZero(X));
  }
}

TEST(SolveLinear, SingularOrOverflowingSystemsFailWithZeroX) {
  std::mt19937_64 gen(5);
  CMatrix A = RandomMatrix(4, 4, gen);
  for (int i = 0; i < 4; ++i) A[i][2] = Complex();
  const CMatrix B = TNT::Identity(4);
  CMatrix X = RandomMatrix(4, 4, gen);
  EXPECT_EQ(TNT::SolveLinear(A, B, X), 1);
  EXPECT_EQ(X.num_cols(), 4);
  EXPECT_TRUE(AllZero(X));

  // The pivot 1e-310 is not zero, but x0 = 1e310 is not a double.
  CMatrix D(2, 2);
  D[0][0] = Complex(1e-310);
  D[1][1] = Complex(1.0);
  CMatrix x(1, 1, Complex(3.0));
  EXPECT_EQ(TNT::SolveLinear(D, CMatrix(2, 1, Complex(1.0)), x), 3);
  EXPECT_EQ(x.num_rows(), 2);
  EXPECT_TRUE(AllZero(x));
}

// The AVX2 kernels do the baseline's arithmetic in the same order, so the
// two sets agree exactly (a conversion must not depend on the machine that
// ran it). The shapes cover row groups with every remainder, odd and even
// row lengths and the order where the AVX2 set takes over.
TEST(SolveKernels, Avx2AndBaselineGiveTheSameResults) {
  if (!KernelChoice(true).avx2_active()) GTEST_SKIP() << "this CPU has no AVX2";
  std::mt19937_64 gen(29);
  for (int n = 1; n <= 37; ++n) {
    const CMatrix A = RandomMatrix(n, n, gen);
    for (int nrhs : {1, 2, 3, n, n + 5}) {
      const CMatrix B = RandomMatrix(n, nrhs, gen);
      CMatrix X[2];
      for (bool avx2 : {false, true}) {
        const KernelChoice choice(avx2);
        ASSERT_EQ(TNT::SolveLinear(A, B, X[avx2]), 0);
      }
      for (int k = 0; k < B.size(); ++k)
        ASSERT_EQ(X[0].data()[k], X[1].data()[k]) << "n=" << n << " nrhs=" << nrhs << " k=" << k;
    }
  }
  for (auto [m, n] : {std::pair{9, 6}, std::pair{6, 9}, std::pair{23, 18}, std::pair{7, 5}}) {
    const CMatrix A = RandomMatrix(m, n, gen);
    CMatrix LU[2] = {A, A};
    TNT::Vector<int> pivots[2];
    for (bool avx2 : {false, true}) {
      const KernelChoice choice(avx2);
      ASSERT_EQ(TNT::LUDecompose(LU[avx2], pivots[avx2]), 0);
    }
    for (int k = 0; k < pivots[0].dim(); ++k) EXPECT_EQ(pivots[0][k], pivots[1][k]) << m << "x" << n;
    for (int k = 0; k < A.size(); ++k) ASSERT_EQ(LU[0].data()[k], LU[1].data()[k]) << m << "x" << n << " k=" << k;
  }
}

// Failures from inside the AVX2 kernels (the small cases above stay on the
// baseline ones): a zero pivot late in the factorisation, an overflow in
// one column, a NaN that reaches only part of X.
TEST(SolveKernels, FailuresGiveTheSameStatusOnBothSets) {
  std::mt19937_64 gen(31);
  CMatrix singular = RandomMatrix(9, 9, gen);
  for (int i = 0; i < 9; ++i) singular[i][6] = Complex();  // stays exactly zero until step 6

  CMatrix overflow = TNT::Identity(7);
  overflow[4][4] = Complex(1e-200);
  CMatrix big_rhs = RandomMatrix(7, 6, gen);
  big_rhs[4][3] = Complex(1e200, -1e200);

  CMatrix with_nan = RandomMatrix(8, 8, gen);
  CMatrix nan_rhs = RandomMatrix(8, 3, gen);
  nan_rhs[7][1] = Complex(std::nan(""), 0.0);

  struct Case {
    const CMatrix &A, &B;
    int status;
  };
  const Case cases[] = {{singular, TNT::Identity(9), 1}, {overflow, big_rhs, 3}, {with_nan, nan_rhs, 3}};
  for (bool avx2 : {false, true}) {
    const KernelChoice choice(avx2);
    for (const Case& c : cases) {
      CMatrix X = RandomMatrix(2, 3, gen);
      EXPECT_EQ(TNT::SolveLinear(c.A, c.B, X), c.status) << "avx2=" << avx2;
      EXPECT_EQ(X.num_rows(), c.A.num_rows());
      EXPECT_EQ(X.num_cols(), c.B.num_cols());
      EXPECT_TRUE(AllZero(X)) << "avx2=" << avx2 << " status " << c.status;
    }
  }
}

// The factors reproduce the row-permuted A: swapping rows k and pivots[k]-1
// in order, P A = L U.
TEST(LUDecompose, FactorsReproducePermutedMatrix) {
  std::mt19937_64 gen(13);
  for (auto [m, n] : {std::pair{6, 6}, std::pair{7, 3}}) {
    const CMatrix A = RandomMatrix(m, n, gen);
    CMatrix LU = A;
    TNT::Vector<int> pivots;
    ASSERT_EQ(TNT::LUDecompose(LU, pivots), 0);
    ASSERT_EQ(pivots.dim(), n);
    CMatrix PA = A;
    for (int k = 0; k < n; ++k) {
      ASSERT_GE(pivots[k], k + 1);
      for (int j = 0; j < n; ++j) std::swap(PA[k][j], PA[pivots[k] - 1][j]);
    }
    CMatrix L(m, n), U(n, n);
    for (int i = 0; i < m; ++i)
      for (int j = 0; j < n; ++j) {
        if (i > j) L[i][j] = LU[i][j];
        if (i == j) L[i][j] = Complex(1.0);
        if (i <= j) U[i][j] = LU[i][j];
      }
    EXPECT_LT(MaxAbs(Multiply(L, U) - PA), 1e-14 * n);
  }
}

TEST(LUDecompose, PivotMagnitudesAreComparedInSinglePrecision) {
  auto first_pivot = [](std::vector<Complex> column) {
    CMatrix A(static_cast<int>(column.size()), 1, column);
    TNT::Vector<int> pivots;
    EXPECT_EQ(TNT::LUDecompose(A, pivots), 0);
    return pivots[0];
  };
  // Larger only beyond float precision: the earlier row stays.
  EXPECT_EQ(first_pivot({Complex(1.0), Complex(1.0 + 1e-12)}), 1);
  EXPECT_EQ(first_pivot({Complex(0.0, -1.0), Complex(0.6, 0.8 * (1.0 + 1e-12))}), 1);
  EXPECT_EQ(first_pivot({Complex(0.5), Complex(1.0), Complex(-1.0 - 1e-12)}), 2);
  // Larger within float precision: the later row wins.
  EXPECT_EQ(first_pivot({Complex(1.0), Complex(1.0 + 1e-6)}), 2);
  EXPECT_EQ(first_pivot({Complex(0.1), Complex(0.0, 0.3), Complex(-0.2)}), 2);
  // Two doubles one ulp either side of the midpoint between the floats 1 and
  // 1 + 2^-23 round apart, so the larger one wins however close they are.
  const double mid = 1.0 + std::ldexp(1.0, -24);
  const double below = std::nextafter(mid, 0.0), above = std::nextafter(mid, 2.0);
  EXPECT_EQ(first_pivot({Complex(below), Complex(-above)}), 2);
  EXPECT_EQ(first_pivot({Complex(0.0, above), Complex(below)}), 1);
}

// Near-ties at many scales, including subnormal and huge magnitudes: the
// pivot is the first row whose float magnitude is the largest.
TEST(LUDecompose, PivotRuleHoldsAtAllScales) {
  std::mt19937_64 gen(17);
  std::uniform_int_distribution<int> pick(0, 10);
  std::uniform_real_distribution<double> angle(0.0, 6.283185307179586);
  const double offsets[] = {-1e-6, -1e-9, -1e-15, 0.0, 1e-15, 1e-9, 2.9e-8, 3e-8, 6e-8, 1e-7, 1e-6};
  for (double scale : {1.0, 1e-30, 1e-45, 1e-155, 1e-200, 1e-310, 1e30, 1e39, 1e154, 1e200}) {
    for (int trial = 0; trial < 200; ++trial) {
      std::vector<Complex> column(8);
      int expected = 0;
      float best = -1.0f;
      for (int i = 0; i < 8; ++i) {
        const double r = scale * (1.0 + offsets[pick(gen)]);
        const double t = angle(gen);
        column[i] = Complex(r * std::cos(t), r * std::sin(t));
        const float mag = static_cast<float>(std::hypot(column[i].re, column[i].im));
        if (mag > best) {
          best = mag;
          expected = i + 1;
        }
      }
      CMatrix A(8, 1, column);
      TNT::Vector<int> pivots;
      TNT::LUDecompose(A, pivots);
      ASSERT_EQ(pivots[0], expected) << "scale " << scale << " trial " << trial;
    }
  }
}

}  // namespace
