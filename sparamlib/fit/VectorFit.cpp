// Relaxed vector fitting with a shared pole set and the per-entry QR
// reduction of the pole-identification step.
//
// Each iteration fits, for every entry k, sigma(s) H_k(s) ~ p_k(s) with
// sigma(s) = sum_m ct_m phi_m(s) + dt and p_k(s) = sum_m c_km phi_m(s) + d_k
// + s e_k over the current poles. The zeros of sigma are the new poles
// (eigenvalues of A - b ct^T / dt for a realisation (A, b) of the basis).
// Relaxation: dt is an unknown too, and the trivial solution is excluded
// by Re sum_i sigma(s_i) = N (Gustavsen 2006, eq. 8); when dt comes out
// near zero the step is solved again with dt = 1. The unknowns of each entry
// enter only its own rows, so a QR factorisation of that entry's rows
// leaves a small block in the shared unknowns (Deschrijver et al. 2008);
// the blocks of all entries are stacked and solved together.
//
// Everything is real-valued: a conjugate pair (a, conj a) has the basis
// phi1 = 1/(s-a) + 1/(s-conj a), phi2 = j/(s-a) - j/(s-conj a), so real
// coefficients (c1, c2) mean the residues c1 + j c2 and c1 - j c2, and each
// complex equation gives two real rows. Frequencies are scaled by
// 2 pi f_max so that the columns are of order 1.
#include "sparamlib/fit/VectorFit.h"

#include <algorithm>
#include <cmath>

#include "math/matrix/MatrixOps.h"

