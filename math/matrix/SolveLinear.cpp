// LU factorisation with partial pivoting and the linear solve built on it.
// This is the hot path of every S -> Y/Z conversion (1 to ~100 ports), so the
// kernels work on raw row-major blocks with contiguous inner loops.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>

#include "math/matrix/MatrixOps.h"

namespace TNT {
namespace {

constexpr int kFactorFailed = 1;
constexpr int kShapeError = 2;
constexpr int kSubstitutionFailed = 3;

// Division by a fixed non-zero complex number without forming |p|^2 directly:
// scaling by the larger part keeps the denominator clear of overflow and
// underflow, so tiny or huge pivots still divide correctly.
struct Divisor {
  double qr, qi, den;
  explicit Divisor(const Complex& p) {
    const double s = std::max(std::fabs(p.re), std::fabs(p.im));
    qr = p.re / s;
    qi = p.im / s;
    den = s * (qr * qr + qi * qi);
  }
  void Apply(double& re, double& im) const {
    const double r = (re * qr + im * qi) / den;
    im = (im * qr - re * qi) / den;
    re = r;
  }
};

// Pivot search in column k, rows k..m-1 (see Factor for the rule). Float
// rounding is monotonic, so a row can only win if its exact magnitude exceeds
// the current pivot's; the squared magnitude rules out clearly smaller rows
// without a hypot call, which otherwise dominates the search. The test is
// conservative (it leaves a margin far above the rounding of the squares and
// is skipped where they could underflow or overflow), so the outcome is
// exactly that of comparing every row's float magnitude.
int FindPivot(const Complex* a, int m, int n, int k) {
  const std::size_t ld = static_cast<std::size_t>(n);
  const Complex* col = a + static_cast<std::size_t>(k) * ld + k;
  int p = k;
  float best = static_cast<float>(abs(*col));
  auto limit_of = [](const Complex& z) {
    const double sq = norm(z);
    return sq >= 1e-280 && sq <= std::numeric_limits<double>::max() ? sq * (1.0 - 1e-14) : -1.0;
  };
  double limit = limit_of(*col);
  for (int i = k + 1; i < m; ++i) {
    col += ld;
    if (norm(*col) < limit) continue;
    const float mag = static_cast<float>(abs(*col));
    if (mag > best) {
      best = mag;
      p = i;
      limit = limit_of(*col);
    }
  }
  return p;
}

// In-place LU of an m x n row-major block: row k of the result holds U's row
// k and, left of the diagonal, L's multipliers (unit diagonal implied).
// piv[k] is the 1-based row that was swapped into row k. The pivot search
// compares magnitudes in single precision on purpose: rows whose magnitudes
// agree to float precision keep the earlier row, which keeps the pivot order
// (and the results) stable against last-bit noise in the input.
int Factor(Complex* a, int m, int n, int* piv) {
  const int kmax = std::min(m, n);
  for (int k = 0; k < kmax; ++k) {
    const int p = FindPivot(a, m, n, k);
    piv[k] = p + 1;
    Complex* __restrict rk = a + static_cast<std::size_t>(k) * n;
    Complex* rp = a + static_cast<std::size_t>(p) * n;
    if (rp[k].re == 0.0 && rp[k].im == 0.0) return kFactorFailed;
    if (p != k) std::swap_ranges(rk, rk + n, rp);

    const Divisor pivot(rk[k]);
    for (int i = k + 1; i < m; ++i) {
      Complex* __restrict ri = a + static_cast<std::size_t>(i) * n;
      double lr = ri[k].re, li = ri[k].im;
      pivot.Apply(lr, li);
      ri[k] = Complex(lr, li);
      // Rank-1 update of the trailing part of row i.
      for (int j = k + 1; j < n; ++j) {
        const double ur = rk[j].re, ui = rk[j].im;
        ri[j].re -= lr * ur - li * ui;
        ri[j].im -= lr * ui + li * ur;
      }
    }
  }
  return 0;
}

// One right-hand side: the same operations as Substitute below, with the
// running sum kept in registers instead of in X.
bool SubstituteColumn(const Complex* lu, const int* piv, int n, Complex* x) {
  for (int i = 0; i < n; ++i) {
    const int p = piv[i] - 1;
    if (p != i) std::swap(x[i], x[p]);
  }
  for (int i = 1; i < n; ++i) {
    const Complex* li = lu + static_cast<std::size_t>(i) * n;
    double sr = x[i].re, sm = x[i].im;
    for (int j = 0; j < i; ++j) {
      const double lr = li[j].re, lm = li[j].im, yr = x[j].re, ym = x[j].im;
      sr -= lr * yr - lm * ym;
      sm -= lr * ym + lm * yr;
    }
    x[i] = Complex(sr, sm);
  }
  bool finite = true;
  for (int i = n - 1; i >= 0; --i) {
    const Complex* ui = lu + static_cast<std::size_t>(i) * n;
    double sr = x[i].re, sm = x[i].im;
    for (int j = i + 1; j < n; ++j) {
      const double ur = ui[j].re, um = ui[j].im, yr = x[j].re, ym = x[j].im;
      sr -= ur * yr - um * ym;
      sm -= ur * ym + um * yr;
    }
    Divisor(ui[i]).Apply(sr, sm);
    finite = finite && std::isfinite(sr) && std::isfinite(sm);
    x[i] = Complex(sr, sm);
  }
  return finite;
}

// xi[c] -= coef[j] * x[j][c] for j = j0 .. j1-1, each element taking the
// terms one at a time in increasing j. Four source rows per pass over xi keep
// its element in registers across four updates, which halves the loads and
// stores of the row being solved without changing any element's arithmetic.
inline void SubtractRows(Complex* __restrict xi, const Complex* coef, const Complex* x, std::size_t ld,
                         int j0, int j1) {
  int j = j0;
  for (; j + 4 <= j1; j += 4) {
    const double a0 = coef[j].re, b0 = coef[j].im, a1 = coef[j + 1].re, b1 = coef[j + 1].im;
    const double a2 = coef[j + 2].re, b2 = coef[j + 2].im, a3 = coef[j + 3].re, b3 = coef[j + 3].im;
    const Complex* __restrict y0 = x + static_cast<std::size_t>(j) * ld;
    const Complex* __restrict y1 = y0 + ld;
    const Complex* __restrict y2 = y1 + ld;
    const Complex* __restrict y3 = y2 + ld;
    for (std::size_t c = 0; c < ld; ++c) {
      double r = xi[c].re, m = xi[c].im;
      r -= a0 * y0[c].re - b0 * y0[c].im;
      m -= a0 * y0[c].im + b0 * y0[c].re;
      r -= a1 * y1[c].re - b1 * y1[c].im;
      m -= a1 * y1[c].im + b1 * y1[c].re;
      r -= a2 * y2[c].re - b2 * y2[c].im;
      m -= a2 * y2[c].im + b2 * y2[c].re;
      r -= a3 * y3[c].re - b3 * y3[c].im;
      m -= a3 * y3[c].im + b3 * y3[c].re;
      xi[c].re = r;
      xi[c].im = m;
    }
  }
  for (; j < j1; ++j) {
    const double a = coef[j].re, b = coef[j].im;
    const Complex* __restrict y = x + static_cast<std::size_t>(j) * ld;
    for (std::size_t c = 0; c < ld; ++c) {
      const double yr = y[c].re, ym = y[c].im;
      xi[c].re -= a * yr - b * ym;
      xi[c].im -= a * ym + b * yr;
    }
  }
}

// Solves L U X = P B for all columns at once, X (n x nrhs) holding B on entry.
// Each element sees exactly the operations, in the same order, of the
// column-by-column forward and back substitution; processing row by row
// only makes the inner loops run over contiguous memory.
bool Substitute(const Complex* lu, const int* piv, int n, Complex* x, int nrhs) {
  const std::size_t ld = static_cast<std::size_t>(nrhs);
  // Row interchanges in factorisation order.
  for (int i = 0; i < n; ++i) {
    const int p = piv[i] - 1;
    if (p != i) std::swap_ranges(x + i * ld, x + (i + 1) * ld, x + p * ld);
  }
  // Forward: unit lower triangle.
  for (int i = 1; i < n; ++i) SubtractRows(x + i * ld, lu + static_cast<std::size_t>(i) * n, x, ld, 0, i);
  // Back: upper triangle, then the division by the diagonal.
  for (int i = n - 1; i >= 0; --i) {
    const Complex* ui = lu + static_cast<std::size_t>(i) * n;
    Complex* xi = x + i * ld;
    SubtractRows(xi, ui, x, ld, i + 1, n);
    const Divisor d(ui[i]);
    for (std::size_t c = 0; c < ld; ++c) d.Apply(xi[c].re, xi[c].im);
  }
  // A result that overflowed (or came from non-finite input) is no solution.
  const std::size_t count = static_cast<std::size_t>(n) * ld;
  for (std::size_t k = 0; k < count; ++k)
    if (!std::isfinite(x[k].re) || !std::isfinite(x[k].im)) return false;
  return true;
}

// Working storage for the factors and the pivot record. The port counts that
// dominate fit on the stack; larger systems take one heap block. The storage
// is not zero-filled: the factors are copied in, and for n = 2 or 4 clearing
// a fixed-size buffer would cost as much as the solve.
class Workspace {
 public:
  explicit Workspace(const CMatrix& A) {
    const std::size_t n = static_cast<std::size_t>(A.num_rows());
    const std::size_t nn = n * n;
    const std::size_t bytes = nn * sizeof(Complex) + n * sizeof(int);
    std::byte* raw = local_;
    if (bytes > sizeof(local_)) {
      heap_ = std::make_unique_for_overwrite<std::byte[]>(bytes);
      raw = heap_.get();
    }
    lu_ = std::uninitialized_copy_n(A.data(), nn, reinterpret_cast<Complex*>(raw)) - nn;
    piv_ = reinterpret_cast<int*>(raw + nn * sizeof(Complex));
  }
  Complex* lu() { return lu_; }
  int* piv() { return piv_; }

