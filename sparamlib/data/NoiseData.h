// CNoiseData: the four noise parameters of a two-port at one frequency,
// kept beside the network data by a noise solution. A plain value holder.
#pragma once

#include "core/Block.h"

class CNoiseDataSolution;

class CNoiseData {
 public:
  CNoiseData() = default;
  CNoiseData(CNoiseDataSolution* owner, double frequency) : m_Owner(owner), m_Frequency(frequency) {}
  CNoiseData(const CNoiseData& other) = default;  // copies the owner too
  // Copies frequency and noise values; the target keeps its own owner.
  CNoiseData& operator=(const CNoiseData& other);
  virtual ~CNoiseData() = default;

  virtual double GetFrequency() const { return m_Frequency; }
  virtual int ReadFromBlock(const io::CBlock& block);
  virtual bool WriteToBlock(io::CBlock& block) const;
  virtual bool SetNoiseParameters(double fmin, double goptMag, double goptAng, double rn);
  virtual void GetNoiseParameters(double& fmin, double& goptMag, double& goptAng,
                                  double& rn) const;

  CNoiseDataSolution* GetOwner() const { return m_Owner; }

 private:
  CNoiseDataSolution* m_Owner = nullptr;  // not owned
  double m_Frequency = 0.0;
  double m_Fmin = 0.0;
  double m_GoptMag = 0.0;
  double m_GoptAng = 0.0;
  double m_Rn = 0.0;
};
