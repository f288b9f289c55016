// Modal solutions: modal points and the modal visit of the interpolators.
#include "sparamlib/solution/NetworkModalSolution.h"

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/InterpolateVisitor.h"

std::unique_ptr<CNetworkDataSolution> CNetworkModalSolution::Clone() const {
  return std::make_unique<CNetworkModalSolution>(*this);
}

std::unique_ptr<CNetworkData> CNetworkModalSolution::CreateNetworkData() {
  return std::make_unique<CNetworkModalData>(this);
}

bool CNetworkModalSolution::Accept(CInterpolateVisitor& visitor, CNetworkData& target) {
  auto* modal = dynamic_cast<CNetworkModalData*>(&target);
  return modal && visitor.Visit(*this, *modal);
}
