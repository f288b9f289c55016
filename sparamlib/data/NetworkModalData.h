// CNetworkModalData: a data point of a modal solution. Each port mode carries
// a complex reference (port) impedance and a propagation constant; every S, Y
// and Z conversion of the point refers to those port impedances.
#pragma once

#include "sparamlib/data/NetworkData.h"

class CNetworkModalData : public CNetworkData {
 public:
  explicit CNetworkModalData(INetworkDataOwner* owner = nullptr, double frequency = 0.0,
                             DataPointType type = None);
  CNetworkModalData(const CNetworkModalData& other);  // deep copy
  CNetworkModalData& operator=(const CNetworkModalData& other);
  CNetworkModalData(CNetworkModalData&&) noexcept = default;
  CNetworkModalData& operator=(CNetworkModalData&&) noexcept = default;
  ~CNetworkModalData() override;
  std::unique_ptr<CNetworkData> Clone() const override;

  int ReadFromBlock(const io::CBlock& block) override;
  bool WriteToBlock(io::CBlock& block) const override;

  // Computes an absent matrix from another one through the port impedances;
  // without port impedances Y and Z are the inverses of each other.
  CMatrix* GetSMatrix(bool compute = true) override;
  CMatrix* GetYMatrix(bool compute = true) override;
  CMatrix* GetZMatrix(bool compute = true) override;

  const CVector* GetPortVector(int kind) const override;
  const CVector* GetVectorQuantity(int kind) const override;
  Complex GetVectorValue(int kind, int i) const override;
  bool IsModal() const override { return true; }
  bool HasPortImpedances() const override { return m_PortImpedance != nullptr; }
  void Accept(CNetworkDataVisitor& visitor) override;

  // The point this one stands for, when set; otherwise this point.
  CNetworkData* GetNetworkData() override;
  void SetBaseData(CNetworkData* base) { m_BaseData = base; }

  CVector* GetPortImpedance() { return m_PortImpedance.get(); }
  const CVector* GetPortImpedance() const { return m_PortImpedance.get(); }
  // New port impedances; matrices derived from the old ones are dropped.
  void SetPortImpedance(std::unique_ptr<CVector> z);
  // Refers the point to new port impedances `z` (one per mode): S becomes
  // the scattering matrix of the same network seen through `z`, and `z`
  // becomes the point's port impedances. Y and Z are unchanged and computed
  // again on demand. False (point unchanged) without port impedances, for a
  // size mismatch, or when the new S does not exist.
  bool Renormalize(const CVector& z);

  CVector* GetGamma() { return m_Gamma.get(); }
  const CVector* GetGamma() const { return m_Gamma.get(); }
  void SetGamma(std::unique_ptr<CVector> gamma) { m_Gamma = std::move(gamma); }
  CMatrix* GetTerminalTransform() { return m_TerminalTransform.get(); }
  void SetTerminalTransform(std::unique_ptr<CMatrix> t) { m_TerminalTransform = std::move(t); }

 private:
  CNetworkData* m_BaseData = nullptr;  // not owned
  std::unique_ptr<CVector> m_Gamma;
  std::unique_ptr<CVector> m_PortImpedance;
  std::unique_ptr<CMatrix> m_TerminalTransform;
};
