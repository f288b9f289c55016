// Creating, storing and reading solutions by object type.
#include "product/FxSolution.h"

#include "sparamlib/interp/FxemModalPartitionedSolution.h"
#include "sparamlib/interp/FxemModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"
#include "sparamlib/solution/TimeDataSolution.h"

std::unique_ptr<CNetworkDataSolution> FxSolution::MakeNetworkDataSolution(
    CNetworkDataSolution::ObjectType type) {
  switch (type) {
    case CNetworkDataSolution::NoObject:
      return std::make_unique<CNetworkDataSolution>();
    case CNetworkDataSolution::Modal:
      return std::make_unique<CNetworkModalSolution>();
    case CNetworkDataSolution::FxemModal:
      return std::make_unique<CFxemModalSolution>();
    case CNetworkDataSolution::Terminal:
      return std::make_unique<CNetworkTerminalSolution>();
    case CNetworkDataSolution::FxemTerminal:
      // A sweep's terminal solution would carry the sweep's interpolator,
      // which exists for modal data only; read as a plain terminal solution
      // it would be saved back under another type and without it.
      break;
  }
  return nullptr;
}

CNetworkDataSolution* FxSolution::CreateNetworkDataSolution(CNetworkDataSolution::ObjectType type) {
  m_Solution = MakeNetworkDataSolution(type);
  return m_Solution.get();
}

bool FxSolution::Write(io::CBlock& parent) const {
  if (!m_Solution) return false;
  return m_Solution->Write(parent.AddBlock("SolutionData"), true);
}

int FxSolution::Read(const io::CBlock& block) {
  int type = CNetworkDataSolution::NoObject;
  const io::ReadError found =
      block.GetEnum("ObjectType", CNetworkDataSolution::kObjectTypeNames, type);
  if (found == io::kReadUnknownName) {
    return block.ReportReadError(io::kReadBadValue, block.FindItem("ObjectType"),
                                 "\"ObjectType\": expected a known kind of solution");
  }
  if (!io::IsReadOk(found)) return found;
  std::unique_ptr<CNetworkDataSolution> solution =
      MakeNetworkDataSolution(static_cast<CNetworkDataSolution::ObjectType>(type));
  // A combined sweep is modal data with the sweeps it is made of beside.
  if (type == CNetworkDataSolution::Modal && block.FindBlock("Parts"))
    solution = std::make_unique<CFxemModalPartitionedSolution>();
  // A time-domain solution has no object type of its own: its two items,
  // written ahead of the base ones, are what tell it from a plain solution.
  if (type == CNetworkDataSolution::NoObject &&
      (block.HasItem("TimeDataType") || block.HasItem("PortTermination")))
    solution = std::make_unique<CTimeDataSolution>();
  if (!solution) {
    return block.ReportReadError(
        io::kReadBadValue, block.FindItem("ObjectType"),
        AString::Format("\"ObjectType\": %s solutions cannot be read by this version",
                        CNetworkDataSolution::kObjectTypeNames[static_cast<size_t>(type)]));
  }
  const int result = solution->Read(block);
  if (!io::IsReadOk(result)) return result;
  m_Solution = std::move(solution);
  return result;
}
