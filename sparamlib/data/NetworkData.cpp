// The network data point: storage, quantity access, persistence and the
// S/Y/Z conversions that the derived points share.
#include "sparamlib/data/NetworkData.h"

#include <cmath>

#include "core/Assert.h"
#include "core/Clone.h"
#include "sparamlib/data/BlockMatrixIO.h"
#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkDataVisitor.h"

namespace {

// A reference impedance for each of the n ports.
bool HasReferences(const TNT::CVector* z, int n) { return z != nullptr && z->size() >= n; }

bool IsSquare(const TNT::CMatrix* m, int n) {
  return m != nullptr && m->num_rows() == n && m->num_cols() == n;
}

// A totally reflecting port has an unbounded standing-wave ratio; it is
// shown as this cap instead.
constexpr double kVswrCap = 200000.0;

}  // namespace

CNetworkData::CNetworkData(INetworkDataOwner* owner, double frequency, DataPointType type)
    : m_Owner(owner), m_Frequency(frequency), m_DataType(type) {}

CNetworkData::CNetworkData(const CNetworkData& other)
    : io::CStreamio_block_object(other),
      m_Owner(other.m_Owner),
      m_SMatrix(CloneOf(other.m_SMatrix)),
      m_YMatrix(CloneOf(other.m_YMatrix)),
      m_ZMatrix(CloneOf(other.m_ZMatrix)),
      m_CompanionMatrix1(CloneOf(other.m_CompanionMatrix1)),
      m_CompanionMatrix2(CloneOf(other.m_CompanionMatrix2)),
      m_ScatteredB(CloneOf(other.m_ScatteredB)),
      m_SIsDerived(other.m_SIsDerived),
      m_YIsDerived(other.m_YIsDerived),
      m_ZIsDerived(other.m_ZIsDerived),
      m_Frequency(other.m_Frequency),
      m_DataType(other.m_DataType),
      m_Value(other.m_Value) {}

CNetworkData& CNetworkData::operator=(const CNetworkData& other) {
  if (this != &other) *this = CNetworkData(other);
  return *this;
}

CNetworkData::~CNetworkData() = default;

std::unique_ptr<CNetworkData> CNetworkData::Clone() const {
  return std::make_unique<CNetworkData>(*this);
}

int CNetworkData::GetNumPorts() const { return m_Owner ? m_Owner->GetNumPorts() : 0; }

// ---- Matrices -------------------------------------------------------------

CNetworkData::CMatrix* CNetworkData::GetSMatrix(bool) { return m_SMatrix.get(); }
CNetworkData::CMatrix* CNetworkData::GetYMatrix(bool) { return m_YMatrix.get(); }
CNetworkData::CMatrix* CNetworkData::GetZMatrix(bool) { return m_ZMatrix.get(); }

void CNetworkData::SetSMatrix(std::unique_ptr<CMatrix> s) {
  m_SMatrix = std::move(s);
  m_SIsDerived = false;
}
void CNetworkData::SetYMatrix(std::unique_ptr<CMatrix> y) {
  m_YMatrix = std::move(y);
  m_YIsDerived = false;
}
void CNetworkData::SetZMatrix(std::unique_ptr<CMatrix> z) {
  m_ZMatrix = std::move(z);
  m_ZIsDerived = false;
}

void CNetworkData::DropDerivedMatrices() {
  if (m_SIsDerived) m_SMatrix.reset();
  if (m_YIsDerived) m_YMatrix.reset();
  if (m_ZIsDerived) m_ZMatrix.reset();
  m_SIsDerived = m_YIsDerived = m_ZIsDerived = false;
}

CNetworkData::CMatrix* CNetworkData::ComputeYMatrix(const CVector* z) {
  const int n = GetNumPorts();
  if (!m_SMatrix && !m_ZMatrix) return nullptr;
  if (m_SMatrix && m_SMatrix->num_rows() != n) return nullptr;
  m_YIsDerived = true;
  m_YMatrix = std::make_unique<CMatrix>(n, n);
  if (m_SMatrix && HasReferences(z, n)) {
    nd::ConvertSToY(*m_SMatrix, nd::SqrtImpedances(*z), *m_YMatrix);
  } else if (IsSquare(m_ZMatrix.get(), n)) {
    nd::Invert(*m_ZMatrix, *m_YMatrix);
  }
  return m_YMatrix.get();
}

