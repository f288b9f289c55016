// CNoiseDataSolution: the two-port noise parameters of a solution, one
// CNoiseData per frequency in ascending order. Stored as "NoiseSolution".
#pragma once

#include <map>
#include <memory>

#include "sparamlib/data/NoiseData.h"

class CNoiseDataSolution {
 public:
  CNoiseDataSolution() = default;
  CNoiseDataSolution(const CNoiseDataSolution& other);  // deep; points owned by the copy
  CNoiseDataSolution& operator=(const CNoiseDataSolution& other);

  // Adds or replaces the parameters at a frequency.
  void SetNoiseParameters(double frequency, double fmin, double goptMag, double goptAng, double rn);
  // Exact frequency; null when absent.
  const CNoiseData* GetNoiseData(double frequency) const;
  const std::map<double, std::unique_ptr<CNoiseData>>& GetPoints() const { return m_Points; }
  bool IsEmpty() const { return m_Points.empty(); }

  // One "NoiseData" sub-block per frequency.
  bool WriteToBlock(io::CBlock& block) const;
  int ReadFromBlock(const io::CBlock& block);

 private:
  std::map<double, std::unique_ptr<CNoiseData>> m_Points;
};
