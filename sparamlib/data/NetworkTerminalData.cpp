// Terminal data points and the view of a modal point at its terminals.
#include "sparamlib/data/NetworkTerminalData.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <string_view>

#include "core/Assert.h"
#include "core/Clone.h"
#include "sparamlib/data/BlockMatrixIO.h"
#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkModalData.h"

namespace {

using TNT::CMatrix;
using TNT::Complex;
using TNT::CVector;

constexpr int kShapeError = 2;

CMatrix Transposed(const CMatrix& a) {
  CMatrix t(a.num_cols(), a.num_rows());
  for (int i = 0; i < a.num_rows(); ++i)
    for (int j = 0; j < a.num_cols(); ++j) t[j][i] = a[i][j];
  return t;
}

CMatrix Product(const CMatrix& a, const CMatrix& b) {
  CMatrix c(a.num_rows(), b.num_cols());
  for (int i = 0; i < a.num_rows(); ++i)
    for (int k = 0; k < a.num_cols(); ++k) {
      const Complex aik = a[i][k];
      if (aik.re == 0.0 && aik.im == 0.0) continue;  // block-diagonal transforms are mostly 0
      for (int j = 0; j < b.num_cols(); ++j) c[i][j] += aik * b[k][j];
    }
  return c;
}

// a diag(d) b
CMatrix ProductThroughDiagonal(const CMatrix& a, const CVector& d, const CMatrix& b) {
  CMatrix ad(a);
  for (int i = 0; i < ad.num_rows(); ++i)
    for (int k = 0; k < ad.num_cols(); ++k) ad[i][k] *= d[k];
  return Product(ad, b);
}

// T_I = T_V^-T, through the solve T_V^T X = I. Returns the solve's status.
int CurrentTransform(const CMatrix& tv, CMatrix& ti) {
  return TNT::SolveLinear(Transposed(tv), TNT::Identity(tv.num_rows()), ti);
}

bool AllFinite(const Complex* v, int count) {
  for (int k = 0; k < count; ++k)
    if (!std::isfinite(v[k].re) || !std::isfinite(v[k].im)) return false;
  return true;
}

// Blocks of the modes (or terminals) by port; empty means one per port.
bool PortBlocks(const std::vector<int>& perPort, int n, std::vector<int>& blocks) {
  if (perPort.empty()) {
    blocks.assign(static_cast<size_t>(n), 1);
    return n > 0;
  }
  long total = 0;
  for (int k : perPort) {
    if (k < 1) return false;
    total += k;
  }
  blocks = perPort;
  return total == n;
}

// Reads the optional n x n matrix `key`; a size other than n x n, or a
// damaged one, is reported and fails the read.
int ReadOptionalMatrix(const io::CBlock& block, const char* key, std::unique_ptr<CMatrix>& m,
                       int n) {
  const long index = block.FindItem(key);
  if (index < 0) return io::kReadOk;
  const io::CBlock* item = block.GetItem(static_cast<size_t>(index)).GetBlock();
  if (!item) {
    return block.ReportReadError(io::kReadWrongType, index,
                                 AString::Format("\"%s\": expected a matrix block", key));
  }
  const io::ReadError r = nd::ReadMatrix(*item, n, n, m);
  if (r == io::kReadOk) return r;
  if (!item->HasReadError()) {
    int rows = 0, cols = 0;
    nd::StoredMatrixSize(*item, rows, cols);
    item->ReportReadError(
        r, -1, AString::Format("expected a %d x %d matrix, found %d x %d", n, n, rows, cols));
  }
  m.reset();
  return r;
}

}  // namespace

// ---- The point ----------------------------------------------------------------

CNetworkTerminalData::CNetworkTerminalData(INetworkDataOwner* owner, double frequency,
                                           DataPointType type)
    : CNetworkData(owner, frequency, type) {}

CNetworkTerminalData::CNetworkTerminalData(const CNetworkTerminalData& other)
    : CNetworkData(other),
      m_TerminalImpedance(CloneOf(other.m_TerminalImpedance)),
      m_CharacteristicImpedance(CloneOf(other.m_CharacteristicImpedance)),
      m_GammaMatrix(CloneOf(other.m_GammaMatrix)),
      m_GammaDiagonal(CloneOf(other.m_GammaDiagonal)) {}

CNetworkTerminalData& CNetworkTerminalData::operator=(const CNetworkTerminalData& other) {
  if (this != &other) *this = CNetworkTerminalData(other);
  return *this;
}

