// CBRIInterpolateVisitor: evaluates a solution's S matrix at an unsolved
// frequency from its stored barycentric weights (InterpolateBRI): one pass
// over the solved points, no fitting at request time. Port vectors of modal
// points are interpolated by the three-point Lagrange rule.
#pragma once

#include "sparamlib/InterpolateVisitor.h"

class CBRIInterpolateVisitor : public CInterpolateVisitor {
 public:
  bool Visit(CFxemModalSolution& solution, CFxemModalData& target) override;
  bool Visit(CNetworkModalSolution& solution, CNetworkModalData& target) override;
  bool Visit(CNetworkDataSolution& solution, CNetworkData& target) override;
};