CNetworkData::CMatrix* CNetworkData::ComputeZMatrix(const CVector* z) {
  const int n = GetNumPorts();
  if (!m_SMatrix && !m_YMatrix) return nullptr;
  if (m_SMatrix && m_SMatrix->num_rows() != n) return nullptr;
  m_ZIsDerived = true;
  m_ZMatrix = std::make_unique<CMatrix>(n, n);
  if (m_SMatrix && HasReferences(z, n)) {
    nd::ConvertSToZ(*m_SMatrix, nd::SqrtImpedances(*z), *m_ZMatrix);
  } else if (IsSquare(m_YMatrix.get(), n)) {
    nd::Invert(*m_YMatrix, *m_ZMatrix);
  }
  return m_ZMatrix.get();
}

CNetworkData::CMatrix* CNetworkData::ComputeSMatrix(const CVector* z) {
  const int n = GetNumPorts();
  if (!m_YMatrix && !m_ZMatrix) return nullptr;
  // Without reference impedances no scattering matrix is defined.
  if (!HasReferences(z, n)) return nullptr;
  m_SIsDerived = true;
  m_SMatrix = std::make_unique<CMatrix>(n, n);
  const CVector r = nd::SqrtImpedances(*z);
  if (IsSquare(m_YMatrix.get(), n)) {
    nd::ConvertYToS(*m_YMatrix, r, *m_SMatrix);
  } else if (IsSquare(m_ZMatrix.get(), n)) {
    nd::ConvertZToS(*m_ZMatrix, r, *m_SMatrix);
  }
  return m_SMatrix.get();
}

// ---- Quantities -----------------------------------------------------------

const CNetworkData::CVector* CNetworkData::GetPortVector(int) const { return nullptr; }

const CNetworkData::CVector* CNetworkData::GetVectorQuantity(int) const {
  ASSERT(!"Base class doesn't have any vector quantities");
  return nullptr;
}

CNetworkData::Complex CNetworkData::GetVectorValue(int, int) const {
  ASSERT(!"Base class doesn't have any vector quantities");
  return Complex();
}

CNetworkData::Complex CNetworkData::GetValue(int quantity, int i, int j) {
  if (GetNumPorts() < 1) return Complex();
  auto element = [i, j](const CMatrix* m) {
    if (!m || i < 0 || j < 0 || i >= m->num_rows() || j >= m->num_cols()) return Complex();
    return (*m)[i][j];
  };
  switch (quantity) {
    case nd::kQuantityCompanion1:
    case nd::kQuantityCompanion1Alt:
      return element(m_CompanionMatrix1.get());
    case nd::kQuantityCompanion2:
      return element(m_CompanionMatrix2.get());
    case nd::kQuantityS:
      return element(GetSMatrix(true));
    case nd::kQuantityY:
      return element(GetYMatrix(true));
    case nd::kQuantityZ:
      return element(GetZMatrix(true));
    case nd::kQuantityVSWR: {
      const CMatrix* s = GetSMatrix(true);
      if (!s || i < 0 || i >= s->num_rows() || i >= s->num_cols()) return Complex();
      const double m = abs((*s)[i][i]);
      if (std::fabs(m - 1.0) < 1e-5) return Complex(kVswrCap);
      return Complex((1.0 + m) / (1.0 - m));
    }
    case nd::kQuantityScatteredB:
      if (!m_ScatteredB || i < 0 || i >= m_ScatteredB->size()) return Complex();
      return (*m_ScatteredB)[i];
    default:
      return Complex();
  }
}

void CNetworkData::Accept(CNetworkDataVisitor& visitor) { visitor.Visit(*this); }

size_t CNetworkData::GetMemorySize() const {
  const size_t n = static_cast<size_t>(GetNumPorts());
  const size_t square = n * n * sizeof(Complex);
  size_t bytes = 0;
  if (m_SMatrix) bytes += square;
  if (m_YMatrix) bytes += square;
  if (m_ZMatrix) bytes += square;
  if (m_CompanionMatrix1) bytes += TNT::GetMemorySize(*m_CompanionMatrix1);
  if (m_CompanionMatrix2) bytes += TNT::GetMemorySize(*m_CompanionMatrix2);
  return bytes;
}

