// CFxemModalSolution: the modal solution the field solver fills, point by
// point, during a sweep. Its points are solver modal points.
#pragma once

#include "sparamlib/NetworkModalSolution.h"

class CFxemModalSolution : public CNetworkModalSolution {
 public:
  using CNetworkModalSolution::CNetworkModalSolution;
  std::unique_ptr<CNetworkDataSolution> Clone() const override;
  ObjectType GetObjectType() const override { return FxemModal; }
  std::unique_ptr<CNetworkData> CreateNetworkData() override;

 protected:
  bool Accept(CInterpolateVisitor& visitor, CNetworkData& target) override;
};
