// CPartitionedRangeInterpolator: drives an interpolating sweep. The band
// [low, high] is held as contiguous ranges, each with its own sampler
// (CAdaptiveInterp); it tells the solver which frequency to solve next and
// with what frequency tolerance, and hands interpolation requests to the
// range that contains the frequency. Stored in its solution's block.
//
// Ranges: the band starts as one range. While fewer ranges exist than the
// minimum, solved seed frequencies low + i (high - low) / minimum cut the
// band there; a range whose sampler reaches the maximum basis size is cut at
// its middle sample. Cut points belong to both neighbours.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/AComplex.h"
#include "core/Block.h"
#include "sparamlib/interp/AdaptiveInterp.h"

class CPartitionedRangeInterpolator {
 public:
  using Complex = AComplex<double>;

  // Status of the next-frequency choice.
  static constexpr int kNothingToAdd = 1;
  static constexpr int kFrequencyProposed = 3;

  CPartitionedRangeInterpolator(int matSize, int maxSubRangeBasisSize, int minNumSubRanges);
  CPartitionedRangeInterpolator(const CPartitionedRangeInterpolator& other);
  virtual ~CPartitionedRangeInterpolator();
  // Copies the settings, ranges and the solved sequence; the copy's range
  // samplers are empty until it is given the samples again.
  virtual CPartitionedRangeInterpolator& operator=(const CPartitionedRangeInterpolator& other);
  virtual int Read(const io::CBlock& block);
  virtual bool Write(io::CBlock& block) const;

  // ---- Settings ----------------------------------------------------------
  int GetMatrixSize() const { return m_MatSize; }
  double GetErrorTolerance() const { return m_ErrorTolerance; }
  void SetErrorTolerance(double tolerance);
  double GetLowSampleFreq() const { return m_LowSampleFreq; }
  double GetHighSampleFreq() const { return m_HighSampleFreq; }
  // Sets the band and lays the ranges out again (their samplers empty).
  void SetBand(double low, double high);
  int GetMaxSubRangeBasisSize() const { return m_MaxSubRangeBasisSize; }
  int GetMinNumSubRanges() const { return m_MinNumSubRanges; }
  // Error scale of each value a sample carries (see CAdaptiveInterp), the
  // first `sEntries` being S entries. Needed before the first sample.
  void SetValueScales(std::vector<double> scales, int sEntries);
  // Guards a careful user sets: at least `minSolves` solves in the band
  // (shared among the ranges by width) and no gap between solved
  // frequencies wider than `maxStep` (Hz); 0 turns a guard off. They only
  // keep ranges from finishing; the selection steps stay as they are.
  void SetGuards(int minSolves, double maxStep);
  int GetMinSolves() const { return m_MinSolves; }
  double GetMaxStep() const { return m_MaxStep; }

  // ---- Ranges ------------------------------------------------------------
  int GetNumRanges() const { return m_NumRanges; }
  double GetRangeLow(int range) const;
  double GetRangeHigh(int range) const;
  double GetRangeTolerance(int range) const;
  // The range's sampler; null until the range has a sample.
  const CAdaptiveInterp* GetRangeInterpolator(int range) const;
  // The first range whose high is above f (or equal within 1e-12
  // relative); the last range when none is.
  int GetRangeIndex(double frequency) const;

  // ---- Sweep -------------------------------------------------------------
  // Adds a solved frequency with its values to the ranges that hold it.
  void AddBasisFrequency(double frequency, const std::vector<Complex>& values);
  int GetBasisSize() const { return m_BasisSize; }
  // Solved frequencies in the order they were solved.
  const std::vector<double>& GetFreqSequence() const { return m_FreqSequence; }
  // The next frequency to solve and its frequency tolerance; status
  // kFrequencyProposed, or kNothingToAdd with frequency 0 when every range
  // is satisfied (other statuses of a range's sampler are passed on).
  double GetNextFrequency(int& status, double& tolerance);
  // True when every range meets its goal (and when there are no ranges).
  bool CheckAllRanges() const;
  // True when at least one range is at its data's noise floor and every
  // other range meets its goal: further solves cannot reach the goal.
  bool AtNoiseFloor() const;
  // The largest scatter a range measured, in S units (0 when none did).
  double GetNoiseEstimate() const;

  // ---- Interpolation -----------------------------------------------------
  // Whether the range holding f can answer it.
  bool Query(double frequency) const;
  bool Interpolate(double frequency, std::vector<Complex>& values) const;

 protected:
  // Forgets the solved sequence and every sampler, keeping the settings.
  void ClearSamples();

 private:
  struct Range {
    double low, high, tolerance;
  };
  void LayOutRanges();
  bool CheckRangeIndex(int rangeIndex) const;
  int BasisOf(int range) const;
  void Split(int range, double at);
  void AddToRange(int range, double frequency, const std::vector<Complex>& values);
  // The range's sampler, made empty if it has none yet.
  CAdaptiveInterp& Sampler(int range);
  // Hands the range's goal and guards to its sampler.
  void Configure(int range);

  int m_MatSize;
  double m_ErrorTolerance = 0.0;
  int m_MaxBasisSize = 50;
  int m_BasisSize = 0;
  double m_LowSampleFreq = 0.0;
  double m_HighSampleFreq = 0.0;
  int m_NumSamples = 0;
  int m_MaxSubRangeBasisSize;
  int m_MinNumSubRanges;
  int m_NumRanges = 1;
  std::vector<Range> m_Ranges;
  std::vector<double> m_FreqSequence;
  std::vector<std::unique_ptr<CAdaptiveInterp>> m_RangeInterpolators;
  std::vector<double> m_ValueScales;
  int m_SEntries = 0;
  int m_MinSolves = 0;
  double m_MaxStep = 0.0;
};

// The range basis limit "INTERP_SUBRANGE_BASIS_SIZE" asks for, or
// `fallback` when it is unset or cannot work (not a whole number, or
// outside 8 to 10000); then `warning` (if given) says so.
int SubrangeBasisSizeFromEnvironment(int fallback, std::string* warning);
