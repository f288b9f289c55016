// CNetworkTerminalData: a data point seen at the conductors (terminals) of
// the ports instead of in their modes. A port with k conductors above its
// reference carries k modes; its terminal view has one row and column per
// conductor. The point holds S (or Y, Z) at its own terminal reference
// impedances, the terminal characteristic-impedance matrix and the terminal
// propagation matrix. The mode-to-terminal transform, its derivation and the
// environment variables that steer it are described in docs/terminal.md.
#pragma once

#include <memory>
#include <vector>

#include "sparamlib/data/NetworkData.h"

class CNetworkModalData;

class CNetworkTerminalData : public CNetworkData {
 public:
  explicit CNetworkTerminalData(INetworkDataOwner* owner = nullptr, double frequency = 0.0,
                                DataPointType type = None);
  CNetworkTerminalData(const CNetworkTerminalData& other);  // deep copy; same owner
  CNetworkTerminalData& operator=(const CNetworkTerminalData& other);
  CNetworkTerminalData(CNetworkTerminalData&&) noexcept = default;
  CNetworkTerminalData& operator=(CNetworkTerminalData&&) noexcept = default;
  ~CNetworkTerminalData() override;
  std::unique_ptr<CNetworkData> Clone() const override;

  // Persistence: the base keys, then "TerminalImpedance" (vector),
  // "CharacteristicImpedance" and "GammaMatrix" (n x n matrices), each only
  // when present. A damaged or non-finite one fails the read.
  int ReadFromBlock(const io::CBlock& block) override;
  bool WriteToBlock(io::CBlock& block) const override;

  // An absent matrix is computed from another one through the terminal
  // reference impedances; without them Y and Z are each other's inverse.
  CMatrix* GetSMatrix(bool compute = true) override;
  CMatrix* GetYMatrix(bool compute = true) override;
  CMatrix* GetZMatrix(bool compute = true) override;

  // nd::kPortImpedances: the terminal reference impedances (what S refers
  // to); nd::kPropagationConstants: the diagonal of the propagation matrix.
  const CVector* GetPortVector(int kind) const override;
  const CVector* GetVectorQuantity(int kind) const override;
  Complex GetVectorValue(int kind, int i) const override;
  bool IsTerminal() const override { return true; }
  bool HasPortImpedances() const override { return m_TerminalImpedance != nullptr; }
  size_t GetMemorySize() const override;

  // ---- Terminal reference impedances ---------------------------------------
  const CVector* GetTerminalImpedance() const { return m_TerminalImpedance.get(); }
  // New references; matrices derived from the old ones are dropped.
  void SetTerminalImpedance(std::unique_ptr<CVector> z);
  // Refers S to new terminal references `z` through nd::RenormalizeS; Y and
  // Z follow on demand. False (point unchanged) without references, for a
  // size mismatch, or when the new S does not exist.
  bool Renormalize(const CVector& z);

  // ---- Line quantities -------------------------------------------------------
  // Characteristic impedance matrix of the port lines at the terminals
  // (block diagonal over the ports); null when unknown.
  const CMatrix* GetCharacteristicImpedance() const { return m_CharacteristicImpedance.get(); }
  void SetCharacteristicImpedance(std::unique_ptr<CMatrix> z0) {
    m_CharacteristicImpedance = std::move(z0);
  }
  // Propagation matrix at the terminals; either the full matrix or only its
  // diagonal, as the view that made the point chose. Null when unknown.
  const CMatrix* GetGammaMatrix() const { return m_GammaMatrix.get(); }
  void SetGammaMatrix(std::unique_ptr<CMatrix> gamma);

 private:
  void RefreshGammaDiagonal();

  std::unique_ptr<CVector> m_TerminalImpedance;
  std::unique_ptr<CMatrix> m_CharacteristicImpedance;
  std::unique_ptr<CMatrix> m_GammaMatrix;
  // The propagation matrix's diagonal, kept for GetPortVector (not stored).
  std::unique_ptr<CVector> m_GammaDiagonal;
};

