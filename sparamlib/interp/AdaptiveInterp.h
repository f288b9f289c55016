// CAdaptiveInterp: the sampler of one frequency range of an interpolating
// sweep. It keeps the solved samples of its range (each a vector of complex
// values: the S entries, then whatever else the owner wants interpolated),
// fits them with one rational model (a barycentric interpolant, all entries
// sharing the denominator), estimates its own error between the samples
// without knowing the truth, proposes the frequency where that estimate is
// worst, and interpolates inside its range. docs/sweep.md gives the method
// and its reasons.
#pragma once

#include <vector>

#include "core/AComplex.h"

class CAdaptiveInterp {
 public:
  using Complex = AComplex<double>;

  // A range [low, high] whose samples carry `scales.size()` values each;
  // value e is measured in units of 1 / scales[e] when errors are judged,
  // and the first `sEntries` values are the S entries that set the
  // normalising magnitude.
  CAdaptiveInterp(double low, double high, std::vector<double> scales, int sEntries);

  double GetLow() const { return m_Low; }
  double GetHigh() const { return m_High; }

  // Adds a solved sample and refits; a frequency already held is ignored.
  void AddSample(double frequency, std::vector<Complex> values);

  // Adds many samples with one fit instead of one per sample (a range cut
  // in two starts this way). There is no previous model to compare with and
  // no prediction error yet, so the range proposes the middle of its widest
  // gap and needs two more samples before it can be done.
  void AddSamples(std::vector<std::pair<double, std::vector<Complex>>> samples);

  int GetBasisSize() const { return static_cast<int>(m_X.size()); }
  // Solved frequencies, ascending.
  const std::vector<double>& GetFrequencies() const { return m_X; }
  // The values of the k-th sample in ascending frequency.
  const std::vector<Complex>& GetSampleValues(int k) const { return m_Samples[static_cast<size_t>(k)]; }
  // The largest |S_ij| over the samples (0 without samples).
  double GetNormalizingMagnitude() const { return m_Magnitude; }

  // The error goal, relative to the normalising magnitude.
  void SetTolerance(double tolerance) { m_Tolerance = tolerance; }
  double GetTolerance() const { return m_Tolerance; }
  // The largest difference, relative to the normalising magnitude, between
  // the current model and the one before the last sample, over points
  // between the samples; infinite until two models exist.
  double GetErrorEstimate() const { return m_Estimate; }
  // How far off the model before each sample was at that sample, in the
  // order the samples came.
  const std::vector<double>& GetPredictionErrors() const { return m_PredictionErrors; }

  // Guards a careful user sets: at least this many samples, and no gap
  // between samples wider than this (Hz; 0 for none).
  void SetGuards(int minSamples, double maxStep) {
    m_MinSamples = minSamples;
    m_MaxStep = maxStep;
  }
  int GetMinSamples() const { return m_MinSamples; }
  double GetMaxStep() const { return m_MaxStep; }
  // The widest gap between samples (0 with fewer than two).
  double GetWidestGap() const;

  // The scatter of the samples, relative to the normalising magnitude, as
  // the last fit measured it (0 while the fit reaches double precision).
  double GetNoiseEstimate() const { return m_NoiseHistory.empty() ? 0.0 : m_NoiseHistory.back(); }
  // The range cannot reach its goal because its data scatter: its last
  // kNoiseFits fits stopped at a noise floor, the goal lies below
  // kNoiseMargin times that floor each time, and the model is as good as the
  // floor allows (estimate and recent prediction errors within kFloorReach
  // times it). More samples would only follow the scatter.
  bool AtNoiseFloor() const;
  // The error the range claims, relative to the normalising magnitude: the
  // largest of the estimate, the last two measured prediction errors and the
  // measured scatter.
  double GetClaimedError() const;
  // The accuracy a range that did not finish has reached: as claimed, with
  // the prediction errors of the last few samples.
  double GetReachedAccuracy() const;

  // True until the range meets its goal (see Check), unless its data's
  // scatter stops it first.
  bool WantsSamples() const { return !Check() && !AtNoiseFloor(); }
  // The frequency where the estimate is worst and a frequency tolerance (a
  // quarter of the interval around it): status 3; the middle of the widest
  // gap while only a guard is unmet; status 1 (frequency 0) when the goal
  // is met or the range is at its noise floor.
  int ProposeNext(double& frequency, double& tolerance) const;
  // The goal is met: at least 4 samples, the estimate within the tolerance,
  // the last two samples both predicted within it by the model before
  // them, and the guards hold. One small estimate alone does not end a
  // range: early models can agree with each other and still miss a feature.
  bool Check() const;

  // Whether `frequency` lies in the range (ends within 1e-12 relative) and a
  // model exists to answer it.
  bool Query(double frequency) const;
  // The interpolated values at `frequency`; false outside the range or
  // without samples.
  bool Interpolate(double frequency, std::vector<Complex>& values) const;

 private:
  void Evaluate(const std::vector<Complex>& weights, double f, std::vector<Complex>& out) const;
  double ScaledDifference(const std::vector<Complex>& a, const std::vector<Complex>& b) const;
  std::vector<double> ProbePoints() const;
  bool GuardsHold() const;
  bool GoalMet() const;     // Check without the guards
  bool AboveNoise() const;  // the goal is far enough above the last fit's scatter to be claimed
  // A pole of the model inside the samples whose term matters at the goal
  // but whose width no sample resolves (the nearest lies more than
  // kResolveWidths half-widths away): a resonance seen only by its tails.
  // Its centre frequency, or 0 when every such pole is resolved.
  double UnresolvedPole() const;
  void Refit(size_t added);
  std::vector<Complex> Fit();
  void Insert(double frequency, std::vector<Complex> values, size_t& at);

  double m_Low, m_High;
  std::vector<double> m_Scales;
  int m_SEntries;
  std::vector<double> m_X;                   // ascending
  std::vector<std::vector<Complex>> m_Samples;  // m_Samples[k]: the values at m_X[k]
  std::vector<Complex> m_Weights;            // current model, one per sample
  std::vector<Complex> m_PreviousWeights;    // the model before the last sample (0 at it)
  std::vector<double> m_PredictionErrors;
  double m_Magnitude = 0.0;
  double m_Tolerance = 0.0;
  double m_Estimate;
  double m_Proposal = 0.0;
  int m_MinSamples = 0;
  double m_MaxStep = 0.0;
  std::vector<double> m_NoiseHistory;            // per fit, 0 where it converged
  std::vector<AComplex<double>> m_Poles, m_PreviousPoles;  // of the current and previous model (Hz)
  std::vector<double> m_PoleEffects;  // per pole of the current model, relative to the magnitude
};
