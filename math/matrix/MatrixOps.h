// Operations on complex matrices that the network data relies on: identity,
// sums and differences, the linear solve, the principal square root and the
// eigen-decomposition.
#pragma once

#include <cstddef>

#include "core/AComplex.h"
#include "math/matrix/Matrix.h"
#include "math/matrix/Vector.h"

namespace TNT {

using Complex = AComplex<double>;
using CMatrix = Matrix<Complex>;
using CVector = Vector<Complex>;

// n x n identity.
CMatrix Identity(int n);

// Element-wise sum and difference of two matrices of equal shape. A shape
// mismatch is a programming error: it is reported and the result is 0 x 0.
CMatrix operator+(const CMatrix& A, const CMatrix& B);
CMatrix operator-(const CMatrix& A, const CMatrix& B);

// Solves A * X = B column by column by LU decomposition with partial
// pivoting. X is first set to zeros of A.cols x B.cols. Returns 0 on
// success, 2 when A is empty or not square (or B's rows differ), 1 when the
// factorisation meets an exactly zero pivot (A singular) and 3 when the
// substitution gives a value that is not finite (overflow, or non-finite
// input); on any failure X is all zeros. X may be the same object as A or B.
int SolveLinear(const CMatrix& A, const CMatrix& B, CMatrix& X);

// LU factorisation in place with partial pivoting; the pivot of column k is
// the row whose element has the largest magnitude compared in single
// precision. pivots (resized to min(rows, cols)) records in pivots[k] the
// 1-based row swapped into row k. Returns 0, or 1 when a pivot is exactly
// zero.
int LUDecompose(CMatrix& A, Vector<int>& pivots);

// Principal square root (zero for zero).
Complex ComplexSqrt(const Complex& z);

// All eigenvalues and right eigenvectors (the columns of `vectors`) of a
// general complex matrix, through LAPACK's zgeev. Returns 0 on success and
// non-zero on failure (empty or non-square matrix, a non-finite entry, no
// convergence), leaving the outputs unchanged.
int ComputeEigenVectorsAndValues(const CMatrix& mat, CVector& values, CMatrix& vectors);

// The generalized eigenvalues lambda_k = alpha_k / beta_k of the pencil
// A - lambda B (both n x n), through LAPACK's zggev; beta_k = 0 marks an
// infinite eigenvalue. Returns 0, 1 for non-finite input, or LAPACK's code;
// the outputs are untouched on failure.
int ComputeGeneralizedEigenvalues(const CMatrix& A, const CMatrix& B, CVector& alpha, CVector& beta);

// out[e] = a[0] * x[0][e] + ... + a[terms-1] * x[terms-1][e] for e < count,
// summed in that order from zero; vectorised where the CPU allows, with the
// same bits either way.
void LinearCombination(Complex* out, const Complex* const* x, const Complex* a, std::size_t terms,
                       std::size_t count);

// The unit right singular vector v of A (rows x cols) that belongs to its
// smallest singular value sigma: the v minimising |A v|. Returns 0, 1 for
// non-finite input, or LAPACK's error code; v is untouched on failure.
int SmallestRightSingularVector(const CMatrix& A, CVector& v, double* sigma = nullptr);

// Bytes held by the elements: rows * cols * 16 for a complex matrix.
inline std::size_t GetMemorySize(const CMatrix& A) {
  return static_cast<std::size_t>(A.num_rows()) * static_cast<std::size_t>(A.num_cols()) *
         sizeof(Complex);
}

}  // namespace TNT
