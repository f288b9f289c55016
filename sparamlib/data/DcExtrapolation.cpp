// Extrapolation of S to DC: settings, sample frequencies, the least-squares
// weights, their error bound and the DC matrix.
#include "sparamlib/data/DcExtrapolation.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace nd {
namespace {

using TNT::CMatrix;
using TNT::Complex;

constexpr const char* kOrderVariable = "DC_EXTRAP_POLYNOMIAL_ORDER";
constexpr const char* kSamplesVariable = "DC_EXTRAP_NUM_SAMPLES";
constexpr const char* kSpacingVariable = "DC_EXTRAP_SAMPLE_DELTA";
constexpr int kMaxOrder = 9;
constexpr int kMaxSamples = 39;
constexpr double kMinSpacing = 1e-3;  // Hz, exclusive
constexpr double kMaxSpacing = 1e10;  // Hz, exclusive
constexpr double kDefaultSpacing = 100.0;
// Samples this close to symmetric count as a reciprocal network.
constexpr double kSymmetryTolerance = 1e-9;

void SetWhy(std::string* why, std::string text) {
  if (why) *why = std::move(text);
}

std::string_view Trimmed(std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

// A base-10 integer in [low, high] from the variable `name`, if set.
bool ReadInteger(const char* name, int low, int high, int& value, std::string* why) {
  const char* raw = std::getenv(name);
  if (!raw) return true;
  std::string_view text = Trimmed(raw);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  long parsed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed, 10);
  if (text.empty() || error == std::errc::invalid_argument || end != text.data() + text.size()) {
    SetWhy(why, std::string(name) + "=\"" + raw + "\" is not a base-10 integer");
    return false;
  }
  if (error == std::errc::result_out_of_range || parsed < low || parsed > high) {
    SetWhy(why, std::string(name) + "=\"" + raw + "\" is outside " + std::to_string(low) + " to " +
                    std::to_string(high));
    return false;
  }
  value = static_cast<int>(parsed);
  return true;
}

// The sample spacing in Hz from its variable, if set.
bool ReadSpacing(double& value, std::string* why) {
  const char* raw = std::getenv(kSpacingVariable);
  if (!raw) return true;
  std::string_view text = Trimmed(raw);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  double parsed = 0.0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), parsed, std::chars_format::general);
  // from_chars also reads "inf" and "nan"; neither is a spacing.
  if (text.empty() || error == std::errc::invalid_argument || end != text.data() + text.size() ||
      std::isnan(parsed)) {
    SetWhy(why, std::string(kSpacingVariable) + "=\"" + raw + "\" is not a real number");
    return false;
  }
  if (error == std::errc::result_out_of_range || !(parsed > kMinSpacing && parsed < kMaxSpacing)) {
    SetWhy(why, std::string(kSpacingVariable) + "=\"" + raw +
                    "\" is outside the allowed spacing (above 1e-3 Hz and below 1e10 Hz)");
    return false;
  }
  value = parsed;
  return true;
}

bool IncreasingPositive(const std::vector<double>& f) {
  for (size_t k = 0; k < f.size(); ++k) {
    if (!std::isfinite(f[k]) || f[k] <= 0.0) return false;
    if (k > 0 && !(f[k] > f[k - 1])) return false;
  }
  return !f.empty();
}

int Degree(int order, size_t samples) {
  return std::min(order, static_cast<int>(samples) - 1);
}

// Where the samples sit on the unit interval: x = (f - center) / half.
struct Scaling {
  double center = 0.0;
  double half = 1.0;
  double X(double f) const { return (f - center) / half; }
};

Scaling ScalingOf(const std::vector<double>& f) {
  Scaling s;
  s.center = 0.5 * (f.front() + f.back());
  s.half = 0.5 * (f.back() - f.front());
  return s;
}

