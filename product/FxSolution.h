// FxSolution: the host's handle on one network data solution. It creates
// the solution class an object type calls for and hands the solution to
// readers as const.
#pragma once

#include <memory>

#include "sparamlib/solution/NetworkDataSolution.h"

class FxSolution {
 public:
  FxSolution() = default;
  explicit FxSolution(std::unique_ptr<CNetworkDataSolution> solution)
      : m_Solution(std::move(solution)) {}

  // A new empty solution of the class for `type`, owned by this handle (the
  // previous one is dropped). Null for kinds this build cannot hold.
  CNetworkDataSolution* CreateNetworkDataSolution(CNetworkDataSolution::ObjectType type);
  static std::unique_ptr<CNetworkDataSolution> MakeNetworkDataSolution(
      CNetworkDataSolution::ObjectType type);

  const CNetworkDataSolution* GetNetworkDataSolution() const { return m_Solution.get(); }
  // Replaces the solution (the previous one is dropped).
  void SetSolution(std::unique_ptr<CNetworkDataSolution> solution) { m_Solution = std::move(solution); }
  // For the producers of data (solvers, importers) only.
  CNetworkDataSolution* GetWritableSolution() { return m_Solution.get(); }

  // The solution as a "SolutionData" block; reading picks the class from
  // its "ObjectType".
  bool Write(io::CBlock& parent) const;
  int Read(const io::CBlock& block);

 private:
  std::unique_ptr<CNetworkDataSolution> m_Solution;
};