namespace nd {

// How a terminal view is formed from modal data, read from the environment:
//   USE_STANDARD_MODES=1          every port with two modes is taken to carry
//                                 the standard odd (differential, its first
//                                 mode) and even (common, its second mode)
//                                 modes: T_V = [[1/2, 1], [-1/2, 1]] whatever
//                                 transform the point stores (or when it
//                                 stores none).
//   VIEW_TERMINAL_GAMMA_MATRIX=1  the view keeps the full terminal
//                                 propagation matrix T_V diag(gamma) T_V^-1;
//                                 otherwise only its diagonal (off-diagonal
//                                 entries zero).
// A variable is on when its value is "1" (blanks around it allowed); unset,
// empty or any other value leaves it off.
struct TerminalViewSettings {
  bool standardModes = false;
  bool fullGammaMatrix = false;
};
TerminalViewSettings ReadTerminalViewSettings();

// T_V of the standard odd/even modes of a two-conductor port.
TNT::CMatrix StandardModeTransform();

// The block-diagonal mode-to-terminal transform T_V (n x n) of n modes
// that belong to ports as `modesPerPort` says (consecutive modes, in matrix
// order; empty: one mode per port). A port's block is the standard one (two
// modes under `standardModes`), else the block of the point's stored
// transform `stored` (used only when n x n), else 1 for a single-mode port.
// Returns 0, or 2 when the blocks do not cover the n modes, a multi-mode
// port has no transform, or the stored transform couples different ports.
int TerminalTransform(const TNT::CMatrix* stored, int n, const std::vector<int>& modesPerPort,
                      bool standardModes, TNT::CMatrix& tv);

// Terminal S at references zTerminal of the network whose modal S refers
// to zModal, for V_t = T_V V_m and I_t = T_I I_m with T_I = T_V^-T. With
// R = diag(sqrt z) and incident modal waves a,
//   A = T_V R_m (I + S_m),  B = Z_t T_I R_m^-1 (I - S_m),
//   S_t = R_t^-1 (A - B) (A + B)^-1 R_t,
// so networks without Z or Y transform too. Returns 0, 2 for inconsistent
// sizes, or the linear solve's status (1 singular T_V or A + B); on failure
// `out` is the zero matrix.
int ModalToTerminalS(const TNT::CMatrix& sModal, const TNT::CVector& zModal, const TNT::CMatrix& tv,
                     const TNT::CVector& zTerminal, TNT::CMatrix& out);

// The terminal view of a modal point (see docs/terminal.md): S through
// ModalToTerminalS at `terminalImpedances` (null: 50 ohms each), or, for a
// point without port impedances, its stored Z and Y as T_V Z T_V^T and
// T_I Y T_I^T; the characteristic-impedance matrix T_V diag(z_m) T_V^T when
// the point has port impedances; the propagation matrix T_V diag(gamma)
// T_V^-1 (or its diagonal) when it has propagation constants. The view
// belongs to `owner` (null: the modal point's owner) and takes the point's
// frequency, type and error value. Null when the transform cannot be formed
// (TerminalTransform), is singular, or the point has no network data.
std::unique_ptr<CNetworkTerminalData> TerminalView(const CNetworkModalData& modal,
                                                   const std::vector<int>& modesPerPort,
                                                   const TNT::CVector* terminalImpedances,
                                                   const TerminalViewSettings& settings,
                                                   INetworkDataOwner* owner = nullptr);

// The modes back from a terminal propagation matrix: for each diagonal
// block (`terminalsPerPort`; empty: the whole matrix is one port) the
// eigenvalues gamma and eigenvectors, the columns of T_V, so that
// gammaT = T_V diag(gamma) T_V^-1 block by block. Within a port the modes
// are ordered by increasing imaginary part (then real part) of gamma; each
// column has unit length and its largest component (the first of equal
// ones) real and positive. Returns 0, 2 for bad blocks, or the
// eigen-solver's status; the outputs are untouched on failure.
int ModesFromTerminalGamma(const TNT::CMatrix& gammaT, const std::vector<int>& terminalsPerPort,
                           TNT::CVector& gamma, TNT::CMatrix& tv);

// Mode impedances that go with a transform: the diagonal of
// T_V^-1 Z0_t T_V^-T (diagonal exactly when T_V decouples the lines).
// Returns 0, 2 for inconsistent sizes or 1 for a singular T_V.
int ModalImpedancesFromTerminal(const TNT::CMatrix& z0t, const TNT::CMatrix& tv,
                                TNT::CVector& zModal);

}  // namespace nd
