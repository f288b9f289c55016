// Which visitor interpolates a solution of each type. The solution declares
// the choice and the interpolation room defines it, so that the solution
// room needs no visitor but the abstract one.
#include "sparamlib/interp/BRIInterpolateVisitor.h"
#include "sparamlib/interp/FxemInterpolateVisitor.h"
#include "sparamlib/interp/NevilleInterpolateVisitor.h"
#include "sparamlib/solution/NetworkDataSolution.h"

std::unique_ptr<CInterpolateVisitor> CNetworkDataSolution::MakeInterpolateVisitor() const {
  switch (m_SolutionType) {
    case DiscreteSweep:
      if (!CanInterpolateDiscrete()) return nullptr;
      return std::make_unique<CNevilleInterpolateVisitor>();
    case InterpolateNeville:
      return std::make_unique<CNevilleInterpolateVisitor>();
    case InterpolateBRI:
      return std::make_unique<CBRIInterpolateVisitor>();
    case FxemFastSweep:
    case FxemInterpolatingSweep:
      return std::make_unique<CFxemInterpolateVisitor>();
    default:
      // The state-space fit is not available.
      return nullptr;
  }
}
