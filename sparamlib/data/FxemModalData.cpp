// The solver's modal point: conversions only once port impedances exist.
#include "sparamlib/data/FxemModalData.h"

#include "sparamlib/data/BlockMatrixIO.h"

CFxemModalData::CFxemModalData(const CFxemModalData& other)
    : CNetworkModalData(other),
      m_Zpv(other.m_Zpv ? std::make_unique<CVector>(*other.m_Zpv) : nullptr),
      m_Zvi(other.m_Zvi ? std::make_unique<CVector>(*other.m_Zvi) : nullptr) {}

std::unique_ptr<CNetworkData> CFxemModalData::Clone() const {
  return std::make_unique<CFxemModalData>(*this);
}

bool CFxemModalData::WriteToBlock(io::CBlock& block) const {
  if (!CNetworkModalData::WriteToBlock(block)) return false;
  if (m_Zpv) nd::WriteVector(block, "PortImpedanceZpv", *m_Zpv);
  if (m_Zvi) nd::WriteVector(block, "PortImpedanceZvi", *m_Zvi);
  return true;
}

int CFxemModalData::ReadFromBlock(const io::CBlock& block) {
  const int result = CNetworkModalData::ReadFromBlock(block);
  const int n = GetNumPorts();
  if (n < 1) return result;
  nd::ReadOptionalVector(block, "PortImpedanceZpv", m_Zpv, n);
  nd::ReadOptionalVector(block, "PortImpedanceZvi", m_Zvi, n);
  return result;
}

CFxemModalData::CMatrix* CFxemModalData::GetSMatrix(bool compute) {
  CMatrix* s = CNetworkModalData::GetSMatrix(false);
  if (!s && compute && GetPortImpedance()) s = CNetworkModalData::GetSMatrix(true);
  return s;
}

CFxemModalData::CMatrix* CFxemModalData::GetYMatrix(bool compute) {
  CMatrix* y = CNetworkModalData::GetYMatrix(false);
  if (!y && compute && GetPortImpedance()) y = CNetworkModalData::GetYMatrix(true);
  return y;
}

CFxemModalData::CMatrix* CFxemModalData::GetZMatrix(bool compute) {
  CMatrix* z = CNetworkModalData::GetZMatrix(false);
  if (!z && compute && GetPortImpedance()) z = CNetworkModalData::GetZMatrix(true);
  return z;
}