 private:
  static constexpr int kLocalOrder = 16;
  alignas(Complex) std::byte local_[kLocalOrder * kLocalOrder * sizeof(Complex) + kLocalOrder * sizeof(int)];
  std::unique_ptr<std::byte[]> heap_;
  Complex* lu_ = nullptr;
  int* piv_ = nullptr;
};

void ZeroFill(CMatrix& X) { std::fill_n(X.data(), X.size(), Complex(0.0, 0.0)); }

}  // namespace

int LUDecompose(CMatrix& A, Vector<int>& pivots) {
  const int count = std::min(A.num_rows(), A.num_cols());
  if (pivots.dim() != count) pivots.newsize(count);
  if (count == 0) return 0;
  return Factor(A.data(), A.num_rows(), A.num_cols(), pivots.data());
}

int SolveLinear(const CMatrix& A, const CMatrix& B, CMatrix& X) {
  const int n = A.num_cols();
  const int nrhs = B.num_cols();
  if (n == 0 || A.num_rows() != n || B.num_rows() != n) {
    X.newsize(n, nrhs);
    return kShapeError;
  }

  // The factors are taken from a copy before X is touched, so X may be A or B.
  Workspace work(A);
  if (X.num_rows() != n || X.num_cols() != nrhs) X.newsize(n, nrhs);
  if (&X != &B) std::copy_n(B.data(), B.size(), X.data());

  if (Factor(work.lu(), n, n, work.piv()) != 0) {
    ZeroFill(X);
    return kFactorFailed;
  }
  const bool solved = nrhs == 1 ? SubstituteColumn(work.lu(), work.piv(), n, X.data())
                                 : Substitute(work.lu(), work.piv(), n, X.data(), nrhs);
  if (!solved) {
    ZeroFill(X);
    return kSubstitutionFailed;
  }
  return 0;
}

}  // namespace TNT
