// CFxemInterpolator: the interpolating sweep of a solver modal solution.
// Each solved point becomes a sample of S (n x n) and, when the solver gives
// them, of the port impedances and propagation constants, so that a point
// built anywhere in the band has all three.
#pragma once

#include "sparamlib/interp/PartitionedRangeInterpolator.h"

class CFxemModalSolution;
class CFxemModalData;
class CNetworkData;

class CFxemInterpolator : public CPartitionedRangeInterpolator {
 public:
  // Ranges are cut at 50 samples; the band starts as one range.
  explicit CFxemInterpolator(int ports, int maxSubRangeBasisSize = 50, int minNumSubRanges = 1);
  ~CFxemInterpolator() override;

  // Fills `target` (S, and the port vectors the samples carry) at its
  // frequency from the range that holds it; false outside the band or
  // before that range has samples.
  virtual bool Interpolate(const CFxemModalSolution& solution, CFxemModalData& target) const;
  // Feeds the solution's points to the ranges again, in the order they
  // were solved (the stored sequence, then any point it lacks), so that a
  // sweep read back continues exactly where it stopped.
  virtual void Rebuild(const CFxemModalSolution& solution);

  // Adds one solved point; its port vectors decide, on the first point,
  // which vectors every sample carries.
  void AddPoint(CNetworkData& point);

 private:
  bool m_HasImpedances = false;
  bool m_HasGamma = false;
};
