// CFxemModalSolution: the modal solution the field solver fills, point by
// point, during a sweep. Its points are solver modal points; an
// interpolating sweep keeps its interpolator here, stored with the
// solution, so that a sweep read back answers anywhere in its band and can
// go on.
#pragma once

#include <memory>

#include "sparamlib/interp/FxemInterpolator.h"
#include "sparamlib/solution/NetworkModalSolution.h"

class CFxemModalSolution : public CNetworkModalSolution {
 public:
  using CNetworkModalSolution::CNetworkModalSolution;
  CFxemModalSolution(const CFxemModalSolution& other);
  ~CFxemModalSolution() override;
  std::unique_ptr<CNetworkDataSolution> Clone() const override;
  ObjectType GetObjectType() const override { return FxemModal; }
  std::unique_ptr<CNetworkData> CreateNetworkData() override;

  // The sweep's interpolator; null for solutions of other sweeps.
  const CFxemInterpolator* GetInterpolator() const { return m_Interpolator.get(); }
  CFxemInterpolator* GetInterpolator() { return m_Interpolator.get(); }
  void SetInterpolator(std::unique_ptr<CFxemInterpolator> interpolator);
  // Adds a solved point and hands it to the interpolator, if any. False
  // (point deleted) when that frequency is already solved.
  bool AddSweepPoint(std::unique_ptr<CNetworkData> point);

  bool Write(io::CBlock& block, bool withInterpolated) const override;
  int Read(const io::CBlock& block) override;

 protected:
  bool Accept(CInterpolateVisitor& visitor, CNetworkData& target) override;

 private:
  std::unique_ptr<CFxemInterpolator> m_Interpolator;
};
