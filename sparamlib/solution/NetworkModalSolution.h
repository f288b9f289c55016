// CNetworkModalSolution: a solution whose points are modal data points
// (port impedances and propagation constants per mode).
#pragma once

#include "sparamlib/solution/NetworkDataSolution.h"

class CNetworkModalSolution : public CNetworkDataSolution {
 public:
  using CNetworkDataSolution::CNetworkDataSolution;
  std::unique_ptr<CNetworkDataSolution> Clone() const override;
  ObjectType GetObjectType() const override { return Modal; }
  std::unique_ptr<CNetworkData> CreateNetworkData() override;
  // Modal solutions of a discrete sweep may be interpolated between their
  // solved frequencies.
  bool CanInterpolateDiscrete() const override { return true; }

 protected:
  bool Accept(CInterpolateVisitor& visitor, CNetworkData& target) override;
};
