// CFxemModalData: a modal point produced by the field solver. Such a point
// has no meaningful Y or Z until the solver has given it port impedances,
// so it computes nothing without them.
#pragma once

#include "sparamlib/data/NetworkModalData.h"

class CFxemModalData : public CNetworkModalData {
 public:
  using CNetworkModalData::CNetworkModalData;
  CFxemModalData(const CFxemModalData& other);
  std::unique_ptr<CNetworkData> Clone() const override;

  CMatrix* GetSMatrix(bool compute = true) override;
  CMatrix* GetYMatrix(bool compute = true) override;
  CMatrix* GetZMatrix(bool compute = true) override;

  // A port's characteristic impedance can be defined from power and current
  // (Zpi, the port impedance S is referred to), power and voltage (Zpv) or
  // voltage and current (Zvi). A solver that computes the other two gives
  // them here, one value per mode; null when it did not.
  const CVector* GetImpedanceZpv() const { return m_Zpv.get(); }
  const CVector* GetImpedanceZvi() const { return m_Zvi.get(); }
  void SetImpedanceZpv(std::unique_ptr<CVector> z) { m_Zpv = std::move(z); }
  void SetImpedanceZvi(std::unique_ptr<CVector> z) { m_Zvi = std::move(z); }

  // The modal items, then "PortImpedanceZpv" and "PortImpedanceZvi" when
  // present.
  int ReadFromBlock(const io::CBlock& block) override;
  bool WriteToBlock(io::CBlock& block) const override;

 private:
  std::unique_ptr<CVector> m_Zpv;
  std::unique_ptr<CVector> m_Zvi;
};
