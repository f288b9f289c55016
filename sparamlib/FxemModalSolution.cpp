// The solver's modal solution: solver points and the solver visit.
#include "sparamlib/FxemModalSolution.h"

#include "sparamlib/FxemModalData.h"
#include "sparamlib/InterpolateVisitor.h"

std::unique_ptr<CNetworkDataSolution> CFxemModalSolution::Clone() const {
  return std::make_unique<CFxemModalSolution>(*this);
}

std::unique_ptr<CNetworkData> CFxemModalSolution::CreateNetworkData() {
  return std::make_unique<CFxemModalData>(this);
}

bool CFxemModalSolution::Accept(CInterpolateVisitor& visitor, CNetworkData& target) {
  auto* point = dynamic_cast<CFxemModalData*>(&target);
  return point && visitor.Visit(*this, *point);
}
