// CFxemModalData: a modal point produced by the field solver. Such a point
// has no meaningful Y or Z until the solver has given it port impedances,
// so it computes nothing without them.
#pragma once

#include "sparamlib/data/NetworkModalData.h"

class CFxemModalData : public CNetworkModalData {
 public:
  using CNetworkModalData::CNetworkModalData;
  std::unique_ptr<CNetworkData> Clone() const override;

  CMatrix* GetSMatrix(bool compute = true) override;
  CMatrix* GetYMatrix(bool compute = true) override;
  CMatrix* GetZMatrix(bool compute = true) override;
};
