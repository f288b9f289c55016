// Terminal solutions: terminal points, the terminal visit of the
// interpolators, and the terminal solution of a modal one.
#include "sparamlib/solution/NetworkTerminalSolution.h"

#include <string>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/InterpolateVisitor.h"
#include "sparamlib/solution/NetworkModalSolution.h"

std::unique_ptr<CNetworkDataSolution> CNetworkTerminalSolution::Clone() const {
  return std::make_unique<CNetworkTerminalSolution>(*this);
}

std::unique_ptr<CNetworkData> CNetworkTerminalSolution::CreateNetworkData() {
  return std::make_unique<CNetworkTerminalData>(this);
}

bool CNetworkTerminalSolution::Accept(CInterpolateVisitor& visitor, CNetworkData& target) {
  auto* terminal = dynamic_cast<CNetworkTerminalData*>(&target);
  return terminal && visitor.Visit(*this, *terminal);
}

namespace nd {

std::vector<int> EntriesPerPort(const CNetworkDataSolution& solution) {
  std::vector<int> blocks;
  const AString* previous = nullptr;
  for (int k = 0; k < solution.GetNumMatrixEntries(); ++k) {
    const AString& port = solution.GetMatrixEntry(k)->GetPortName();
    if (previous && !port.empty() && port == *previous) {
      ++blocks.back();
    } else {
      blocks.push_back(1);
    }
    previous = &port;
  }
  return blocks;
}

std::unique_ptr<CNetworkTerminalSolution> MakeTerminalSolution(
    const CNetworkModalSolution& modal, const TNT::CVector* terminalImpedances,
    const TerminalViewSettings& settings, AString* why) {
  auto terminal = std::make_unique<CNetworkTerminalSolution>(modal.GetName());
  terminal->SetSolutionType(modal.GetSolutionType());
  terminal->SetAdaptivePass(modal.GetAdaptivePass());
  const std::vector<int> blocks = EntriesPerPort(modal);
  int index = 0;
  for (const int count : blocks) {
    for (int t = 1; t <= count; ++t, ++index) {
      const CMatrixEntry& from = *modal.GetMatrixEntry(index);
      CMatrixEntry entry(from.GetPortName(), t, index);
      const AString name = from.GetTerminalName().empty() ? AString("T" + std::to_string(t))
                                                          : from.GetTerminalName();
      entry.SetTerminalName(name);
      entry.SetTerminalEntryName(from.GetTerminalEntryName().empty()
                                     ? AString(from.GetPortName() + ":" + name)
                                     : from.GetTerminalEntryName());
      terminal->AddMatrixEntry(entry);
    }
  }
  for (const auto& [f, point] : modal.GetFrequencyMap()) {
    const auto* modalPoint = dynamic_cast<const CNetworkModalData*>(point.get());
    std::unique_ptr<CNetworkTerminalData> view =
        modalPoint ? TerminalView(*modalPoint, blocks, terminalImpedances, settings, terminal.get())
                   : nullptr;
    if (!view) {
      if (why) {
        *why = AString::Format(
            "the point at %.17g Hz has no terminal view (a port of several modes without its "
            "terminal transform, a singular transform, or no network data)",
            f);
      }
      return nullptr;
    }
    terminal->AddNetworkData(std::move(view));
  }
  return terminal;
}

}  // namespace nd
