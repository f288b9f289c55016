// CInterpolateVisitor: produces a data point at a frequency a solution did
// not solve. A solution hands itself and an empty target point to the visit
// that matches its own kind; the target then holds the interpolated matrices
// and an error value, or the visit returns false and leaves it untouched.
#pragma once

class CNetworkDataSolution;
class CNetworkModalSolution;
class CFxemModalSolution;
class CNetworkTerminalSolution;
class CNetworkData;
class CNetworkModalData;
class CFxemModalData;
class CNetworkTerminalData;

class CInterpolateVisitor {
 public:
  virtual ~CInterpolateVisitor() = default;
  // Each kind of solution is interpolated only by visitors that override its visit.
  virtual bool Visit(CFxemModalSolution&, CFxemModalData&) { return false; }
  virtual bool Visit(CNetworkModalSolution&, CNetworkModalData&) { return false; }
  virtual bool Visit(CNetworkTerminalSolution&, CNetworkTerminalData&) { return false; }
  virtual bool Visit(CNetworkDataSolution&, CNetworkData&) { return false; }
};
