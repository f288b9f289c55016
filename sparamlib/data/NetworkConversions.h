// Conversions between scattering (S), admittance (Y) and impedance (Z)
// matrices for travelling-wave S-parameters with complex reference
// impedances z_k. With r_k = sqrt(z_k) (principal root):
//   Y = R^-1 (I + S)^-1 (I - S) R^-1     Z = R (I - S)^-1 (I + S) R
//   S = (I + R Y R)^-1 (I - R Y R)       S = (R^-1 Z R^-1 + I)^-1 (R^-1 Z R^-1 - I)
// where R = diag(r). Every function returns the linear solve's status
// (0 on success); on failure the output is the zero matrix.
#pragma once

#include "math/matrix/MatrixOps.h"

namespace nd {

// r_k = ComplexSqrt(z_k) for k < n.
TNT::CVector SqrtImpedances(const TNT::CVector& z);

int ConvertSToY(const TNT::CMatrix& S, const TNT::CVector& r, TNT::CMatrix& Y);
int ConvertSToZ(const TNT::CMatrix& S, const TNT::CVector& r, TNT::CMatrix& Z);
int ConvertYToS(const TNT::CMatrix& Y, const TNT::CVector& r, TNT::CMatrix& S);
int ConvertZToS(const TNT::CMatrix& Z, const TNT::CVector& r, TNT::CMatrix& S);
// S referred to new references: with A = diag(r_k / r'_k),
//   S' = Q^-1 P,  P = (I + S) A - (I - S) A^-1,  Q = (I + S) A + (I - S) A^-1.
// This is S' = (Zn' + I)^-1 (Zn' - I) for Zn' = R'^-1 Z R'^-1 multiplied out
// so that Z never appears: it holds for networks without a Z matrix (an
// ideal thru or open) too.
int RenormalizeS(const TNT::CMatrix& S, const TNT::CVector& r, const TNT::CVector& rNew,
                 TNT::CMatrix& renormalized);

// Y = Z^-1 and Z = Y^-1, used when no reference impedances are known.
int Invert(const TNT::CMatrix& A, TNT::CMatrix& inverse);

}  // namespace nd