CNetworkTerminalData::~CNetworkTerminalData() = default;

std::unique_ptr<CNetworkData> CNetworkTerminalData::Clone() const {
  return std::make_unique<CNetworkTerminalData>(*this);
}

CNetworkTerminalData::CMatrix* CNetworkTerminalData::GetSMatrix(bool compute) {
  CMatrix* s = CNetworkData::GetSMatrix(false);
  if (!s && compute) s = ComputeSMatrix(m_TerminalImpedance.get());
  return s;
}

CNetworkTerminalData::CMatrix* CNetworkTerminalData::GetYMatrix(bool compute) {
  CMatrix* y = CNetworkData::GetYMatrix(false);
  if (!y && compute) y = ComputeYMatrix(m_TerminalImpedance.get());
  return y;
}

CNetworkTerminalData::CMatrix* CNetworkTerminalData::GetZMatrix(bool compute) {
  CMatrix* z = CNetworkData::GetZMatrix(false);
  if (!z && compute) z = ComputeZMatrix(m_TerminalImpedance.get());
  return z;
}

void CNetworkTerminalData::SetTerminalImpedance(std::unique_ptr<CVector> z) {
  m_TerminalImpedance = std::move(z);
  DropDerivedMatrices();
}

bool CNetworkTerminalData::Renormalize(const CVector& z) {
  const int n = GetNumPorts();
  CMatrix* s = GetSMatrix(true);
  if (!s || !m_TerminalImpedance || m_TerminalImpedance->size() < n || z.size() < n ||
      s->num_rows() != n || s->num_cols() != n) {
    return false;
  }
  CMatrix renormalized;
  if (nd::RenormalizeS(*s, nd::SqrtImpedances(*m_TerminalImpedance), nd::SqrtImpedances(z),
                       renormalized) != 0) {
    return false;
  }
  // From now on the new S is what the point stores; whatever was derived
  // from the old references no longer applies.
  DropDerivedMatrices();
  SetSMatrix(std::make_unique<CMatrix>(std::move(renormalized)));
  auto copy = std::make_unique<CVector>(n);
  for (int k = 0; k < n; ++k) (*copy)[k] = z[k];
  m_TerminalImpedance = std::move(copy);
  return true;
}

void CNetworkTerminalData::SetGammaMatrix(std::unique_ptr<CMatrix> gamma) {
  m_GammaMatrix = std::move(gamma);
  RefreshGammaDiagonal();
}

void CNetworkTerminalData::RefreshGammaDiagonal() {
  m_GammaDiagonal.reset();
  if (!m_GammaMatrix) return;
  const int n = std::min(m_GammaMatrix->num_rows(), m_GammaMatrix->num_cols());
  m_GammaDiagonal = std::make_unique<CVector>(n);
  for (int k = 0; k < n; ++k) (*m_GammaDiagonal)[k] = (*m_GammaMatrix)[k][k];
}

const CNetworkTerminalData::CVector* CNetworkTerminalData::GetPortVector(int kind) const {
  if (kind == nd::kPortImpedances) return m_TerminalImpedance.get();
  if (kind == nd::kPropagationConstants) return m_GammaDiagonal.get();
  return nullptr;
}

const CNetworkTerminalData::CVector* CNetworkTerminalData::GetVectorQuantity(int kind) const {
  return GetPortVector(kind);
}

CNetworkTerminalData::Complex CNetworkTerminalData::GetVectorValue(int kind, int i) const {
  const CVector* v = GetPortVector(kind);
  if (!v || i < 0 || i >= v->size()) return Complex();
  return (*v)[i];
}

size_t CNetworkTerminalData::GetMemorySize() const {
  size_t bytes = CNetworkData::GetMemorySize();
  for (const auto* m : {m_CharacteristicImpedance.get(), m_GammaMatrix.get()})
    if (m) bytes += TNT::GetMemorySize(*m);
  for (const auto* v : {m_TerminalImpedance.get(), m_GammaDiagonal.get()})
    if (v) bytes += sizeof(Complex) * static_cast<size_t>(v->size());
  return bytes;
}

