// LU factorisation with partial pivoting and the linear solve built on it.
// This is the hot path of every S -> Y/Z conversion (1 to ~100 ports), so the
// kernels work on raw row-major blocks with contiguous inner loops, in a
// baseline x86-64 set and an AVX2 set that gives the same bits.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>

#include "math/matrix/MatrixOps.h"

// x86-64 builds carry a second set of kernels for CPUs with AVX2, chosen at
// run time, so one binary still runs on the baseline instruction set.
#if defined(__x86_64__) && defined(__GNUC__)
#define SPARAMLIB_SOLVE_AVX2 1
#include <immintrin.h>
#else
#define SPARAMLIB_SOLVE_AVX2 0
#endif

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
// exactly that of comparing every row's float magnitude. Forced inline into
// both factorisation kernels: left to the compiler it became a call, which
// made 2-port solves about 10% slower in bench_solve.
inline __attribute__((always_inline)) int FindPivot(const Complex* a, int m, int n, int k) {
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

// The baseline kernels: plain C++ that the compiler vectorises for SSE2.
namespace baseline {

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

}  // namespace baseline

#if SPARAMLIB_SOLVE_AVX2
// The same kernels with two complex numbers per 256-bit operation. Every
// element sees the operations of the baseline kernels in the same order:
// each product rounded on its own, then one add or subtract (AVX2 without
// FMA, so nothing is contracted). The results are therefore bit for bit
// those of the baseline kernels, whichever CPU runs the conversion.
namespace avx2 {

#define SPARAMLIB_AVX2 __attribute__((target("avx2")))

// Two products c * y, c = (cr, ci) broadcast, y two complex numbers:
// (cr*yr - ci*yi, cr*yi + ci*yr) for each.
SPARAMLIB_AVX2 inline __m256d Mul2(__m256d cr, __m256d ci, __m256d y) {
  return _mm256_addsub_pd(_mm256_mul_pd(cr, y), _mm256_mul_pd(ci, _mm256_permute_pd(y, 0b0101)));
}
SPARAMLIB_AVX2 inline __m128d Mul1(__m128d cr, __m128d ci, __m128d y) {
  return _mm_addsub_pd(_mm_mul_pd(cr, y), _mm_mul_pd(ci, _mm_permute_pd(y, 0b01)));
}

SPARAMLIB_AVX2 inline double* D(Complex* z) { return &z->re; }
SPARAMLIB_AVX2 inline const double* D(const Complex* z) { return &z->re; }

// r -= (lr, li) * v on two complex numbers; vs is v with its real and
// imaginary parts swapped, formed once when several rows share v.
SPARAMLIB_AVX2 inline void SubtractProduct(double* r, __m256d lr, __m256d li, __m256d v, __m256d vs) {
  _mm256_storeu_pd(r, _mm256_sub_pd(_mm256_loadu_pd(r), _mm256_addsub_pd(_mm256_mul_pd(lr, v), _mm256_mul_pd(li, vs))));
}
// The same on one complex number (the odd element at the end of a row).
SPARAMLIB_AVX2 inline void SubtractProduct1(double* r, __m256d lr, __m256d li, __m128d v) {
  _mm_storeu_pd(r, _mm_sub_pd(_mm_loadu_pd(r), Mul1(_mm256_castpd256_pd128(lr), _mm256_castpd256_pd128(li), v)));
}

// r -= l * u over len complex numbers: the rank-1 update of one row.
SPARAMLIB_AVX2 inline void UpdateRow(Complex* __restrict r, const Complex* __restrict u, Complex l, int len) {
  const __m256d lr = _mm256_set1_pd(l.re), li = _mm256_set1_pd(l.im);
  double* rd = D(r);
  const double* ud = D(u);
  const int end = 2 * len;
  int d = 0;
  for (; d + 4 <= end; d += 4) {
    const __m256d v = _mm256_loadu_pd(ud + d);
    SubtractProduct(rd + d, lr, li, v, _mm256_permute_pd(v, 0b0101));
  }
  if (d < end) SubtractProduct1(rd + d, lr, li, _mm_loadu_pd(ud + d));
}

// out[e] = sum_t a[t] * x[t][e] over count complex numbers, the terms
// added in order to a zero start, with the same roundings as the scalar
// form (no fused multiply-add). Each group of four outputs stays in
// registers while every term is added, so only the inputs stream.
SPARAMLIB_AVX2 void Combine(Complex* __restrict out, const Complex* const* x, const Complex* a, std::size_t terms,
                            std::size_t count) {
  double* od = D(out);
  const std::size_t end = 2 * count;
  std::size_t d = 0;
  for (; d + 8 <= end; d += 8) {
    __m256d acc0 = _mm256_setzero_pd(), acc1 = _mm256_setzero_pd();
    for (std::size_t t = 0; t < terms; ++t) {
      const __m256d ar = _mm256_set1_pd(a[t].re), ai = _mm256_set1_pd(a[t].im);
      const double* xd = D(x[t]) + d;
      acc0 = _mm256_add_pd(acc0, Mul2(ar, ai, _mm256_loadu_pd(xd)));
      acc1 = _mm256_add_pd(acc1, Mul2(ar, ai, _mm256_loadu_pd(xd + 4)));
    }
    _mm256_storeu_pd(od + d, acc0);
    _mm256_storeu_pd(od + d + 4, acc1);
  }
  for (; d < end; d += 2) {
    __m128d acc = _mm_setzero_pd();
    for (std::size_t t = 0; t < terms; ++t)
      acc = _mm_add_pd(acc, Mul1(_mm_set1_pd(a[t].re), _mm_set1_pd(a[t].im), _mm_loadu_pd(D(x[t]) + d)));
    _mm_storeu_pd(od + d, acc);
  }
}

// The same for four rows at once: each pair of pivot-row elements is loaded
// (and swapped) once for the four rows it updates.
SPARAMLIB_AVX2 inline void UpdateRows4(Complex* __restrict r0, Complex* __restrict r1, Complex* __restrict r2,
                                       Complex* __restrict r3, const Complex* __restrict u, const Complex* l,
                                       int len) {
  const __m256d lr0 = _mm256_set1_pd(l[0].re), li0 = _mm256_set1_pd(l[0].im);
  const __m256d lr1 = _mm256_set1_pd(l[1].re), li1 = _mm256_set1_pd(l[1].im);
  const __m256d lr2 = _mm256_set1_pd(l[2].re), li2 = _mm256_set1_pd(l[2].im);
  const __m256d lr3 = _mm256_set1_pd(l[3].re), li3 = _mm256_set1_pd(l[3].im);
  double *d0 = D(r0), *d1 = D(r1), *d2 = D(r2), *d3 = D(r3);
  const double* ud = D(u);
  const int end = 2 * len;
  int d = 0;
  for (; d + 4 <= end; d += 4) {
    const __m256d v = _mm256_loadu_pd(ud + d);
    const __m256d vs = _mm256_permute_pd(v, 0b0101);
    SubtractProduct(d0 + d, lr0, li0, v, vs);
    SubtractProduct(d1 + d, lr1, li1, v, vs);
    SubtractProduct(d2 + d, lr2, li2, v, vs);
    SubtractProduct(d3 + d, lr3, li3, v, vs);
  }
  if (d < end) {
    const __m128d v = _mm_loadu_pd(ud + d);
    SubtractProduct1(d0 + d, lr0, li0, v);
    SubtractProduct1(d1 + d, lr1, li1, v);
    SubtractProduct1(d2 + d, lr2, li2, v);
    SubtractProduct1(d3 + d, lr3, li3, v);
  }
}

// baseline::Factor with the rows below the pivot updated four at a time.
// Rows are independent within one step, so grouping them changes nothing.
SPARAMLIB_AVX2 int Factor(Complex* a, int m, int n, int* piv) {
  const int kmax = std::min(m, n);
  const std::size_t ld = static_cast<std::size_t>(n);
  for (int k = 0; k < kmax; ++k) {
    const int p = FindPivot(a, m, n, k);
    piv[k] = p + 1;
    Complex* rk = a + static_cast<std::size_t>(k) * ld;
    Complex* rp = a + static_cast<std::size_t>(p) * ld;
    if (rp[k].re == 0.0 && rp[k].im == 0.0) return kFactorFailed;
    if (p != k) std::swap_ranges(rk, rk + n, rp);

    const Divisor pivot(rk[k]);
    auto multiplier = [&](Complex* ri) {
      double lr = ri[k].re, li = ri[k].im;
      pivot.Apply(lr, li);
      ri[k] = Complex(lr, li);
      return ri[k];
    };
    const int len = n - k - 1;
    const Complex* u = rk + k + 1;
    int i = k + 1;
    for (; i + 4 <= m; i += 4) {
      Complex* r0 = a + static_cast<std::size_t>(i) * ld;
      Complex* r1 = r0 + ld;
      Complex* r2 = r1 + ld;
      Complex* r3 = r2 + ld;
      const Complex l[4] = {multiplier(r0), multiplier(r1), multiplier(r2), multiplier(r3)};
      UpdateRows4(r0 + k + 1, r1 + k + 1, r2 + k + 1, r3 + k + 1, u, l, len);
    }
    for (; i < m; ++i) {
      Complex* ri = a + static_cast<std::size_t>(i) * ld;
      UpdateRow(ri + k + 1, u, multiplier(ri), len);
    }
  }
  return 0;
}

// baseline::SubtractRows, two columns per operation.
SPARAMLIB_AVX2 void SubtractRows(Complex* __restrict xi, const Complex* coef, const Complex* x, std::size_t ld,
                                 int j0, int j1) {
  double* xd = D(xi);
  const std::size_t end = 2 * ld;
  int j = j0;
  for (; j + 4 <= j1; j += 4) {
    const __m256d a0 = _mm256_set1_pd(coef[j].re), b0 = _mm256_set1_pd(coef[j].im);
    const __m256d a1 = _mm256_set1_pd(coef[j + 1].re), b1 = _mm256_set1_pd(coef[j + 1].im);
    const __m256d a2 = _mm256_set1_pd(coef[j + 2].re), b2 = _mm256_set1_pd(coef[j + 2].im);
    const __m256d a3 = _mm256_set1_pd(coef[j + 3].re), b3 = _mm256_set1_pd(coef[j + 3].im);
    const double* __restrict y0 = D(x + static_cast<std::size_t>(j) * ld);
    const double* __restrict y1 = y0 + end;
    const double* __restrict y2 = y1 + end;
    const double* __restrict y3 = y2 + end;
    std::size_t d = 0;
    for (; d + 4 <= end; d += 4) {
      __m256d s = _mm256_loadu_pd(xd + d);
      s = _mm256_sub_pd(s, Mul2(a0, b0, _mm256_loadu_pd(y0 + d)));
      s = _mm256_sub_pd(s, Mul2(a1, b1, _mm256_loadu_pd(y1 + d)));
      s = _mm256_sub_pd(s, Mul2(a2, b2, _mm256_loadu_pd(y2 + d)));
      s = _mm256_sub_pd(s, Mul2(a3, b3, _mm256_loadu_pd(y3 + d)));
      _mm256_storeu_pd(xd + d, s);
    }
    if (d < end) {
      __m128d s = _mm_loadu_pd(xd + d);
      s = _mm_sub_pd(s, Mul1(_mm256_castpd256_pd128(a0), _mm256_castpd256_pd128(b0), _mm_loadu_pd(y0 + d)));
      s = _mm_sub_pd(s, Mul1(_mm256_castpd256_pd128(a1), _mm256_castpd256_pd128(b1), _mm_loadu_pd(y1 + d)));
      s = _mm_sub_pd(s, Mul1(_mm256_castpd256_pd128(a2), _mm256_castpd256_pd128(b2), _mm_loadu_pd(y2 + d)));
      s = _mm_sub_pd(s, Mul1(_mm256_castpd256_pd128(a3), _mm256_castpd256_pd128(b3), _mm_loadu_pd(y3 + d)));
      _mm_storeu_pd(xd + d, s);
    }
  }
  for (; j < j1; ++j) UpdateRow(xi, x + static_cast<std::size_t>(j) * ld, coef[j], static_cast<int>(ld));
}

// baseline::Substitute with the vector kernels, the division by the
// diagonal included: (re*qr + im*qi, im*qr - re*qi) / den as in Divisor.
SPARAMLIB_AVX2 bool Substitute(const Complex* lu, const int* piv, int n, Complex* x, int nrhs) {
  const std::size_t ld = static_cast<std::size_t>(nrhs);
  for (int i = 0; i < n; ++i) {
    const int p = piv[i] - 1;
    if (p != i) std::swap_ranges(x + i * ld, x + (i + 1) * ld, x + p * ld);
  }
  for (int i = 1; i < n; ++i) SubtractRows(x + i * ld, lu + static_cast<std::size_t>(i) * n, x, ld, 0, i);
  const std::size_t end = 2 * ld;
  for (int i = n - 1; i >= 0; --i) {
    const Complex* ui = lu + static_cast<std::size_t>(i) * n;
    Complex* xi = x + i * ld;
    SubtractRows(xi, ui, x, ld, i + 1, n);
    const Divisor div(ui[i]);
    const __m256d qr = _mm256_set1_pd(div.qr), qi = _mm256_setr_pd(div.qi, -div.qi, div.qi, -div.qi);
    const __m256d den = _mm256_set1_pd(div.den);
    double* xd = D(xi);
    std::size_t d = 0;
    for (; d + 4 <= end; d += 4) {
      const __m256d v = _mm256_loadu_pd(xd + d);
      const __m256d t = _mm256_add_pd(_mm256_mul_pd(v, qr), _mm256_mul_pd(_mm256_permute_pd(v, 0b0101), qi));
      _mm256_storeu_pd(xd + d, _mm256_div_pd(t, den));
    }
    if (d < end) div.Apply(xi[ld - 1].re, xi[ld - 1].im);
  }
  const std::size_t count = static_cast<std::size_t>(n) * ld;
  for (std::size_t k = 0; k < count; ++k)
    if (!std::isfinite(x[k].re) || !std::isfinite(x[k].im)) return false;
  return true;
}

#undef SPARAMLIB_AVX2

}  // namespace avx2
#endif

// Which kernel set runs. The CPU is asked once; the tests and bench_solve may
// turn the AVX2 set off to compare it with the baseline on the same machine.
// Below order 5 the rows are mostly odd tails and the baseline kernels are as
// fast or faster (measured with bench_solve), so small systems stay on them.
constexpr int kAvx2MinOrder = 5;
std::atomic<bool> g_avx2_allowed{true};

bool CpuHasAvx2() {
#if SPARAMLIB_SOLVE_AVX2
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return has;
#else
  return false;
#endif
}

bool Avx2Allowed() { return CpuHasAvx2() && g_avx2_allowed.load(std::memory_order_relaxed); }

// n is the row length of the factors (the order of the system).
int Factor(Complex* a, int m, int n, int* piv) {
#if SPARAMLIB_SOLVE_AVX2
  if (n >= kAvx2MinOrder && Avx2Allowed()) return avx2::Factor(a, m, n, piv);
#endif
  return baseline::Factor(a, m, n, piv);
}

bool Substitute(const Complex* lu, const int* piv, int n, Complex* x, int nrhs) {
#if SPARAMLIB_SOLVE_AVX2
  if (n >= kAvx2MinOrder && Avx2Allowed()) return avx2::Substitute(lu, piv, n, x, nrhs);
#endif
  return baseline::Substitute(lu, piv, n, x, nrhs);
}

// One right-hand side stays on the baseline kernel everywhere: its sums are
// chains of dependent subtractions, which wider vectors do not shorten (four
// rows run side by side in AVX2 gained under 5% at n = 16 to 100).
bool SubstituteColumn(const Complex* lu, const int* piv, int n, Complex* x) {
  return baseline::SubstituteColumn(lu, piv, n, x);
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

namespace detail {

// Hook for the tests and bench_solve, which declare it themselves: with
// allow = false the baseline kernels run even on an AVX2 CPU. Returns whether
// systems of order 5 and up now use the AVX2 kernels.
bool AllowAvx2SolveKernels(bool allow) {
  g_avx2_allowed.store(allow, std::memory_order_relaxed);
  return Avx2Allowed();
}

}  // namespace detail

void LinearCombination(Complex* out, const Complex* const* x, const Complex* a, std::size_t terms,
                       std::size_t count) {
#if SPARAMLIB_SOLVE_AVX2
  if (Avx2Allowed()) return avx2::Combine(out, x, a, terms, count);
#endif
  for (std::size_t e = 0; e < count; ++e) {
    Complex acc(0.0, 0.0);
    for (std::size_t t = 0; t < terms; ++t) acc += a[t] * x[t][e];
    out[e] = acc;
  }
}

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
