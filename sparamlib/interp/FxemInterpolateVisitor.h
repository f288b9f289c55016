// CFxemInterpolateVisitor: interpolation of a solver solution by the
// solver's own interpolator (the interpolating sweep that produced it).
#pragma once

#include "sparamlib/solution/InterpolateVisitor.h"

class CFxemInterpolateVisitor : public CInterpolateVisitor {
 public:
  bool Visit(CFxemModalSolution& solution, CFxemModalData& target) override;
  bool Visit(CNetworkDataSolution& solution, CNetworkData& target) override;
};