// Weights w with p(0) = sum_k w_k g(f_k) for the least-squares polynomial p
// of degree `degree` through the samples g(f_k): w = V (V^T V)^-1 e, where V
// is the Vandermonde matrix of the scaled sample points and e the monomials
// at DC. With V = Q R (Householder), w = Q R^-T e.
std::vector<double> Weights(const std::vector<double>& f, int degree) {
  const size_t m = f.size();
  if (m == 1 || degree == 0) return std::vector<double>(m, 1.0 / static_cast<double>(m));
  const size_t q = static_cast<size_t>(degree) + 1;
  const Scaling scaling = ScalingOf(f);
  // Column-major V: a[j][k] = x_k^j. Householder reflections turn it into R
  // (R[i][j] = a[j][i] for i <= j) and keep their unit vectors.
  std::vector<std::vector<double>> a(q, std::vector<double>(m));
  for (size_t k = 0; k < m; ++k) {
    const double x = scaling.X(f[k]);
    double power = 1.0;
    for (size_t j = 0; j < q; ++j, power *= x) a[j][k] = power;
  }
  std::vector<std::vector<double>> reflectors(q, std::vector<double>(m, 0.0));
  for (size_t j = 0; j < q; ++j) {
    std::vector<double>& v = reflectors[j];
    double norm = 0.0;
    for (size_t k = j; k < m; ++k) norm = std::hypot(norm, a[j][k]);
    const double alpha = a[j][j] > 0.0 ? -norm : norm;
    for (size_t k = j; k < m; ++k) v[k] = a[j][k];
    v[j] -= alpha;
    double vnorm = 0.0;
    for (size_t k = j; k < m; ++k) vnorm = std::hypot(vnorm, v[k]);
    if (vnorm > 0.0)
      for (size_t k = j; k < m; ++k) v[k] /= vnorm;
    for (size_t c = j; c < q; ++c) {
      double dot = 0.0;
      for (size_t k = j; k < m; ++k) dot += v[k] * a[c][k];
      for (size_t k = j; k < m; ++k) a[c][k] -= 2.0 * dot * v[k];
    }
  }
  // R^T y = e by forward substitution.
  const double x0 = scaling.X(0.0);
  std::vector<double> y(m, 0.0);
  double power = 1.0;
  for (size_t j = 0; j < q; ++j, power *= x0) {
    double rhs = power;
    for (size_t i = 0; i < j; ++i) rhs -= a[j][i] * y[i];
    y[j] = rhs / a[j][j];
  }
  // w = H_0 H_1 ... H_{q-1} [y; 0].
  for (size_t j = q; j-- > 0;) {
    const std::vector<double>& v = reflectors[j];
    double dot = 0.0;
    for (size_t k = j; k < m; ++k) dot += v[k] * y[k];
    for (size_t k = j; k < m; ++k) y[k] -= 2.0 * dot * v[k];
  }
  return y;
}

double Factorial(int n) {
  double r = 1.0;
  for (int k = 2; k <= n; ++k) r *= k;
  return r;
}