bool CNetworkTerminalData::WriteToBlock(io::CBlock& block) const {
  if (!CNetworkData::WriteToBlock(block)) return false;
  if (m_TerminalImpedance) nd::WriteVector(block, "TerminalImpedance", *m_TerminalImpedance);
  if (m_CharacteristicImpedance)
    nd::WriteMatrix(block, "CharacteristicImpedance", *m_CharacteristicImpedance);
  if (m_GammaMatrix) nd::WriteMatrix(block, "GammaMatrix", *m_GammaMatrix);
  return true;
}

int CNetworkTerminalData::ReadFromBlock(const io::CBlock& block) {
  const int result = CNetworkData::ReadFromBlock(block);
  const int n = GetNumPorts();
  if (!io::IsReadOk(result) || n < 1) return result;
  if (const long index = block.FindItem("TerminalImpedance"); index >= 0) {
    const io::CBlock* item = block.GetItem(static_cast<size_t>(index)).GetBlock();
    if (!item) {
      return block.ReportReadError(io::kReadWrongType, index,
                                   "\"TerminalImpedance\": expected a vector block");
    }
    const io::ReadError r = nd::ReadVector(*item, n, m_TerminalImpedance);
    if (r != io::kReadOk) {
      m_TerminalImpedance.reset();
      return r;
    }
    DropDerivedMatrices();
  }
  if (const int r =
          ReadOptionalMatrix(block, "CharacteristicImpedance", m_CharacteristicImpedance, n);
      r != io::kReadOk)
    return r;
  if (const int r = ReadOptionalMatrix(block, "GammaMatrix", m_GammaMatrix, n); r != io::kReadOk)
    return r;
  RefreshGammaDiagonal();
  // Reference impedances or line matrices that are not numbers cannot be
  // converted, interpolated or written.
  const bool finite =
      (!m_TerminalImpedance ||
       AllFinite(m_TerminalImpedance->data(), m_TerminalImpedance->size())) &&
      (!m_CharacteristicImpedance ||
       AllFinite(m_CharacteristicImpedance->data(), m_CharacteristicImpedance->size())) &&
      (!m_GammaMatrix || AllFinite(m_GammaMatrix->data(), m_GammaMatrix->size()));
  if (!finite) {
    return block.ReportReadError(
        io::kReadBadValue, -1,
        AString::Format("the terminal data at %.17g Hz hold a value that is not finite",
                        GetFrequency()));
  }
  return result;
}

// ---- The view of a modal point --------------------------------------------------

namespace nd {

namespace {

bool SwitchedOn(const char* name) {
  const char* value = std::getenv(name);
  if (!value) return false;
  std::string_view v(value);
  const auto first = v.find_first_not_of(" \t");
  if (first == std::string_view::npos) return false;
  v = v.substr(first, v.find_last_not_of(" \t") - first + 1);
  return v == "1";
}

}  // namespace

TerminalViewSettings ReadTerminalViewSettings() {
  TerminalViewSettings settings;
  settings.standardModes = SwitchedOn("USE_STANDARD_MODES");
  settings.fullGammaMatrix = SwitchedOn("VIEW_TERMINAL_GAMMA_MATRIX");
  return settings;
}

CMatrix StandardModeTransform() {
  // Columns: the odd (differential) mode Vp = Vd/2, Vn = -Vd/2 and the even
  // (common) mode Vp = Vn = Vc.
  CMatrix tv(2, 2);
  tv[0][0] = Complex(0.5);
  tv[0][1] = Complex(1.0);
  tv[1][0] = Complex(-0.5);
  tv[1][1] = Complex(1.0);
  return tv;
}

int TerminalTransform(const CMatrix* stored, int n, const std::vector<int>& modesPerPort,
                      bool standardModes, CMatrix& tv) {
  std::vector<int> blocks;
  if (!PortBlocks(modesPerPort, n, blocks)) return kShapeError;
  // The stored transform counts only when it covers every mode.
  if (stored && (stored->num_rows() != n || stored->num_cols() != n)) stored = nullptr;

  CMatrix out(n, n);
  int first = 0;
  for (const int k : blocks) {
    const int end = first + k;
    if (standardModes && k == 2) {
      const CMatrix standard = StandardModeTransform();
      for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j) out[first + i][first + j] = standard[i][j];
    } else if (stored) {
      // A terminal of one port depends on that port's modes only.
      for (int i = first; i < end; ++i)
        for (int j = 0; j < n; ++j) {
          const bool inside = j >= first && j < end;
          const Complex a = (*stored)[i][j], b = (*stored)[j][i];
          if (inside) {
            out[i][j] = a;
          } else if (a.re != 0.0 || a.im != 0.0 || b.re != 0.0 || b.im != 0.0) {
            return kShapeError;
          }
        }
    } else if (k == 1) {
      out[first][first] = Complex(1.0);
    } else {
      return kShapeError;  // a multi-mode port needs its transform
    }
    first = end;
  }
  tv = std::move(out);
  return 0;
}

