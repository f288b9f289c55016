// Eigenvalues of a complex matrix pencil (A, B) through LAPACK's zggev.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "math/matrix/MatrixOps.h"

extern "C" {
// Fortran interface of the installed LAPACK (see Eigen.cpp for the layout).
void zggev_(const char* jobvl, const char* jobvr, const int* n, TNT::Complex* a, const int* lda,
            TNT::Complex* b, const int* ldb, TNT::Complex* alpha, TNT::Complex* beta,
            TNT::Complex* vl, const int* ldvl, TNT::Complex* vr, const int* ldvr,
            TNT::Complex* work, const int* lwork, double* rwork, int* info, std::size_t jobvl_len,
            std::size_t jobvr_len);
}

namespace TNT {

int ComputeGeneralizedEigenvalues(const CMatrix& A, const CMatrix& B, CVector& alpha,
                                  CVector& beta) {
  const int n = A.num_rows();
  ASSERT(n > 0 && A.num_cols() == n && B.num_rows() == n && B.num_cols() == n);
  if (n <= 0 || A.num_cols() != n || B.num_rows() != n || B.num_cols() != n) return -1;
  auto finite = [](const CMatrix& M) {
    return std::all_of(M.data(), M.data() + M.size(),
                       [](const Complex& z) { return std::isfinite(z.re) && std::isfinite(z.im); });
  };
  // As with zgeev, reference LAPACK stops the program on NaN.
  if (!finite(A) || !finite(B)) return 1;
  const std::size_t nn = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
  std::vector<Complex> a(nn), b(nn);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      a[static_cast<std::size_t>(j) * n + i] = A[i][j];
      b[static_cast<std::size_t>(j) * n + i] = B[i][j];
    }
  std::vector<Complex> al(static_cast<std::size_t>(n)), be(static_cast<std::size_t>(n));
  std::vector<double> rwork(8 * static_cast<std::size_t>(n));
  Complex dummy, query;
  const int one = 1;
  int lwork = -1, info = 0;
  zggev_("N", "N", &n, a.data(), &n, b.data(), &n, al.data(), be.data(), &dummy, &one, &dummy,
         &one, &query, &lwork, rwork.data(), &info, 1, 1);
  if (info != 0) return info;
  lwork = std::max(static_cast<int>(query.re), 2 * n);
  std::vector<Complex> work(static_cast<std::size_t>(lwork));
  zggev_("N", "N", &n, a.data(), &n, b.data(), &n, al.data(), be.data(), &dummy, &one, &dummy,
         &one, work.data(), &lwork, rwork.data(), &info, 1, 1);
  if (info != 0) return info;
  CVector ra(n), rb(n);
  for (int k = 0; k < n; ++k) {
    ra[k] = al[static_cast<std::size_t>(k)];
    rb[k] = be[static_cast<std::size_t>(k)];
  }
  alpha = std::move(ra);
  beta = std::move(rb);
  return 0;
}

}  // namespace TNT