// The integral of |K| over [0, f_last] for the weights w of degree d.
// On [0, f_0] every sample lies above t and the fit reproduces (x - t)^d, so
// K(t) = (-t)^d / d! there and its integral is f_0^(d+1) / (d+1)!. Between
// samples j and j+1, K(t) = h^d / d! sum_{k > j} w_k (x_k - u)^d in the
// scaled variable u = (t - center) / h, a polynomial of degree d <= 9: each
// piece is cut at its sign changes and integrated by 5-point Gauss-Legendre,
// exact for degree 9 (Abramowitz and Stegun, table 25.4).
double KernelIntegral(const std::vector<double>& f, const std::vector<double>& w, int d) {
  double total = std::pow(f.front(), d + 1) / Factorial(d + 1);
  if (f.size() < 2) return total;
  const Scaling scaling = ScalingOf(f);
  std::vector<double> x(f.size());
  for (size_t k = 0; k < f.size(); ++k) x[k] = scaling.X(f[k]);
  const double r1 = std::sqrt(5.0 - 2.0 * std::sqrt(10.0 / 7.0)) / 3.0;
  const double r2 = std::sqrt(5.0 + 2.0 * std::sqrt(10.0 / 7.0)) / 3.0;
  const double nodes[5] = {-r2, -r1, 0.0, r1, r2};
  const double w1 = (322.0 + 13.0 * std::sqrt(70.0)) / 900.0;
  const double w2 = (322.0 - 13.0 * std::sqrt(70.0)) / 900.0;
  const double gauss[5] = {w2, w1, 128.0 / 225.0, w1, w2};
  for (size_t j = 0; j + 1 < f.size(); ++j) {
    const auto kernel = [&](double u) {
      double sum = 0.0;
      for (size_t k = j + 1; k < f.size(); ++k) sum += w[k] * std::pow(x[k] - u, d);
      return sum;
    };
    const auto integrate = [&](double lo, double hi) {
      double sum = 0.0;
      for (int g = 0; g < 5; ++g)
        sum += gauss[g] * kernel(0.5 * (lo + hi) + 0.5 * (hi - lo) * nodes[g]);
      return std::fabs(0.5 * (hi - lo) * sum);
    };
    constexpr int kParts = 64;
    double piece = 0.0;
    for (int p = 0; p < kParts; ++p) {
      const double lo = x[j] + (x[j + 1] - x[j]) * p / kParts;
      const double hi = p + 1 == kParts ? x[j + 1] : x[j] + (x[j + 1] - x[j]) * (p + 1) / kParts;
      const double klo = kernel(lo), khi = kernel(hi);
      if ((klo < 0.0) == (khi < 0.0)) {
        piece += integrate(lo, hi);
        continue;
      }
      double a = lo, b = hi;  // a sign change: find it by bisection
      for (int it = 0; it < 100 && b - a > 0.0; ++it) {
        const double mid = 0.5 * (a + b);
        if (mid <= a || mid >= b) break;
        if ((kernel(mid) < 0.0) == (klo < 0.0))
          a = mid;
        else
          b = mid;
      }
      piece += integrate(lo, a) + integrate(a, hi);
    }
    total += piece * std::pow(scaling.half, d + 1) / Factorial(d);
  }
  return total;
}

bool CheckSamples(const std::vector<double>& f, int order, std::string* why) {
  if (order < 1 || order > kMaxOrder) {
    SetWhy(why, "DC extrapolation order " + std::to_string(order) + " is outside 1 to 9");
    return false;
  }
  if (!IncreasingPositive(f)) {
    SetWhy(why, "DC extrapolation needs sample frequencies that are positive and increasing");
    return false;
  }
  return true;
}

// Largest singular value of a real matrix held in a complex one, from the
// largest eigenvalue of D^T D; negative when the eigensolver fails.
double LargestSingularValue(const CMatrix& d) {
  const int n = d.num_rows();
  CMatrix gram(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      double sum = 0.0;
      for (int k = 0; k < n; ++k) sum += d[k][i].re * d[k][j].re;
      gram[i][j] = Complex(sum);
    }
  TNT::CVector values;
  CMatrix vectors;
  if (TNT::ComputeEigenVectorsAndValues(gram, values, vectors) != 0) return -1.0;
  double largest = 0.0;
  for (const Complex& v : values) largest = std::max(largest, v.re);
  return std::sqrt(largest);
}

}  // namespace

bool ReadDcExtrapolationSettings(DcExtrapolationSettings& settings, std::string* why) {
  DcExtrapolationSettings read = settings;
  if (!ReadInteger(kOrderVariable, 1, kMaxOrder, read.order, why)) return false;
  if (!ReadInteger(kSamplesVariable, 1, kMaxSamples, read.samples, why)) return false;
  if (!ReadSpacing(read.spacing, why)) return false;
  settings = read;
  return true;
}

