// Element-wise operations on complex matrices and the principal square root.
#include "math/matrix/MatrixOps.h"

#include <cmath>

namespace TNT {

CMatrix Identity(int n) {
  CMatrix I(n, n);
  for (int i = 0; i < I.num_rows(); ++i) I[i][i] = Complex(1.0, 0.0);
  return I;
}

namespace {

// Shared by + and -: a shape mismatch is a caller's bug, so it is reported
// and answered with an empty matrix rather than with a partial result.
template <class Op>
CMatrix ElementWise(const CMatrix& A, const CMatrix& B, Op op) {
  ASSERT(A.num_rows() == B.num_rows() && A.num_cols() == B.num_cols());
  if (A.num_rows() != B.num_rows() || A.num_cols() != B.num_cols()) return CMatrix();
  CMatrix R(A.num_rows(), A.num_cols());
  const Complex* a = A.data();
  const Complex* b = B.data();
  Complex* r = R.data();
  for (int k = 0; k < R.size(); ++k) r[k] = op(a[k], b[k]);
  return R;
}

}  // namespace

CMatrix operator+(const CMatrix& A, const CMatrix& B) {
  return ElementWise(A, B, [](const Complex& a, const Complex& b) { return a + b; });
}

CMatrix operator-(const CMatrix& A, const CMatrix& B) {
  return ElementWise(A, B, [](const Complex& a, const Complex& b) { return a - b; });
}

// t = sqrt((|z| + |Re z|) / 2) is the larger of the root's two parts in
// magnitude and is computed without cancellation; the other part follows from
// Im z = 2 * re * im. The branch keeps the real part non-negative, with the
// negative imaginary half-plane mapped to a negative imaginary part.
Complex ComplexSqrt(const Complex& z) {
  if (z.re == 0.0 && z.im == 0.0) return Complex(0.0, 0.0);
  const double t = std::sqrt((abs(z) + std::fabs(z.re)) / 2.0);
  const double u = z.im / t / 2.0;
  if (z.re > 0.0) return Complex(t, u);
  if (z.im >= 0.0) return Complex(u, t);
  return Complex(-u, -t);
}

}  // namespace TNT
