// CNetworkTerminalSolution: a solution whose points are terminal points:
// one row and column of every matrix per conductor of each port, named by
// the entries' port and terminal names. Stored with ObjectType "Terminal".
#pragma once

#include <vector>

#include "sparamlib/data/NetworkTerminalData.h"
#include "sparamlib/solution/NetworkDataSolution.h"

class CNetworkModalSolution;

class CNetworkTerminalSolution : public CNetworkDataSolution {
 public:
  using CNetworkDataSolution::CNetworkDataSolution;
  std::unique_ptr<CNetworkDataSolution> Clone() const override;
  ObjectType GetObjectType() const override { return Terminal; }
  std::unique_ptr<CNetworkData> CreateNetworkData() override;
  // Like modal solutions, a discrete sweep of terminal data may be
  // interpolated between its solved frequencies.
  bool CanInterpolateDiscrete() const override { return true; }

 protected:
  bool Accept(CInterpolateVisitor& visitor, CNetworkData& target) override;
};

namespace nd {

// How many consecutive entries each port has: a run of entries with the
// same port name is one port (an entry without a port name is a port of
// its own). The blocks TerminalView expects, from a solution's entries.
std::vector<int> EntriesPerPort(const CNetworkDataSolution& solution);

// The terminal solution of a modal one: the terminal view of every solved
// point (TerminalView with the ports of EntriesPerPort, references
// `terminalImpedances` or 50 ohms, `settings`), one entry per terminal with
// the modal entry's port name, its terminal names where it has them
// (otherwise terminal "T<k>", k counting within the port, and entry
// "<port>:T<k>"), the name, solution type and adaptive pass of the modal
// solution. Interpolated points, barycentric weights and the
// post-processing setup belong to the modal data and are not carried over.
// Null, with the reason in `why`, when a point has no terminal view.
std::unique_ptr<CNetworkTerminalSolution> MakeTerminalSolution(
    const CNetworkModalSolution& modal, const TNT::CVector* terminalImpedances,
    const TerminalViewSettings& settings, AString* why = nullptr);

}  // namespace nd
