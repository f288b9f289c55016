// CTimeDataSolution: a solution carrying time-domain data, with the kind of
// time response and a real port termination of its own.
#pragma once

#include "sparamlib/solution/NetworkDataSolution.h"

class CTimeDataSolution : public CNetworkDataSolution {
 public:
  enum TimeDataType : int { TimeImpulse = 0, TimeStep = 1 };
  static constexpr std::array<const char*, 2> kTimeDataTypeNames = {"TimeImpulse", "TimeStep"};
  // The type of a solution whose type was never set; it has no name.
  static constexpr int kUnsetTimeDataType = 4;

  CTimeDataSolution() : CNetworkDataSolution(AString()) {}
  CTimeDataSolution(const CTimeDataSolution& other) = default;
  std::unique_ptr<CNetworkDataSolution> Clone() const override;

  double GetPortTermination() const { return m_PortTermination; }
  void SetPortTermination(double ohms) { m_PortTermination = ohms; }
  int GetTimeDataType() const { return m_TimeDataType; }
  void SetTimeDataType(int type) { m_TimeDataType = type; }

  // Own items first, then the base solution's, in the same block.
  bool Write(io::CBlock& block, bool withInterpolated) const override;
  int Read(const io::CBlock& block) override;

 private:
  double m_PortTermination = 0.0;
  int m_TimeDataType = kUnsetTimeDataType;
};
