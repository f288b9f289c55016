// The solver's modal point: conversions only once port impedances exist.
#include "sparamlib/data/FxemModalData.h"

std::unique_ptr<CNetworkData> CFxemModalData::Clone() const {
  return std::make_unique<CFxemModalData>(*this);
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
