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
// Fits in a row that must stop at a noise floor before the range gives up.
constexpr size_t kNoiseFits = 4;
// A goal below this multiple of the measured scatter (rms of the fit's
// residual) is not claimed: two models that agree within it can both be
// off by more where the samples scatter.
constexpr double kNoiseMargin = 10.0;
// At a noise floor the estimate and the recent prediction errors lie within
// this multiple of the measured scatter.
constexpr double kFloorReach = 30.0;
// Fewest samples before a noise floor is believed.
constexpr int kNoiseSamples = 8;
// The estimate must stay within this share of the goal: it compares two
// models fitted to nearly the same samples, which can agree and both be
// off, most of all where the samples scatter.
constexpr double kEstimateShare = 0.3;
// A resonance counts as resolved when samples on both sides lie within this
// many of its half-widths (|Im| of its pole) from its centre.
constexpr double kResolveWidths = 3.0;

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

std::vector<CAdaptiveInterp::Complex> CAdaptiveInterp::Fit() {
  // One rational model of every value, scaled so that all count alike.
  const size_t N = m_X.size(), K = m_Scales.size();
  std::vector<Complex> F(K * N);
  double largest = 0.0;
  for (size_t e = 0; e < K; ++e)
    for (size_t k = 0; k < N; ++k) {
      F[e * N + k] = m_Samples[k][e] * m_Scales[e];
      largest = std::max(largest, abs(F[e * N + k]));
    }
  nd::RationalFit fit = nd::FitRational(m_X, F, K);
  // The fit measures scatter relative to its largest value; the range
  // judges errors relative to its largest |S_ij|.
  const double noise = fit.noiseLimited && m_Magnitude > 0.0 ? fit.noise * largest / m_Magnitude : 0.0;
  m_NoiseHistory.push_back(noise);
  m_PreviousPoles = std::move(m_Poles);
  m_Poles = std::move(fit.poles);
  m_PoleEffects = std::move(fit.poleEffects);
  for (double& e : m_PoleEffects) e = m_Magnitude > 0.0 ? e * largest / m_Magnitude : e;
  return std::move(fit.weights);
}

