// The null-space direction of a (tall) complex matrix through LAPACK's zgesvd.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "math/matrix/MatrixOps.h"

extern "C" {
// Fortran interface of the installed LAPACK (see Eigen.cpp for the layout).
void zgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, TNT::Complex* a,
             const int* lda, double* s, TNT::Complex* u, const int* ldu, TNT::Complex* vt,
             const int* ldvt, TNT::Complex* work, const int* lwork, double* rwork, int* info,
             std::size_t jobu_len, std::size_t jobvt_len);
}

namespace TNT {

int SmallestRightSingularVector(const CMatrix& A, CVector& v, double* sigma) {
  const int m = A.num_rows(), n = A.num_cols();
  ASSERT(m > 0 && n > 0);
  if (m <= 0 || n <= 0) return -1;
  const Complex* first = A.data();
  if (!std::all_of(first, first + A.size(),
                   [](const Complex& z) { return std::isfinite(z.re) && std::isfinite(z.im); }))
    return 1;
  // Column-major copy for LAPACK.
  std::vector<Complex> a(static_cast<std::size_t>(m) * static_cast<std::size_t>(n));
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) a[static_cast<std::size_t>(j) * m + i] = A[i][j];
  std::vector<double> s(static_cast<std::size_t>(std::min(m, n)));
  std::vector<Complex> vt(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
  std::vector<double> rwork(5 * static_cast<std::size_t>(std::min(m, n)));
  Complex u_dummy, query;
  const int one = 1;
  int lwork = -1, info = 0;
  zgesvd_("N", "A", &m, &n, a.data(), &m, s.data(), &u_dummy, &one, vt.data(), &n, &query, &lwork,
          rwork.data(), &info, 1, 1);
  if (info != 0) return info;
  lwork = std::max(static_cast<int>(query.re), 2 * std::min(m, n) + std::max(m, n));
  std::vector<Complex> work(static_cast<std::size_t>(lwork));
  zgesvd_("N", "A", &m, &n, a.data(), &m, s.data(), &u_dummy, &one, vt.data(), &n, work.data(),
          &lwork, rwork.data(), &info, 1, 1);
  if (info != 0) return info;
  // Rows of V^H are the conjugated right singular vectors, largest first;
  // with fewer rows than columns the last ones span the null space.
  CVector result(n);
  for (int j = 0; j < n; ++j) result[j] = conj(vt[static_cast<std::size_t>(j) * n + (n - 1)]);
  v = std::move(result);
  if (sigma) *sigma = m >= n ? s.back() : 0.0;
  return 0;
}

}  // namespace TNT