// ---- Persistence ----------------------------------------------------------

bool CNetworkData::WriteToBlock(io::CBlock& block) const {
  block.AddReal("Frequency", m_Frequency);
  const int status = block.AddEnum("DataType", kDataPointTypeNames, m_DataType);
  if (status != 0 && status != 1 && status != 2) return false;
  if (m_SMatrix && !m_SIsDerived) nd::WriteMatrix(block, "SMatrix", *m_SMatrix);
  if (m_YMatrix && !m_YIsDerived) nd::WriteMatrix(block, "YMatrix", *m_YMatrix);
  if (m_ZMatrix && !m_ZIsDerived) nd::WriteMatrix(block, "ZMatrix", *m_ZMatrix);
  if (m_ScatteredB) nd::WriteVector(block, "Scattered B", *m_ScatteredB);
  return true;
}

// Reads the matrix stored under `key` at size n; an older file may hold it at
// the larger size the owner remembers, in which case the owner reduces it to
// its ports. On failure the matrix is dropped and the reason recorded.
io::ReadError CNetworkData::ReadStoredMatrix(const io::CBlock& block, const char* key,
                                             std::unique_ptr<CMatrix>& matrix, int n) {
  const long index = block.FindItem(key);
  const io::CBlock* item = block.GetItem(static_cast<size_t>(index)).GetBlock();
  if (!item) {
    matrix.reset();
    return block.ReportReadError(io::kReadWrongType, index,
                                 AString::Format("\"%s\": expected a matrix block", key));
  }
  // The stored size is checked before anything of it is allocated.
  io::ReadError r = nd::ReadMatrix(*item, n, n, matrix);
  const int stored = m_Owner ? m_Owner->GetNumStoredEntries() : 0;
  if (r != io::kReadOk && stored > n) {
    r = nd::ReadMatrix(*item, stored, stored, matrix);
    if (r == io::kReadOk) m_Owner->AdaptStoredMatrix(*matrix);
  }
  if (r != io::kReadOk) {
    int rows = 0, cols = 0;
    nd::StoredMatrixSize(*item, rows, cols);
    item->ReportReadError(r, -1,
                          AString::Format("expected a %d x %d matrix, found %d x %d", n, n, rows,
                                          cols));
    matrix.reset();
  }
  return r;
}

int CNetworkData::ReadFromBlock(const io::CBlock& block) {
  block.GetReal("Frequency", m_Frequency);
  int type = m_DataType;
  block.GetEnum("DataType", kDataPointTypeNames, type);
  m_DataType = static_cast<DataPointType>(type);

  const int n = GetNumPorts();
  if (n < 1) return io::kReadOk;

  if (block.HasItem("SMatrix")) {
    if (ReadStoredMatrix(block, "SMatrix", m_SMatrix, n) != io::kReadOk) return 1;
    if (m_Owner) m_Owner->FillCompanionMatrix(*m_SMatrix, m_CompanionMatrix1);
    m_SIsDerived = false;
    // Y or Z computed from the previous S no longer describe this one.
    if (m_YIsDerived) m_YMatrix.reset();
    if (m_ZIsDerived) m_ZMatrix.reset();
    m_YIsDerived = m_ZIsDerived = false;
  }
  if (block.HasItem("YMatrix")) {
    if (ReadStoredMatrix(block, "YMatrix", m_YMatrix, n) != io::kReadOk) return 1;
    m_YIsDerived = false;
  }
  if (block.HasItem("ZMatrix")) {
    if (ReadStoredMatrix(block, "ZMatrix", m_ZMatrix, n) != io::kReadOk) return 1;
  }
  // Unlike S and Y, Z counts as stored after every read, whether or not the
  // block held one; readers of the stored form depend on that, so it stays.
  m_ZIsDerived = false;

  nd::ReadOptionalVector(block, "Scattered B", m_ScatteredB, n);
  return io::kReadOk;
}