std::vector<double> CAdaptiveInterp::ProbePoints() const {
  // Fixed fractions of every gap, and where either model is sharp: under
  // each pole inside the samples and half a width either side of it, so a
  // narrow peak between two samples is looked at where it is.
  std::vector<double> probes;
  const size_t N = m_X.size();
  for (size_t k = 0; k + 1 < N; ++k)
    for (double fraction : kProbeFractions) probes.push_back(m_X[k] + fraction * (m_X[k + 1] - m_X[k]));
  for (const auto* poles : {&m_Poles, &m_PreviousPoles})
    for (const Complex& pole : *poles)
      for (double offset : {0.0, -0.5, 0.5}) {
        const double f = pole.re + offset * std::fabs(pole.im);
        if (f > m_X.front() && f < m_X.back() && !std::binary_search(m_X.begin(), m_X.end(), f))
          probes.push_back(f);
      }
  return probes;
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
  for (double f : ProbePoints()) {
    Evaluate(m_Weights, f, a);
    Evaluate(m_PreviousWeights, f, b);
    const double d = ScaledDifference(a, b);
    if (d > m_Estimate || m_Proposal == 0.0) {
      m_Estimate = std::max(d, m_Estimate);
      m_Proposal = f;
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

double CAdaptiveInterp::GetWidestGap() const {
  double widest = 0.0;
  for (size_t k = 0; k + 1 < m_X.size(); ++k) widest = std::max(widest, m_X[k + 1] - m_X[k]);
  return widest;
}

bool CAdaptiveInterp::GuardsHold() const {
  return GetBasisSize() >= m_MinSamples && (m_MaxStep <= 0.0 || GetWidestGap() <= m_MaxStep * (1.0 + 1e-12));
}

double CAdaptiveInterp::UnresolvedPole() const {
  double centre = 0.0, strongest = 0.0;
  for (size_t k = 0; k < m_Poles.size() && k < m_PoleEffects.size(); ++k) {
    const double f = m_Poles[k].re;
    if (m_X.size() < 2 || f <= m_X.front() || f >= m_X.back() || m_PoleEffects[k] <= m_Tolerance) continue;
    // Resolved: a sample at the centre (within one half-width), or one on
    // each side within kResolveWidths half-widths.
    const auto above = std::lower_bound(m_X.begin(), m_X.end(), f);
    const double width = std::fabs(m_Poles[k].im), up = *above - f, down = f - *(above - 1);
    const bool resolved = std::min(up, down) <= width || std::max(up, down) <= kResolveWidths * width;
    if (!resolved && m_PoleEffects[k] > strongest) {
      strongest = m_PoleEffects[k];
      centre = f;
    }
  }
  return centre;
}

bool CAdaptiveInterp::GoalMet() const {
  const size_t n = m_PredictionErrors.size();
  return m_X.size() >= 4 && m_Estimate <= kEstimateShare * m_Tolerance && n >= 2 &&
         m_PredictionErrors[n - 1] <= m_Tolerance && m_PredictionErrors[n - 2] <= m_Tolerance &&
         UnresolvedPole() == 0.0 && AboveNoise();
}

bool CAdaptiveInterp::Check() const { return GoalMet() && GuardsHold(); }

bool CAdaptiveInterp::AboveNoise() const { return m_Tolerance >= kNoiseMargin * GetNoiseEstimate(); }

bool CAdaptiveInterp::AtNoiseFloor() const {
  const size_t fits = m_NoiseHistory.size(), predictions = m_PredictionErrors.size();
  if (GetBasisSize() < kNoiseSamples || fits < kNoiseFits || predictions < kNoiseFits) return false;
  for (size_t k = 1; k <= kNoiseFits; ++k) {
    const double noise = m_NoiseHistory[fits - k];
    if (noise <= 0.0 || m_Tolerance >= kNoiseMargin * noise) return false;
    // The model must already be as good as the scatter allows: a residual
    // that stalls while new samples are still predicted far worse is
    // signal the samples do not resolve (a long line's phase), not scatter.
    if (m_PredictionErrors[predictions - k] > kFloorReach * noise) return false;
  }
  return m_Estimate <= kFloorReach * GetNoiseEstimate();
}

double CAdaptiveInterp::GetClaimedError() const {
  // Everything measured about the model: the estimate, the last two
  // samples' prediction errors, and the scatter of the data themselves.
  double claimed = std::max(m_Estimate, GetNoiseEstimate());
  const size_t n = m_PredictionErrors.size();
  for (size_t k = n > 2 ? n - 2 : 0; k < n; ++k) claimed = std::max(claimed, m_PredictionErrors[k]);
  return claimed;
}

double CAdaptiveInterp::GetReachedAccuracy() const {
  // As claimed, but over the last kNoiseFits samples: a range that did not
  // finish is judged by its worse recent predictions too.
  double reached = GetClaimedError();
  const size_t n = m_PredictionErrors.size();
  if (n == 0) return INFINITY;
  for (size_t k = n > kNoiseFits ? n - kNoiseFits : 0; k < n; ++k) reached = std::max(reached, m_PredictionErrors[k]);
  return reached;
}

int CAdaptiveInterp::ProposeNext(double& frequency, double& tolerance) const {
  if (Check() || AtNoiseFloor() || m_Proposal == 0.0) {
    frequency = tolerance = 0.0;
    return 1;
  }
  frequency = m_Proposal;
  if (const double pole = UnresolvedPole(); pole != 0.0 && m_X.size() >= 4) {
    // The models agree, but about a resonance they only see the tails of.
    frequency = pole;
  } else if (GoalMet() && !GuardsHold()) {
    // Only a guard is unmet: fill the widest gap.
    for (size_t k = 0; k + 1 < m_X.size(); ++k)
      if (m_X[k + 1] - m_X[k] >= GetWidestGap()) {
        frequency = 0.5 * (m_X[k] + m_X[k + 1]);
        break;
      }
  }
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
