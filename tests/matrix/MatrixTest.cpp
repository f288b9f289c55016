// TNT::Matrix and TNT::Vector containers, Identity and element-wise sums.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "math/matrix/MatrixOps.h"
#include "support/AssertCapture.h"

namespace {

using Texts = std::vector<std::string>;
using testing_support::AssertCapture;
using TNT::CMatrix;
using TNT::Complex;

TEST(MatrixContainer, CopiesAreDeepAndMovesLeaveSourceEmpty) {
  CMatrix a(2, 3, Complex(1.0, 2.0));
  CMatrix copy(a);
  CMatrix assigned(5, 1);
  assigned = a;
  a[1][2] = Complex(9.0, 9.0);
  EXPECT_EQ(copy[1][2], Complex(1.0, 2.0));
  EXPECT_EQ(assigned.num_rows(), 2);
  EXPECT_EQ(assigned.num_cols(), 3);
  EXPECT_EQ(assigned[1][2], Complex(1.0, 2.0));

  CMatrix moved(std::move(a));
  EXPECT_EQ(moved[1][2], Complex(9.0, 9.0));
  EXPECT_EQ(a.num_rows(), 0);  // moved-from state is defined: empty
  EXPECT_EQ(a.size(), 0);
  copy = std::move(moved);
  EXPECT_EQ(copy[1][2], Complex(9.0, 9.0));
  EXPECT_EQ(moved.size(), 0);
}

TEST(MatrixContainer, NewsizeAndDegenerateShapes) {
  CMatrix a(2, 2, Complex(3.0));
  a.newsize(3, 4, Complex(0.0, 1.0));
  EXPECT_EQ(a.num_rows(), 3);
  EXPECT_EQ(a.num_cols(), 4);
  EXPECT_EQ(a.size(), 12);
  EXPECT_EQ(a[2][3], Complex(0.0, 1.0));
  EXPECT_EQ(&a[1][0], a.data() + 4);  // row-major rows
  a.newsize(0, 5);
  EXPECT_EQ(a.num_cols(), 0);  // any empty dimension gives 0 x 0
  EXPECT_EQ(CMatrix(4, -1).num_rows(), 0);
  EXPECT_EQ(TNT::GetMemorySize(CMatrix(3, 5)), 3u * 5u * 16u);
}

TEST(MatrixContainer, ValuesConstructorReportsWrongCount) {
  const std::vector<Complex> six{1, 2, 3, 4, 5, 6};
  {
    AssertCapture capture;
    CMatrix a(2, 3, six);
    EXPECT_TRUE(capture.empty());
    EXPECT_EQ(a[1][0], Complex(4.0));
  }
  AssertCapture capture;
  CMatrix short_of(2, 4, six);
  EXPECT_EQ(capture.conditions(), (Texts{"mn_ == m_ * n_"}));
  EXPECT_EQ(short_of.size(), 8);
  EXPECT_EQ(short_of[1][1], Complex(6.0));
  EXPECT_EQ(short_of[1][3], Complex());  // the rest stays zero
  CMatrix too_many(2, 2, six);
  EXPECT_EQ(capture.conditions().size(), 2u);
  EXPECT_EQ(too_many[1][1], Complex(4.0));
}

TEST(VectorContainer, DeepCopyMoveAndNewsize) {
  TNT::Vector<int> v(3, 7);
  TNT::Vector<int> copy(v);
  v[0] = 1;
  EXPECT_EQ(copy[0], 7);
  TNT::Vector<int> moved(std::move(v));
  EXPECT_EQ(moved[0], 1);
  EXPECT_EQ(v.dim(), 0);
  copy = moved;
  EXPECT_EQ(copy[0], 1);
  copy.newsize(5, -2);
  EXPECT_EQ(copy.dim(), 5);
  EXPECT_EQ(copy[4], -2);
  EXPECT_EQ(moved.dim(), 3);
}

// Out-of-range access is reported and must not touch memory outside the
// block (the sanitizer build checks the latter).
TEST(VectorContainer, OutOfRangeIsReportedWithoutAccess) {
  AssertCapture capture;
  TNT::Vector<double> v(2, 1.5);
  v[2] = 4.0;
  EXPECT_EQ(capture.conditions(), (Texts{"i < n_"}));
  const TNT::Vector<double>& cv = v;
  EXPECT_EQ(cv[-1], 0.0);
  EXPECT_EQ(capture.conditions(), (Texts{"i < n_", "0<=i"}));
  EXPECT_EQ(v[1], 1.5);
  TNT::Vector<double> empty;
  EXPECT_EQ(empty[0], 0.0);
}

TEST(VectorContainer, SumAndDifferenceCheckSizes) {
  TNT::Vector<double> a(2, 3.0), b(2, 1.0), c(3, 1.0);
  EXPECT_EQ((a + b)[1], 4.0);
  EXPECT_EQ((a - b)[0], 2.0);
  AssertCapture capture;
  (void)(a + c);
  (void)(a - c);
  EXPECT_EQ(capture.conditions(), (Texts{"N==B.dim()", "N==B.dim()"}));
}

TEST(MatrixOps, IdentitySumAndDifference) {
  const CMatrix I = TNT::Identity(3);
  ASSERT_EQ(I.num_rows(), 3);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_EQ(I[i][j], Complex(i == j ? 1.0 : 0.0)) << i << "," << j;
  EXPECT_EQ(TNT::Identity(0).size(), 0);

  const std::vector<Complex> va{Complex(1, 2), 3, 4, Complex(0, -1), 5, 6};
  const CMatrix A(2, 3, va);
  const CMatrix S = A + CMatrix(2, 3, Complex(1.0, 1.0));
  const CMatrix D = A - CMatrix(2, 3, Complex(1.0, 1.0));
  EXPECT_EQ(S[0][0], Complex(2.0, 3.0));
  EXPECT_EQ(D[1][0], Complex(-1.0, -2.0));
  EXPECT_EQ(D[1][2], Complex(5.0, -1.0));

  AssertCapture capture;
  EXPECT_EQ((A + CMatrix(3, 2)).size(), 0);
  EXPECT_EQ((A - CMatrix(2, 2)).size(), 0);
  EXPECT_EQ(capture.all().size(), 2u);
}

}  // namespace
