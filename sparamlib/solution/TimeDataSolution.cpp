// Time-domain solutions: their two settings and stored form.
#include "sparamlib/solution/TimeDataSolution.h"

std::unique_ptr<CNetworkDataSolution> CTimeDataSolution::Clone() const {
  return std::make_unique<CTimeDataSolution>(*this);
}

bool CTimeDataSolution::Write(io::CBlock& block, bool withInterpolated) const {
  block.AddReal("PortTermination", m_PortTermination);
  const int status = block.AddEnum("TimeDataType", kTimeDataTypeNames, m_TimeDataType);
  if (!io::IsReadOk(status) && status != io::kReadUnknownName) return false;
  return CNetworkDataSolution::Write(block, withInterpolated);
}

int CTimeDataSolution::Read(const io::CBlock& block) {
  block.GetReal("PortTermination", m_PortTermination);
  block.GetEnum("TimeDataType", kTimeDataTypeNames, m_TimeDataType);
  return CNetworkDataSolution::Read(block);
}
