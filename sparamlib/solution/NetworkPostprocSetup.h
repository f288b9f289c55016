// CNetworkPostprocSetup: what is done to one solution's network data after
// solving (renormalisation, de-embedding, impedance definition, differential
// pairs, extrapolation to DC, lumped-port calibration) and its stored form.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "core/AComplex.h"
#include "core/Block.h"
#include "math/matrix/Vector.h"
#include "sparamlib/solution/FxemDifferentialPair.h"

class CNetworkPostprocSetup {
 public:
  using Complex = AComplex<double>;
  using CVector = TNT::Vector<Complex>;
  using RVector = TNT::Vector<double>;

  // How a port's characteristic impedance is defined: from power and
  // current, power and voltage, or voltage and current.
  enum class ImpedanceKind : int { NotSet = -1, Zpi = 0, Zpv = 1, Zvi = 2 };

  CNetworkPostprocSetup() = default;
  CNetworkPostprocSetup(const CNetworkPostprocSetup& other);  // deep: vectors and pairs
  CNetworkPostprocSetup& operator=(const CNetworkPostprocSetup& other);
  CNetworkPostprocSetup(CNetworkPostprocSetup&&) noexcept = default;
  CNetworkPostprocSetup& operator=(CNetworkPostprocSetup&&) noexcept = default;
  ~CNetworkPostprocSetup();

  // Replaces the default renormalisation impedances and de-embedding
  // distances (either may be null: that setting is then off). A vector whose
  // size is not the matrix size is a programming error and leaves its
  // setting off. Per-entry overrides are then laid over the new defaults.
  void SetPostprocessing(bool isModal, const CVector* renormImpeds, const RVector* deembedDists);
  // Per-entry overrides (index into the matrix entries, value). Each call
  // replaces the previous overrides; an empty list removes them.
  void SetRenormImpeds(const std::vector<std::pair<int, Complex>>& renormImpeds);
  void SetDeembedDists(const std::vector<std::pair<int, double>>& deembedDists);

  // Effective values: the per-entry vector when there is one, else the
  // defaults; null when neither exists.
  const CVector* GetRenormImpeds() const;
  const RVector* GetDeembedDists() const;
  const CVector* GetDefaultRenormImpeds() const { return m_DefaultImpeds.get(); }
  const RVector* GetDefaultDeembedDists() const { return m_DefaultDists.get(); }
  const CVector* GetPortImpedances() const { return m_PortImpeds.get(); }
  void SetPortImpedances(const CVector* impeds);  // copied; null removes them

  bool DoesRenormalize() const;
  bool DoesDeembed() const;
  bool HasPortCalibration() const;
  bool NeedsPostprocessing() const;

  int GetNumPorts() const { return m_NumPorts; }
  void SetNumPorts(int numPorts) { m_NumPorts = numPorts; }
  int GetMatrixSize() const { return m_MatrixSize; }
  void SetMatrixSize(int matrixSize) { m_MatrixSize = matrixSize; }
  bool IsModal() const { return m_IsModal; }
  void SetModal(bool isModal) { m_IsModal = isModal; }
  bool GetDoRenorm() const { return m_DoRenorm; }
  bool GetDoDeembed() const { return m_DoDeembed; }
  bool GetUseZpiOnly() const { return m_UseZpiOnly; }
  void SetUseZpiOnly(bool zpiOnly) { m_UseZpiOnly = zpiOnly; }
  bool GetLosslessDeembed() const { return m_LosslessDeembed; }
  void SetLosslessDeembed(bool lossless) { m_LosslessDeembed = lossless; }
  double GetImpedMultiplier() const { return m_ImpedMultiplier; }
  void SetImpedMultiplier(double multiplier) { m_ImpedMultiplier = multiplier; }
  bool GetExtrapToDC() const { return m_ExtrapToDC; }
  void SetExtrapToDC(bool extrapolate) { m_ExtrapToDC = extrapolate; }

  const std::vector<int>& GetModes() const { return m_Modes; }
  void SetModes(std::vector<int> modes) { m_Modes = std::move(modes); }
  const std::vector<bool>& GetPortRenormFlags() const { return m_DoPortRenorm; }
  void SetPortRenormFlags(std::vector<bool> flags) { m_DoPortRenorm = std::move(flags); }
  const std::vector<ImpedanceKind>& GetCharImpedanceKinds() const { return m_PortCharImpeds; }
  void SetCharImpedanceKinds(std::vector<ImpedanceKind> kinds) {
    m_PortCharImpeds = std::move(kinds);
  }

  int GetNumDiffPairs() const { return static_cast<int>(m_DiffPairs.size()); }
  const CFxemDifferentialPair* GetDiffPair(int i) const;
  CFxemDifferentialPair* GetDiffPair(int i);
  void AddDiffPair(std::unique_ptr<CFxemDifferentialPair> pair);
  void ClearDiffPairs() { m_DiffPairs.clear(); }

  // Lumped-port calibration, one entry per port.
  const std::vector<double>& GetPortLengths() const { return m_PortLengths; }
  const std::vector<double>& GetPortWidths() const { return m_PortWidths; }
  const std::vector<bool>& GetCalibratePorts() const { return m_CalibratePorts; }
  void SetPortCalibration(std::vector<bool> calibrate, std::vector<double> lengths,
                          std::vector<double> widths);

  bool Write(io::CBlock& block) const;
  int Read(const io::CBlock& block);

 private:
  // Lays the per-entry overrides over the current defaults.
  void RebuildEffectiveValues();

  int m_NumPorts = 0;
  int m_MatrixSize = 0;  // all modes or terminals of all ports
  bool m_IsModal = true;
  bool m_DoRenorm = false;
  bool m_DoDeembed = false;
  bool m_UseZpiOnly = true;
  std::unique_ptr<CVector> m_PortImpeds;
  std::unique_ptr<CVector> m_DefaultImpeds;
  std::unique_ptr<CVector> m_Impeds;  // effective per-entry values once overridden
  std::unique_ptr<RVector> m_DefaultDists;
  std::unique_ptr<RVector> m_Dists;
  bool m_LosslessDeembed = true;
  std::vector<int> m_Modes;
  std::vector<bool> m_DoPortRenorm;
  std::vector<ImpedanceKind> m_PortCharImpeds;
  double m_ImpedMultiplier = 1.0;
  std::vector<std::unique_ptr<CFxemDifferentialPair>> m_DiffPairs;
  bool m_ExtrapToDC = false;
  std::vector<double> m_PortLengths;
  std::vector<double> m_PortWidths;
  std::vector<bool> m_CalibratePorts;

  // The overrides as last given, so new defaults can be laid under them.
  // Not stored: a setup read from a file keeps its per-entry vectors as read.
  std::vector<std::pair<int, Complex>> m_RenormOverrides;
  std::vector<std::pair<int, double>> m_DistOverrides;
};
