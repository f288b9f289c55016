// CNevilleInterpolateVisitor: fills a point at an unsolved frequency by
// diagonal rational interpolation (a Bulirsch-Stoer tableau of Neville's
// kind), run independently on every matrix entry through all solved points,
// with an estimate of the relative error in the total power. Port vectors
// (impedances, propagation constants) are interpolated by three-point
// Lagrange polynomials.
#pragma once

#include <vector>

#include "core/AComplex.h"
#include "math/matrix/MatrixOps.h"
#include "sparamlib/solution/InterpolateVisitor.h"

namespace nd {

// The tableau for every entry of `values` (one n x n matrix per solved
// frequency in `x`, ascending, N >= 2) at `target`: value matrix Y and the
// last correction E per entry.
void NevilleInterpolate(double target, const std::vector<double>& x,
                        const std::vector<const TNT::CMatrix*>& values, TNT::CMatrix& Y,
                        TNT::CMatrix& E);

// Sum over entries of (|2 Re(E conj(Y))| + |E|^2) / sum of |Y|^2: how much
// the last correction could change the total power, relatively. Not guarded
// against an all-zero Y (the result is then not a finite number).
double InterpolationError(const TNT::CMatrix& Y, const TNT::CMatrix& E);

// Port impedances (required) and propagation constants (when the solved
// points have them) of `target` by the three-point Lagrange rule around the
// solved frequency nearest to the target's. False, with the target's vectors
// untouched, when fewer than 3 points are solved or the first lacks the
// impedances.
bool InterpolatePortVectors(CNetworkModalSolution& solution, CNetworkModalData& target);

// The same rule for a terminal point: its terminal reference impedances
// (required), and its characteristic-impedance and propagation matrices
// (entry by entry) when the three solved points have them. An entry equal
// at the three points is taken as it is, so frequency-independent
// references stay exactly what they were. False, with the target untouched,
// when fewer than 3 points are solved or one of them lacks the references.
bool InterpolateTerminalVectors(CNetworkTerminalSolution& solution, CNetworkTerminalData& target);

}  // namespace nd

class CNevilleInterpolateVisitor : public CInterpolateVisitor {
 public:
  bool Visit(CFxemModalSolution& solution, CFxemModalData& target) override;
  bool Visit(CNetworkModalSolution& solution, CNetworkModalData& target) override;
  bool Visit(CNetworkTerminalSolution& solution, CNetworkTerminalData& target) override;
  bool Visit(CNetworkDataSolution& solution, CNetworkData& target) override;
};