int ModalToTerminalS(const CMatrix& sModal, const CVector& zModal, const CMatrix& tv,
                     const CVector& zTerminal, CMatrix& out) {
  const int n = sModal.num_rows();
  const bool valid = n > 0 && sModal.num_cols() == n && tv.num_rows() == n && tv.num_cols() == n &&
                     zModal.size() >= n && zTerminal.size() >= n;
  ASSERT(valid);
  if (!valid) {
    out = CMatrix(std::max(n, 0), std::max(n, 0));
    return kShapeError;
  }
  CMatrix ti;
  if (const int status = CurrentTransform(tv, ti); status != 0) {
    out = CMatrix(n, n);
    return status;
  }
  const CVector r = SqrtImpedances(zModal);
  const CVector rt = SqrtImpedances(zTerminal);
  // R_m (I + S_m) and R_m^-1 (I - S_m): the modal voltages and currents per
  // unit incident wave.
  CMatrix v(n, n), i(n, n);
  for (int row = 0; row < n; ++row)
    for (int col = 0; col < n; ++col) {
      const Complex one = row == col ? Complex(1.0) : Complex();
      v[row][col] = (one + sModal[row][col]) * r[row];
      i[row][col] = (one - sModal[row][col]) / r[row];
    }
  const CMatrix a = Product(tv, v);
  const CMatrix b = Product(ti, i);
  CMatrix difference(n, n), sum(n, n);
  for (int row = 0; row < n; ++row)
    for (int col = 0; col < n; ++col) {
      const Complex zb = zTerminal[row] * b[row][col];
      difference[row][col] = a[row][col] - zb;
      sum[row][col] = a[row][col] + zb;
    }
  // X (A + B) = A - B, solved as (A + B)^T X^T = (A - B)^T.
  CMatrix xt;
  if (const int status = TNT::SolveLinear(Transposed(sum), Transposed(difference), xt);
      status != 0) {
    out = CMatrix(n, n);
    return status;
  }
  out = CMatrix(n, n);
  for (int row = 0; row < n; ++row)
    for (int col = 0; col < n; ++col) out[row][col] = xt[col][row] * rt[col] / rt[row];
  return 0;
}

std::unique_ptr<CNetworkTerminalData> TerminalView(const CNetworkModalData& modal,
                                                   const std::vector<int>& modesPerPort,
                                                   const CVector* terminalImpedances,
                                                   const TerminalViewSettings& settings,
                                                   INetworkDataOwner* owner) {
  const int n = modal.GetNumPorts();
  if (n < 1 || (terminalImpedances && terminalImpedances->size() < n)) return nullptr;
  // A working copy: the modal point's matrices may have to be computed.
  CNetworkModalData work(modal);
  CMatrix tv, ti;
  if (TerminalTransform(work.GetTerminalTransform(), n, modesPerPort, settings.standardModes, tv) !=
      0)
    return nullptr;
  if (CurrentTransform(tv, ti) != 0) return nullptr;

  auto view = std::make_unique<CNetworkTerminalData>(owner ? owner : modal.GetOwner(),
                                                     modal.GetFrequency(), modal.GetDataType());
  view->SetValue(modal.GetValue());
  auto zt = std::make_unique<CVector>(n, Complex(kDefaultReferenceOhms));
  if (terminalImpedances)
    for (int k = 0; k < n; ++k) (*zt)[k] = (*terminalImpedances)[k];

  const CVector* zm = work.GetPortImpedance();
  const bool references = zm && zm->size() >= n;
  const CMatrix* sm = references ? work.GetSMatrix(true) : nullptr;
  if (sm && sm->num_rows() == n && sm->num_cols() == n) {
    auto s = std::make_unique<CMatrix>();
    if (ModalToTerminalS(*sm, *zm, tv, *zt, *s) != 0) return nullptr;
    view->SetSMatrix(std::move(s));
  } else {
    // No scattering matrix: the stored impedance and admittance matrices
    // carry over by congruence, V_t = T_V Z_m T_V^T I_t.
    const CMatrix* zMatrix = work.IsZDerived() ? nullptr : work.GetZMatrix(false);
    const CMatrix* yMatrix = work.IsYDerived() ? nullptr : work.GetYMatrix(false);
    auto square = [n](const CMatrix* m) { return m && m->num_rows() == n && m->num_cols() == n; };
    if (!square(zMatrix) && !square(yMatrix)) return nullptr;
    if (square(zMatrix))
      view->SetZMatrix(std::make_unique<CMatrix>(Product(Product(tv, *zMatrix), Transposed(tv))));
    if (square(yMatrix))
      view->SetYMatrix(std::make_unique<CMatrix>(Product(Product(ti, *yMatrix), Transposed(ti))));
  }
  view->SetTerminalImpedance(std::move(zt));

  if (references) {
    // Each mode seen from its port line: V_m = z_m I_m, so at the terminals
    // V_t = T_V diag(z_m) T_I^-1 I_t with T_I^-1 = T_V^T.
    view->SetCharacteristicImpedance(
        std::make_unique<CMatrix>(ProductThroughDiagonal(tv, *zm, Transposed(tv))));
  }
  if (const CVector* gamma = work.GetGamma(); gamma && gamma->size() >= n) {
    // T_V^-1 = T_I^T.
    auto gt = std::make_unique<CMatrix>(ProductThroughDiagonal(tv, *gamma, Transposed(ti)));
    if (!settings.fullGammaMatrix) {
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
          if (i != j) (*gt)[i][j] = Complex();
    }
    view->SetGammaMatrix(std::move(gt));
  }
  return view;
}

