// Fitting, self-estimated error and proposals of one sweep range.
#include "sparamlib/interp/AdaptiveInterp.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "math/matrix/MatrixOps.h"
#include "sparamlib/fit/RationalFit.h"

namespace {

// Points between two samples at which the two models are compared.
constexpr double kProbeFractions[] = {0.25, 0.5, 0.75};

bool Near(double a, double b) { return std::fabs(a - b) <= std::fabs(b) * 1e-12; }

}  // namespace

CAdaptiveInterp::CAdaptiveInterp(double low, double high, std::vector<double> scales, int sEntries)
    : m_Low(low),
      m_High(high),
      m_Scales(std::move(scales)),
      m_SEntries(sEntries),
      m_Estimate(std::numeric_limits<double>::infinity()) {}

void CAdaptiveInterp::Insert(double frequency, std::vector<Complex> values, size_t& at) {
  for (int e = 0; e < m_SEntries; ++e) m_Magnitude = std::max(m_Magnitude, abs(values[static_cast<size_t>(e)]));
  at = static_cast<size_t>(std::lower_bound(m_X.begin(), m_X.end(), frequency) - m_X.begin());
  m_X.insert(m_X.begin() + static_cast<std::ptrdiff_t>(at), frequency);
  m_Samples.insert(m_Samples.begin() + static_cast<std::ptrdiff_t>(at), std::move(values));
}

void CAdaptiveInterp::AddSample(double frequency, std::vector<Complex> values) {
  if (values.size() != m_Scales.size() || std::binary_search(m_X.begin(), m_X.end(), frequency)) return;
  for (int e = 0; e < m_SEntries; ++e) m_Magnitude = std::max(m_Magnitude, abs(values[static_cast<size_t>(e)]));
  if (!m_Weights.empty()) {
    std::vector<Complex> predicted(values.size());
    Evaluate(m_Weights, frequency, predicted);
    m_PredictionErrors.push_back(ScaledDifference(predicted, values));
  }
  size_t at = 0;
  Insert(frequency, std::move(values), at);
  Refit(at);
}

void CAdaptiveInterp::AddSamples(std::vector<std::pair<double, std::vector<Complex>>> samples) {
  for (auto& [f, values] : samples) {
    if (values.size() != m_Scales.size() || std::binary_search(m_X.begin(), m_X.end(), f)) continue;
    size_t at = 0;
    Insert(f, std::move(values), at);
  }
  m_Weights.clear();  // no previous model: the estimate starts unknown
  Refit(0);
}

std::vector<CAdaptiveInterp::Complex> CAdaptiveInterp::Fit() const {
  // One rational model of every value, scaled so that all count alike.
  const size_t N = m_X.size(), K = m_Scales.size();
  std::vector<Complex> F(K * N);
  for (size_t e = 0; e < K; ++e)
    for (size_t k = 0; k < N; ++k) F[e * N + k] = m_Samples[k][e] * m_Scales[e];
  return nd::FitRational(m_X, F, K).weights;
}

void CAdaptiveInterp::Refit(size_t added) {
  m_PreviousWeights = m_Weights;
  if (!m_PreviousWeights.empty())
    m_PreviousWeights.insert(m_PreviousWeights.begin() + static_cast<std::ptrdiff_t>(added), Complex());
  m_Weights = Fit();
  const size_t N = m_X.size(), K = m_Scales.size();

  // Where the new model and the one before differ most, between samples.
  m_Estimate = std::numeric_limits<double>::infinity();
  m_Proposal = 0.0;
  if (N < 2) return;
  if (m_PreviousWeights.empty()) {
    // Nothing to compare with yet: the middle of the widest gap.
    size_t widest = 0;
    for (size_t k = 1; k + 1 < N; ++k)
      if (m_X[k + 1] - m_X[k] > m_X[widest + 1] - m_X[widest]) widest = k;
    m_Proposal = 0.5 * (m_X[widest] + m_X[widest + 1]);
    return;
  }
  m_Estimate = 0.0;
  std::vector<Complex> a(K), b(K);
  for (size_t k = 0; k + 1 < N; ++k) {
    for (double fraction : kProbeFractions) {
      const double f = m_X[k] + fraction * (m_X[k + 1] - m_X[k]);
      Evaluate(m_Weights, f, a);
      Evaluate(m_PreviousWeights, f, b);
      const double d = ScaledDifference(a, b);
      if (d > m_Estimate || m_Proposal == 0.0) {
        m_Estimate = std::max(d, m_Estimate);
        m_Proposal = f;
      }
    }
  }
}

void CAdaptiveInterp::Evaluate(const std::vector<Complex>& weights, double f,
                               std::vector<Complex>& out) const {
  std::vector<const Complex*> rows;
  std::vector<Complex> c;
  Complex den;
  for (size_t k = 0; k < m_X.size(); ++k) {
    const Complex& w = weights[k];
    if (w.re == 0.0 && w.im == 0.0) continue;
    if (f == m_X[k]) {
      out = m_Samples[k];
      return;
    }
    const double r = 1.0 / (f - m_X[k]);
    c.emplace_back(w.re * r, w.im * r);
    den += c.back();
    rows.push_back(m_Samples[k].data());
  }
  for (Complex& x : c) x = x / den;
  out.resize(m_Scales.size());
  TNT::LinearCombination(out.data(), rows.data(), c.data(), c.size(), out.size());
}

double CAdaptiveInterp::ScaledDifference(const std::vector<Complex>& a,
                                         const std::vector<Complex>& b) const {
  double worst = 0.0;
  // Squared magnitudes until the end: this runs over every value at every
  // probe point.
  for (size_t e = 0; e < a.size(); ++e) worst = std::max(worst, norm(a[e] - b[e]) * (m_Scales[e] * m_Scales[e]));
  worst = std::sqrt(worst);
  return worst / (m_Magnitude > 0.0 ? m_Magnitude : 1.0);
}

bool CAdaptiveInterp::Check() const {
  const size_t n = m_PredictionErrors.size();
  return m_X.size() >= 4 && m_Estimate <= m_Tolerance && n >= 2 &&
         m_PredictionErrors[n - 1] <= m_Tolerance && m_PredictionErrors[n - 2] <= m_Tolerance;
}

int CAdaptiveInterp::ProposeNext(double& frequency, double& tolerance) const {
  if (Check() || m_Proposal == 0.0) {
    frequency = tolerance = 0.0;
    return 1;
  }
  frequency = m_Proposal;
  const auto upper = std::upper_bound(m_X.begin(), m_X.end(), frequency);
  tolerance = upper == m_X.end() || upper == m_X.begin() ? 0.0 : 0.25 * (*upper - *(upper - 1));
  return 3;
}

bool CAdaptiveInterp::Query(double frequency) const {
  return !m_X.empty() && (frequency >= m_Low || Near(frequency, m_Low)) &&
         (frequency <= m_High || Near(frequency, m_High));
}

bool CAdaptiveInterp::Interpolate(double frequency, std::vector<Complex>& values) const {
  if (!Query(frequency)) return false;
  Evaluate(m_Weights, frequency, values);
  return true;
}
