// Eigenvalues and right eigenvectors of a general complex matrix through
// LAPACK's zgeev.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "math/matrix/MatrixOps.h"

extern "C" {
// Fortran interface of the installed LAPACK. AComplex<double> has the layout
// of Fortran's COMPLEX*16; the trailing arguments are the hidden lengths of
// the two CHARACTER arguments.
void zgeev_(const char* jobvl, const char* jobvr, const int* n, TNT::Complex* a, const int* lda,
            TNT::Complex* w, TNT::Complex* vl, const int* ldvl, TNT::Complex* vr, const int* ldvr,
            TNT::Complex* work, const int* lwork, double* rwork, int* info, std::size_t jobvl_len,
            std::size_t jobvr_len);
}

namespace TNT {

int ComputeEigenVectorsAndValues(const CMatrix& mat, CVector& values, CMatrix& vectors) {
  ASSERT((mat.num_cols() > 0) && (mat.num_cols() == mat.num_rows()));
  if (!((mat.num_cols() > 0) && (mat.num_cols() == mat.num_rows()))) return 2;

  // The reference LAPACK rejects NaN in its balancing step through XERBLA,
  // which stops the whole program; no eigen-decomposition exists for
  // non-finite entries anyway, so they are refused here.
  const Complex* first = mat.data();
  if (!std::all_of(first, first + mat.size(),
                   [](const Complex& z) { return std::isfinite(z.re) && std::isfinite(z.im); }))
    return 1;

  const int n = mat.num_rows();
  const std::size_t nn = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
  // LAPACK is column-major: the transpose of our row-major block is the
  // column-major form of the same matrix.
  std::vector<Complex> a(nn);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) a[static_cast<std::size_t>(j) * n + i] = mat[i][j];

  std::vector<Complex> w(static_cast<std::size_t>(n));
  std::vector<Complex> vr(nn);
  std::vector<double> rwork(2 * static_cast<std::size_t>(n));
  Complex vl_dummy;
  const int one = 1;
  int info = 0;

  // Workspace query first, so zgeev gets its preferred (blocked) size.
  Complex query;
  int lwork = -1;
  zgeev_("N", "V", &n, a.data(), &n, w.data(), &vl_dummy, &one, vr.data(), &n, &query, &lwork,
         rwork.data(), &info, 1, 1);
  if (info != 0) return info;
  lwork = static_cast<int>(query.re);
  if (lwork < 2 * n) lwork = 2 * n;
  std::vector<Complex> work(static_cast<std::size_t>(lwork));

  zgeev_("N", "V", &n, a.data(), &n, w.data(), &vl_dummy, &one, vr.data(), &n, work.data(), &lwork,
         rwork.data(), &info, 1, 1);
  // info > 0: the QR iteration did not converge; the outputs stay untouched.
  if (info != 0) return info;

  CVector new_values(n);
  CMatrix new_vectors(n, n);
  for (int j = 0; j < n; ++j) {
    new_values[j] = w[static_cast<std::size_t>(j)];
    for (int i = 0; i < n; ++i) new_vectors[i][j] = vr[static_cast<std::size_t>(j) * n + i];
  }
  values = std::move(new_values);
  vectors = std::move(new_vectors);
  return 0;
}

}  // namespace TNT
