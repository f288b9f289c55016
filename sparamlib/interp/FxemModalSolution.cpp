// The solver's modal solution: solver points, the solver visit and the
// sweep's interpolator.
#include "sparamlib/interp/FxemModalSolution.h"

#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/solution/InterpolateVisitor.h"

namespace {
constexpr const char* kInterpolatorKey = "SweepInterpolator";
}

CFxemModalSolution::CFxemModalSolution(const CFxemModalSolution& other) : CNetworkModalSolution(other) {
  if (other.m_Interpolator) {
    m_Interpolator = std::make_unique<CFxemInterpolator>(*other.m_Interpolator);
    m_Interpolator->Rebuild(*this);
  }
}

CFxemModalSolution::~CFxemModalSolution() = default;

std::unique_ptr<CNetworkDataSolution> CFxemModalSolution::Clone() const {
  return std::make_unique<CFxemModalSolution>(*this);
}

std::unique_ptr<CNetworkData> CFxemModalSolution::CreateNetworkData() {
  return std::make_unique<CFxemModalData>(this);
}

void CFxemModalSolution::SetInterpolator(std::unique_ptr<CFxemInterpolator> interpolator) {
  m_Interpolator = std::move(interpolator);
}

bool CFxemModalSolution::AddSweepPoint(std::unique_ptr<CNetworkData> point) {
  CNetworkData* added = point.get();
  if (!AddNetworkData(std::move(point))) return false;
  if (m_Interpolator) m_Interpolator->AddPoint(*added);
  return true;
}

bool CFxemModalSolution::Accept(CInterpolateVisitor& visitor, CNetworkData& target) {
  auto* point = dynamic_cast<CFxemModalData*>(&target);
  return point && visitor.Visit(*this, *point);
}

bool CFxemModalSolution::Write(io::CBlock& block, bool withInterpolated) const {
  if (!CNetworkModalSolution::Write(block, withInterpolated)) return false;
  return !m_Interpolator || m_Interpolator->Write(block.AddBlock(kInterpolatorKey));
}

int CFxemModalSolution::Read(const io::CBlock& block) {
  const int result = CNetworkModalSolution::Read(block);
  if (!io::IsReadOk(result)) return result;
  m_Interpolator.reset();
  if (const io::CBlock* stored = block.FindBlock(kInterpolatorKey)) {
    if (GetNumPorts() < 1) {
      return stored->ReportReadError(io::kReadBadValue, -1, "a sweep interpolator needs the solution's ports");
    }
    auto interpolator = std::make_unique<CFxemInterpolator>(GetNumPorts());
    const int read = interpolator->Read(*stored);
    if (!io::IsReadOk(read)) return read;
    interpolator->Rebuild(*this);
    m_Interpolator = std::move(interpolator);
  }
  return result;
}
