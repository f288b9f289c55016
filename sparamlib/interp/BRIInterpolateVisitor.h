// CBRIInterpolateVisitor: evaluates a solution's S matrix at an unsolved
// frequency from its stored barycentric weights (InterpolateBRI): one pass
// over the solved points, no fitting at request time. Port vectors of modal
// points and the references and line matrices of terminal points are
// interpolated by the three-point Lagrange rule.
#pragma once

#include <memory>

#include "core/AString.h"
#include "sparamlib/fit/BRIWeights.h"
#include "sparamlib/solution/InterpolateVisitor.h"

class InterpolateBRI;

class CBRIInterpolateVisitor : public CInterpolateVisitor {
 public:
  bool Visit(CFxemModalSolution& solution, CFxemModalData& target) override;
  bool Visit(CNetworkModalSolution& solution, CNetworkModalData& target) override;
  bool Visit(CNetworkTerminalSolution& solution, CNetworkTerminalData& target) override;
  bool Visit(CNetworkDataSolution& solution, CNetworkData& target) override;
};

namespace nd {

// The weight set of a solution's solved points; null (with the reason in
// `why`) when the solution has no points or a point has no n x n S.
std::unique_ptr<InterpolateBRI> ComputeBRIWeights(CNetworkDataSolution& solution,
                                                  const RationalFitOptions& options = {},
                                                  AString* why = nullptr);

}  // namespace nd
