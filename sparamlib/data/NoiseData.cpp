// Noise parameters at one frequency and their stored form.
#include "sparamlib/data/NoiseData.h"

CNoiseData& CNoiseData::operator=(const CNoiseData& other) {
  if (this == &other) return *this;
  m_Frequency = other.m_Frequency;
  m_Fmin = other.m_Fmin;
  m_GoptMag = other.m_GoptMag;
  m_GoptAng = other.m_GoptAng;
  m_Rn = other.m_Rn;
  return *this;
}

int CNoiseData::ReadFromBlock(const io::CBlock& block) {
  // Absent or unreadable items keep their values; reading never fails.
  block.GetReal("Frequency", m_Frequency);
  block.GetReal("Fmin", m_Fmin);
  block.GetReal("GoptMag", m_GoptMag);
  block.GetReal("GoptAng", m_GoptAng);
  block.GetReal("Rn", m_Rn);
  return io::kReadOk;
}

bool CNoiseData::WriteToBlock(io::CBlock& block) const {
  block.AddReal("Frequency", m_Frequency);
  block.AddReal("Fmin", m_Fmin);
  block.AddReal("GoptMag", m_GoptMag);
  block.AddReal("GoptAng", m_GoptAng);
  block.AddReal("Rn", m_Rn);
  return true;
}

bool CNoiseData::SetNoiseParameters(double fmin, double goptMag, double goptAng, double rn) {
  m_Fmin = fmin;
  m_GoptMag = goptMag;
  m_GoptAng = goptAng;
  m_Rn = rn;
  return true;
}

void CNoiseData::GetNoiseParameters(double& fmin, double& goptMag, double& goptAng,
                                    double& rn) const {
  fmin = m_Fmin;
  goptMag = m_GoptMag;
  goptAng = m_GoptAng;
  rn = m_Rn;
}