int ModesFromTerminalGamma(const CMatrix& gammaT, const std::vector<int>& terminalsPerPort,
                           CVector& gamma, CMatrix& tv) {
  const int n = gammaT.num_rows();
  std::vector<int> blocks;
  if (gammaT.num_cols() != n || n < 1) return kShapeError;
  if (!PortBlocks(terminalsPerPort.empty() ? std::vector<int>{n} : terminalsPerPort, n, blocks))
    return kShapeError;
  CVector values(n);
  CMatrix vectors(n, n);
  int first = 0;
  for (const int k : blocks) {
    CMatrix block(k, k);
    for (int i = 0; i < k; ++i)
      for (int j = 0; j < k; ++j) block[i][j] = gammaT[first + i][first + j];
    CVector w;
    CMatrix v;
    if (const int status = TNT::ComputeEigenVectorsAndValues(block, w, v); status != 0)
      return status;
    std::vector<int> order(static_cast<size_t>(k));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&w](int a, int b) {
      return w[a].im != w[b].im ? w[a].im < w[b].im : w[a].re < w[b].re;
    });
    for (int c = 0; c < k; ++c) {
      const int from = order[static_cast<size_t>(c)];
      double norm2 = 0.0, largest = 0.0;
      for (int i = 0; i < k; ++i) {
        norm2 += norm(v[i][from]);
        largest = std::max(largest, abs(v[i][from]));
      }
      // The first component within rounding of the largest sets the phase,
      // so that equal magnitudes ([1, -1]) choose the same one every time.
      int lead = 0;
      while (lead + 1 < k && abs(v[lead][from]) < largest * (1.0 - 1e-9)) ++lead;
      const Complex phase = v[lead][from] / abs(v[lead][from]);
      const Complex scale = conj(phase) / std::sqrt(norm2);
      for (int i = 0; i < k; ++i) vectors[first + i][first + c] = v[i][from] * scale;
      values[first + c] = w[from];
    }
    first += k;
  }
  gamma = std::move(values);
  tv = std::move(vectors);
  return 0;
}

int ModalImpedancesFromTerminal(const CMatrix& z0t, const CMatrix& tv, CVector& zModal) {
  const int n = tv.num_rows();
  if (n < 1 || tv.num_cols() != n || z0t.num_rows() != n || z0t.num_cols() != n) return kShapeError;
  // T_V^-1 Z0_t T_V^-T = T_I^T Z0_t T_I.
  CMatrix ti;
  if (const int status = CurrentTransform(tv, ti); status != 0) return status;
  const CMatrix zm = Product(Product(Transposed(ti), z0t), ti);
  CVector out(n);
  for (int k = 0; k < n; ++k) out[k] = zm[k][k];
  zModal = std::move(out);
  return 0;
}

}  // namespace nd