bool DcSampleFrequencies(double lowest, double highest, const DcExtrapolationSettings& settings,
                         std::vector<double>& f, std::string* why) {
  if (!std::isfinite(lowest) || !std::isfinite(highest) || lowest <= 0.0 || highest < lowest) {
    SetWhy(why, "DC extrapolation needs a solved band above 0 Hz (lowest " +
                    std::to_string(lowest) + " Hz, highest " + std::to_string(highest) + " Hz)");
    return false;
  }
  if (settings.samples < 1 || settings.samples > kMaxSamples) {
    SetWhy(why, "DC extrapolation sample count " + std::to_string(settings.samples) +
                    " is outside 1 to 39");
    return false;
  }
  double spacing =
      settings.spacing > 0.0 ? settings.spacing : std::min(kDefaultSpacing, 0.5 * lowest);
  if (lowest + settings.samples * spacing > highest)
    spacing = (highest - lowest) / settings.samples;
  std::vector<double> out(static_cast<size_t>(settings.samples));
  for (int k = 0; k < settings.samples; ++k) out[static_cast<size_t>(k)] = lowest + k * spacing;
  if (!IncreasingPositive(out)) {
    SetWhy(why, "the solved band (" + std::to_string(lowest) + " Hz to " + std::to_string(highest) +
                    " Hz) has no room for " + std::to_string(settings.samples) +
                    " distinct DC extrapolation samples");
    return false;
  }
  f = std::move(out);
  return true;
}

bool DcExtrapolationErrorBound(const std::vector<double>& f, int order, DcExtrapolationBound& bound,
                               std::string* why) {
  if (!CheckSamples(f, order, why)) return false;
  const int degree = Degree(order, f.size());
  const std::vector<double> w = Weights(f, degree);
  DcExtrapolationBound b;
  b.degree = degree;
  for (double v : w) b.noiseGain += std::fabs(v);
  b.kernel = KernelIntegral(f, w, degree);
  bound = b;
  return true;
}

bool ExtrapolateToDC(const std::vector<double>& f, const std::vector<CMatrix>& s, int order,
                     CMatrix& dc, std::string* why) {
  if (!CheckSamples(f, order, why)) return false;
  if (s.size() != f.size()) {
    SetWhy(why, "DC extrapolation got " + std::to_string(s.size()) + " matrices for " +
                    std::to_string(f.size()) + " frequencies");
    return false;
  }
  const int n = s.front().num_rows();
  double largest = 0.0;
  for (const CMatrix& m : s) {
    if (n < 1 || m.num_rows() != n || m.num_cols() != n) {
      SetWhy(why, "DC extrapolation needs square matrices of one size");
      return false;
    }
    for (int k = 0; k < m.size(); ++k) {
      const Complex v = m.data()[k];
      if (!std::isfinite(v.re) || !std::isfinite(v.im)) {
        SetWhy(why, "DC extrapolation got a value that is not finite");
        return false;
      }
      largest = std::max(largest, abs(v));
    }
  }
  const std::vector<double> w = Weights(f, Degree(order, f.size()));
  // The polynomial's value at DC, real part only.
  CMatrix result(n, n);
  for (size_t k = 0; k < s.size(); ++k)
    for (int e = 0; e < n * n; ++e) result.data()[e].re += w[k] * s[k].data()[e].re;
  bool symmetric = true;
  const double tolerance = kSymmetryTolerance * std::max(1.0, largest);
  for (const CMatrix& m : s)
    for (int i = 0; i < n && symmetric; ++i)
      for (int j = i + 1; j < n && symmetric; ++j) symmetric = abs(m[i][j] - m[j][i]) <= tolerance;
  if (symmetric)
    for (int i = 0; i < n; ++i)
      for (int j = i + 1; j < n; ++j)
        result[i][j].re = result[j][i].re = 0.5 * (result[i][j].re + result[j][i].re);
  for (int e = 0; e < n * n; ++e) {
    if (!std::isfinite(result.data()[e].re)) {
      SetWhy(why, "DC extrapolation overflowed: the samples lie too far above DC for the order");
      return false;
    }
  }
  const double sigma = LargestSingularValue(result);
  if (sigma < 0.0) {
    SetWhy(why, "DC extrapolation could not find the largest singular value of the DC matrix");
    return false;
  }
  if (sigma > 1.0)
    for (int e = 0; e < n * n; ++e) result.data()[e].re /= sigma;
  dc = std::move(result);
  return true;
}

}  // namespace nd
