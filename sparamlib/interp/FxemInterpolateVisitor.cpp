// Delegation of solver solutions to their sweep's interpolator.
#include "sparamlib/interp/FxemInterpolateVisitor.h"

#include "core/Assert.h"
#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/interp/FxemInterpolator.h"
#include "sparamlib/interp/FxemModalSolution.h"

bool CFxemInterpolateVisitor::Visit(CNetworkDataSolution& solution, CNetworkData& target) {
  auto* fxem = dynamic_cast<CFxemModalSolution*>(&solution);
  auto* point = dynamic_cast<CFxemModalData*>(&target);
  if (!fxem || !point) return false;
  return Visit(*fxem, *point);
}

bool CFxemInterpolateVisitor::Visit(CFxemModalSolution& solution, CFxemModalData& target) {
  const CFxemInterpolator* interp = solution.GetInterpolator();
  ASSERT(interp != 0);
  if (!interp) return false;
  // The first solved point tells whether the solver's points carry Y and Z
  // besides S; interpolated points then carry them too.
  bool hasY = false, hasZ = false;
  if (!solution.GetFrequencyMap().empty()) {
    CNetworkData& first = *solution.GetFrequencyMap().begin()->second;
    hasY = first.GetYMatrix(false) != nullptr;
    hasZ = first.GetZMatrix(false) != nullptr;
  }
  if (!interp->Interpolate(solution, target)) return false;
  if (target.GetNumPorts() > 0) {
    if (hasY) target.GetYMatrix(true);
    if (hasZ) target.GetZMatrix(true);
  }
  return true;
}
