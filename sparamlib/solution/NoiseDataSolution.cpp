// Noise parameters over frequency and their stored form.
#include "sparamlib/solution/NoiseDataSolution.h"

CNoiseDataSolution::CNoiseDataSolution(const CNoiseDataSolution& other) { *this = other; }

CNoiseDataSolution& CNoiseDataSolution::operator=(const CNoiseDataSolution& other) {
  if (this == &other) return *this;
  m_Points.clear();
  for (const auto& [f, point] : other.m_Points) {
    auto copy = std::make_unique<CNoiseData>(this, f);
    *copy = *point;
    m_Points.emplace(f, std::move(copy));
  }
  return *this;
}

void CNoiseDataSolution::SetNoiseParameters(double frequency, double fmin, double goptMag,
                                            double goptAng, double rn) {
  auto& point = m_Points[frequency];
  if (!point) point = std::make_unique<CNoiseData>(this, frequency);
  point->SetNoiseParameters(fmin, goptMag, goptAng, rn);
}

const CNoiseData* CNoiseDataSolution::GetNoiseData(double frequency) const {
  const auto it = m_Points.find(frequency);
  return it == m_Points.end() ? nullptr : it->second.get();
}

bool CNoiseDataSolution::WriteToBlock(io::CBlock& block) const {
  for (const auto& [f, point] : m_Points)
    if (!point->WriteToBlock(block.AddBlock("NoiseData"))) return false;
  return true;
}

int CNoiseDataSolution::ReadFromBlock(const io::CBlock& block) {
  for (const io::CBlock* sub : block.FindBlocks("NoiseData")) {
    auto point = std::make_unique<CNoiseData>(this, 0.0);
    const int result = point->ReadFromBlock(*sub);
    if (!io::IsReadOk(result)) return result;
    const double f = point->GetFrequency();
    m_Points[f] = std::move(point);
  }
  return io::kReadOk;
}
