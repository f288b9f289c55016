// S, Y and Z conversions shared by every kind of data point.
#include "sparamlib/data/NetworkConversions.h"

namespace nd {
namespace {

using TNT::CMatrix;
using TNT::Complex;

// sign * A + diagonal * I, built in one pass.
CMatrix Shifted(const CMatrix& A, double sign, double diagonal) {
  const int n = A.num_rows();
  CMatrix R(n, n);
  const Complex* a = A.data();
  Complex* r = R.data();
  for (int k = 0; k < n * n; ++k) r[k] = Complex(sign * a[k].re, sign * a[k].im);
  for (int i = 0; i < n; ++i) R[i][i].re += diagonal;
  return R;
}

CMatrix IdentityPlus(const CMatrix& A, double sign) { return Shifted(A, sign, 1.0); }

// M(i, j) *= r_i * r_j for every element, or M(i, j) /= r_i * r_j with the
// saturating division when `divide` is set.
void ScaleByRoots(CMatrix& M, const TNT::CVector& r, bool divide) {
  const int n = M.num_rows();
  for (int i = 0; i < n; ++i) {
    Complex* row = M[i];
    for (int j = 0; j < n; ++j) {
      const Complex rr = r[i] * r[j];
      if (divide) {
        row[j] /= rr;
      } else {
        row[j] *= rr;
      }
    }
  }
}

CMatrix ScaledByRoots(const CMatrix& M, const TNT::CVector& r, bool divide) {
  CMatrix R(M);
  ScaleByRoots(R, r, divide);
  return R;
}

// A square input with a reference for every port; otherwise the output is
// the zero matrix and the status that of a shape error.
bool Compatible(const CMatrix& M, const TNT::CVector& r, CMatrix& out) {
  if (M.num_rows() == M.num_cols() && r.size() >= M.num_rows()) return true;
  out = CMatrix(M.num_cols(), M.num_cols());
  return false;
}

constexpr int kShapeError = 2;

}  // namespace

TNT::CVector SqrtImpedances(const TNT::CVector& z) {
  TNT::CVector r(z.size());
  for (int k = 0; k < z.size(); ++k) r[k] = TNT::ComplexSqrt(z[k]);
  return r;
}

int ConvertSToY(const CMatrix& S, const TNT::CVector& r, CMatrix& Y) {
  if (!Compatible(S, r, Y)) return kShapeError;
  const int status = TNT::SolveLinear(IdentityPlus(S, 1.0), IdentityPlus(S, -1.0), Y);
  if (status == 0) ScaleByRoots(Y, r, true);
  return status;
}

int ConvertSToZ(const CMatrix& S, const TNT::CVector& r, CMatrix& Z) {
  if (!Compatible(S, r, Z)) return kShapeError;
  const int status = TNT::SolveLinear(IdentityPlus(S, -1.0), IdentityPlus(S, 1.0), Z);
  if (status == 0) ScaleByRoots(Z, r, false);
  return status;
}

int ConvertYToS(const CMatrix& Y, const TNT::CVector& r, CMatrix& S) {
  if (!Compatible(Y, r, S)) return kShapeError;
  const CMatrix Yn = ScaledByRoots(Y, r, false);
  return TNT::SolveLinear(IdentityPlus(Yn, 1.0), IdentityPlus(Yn, -1.0), S);
}

int ConvertZToS(const CMatrix& Z, const TNT::CVector& r, CMatrix& S) {
  if (!Compatible(Z, r, S)) return kShapeError;
  const CMatrix Zn = ScaledByRoots(Z, r, true);
  return TNT::SolveLinear(Shifted(Zn, 1.0, 1.0), Shifted(Zn, 1.0, -1.0), S);
}

int RenormalizeS(const CMatrix& S, const TNT::CVector& r, const TNT::CVector& rNew,
                 CMatrix& renormalized) {
  const int n = S.num_rows();
  if (S.num_cols() != n || r.size() < n || rNew.size() < n) {
    renormalized = CMatrix(n, n);
    return kShapeError;
  }
  CMatrix P(n, n), Q(n, n);
  for (int j = 0; j < n; ++j) {
    const Complex a = r[j] / rNew[j];
    const Complex inverse = rNew[j] / r[j];
    for (int i = 0; i < n; ++i) {
      const Complex identity = i == j ? Complex(1.0) : Complex();
      const Complex plus = (identity + S[i][j]) * a;
      const Complex minus = (identity - S[i][j]) * inverse;
      P[i][j] = plus - minus;
      Q[i][j] = plus + minus;
    }
  }
  return TNT::SolveLinear(Q, P, renormalized);
}

int Invert(const CMatrix& A, CMatrix& inverse) {
  return TNT::SolveLinear(A, TNT::Identity(A.num_rows()), inverse);
}

}  // namespace nd