namespace nd {
namespace {

using Complex = AComplex<double>;

// A scaling function whose constant term falls below this (its mean real
// part is 1 by the constraint) gives no usable zeros: solved again with the
// constant term fixed.
constexpr double kSmallSigmaConstant = 1e-8;
// An eigenvalue with |Im| below this fraction of its magnitude is a real
// pole.
constexpr double kRealPole = 1e-8;

// Dense real matrix, column by column (the QR works on columns).
struct RealMatrix {
  int rows = 0, cols = 0;
  std::vector<double> v;
  RealMatrix(int r, int c)
      : rows(r), cols(c), v(static_cast<size_t>(r) * static_cast<size_t>(c), 0.0) {}
  double& operator()(int r, int c) {
    return v[static_cast<size_t>(c) * static_cast<size_t>(rows) + static_cast<size_t>(r)];
  }
  double operator()(int r, int c) const {
    return v[static_cast<size_t>(c) * static_cast<size_t>(rows) + static_cast<size_t>(r)];
  }
  double* column(int c) { return v.data() + static_cast<size_t>(c) * static_cast<size_t>(rows); }
};

// Householder QR in place: A becomes R in its upper triangle (zeros below)
// and the same reflections turn B into Q^T B.
void HouseholderQR(RealMatrix& A, RealMatrix& B) {
  const int m = A.rows, n = A.cols;
  for (int j = 0; j < std::min(m, n); ++j) {
    double* x = A.column(j);
    double norm2 = 0.0;
    for (int i = j; i < m; ++i) norm2 += x[i] * x[i];
    if (norm2 == 0.0) continue;
    const double alpha = x[j] > 0.0 ? -std::sqrt(norm2) : std::sqrt(norm2);
    // v = x - alpha e_j, kept in x[j..m); |v|^2 = 2 (norm2 - alpha x_j).
    x[j] -= alpha;
    const double vv = 2.0 * (norm2 - alpha * (x[j] + alpha));
    auto reflect = [&](double* y) {
      double dot = 0.0;
      for (int i = j; i < m; ++i) dot += x[i] * y[i];
      const double factor = 2.0 * dot / vv;
      for (int i = j; i < m; ++i) y[i] -= factor * x[i];
    };
    for (int c = j + 1; c < n; ++c) reflect(A.column(c));
    for (int c = 0; c < B.cols; ++c) reflect(B.column(c));
    x[j] = alpha;
    for (int i = j + 1; i < m; ++i) x[i] = 0.0;
  }
}

// Least-squares solution of A X = B (rows >= cols) with the columns of A
// scaled to unit norm first; a column that is numerically dependent on the
// ones before it gets 0.
RealMatrix SolveLeastSquares(RealMatrix A, RealMatrix B) {
  const int n = A.cols;
  std::vector<double> scale(static_cast<size_t>(n), 1.0);
  for (int c = 0; c < n; ++c) {
    double norm2 = 0.0;
    for (int i = 0; i < A.rows; ++i) norm2 += A(i, c) * A(i, c);
    if (norm2 > 0.0) scale[static_cast<size_t>(c)] = 1.0 / std::sqrt(norm2);
    for (int i = 0; i < A.rows; ++i) A(i, c) *= scale[static_cast<size_t>(c)];
  }
  HouseholderQR(A, B);
  RealMatrix X(n, B.cols);
  for (int r = 0; r < B.cols; ++r)
    for (int i = n - 1; i >= 0; --i) {
      double sum = B(i, r);
      for (int c = i + 1; c < n; ++c) sum -= A(i, c) * X(c, r);
      X(i, r) = std::fabs(A(i, i)) > 1e-14 ? sum / A(i, i) : 0.0;
    }
  for (int r = 0; r < B.cols; ++r)
    for (int c = 0; c < n; ++c) X(c, r) *= scale[static_cast<size_t>(c)];
  return X;
}

// Poles in scaled units: real poles, then one of each pair (Im > 0).
struct PoleSet {
  std::vector<double> real;
  std::vector<Complex> pairs;
  int count() const { return static_cast<int>(real.size() + 2 * pairs.size()); }
};

// The real basis at s, one value per pole (two per pair).
void Basis(const PoleSet& poles, Complex s, Complex* phi) {
  size_t m = 0;
  for (double a : poles.real) phi[m++] = Complex(1.0) / (s - Complex(a));
  for (const Complex& a : poles.pairs) {
    const Complex p = Complex(1.0) / (s - a), q = Complex(1.0) / (s - conj(a));
    phi[m++] = p + q;
    phi[m++] = Complex(0.0, 1.0) * (p - q);
  }
}

// Writes the complex value z times the real unknown of column c into the
// two real rows of sample i.
void Put(RealMatrix& A, int i, int c, Complex z) {
  A(2 * i, c) = z.re;
  A(2 * i + 1, c) = z.im;
}

struct Problem {
  std::vector<Complex> s;      // scaled j omega per sample
  std::vector<Complex> H;      // entry by entry
  std::vector<double> weight;  // per value, entry by entry
  size_t K = 0, N = 0;
  double omega0 = 1.0;
  Complex h(size_t k, size_t i) const { return H[k * N + i]; }
  double w(size_t k, size_t i) const { return weight[k * N + i]; }
};

// One pole relocation: the zeros of the fitted scaling function, or false
// when the eigenvalue problem fails.
bool Relocate(const Problem& p, const VectorFitOptions& o, const PoleSet& poles, PoleSet& next,
              int& fixedSigmaSteps) {
  const int n = poles.count(), N = static_cast<int>(p.N);
  const int own = n + (o.fitD ? 1 : 0) + (o.fitE ? 1 : 0);
  std::vector<Complex> phi(static_cast<size_t>(n));
  double scale = 0.0;  // of the constraint row, as the data's rows
  for (size_t k = 0; k < p.K; ++k)
    for (size_t i = 0; i < p.N; ++i) scale += norm(p.h(k, i)) * p.w(k, i) * p.w(k, i);
  scale = std::sqrt(scale) / N;

  std::vector<double> ct;
  double dt = 1.0;
  for (bool relax : {o.relax, false}) {
    const int shared = n + (relax ? 1 : 0);
    RealMatrix reduced(static_cast<int>(p.K) * shared, shared),
        rhs(static_cast<int>(p.K) * shared, 1);
    for (size_t k = 0; k < p.K; ++k) {
      const bool constrained = relax && k + 1 == p.K;
      RealMatrix A(2 * N + (constrained ? 1 : 0), own + shared), b(A.rows, 1);
      for (int i = 0; i < N; ++i) {
        const double w = p.w(k, static_cast<size_t>(i));
        const Complex H = p.h(k, static_cast<size_t>(i)) * w;
        Basis(poles, p.s[static_cast<size_t>(i)], phi.data());
        for (int m = 0; m < n; ++m) {
          Put(A, i, m, phi[static_cast<size_t>(m)] * w);
          Put(A, i, own + m, -(H * phi[static_cast<size_t>(m)]));
        }
        int c = n;
        if (o.fitD) Put(A, i, c++, Complex(w));
        if (o.fitE) Put(A, i, c++, p.s[static_cast<size_t>(i)] * w);
        if (relax)
          Put(A, i, own + n, -H);
        else
          Put(b, i, 0, H);  // sigma's constant 1 times H, moved to the right
      }
      if (constrained) {
        // Re sum_i sigma(s_i) = N, weighted like the data.
        const int row = 2 * N;
        for (int i = 0; i < N; ++i) {
          Basis(poles, p.s[static_cast<size_t>(i)], phi.data());
          for (int m = 0; m < n; ++m) A(row, own + m) += scale * phi[static_cast<size_t>(m)].re;
        }
        A(row, own + n) = scale * N;
        b(row, 0) = scale * N;
      }
      HouseholderQR(A, b);
      for (int r = 0; r < shared; ++r) {
        const int row = static_cast<int>(k) * shared + r;
        for (int c = 0; c < shared; ++c) reduced(row, c) = A(own + r, own + c);
        rhs(row, 0) = b(own + r, 0);
      }
    }
    const RealMatrix x = SolveLeastSquares(reduced, rhs);
    ct.assign(x.v.begin(), x.v.begin() + n);
    dt = relax ? x(n, 0) : 1.0;
    if (!relax || std::fabs(dt) >= kSmallSigmaConstant) break;
    ++fixedSigmaSteps;
  }

  // Zeros of sigma: eigenvalues of A - b ct^T / dt, with the real
  // realisation of the basis (a pair's block [[re, im], [-im, re]] and
  // b = [2, 0]).
  TNT::CMatrix Z(n, n);
  std::vector<double> b(static_cast<size_t>(n), 0.0);
  int m = 0;
  for (double a : poles.real) {
    Z[m][m] = Complex(a);
    b[static_cast<size_t>(m++)] = 1.0;
  }
  for (const Complex& a : poles.pairs) {
    Z[m][m] = Complex(a.re);
    Z[m][m + 1] = Complex(a.im);
    Z[m + 1][m] = Complex(-a.im);
    Z[m + 1][m + 1] = Complex(a.re);
    b[static_cast<size_t>(m)] = 2.0;
    m += 2;
  }
  for (int r = 0; r < n; ++r)
    for (int c = 0; c < n; ++c)
      Z[r][c] -= Complex(b[static_cast<size_t>(r)] * ct[static_cast<size_t>(c)] / dt);
  TNT::CVector zeros;
  TNT::CMatrix vectors;
  if (TNT::ComputeEigenVectorsAndValues(Z, zeros, vectors) != 0) return false;

  // The matrix is real, so the zeros are real or come in pairs (to
  // rounding): keep the upper one of each pair, enough of the rest as real
  // poles, and flip unstable ones into the left half plane.
  std::vector<Complex> upper, rest;
  for (int k = 0; k < zeros.size(); ++k) {
    const Complex z = zeros[k];
    if (!std::isfinite(z.re) || !std::isfinite(z.im)) return false;
    (z.im > kRealPole * abs(z) ? upper : rest).push_back(z);
  }
  std::sort(upper.begin(), upper.end(),
            [](const Complex& a, const Complex& b) { return a.im > b.im; });
  while (2 * upper.size() > static_cast<size_t>(n)) upper.pop_back();
  std::sort(rest.begin(), rest.end(),
            [](const Complex& a, const Complex& b) { return std::fabs(a.im) < std::fabs(b.im); });
  next = PoleSet();
  for (size_t k = 0; k < static_cast<size_t>(n) - 2 * upper.size(); ++k)
    next.real.push_back(-std::fabs(rest[k].re));
  for (const Complex& z : upper) next.pairs.push_back(Complex(-std::fabs(z.re), z.im));
  std::sort(next.real.begin(), next.real.end());
  std::sort(next.pairs.begin(), next.pairs.end(),
            [](const Complex& a, const Complex& b) { return a.im < b.im; });
  return true;
}

std::vector<Complex> AllPoles(const PoleSet& poles) {
  std::vector<Complex> all;
  for (double a : poles.real) all.push_back(Complex(a));
  for (const Complex& a : poles.pairs) {
    all.push_back(a);
    all.push_back(conj(a));
  }
  return all;
}

// Largest distance of a new pole from the nearest old one, relative to its
// magnitude.
double PoleChange(const PoleSet& before, const PoleSet& after) {
  const std::vector<Complex> a = AllPoles(before), b = AllPoles(after);
  double change = 0.0;
  for (const Complex& z : b) {
    double nearest = INFINITY;
    for (const Complex& y : a) nearest = std::min(nearest, abs(z - y));
    change = std::max(change, nearest / std::max(abs(z), 1e-300));
  }
  return change;
}

// Residues, d and e of every entry for fixed poles, written into `result`
// in unscaled units.
void FitResidues(const Problem& p, const VectorFitOptions& o, const PoleSet& poles,
                 VectorFitResult& result) {
  const int n = poles.count(), N = static_cast<int>(p.N);
  const int cols = n + (o.fitD ? 1 : 0) + (o.fitE ? 1 : 0);
  // Shared weights give one matrix for every entry; per-entry weights one each.
  const bool shared = o.weights.size() != p.K * p.N || p.K == 1;
  std::vector<Complex> phi(static_cast<size_t>(n));
  auto system = [&](size_t k, size_t first, size_t count, RealMatrix& A, RealMatrix& B) {
    for (int i = 0; i < N; ++i) {
      const double w = p.w(k, static_cast<size_t>(i));
      Basis(poles, p.s[static_cast<size_t>(i)], phi.data());
      for (int m = 0; m < n; ++m) Put(A, i, m, phi[static_cast<size_t>(m)] * w);
      int c = n;
      if (o.fitD) Put(A, i, c++, Complex(w));
      if (o.fitE) Put(A, i, c++, p.s[static_cast<size_t>(i)] * w);
      for (size_t e = 0; e < count; ++e)
        Put(B, i, static_cast<int>(e), p.h(first + e, static_cast<size_t>(i)) * w);
    }
  };
  RealMatrix X(cols, static_cast<int>(p.K));
  if (shared) {
    RealMatrix A(2 * N, cols), B(2 * N, static_cast<int>(p.K));
    system(0, 0, p.K, A, B);
    X = SolveLeastSquares(A, B);
  } else {
    for (size_t k = 0; k < p.K; ++k) {
      RealMatrix A(2 * N, cols), B(2 * N, 1);
      system(k, k, 1, A, B);
      const RealMatrix x = SolveLeastSquares(A, B);
      for (int c = 0; c < cols; ++c) X(c, static_cast<int>(k)) = x(c, 0);
    }
  }
  const double w0 = p.omega0;
  result.poles.clear();
  for (const Complex& a : AllPoles(poles)) result.poles.push_back(a * w0);
  result.residues.assign(p.K, {});
  result.d.assign(p.K, 0.0);
  result.e.assign(p.K, 0.0);
  for (size_t k = 0; k < p.K; ++k) {
    const int col = static_cast<int>(k);
    std::vector<Complex>& r = result.residues[k];
    int m = 0;
    for (size_t q = 0; q < poles.real.size(); ++q) r.push_back(Complex(X(m++, col) * w0));
    for (size_t q = 0; q < poles.pairs.size(); ++q) {
      const Complex c(X(m, col) * w0, X(m + 1, col) * w0);
      r.push_back(c);
      r.push_back(conj(c));
      m += 2;
    }
    if (o.fitD) result.d[k] = X(m++, col);
    if (o.fitE) result.e[k] = X(m++, col) / w0;
  }
}

PoleSet StartingPoles(const std::vector<double>& f, const VectorFitOptions& o, double omega0) {
  const double fmax = *std::max_element(f.begin(), f.end());
  double fmin = *std::min_element(f.begin(), f.end());
  if (fmin <= 0.0) fmin = fmax / 1000.0;
  const double lo = 2.0 * M_PI * fmin / omega0, hi = 2.0 * M_PI * fmax / omega0;
  const int pairs = o.poles / 2;
  PoleSet poles;
  for (int k = 0; k < pairs; ++k) {
    const double t = pairs > 1 ? static_cast<double>(k) / (pairs - 1) : 0.5;
    const double beta = o.logSpacedStart ? lo * std::pow(hi / lo, t) : lo + (hi - lo) * t;
    poles.pairs.push_back(Complex(-beta / 100.0, beta));
  }
  if (o.poles % 2 == 1)
    poles.real.push_back(o.logSpacedStart ? -std::sqrt(lo * hi) : -0.5 * (lo + hi));
  return poles;
}

}  // namespace

VectorFitResult FitVector(const std::vector<double>& f, const std::vector<Complex>& F,
                          std::size_t entries, const VectorFitOptions& options) {
  VectorFitResult result;
  const size_t N = f.size();
  if (entries == 0 || N == 0 || F.size() != entries * N) {
    result.message = "the data are not entries x frequencies values";
    return result;
  }
  if (options.poles < 1 || options.iterations < 0) {
    result.message = "the model needs at least one pole";
    return result;
  }
  if (!options.weights.empty() && options.weights.size() != N &&
      options.weights.size() != entries * N) {
    result.message = "weights are neither one per frequency nor one per value";
    return result;
  }
  for (double x : f)
    if (!(x >= 0.0) || !std::isfinite(x)) {
      result.message = "frequencies must be finite and not negative";
      return result;
    }
  for (const Complex& v : F)
    if (!std::isfinite(v.re) || !std::isfinite(v.im)) {
      result.message = "the data hold a value that is not finite";
      return result;
    }
  const double fmax = *std::max_element(f.begin(), f.end());
  if (fmax == *std::min_element(f.begin(), f.end())) {
    result.message = "the frequencies span no band";
    return result;
  }
  const int unknowns = 2 * options.poles + 1 + (options.fitD ? 1 : 0) + (options.fitE ? 1 : 0);
  if (2 * static_cast<long>(N) < unknowns) {
    result.message = "too few frequencies for the number of poles";
    return result;
  }

  Problem p;
  p.K = entries;
  p.N = N;
  p.omega0 = 2.0 * M_PI * fmax;
  p.H = F;
  for (double x : f) p.s.push_back(Complex(0.0, 2.0 * M_PI * x / p.omega0));
  p.weight.assign(entries * N, 1.0);
  for (size_t k = 0; k < entries; ++k)
    for (size_t i = 0; i < N; ++i)
      if (options.weights.size() == N)
        p.weight[k * N + i] = options.weights[i];
      else if (!options.weights.empty())
        p.weight[k * N + i] = options.weights[k * N + i];

  PoleSet poles = StartingPoles(f, options, p.omega0);
  for (int it = 0; it < options.iterations; ++it) {
    PoleSet next;
    if (!Relocate(p, options, poles, next, result.fixedSigmaSteps)) {
      result.message = "the pole relocation failed (eigenvalues)";
      return result;
    }
    result.poleChange = PoleChange(poles, next);
    result.iterations = it + 1;
    poles = next;
    if (result.poleChange < options.poleTolerance) break;
  }
  FitResidues(p, options, poles, result);

  double sum = 0.0;
  for (size_t i = 0; i < N; ++i) {
    const std::vector<Complex> model = EvaluateVectorFitAt(result, f[i]);
    for (size_t k = 0; k < entries; ++k) {
      const double err = abs(model[k] - F[k * N + i]);
      sum += err * err;
      result.maxError = std::max(result.maxError, err);
    }
  }
  result.rmsError = std::sqrt(sum / static_cast<double>(entries * N));
  result.ok = true;
  return result;
}

std::vector<Complex> EvaluateVectorFit(const VectorFitResult& fit, Complex s) {
  std::vector<Complex> out(fit.residues.size());
  std::vector<Complex> inv(fit.poles.size());
  for (size_t m = 0; m < fit.poles.size(); ++m) inv[m] = Complex(1.0) / (s - fit.poles[m]);
  for (size_t k = 0; k < out.size(); ++k) {
    Complex sum(fit.d[k]);
    sum += s * fit.e[k];
    for (size_t m = 0; m < inv.size(); ++m) sum += fit.residues[k][m] * inv[m];
    out[k] = sum;
  }
  return out;
}

std::vector<Complex> EvaluateVectorFitAt(const VectorFitResult& fit, double f) {
  return EvaluateVectorFit(fit, Complex(0.0, 2.0 * M_PI * f));
}

}  // namespace nd
