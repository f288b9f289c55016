// Modal data points: port impedances, propagation constants, the terminal
// transform, and conversions referred to the port impedances.
#include "sparamlib/data/NetworkModalData.h"

#include "core/Clone.h"
#include "sparamlib/data/BlockMatrixIO.h"
#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkDataVisitor.h"

void CNetworkDataVisitor::Visit(CNetworkModalData& point) {
  Visit(static_cast<CNetworkData&>(point));
}

CNetworkModalData::CNetworkModalData(INetworkDataOwner* owner, double frequency,
                                     DataPointType type)
    : CNetworkData(owner, frequency, type) {}

CNetworkModalData::CNetworkModalData(const CNetworkModalData& other)
    : CNetworkData(other),
      m_BaseData(other.m_BaseData),
      m_Gamma(CloneOf(other.m_Gamma)),
      m_PortImpedance(CloneOf(other.m_PortImpedance)),
      m_TerminalTransform(CloneOf(other.m_TerminalTransform)) {}

CNetworkModalData& CNetworkModalData::operator=(const CNetworkModalData& other) {
  if (this != &other) *this = CNetworkModalData(other);
  return *this;
}

CNetworkModalData::~CNetworkModalData() = default;

std::unique_ptr<CNetworkData> CNetworkModalData::Clone() const {
  return std::make_unique<CNetworkModalData>(*this);
}

CNetworkModalData::CMatrix* CNetworkModalData::GetSMatrix(bool compute) {
  CMatrix* s = CNetworkData::GetSMatrix(false);
  if (!s && compute) s = ComputeSMatrix(m_PortImpedance.get());
  return s;
}

CNetworkModalData::CMatrix* CNetworkModalData::GetYMatrix(bool compute) {
  CMatrix* y = CNetworkData::GetYMatrix(false);
  if (!y && compute) y = ComputeYMatrix(m_PortImpedance.get());
  return y;
}

CNetworkModalData::CMatrix* CNetworkModalData::GetZMatrix(bool compute) {
  CMatrix* z = CNetworkData::GetZMatrix(false);
  if (!z && compute) z = ComputeZMatrix(m_PortImpedance.get());
  return z;
}

bool CNetworkModalData::Renormalize(const CVector& z) {
  const int n = GetNumPorts();
  CMatrix* s = GetSMatrix(true);
  if (!s || !m_PortImpedance || m_PortImpedance->size() < n || z.size() < n ||
      s->num_rows() != n || s->num_cols() != n) {
    return false;
  }
  TNT::CMatrix renormalized;
  if (nd::RenormalizeS(*s, nd::SqrtImpedances(*m_PortImpedance), nd::SqrtImpedances(z),
                       renormalized) != 0) {
    return false;
  }
  // The new S is the stored matrix from now on; what was derived from the
  // old references (including an S derived from Y or Z) no longer applies.
  DropDerivedMatrices();
  SetSMatrix(std::make_unique<CMatrix>(std::move(renormalized)));
  auto copy = std::make_unique<CVector>(n);
  for (int k = 0; k < n; ++k) (*copy)[k] = z[k];
  m_PortImpedance = std::move(copy);
  return true;
}

void CNetworkModalData::SetPortImpedance(std::unique_ptr<CVector> z) {
  m_PortImpedance = std::move(z);
  DropDerivedMatrices();
}

const CNetworkModalData::CVector* CNetworkModalData::GetPortVector(int kind) const {
  if (kind == nd::kPortImpedances) return m_PortImpedance.get();
  if (kind == nd::kPropagationConstants) return m_Gamma.get();
  return nullptr;
}

const CNetworkModalData::CVector* CNetworkModalData::GetVectorQuantity(int kind) const {
  return GetPortVector(kind);
}

CNetworkModalData::Complex CNetworkModalData::GetVectorValue(int kind, int i) const {
  const CVector* v = GetPortVector(kind);
  if (!v || i < 0 || i >= v->size()) return Complex();
  return (*v)[i];
}

void CNetworkModalData::Accept(CNetworkDataVisitor& visitor) { visitor.Visit(*this); }

CNetworkData* CNetworkModalData::GetNetworkData() { return m_BaseData ? m_BaseData : this; }

bool CNetworkModalData::WriteToBlock(io::CBlock& block) const {
  if (!CNetworkData::WriteToBlock(block)) return false;
  if (m_PortImpedance) nd::WriteVector(block, "PortImpedance", *m_PortImpedance);
  if (m_Gamma) nd::WriteVector(block, "Gamma", *m_Gamma);
  if (m_TerminalTransform) nd::WriteMatrix(block, "TerminalTransform", *m_TerminalTransform);
  return true;
}

int CNetworkModalData::ReadFromBlock(const io::CBlock& block) {
  const int result = CNetworkData::ReadFromBlock(block);
  const int n = GetNumPorts();
  if (n < 1) return result;
  nd::ReadOptionalVector(block, "PortImpedance", m_PortImpedance, n);
  nd::ReadOptionalVector(block, "Gamma", m_Gamma, n);
  if (const long index = block.FindItem("TerminalTransform"); index >= 0) {
    const io::CBlock* item = block.GetItem(static_cast<size_t>(index)).GetBlock();
    const int terminals = GetOwner() ? GetOwner()->GetNumTerminals() : n;
    if (!item || nd::ReadMatrix(*item, terminals, n, m_TerminalTransform) != io::kReadOk)
      m_TerminalTransform.reset();
  }
  return result;
}
