// CFxemModalPartitionedSolution: one solution made of sweeps over adjacent
// or overlapping bands (a combined sweep). Each part keeps its own points
// and its own way of interpolating; the combined solution holds the solved
// points of each part inside that part's share of the band, and answers a
// frequency between them from the part whose share contains it.
//
// Shares: the parts are ordered by their lowest solved frequency. Where two
// neighbours overlap, the overlap is split at its midpoint: the lower part
// keeps what lies below the midpoint, the upper part the midpoint and above.
// A gap between neighbours (nothing solved there), a part lying inside
// another, or parts with different port counts are refused by Combine.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sparamlib/solution/NetworkModalSolution.h"

class CFxemModalPartitionedSolution : public CNetworkModalSolution {
 public:
  using CNetworkModalSolution::CNetworkModalSolution;
  CFxemModalPartitionedSolution(const CFxemModalPartitionedSolution& other);
  std::unique_ptr<CNetworkDataSolution> Clone() const override;

  // Builds the combined solution from `parts` (taken over). False with the
  // reason when the bands cannot be combined (see above).
  bool Combine(std::vector<std::unique_ptr<CNetworkDataSolution>> parts, std::string* why);

  const std::vector<std::unique_ptr<CNetworkDataSolution>>& GetParts() const { return m_Parts; }
  // The lower end of each part's share (the first is its lowest solved
  // frequency); a share runs to the next part's lower end.
  const std::vector<double>& GetShareStarts() const { return m_ShareStarts; }
  // The solved frequencies of the combined solution, ascending: what an
  // export writes when asked for no frequencies of its own.
  const std::vector<double>* GetOwnFrequencyList() const override { return &m_Frequencies; }

  // The combined points and entries as any solution writes them, then the
  // parts, each a "SolutionData" block under "Parts".
  bool Write(io::CBlock& block, bool withInterpolated) const override;
  int Read(const io::CBlock& block) override;

 protected:
  // Answers from the part whose share holds the frequency.
  bool Accept(CInterpolateVisitor& visitor, CNetworkData& target) override;
  std::unique_ptr<CInterpolateVisitor> MakeInterpolateVisitor() const override;

 private:
  void Rebuild();
  const CNetworkDataSolution* PartFor(double frequency) const;

  std::vector<std::unique_ptr<CNetworkDataSolution>> m_Parts;
  std::vector<double> m_ShareStarts;
  std::vector<double> m_Frequencies;
};
