// The post-processing choices of one solution's network data and their
// stored form.
#include "sparamlib/solution/NetworkPostprocSetup.h"

#include "core/Clone.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

#include "core/Assert.h"

// Reports a faulty state under its own condition text; ASSERT would name
// the state that should hold instead.
#define REPORT_IF(cond) \
  ((cond) ? ::core::ReportAssertion(#cond, __FILE__, __LINE__) : static_cast<void>(0))

namespace {

using Kind = CNetworkPostprocSetup::ImpedanceKind;

constexpr std::array<const char*, 3> kKindNames = {"Zpi", "Zpv", "Zvi"};

const char* ValueKindText(io::ValueKind k) {
  switch (k) {
    case io::ValueKind::Integer:
      return "an integer";
    case io::ValueKind::Real:
      return "a real";
    case io::ValueKind::Boolean:
      return "a boolean";
    case io::ValueKind::String:
      return "a string";
    case io::ValueKind::Name:
      return "a name";
  }
  return "a value";
}

// Finds the list `key` whose values are all of an accepted kind. kReadOk
// with its index, kReadTolerated when absent, or kReadWrongType with the
// reason recorded at the item's position.
io::ReadError FindList(const io::CBlock& block, std::string_view key, io::ValueKind kind,
                       io::ValueKind alsoKind, const char* expected, long& index) {
  index = block.FindItem(key);
  if (index < 0) return io::kReadTolerated;
  const io::CItemView item = block.GetItem(static_cast<size_t>(index));
  const int keyLen = static_cast<int>(key.size());
  if (item.GetKind() != io::ItemKind::Function) {
    const char* found =
        item.GetKind() == io::ItemKind::Block ? "a block" : ValueKindText(item.GetValueKind());
    return block.ReportReadError(io::kReadWrongType, index,
                                 AString::Format("\"%.*s\": expected a list of %s, found %s",
                                                 keyLen, key.data(), expected, found));
  }
  for (size_t k = 0; k < item.GetNumValues(); ++k) {
    const io::ValueKind found = item.GetValueKind(k);
    if (found != kind && found != alsoKind) {
      return block.ReportReadError(
          io::kReadWrongType, index,
          AString::Format("\"%.*s\": expected %s, found %s as value %zu", keyLen, key.data(),
                          expected, ValueKindText(found), k + 1));
    }
  }
  return io::kReadOk;
}

io::ReadError FindList(const io::CBlock& block, std::string_view key, io::ValueKind kind,
                       const char* expected, long& index) {
  return FindList(block, key, kind, kind, expected, index);
}

// Reads a list of (real, imaginary) pairs into a new zero vector of size n.
io::ReadError ReadComplexVector(const io::CBlock& block, std::string_view key, int n,
                                std::unique_ptr<CNetworkPostprocSetup::CVector>& vector) {
  std::vector<double> values;
  const io::ReadError r = block.GetRealFunction(key, values);
  if (r != io::kReadOk) return r;
  vector = std::make_unique<CNetworkPostprocSetup::CVector>(n, CNetworkPostprocSetup::Complex());
  const size_t count = std::min(values.size() / 2, static_cast<size_t>(vector->size()));
  for (size_t i = 0; i < count; ++i)
    (*vector)[static_cast<int>(i)] =
        CNetworkPostprocSetup::Complex(values[2 * i], values[2 * i + 1]);
  return io::kReadOk;
}

io::ReadError ReadRealVector(const io::CBlock& block, std::string_view key, int n,
                             std::unique_ptr<CNetworkPostprocSetup::RVector>& vector) {
  std::vector<double> values;
  const io::ReadError r = block.GetRealFunction(key, values);
  if (r != io::kReadOk) return r;
  vector = std::make_unique<CNetworkPostprocSetup::RVector>(n, 0.0);
  const size_t count = std::min(values.size(), static_cast<size_t>(vector->size()));
  std::copy_n(values.begin(), count, vector->begin());
  return io::kReadOk;
}

// Exactly n complex values as 2n reals; missing entries are written as 0.
void WriteComplexVector(io::CBlock& block, std::string_view key,
                        const CNetworkPostprocSetup::CVector& vector, int n) {
  std::vector<double> values(2 * static_cast<size_t>(std::max(n, 0)), 0.0);
  for (int i = 0; i < n && i < vector.size(); ++i) {
    values[2 * static_cast<size_t>(i)] = vector[i].re;
    values[2 * static_cast<size_t>(i) + 1] = vector[i].im;
  }
  block.AddRealFunction(key, values);
}

template <class T, class Make>
void AddList(io::CBlock& block, std::string_view key, const std::vector<T>& items, Make make) {
  std::vector<io::CValue> values;
  values.reserve(items.size());
  for (const T& item : items) values.push_back(make(item));
  block.AddFunction(key, values);
}

}  // namespace

CNetworkPostprocSetup::CNetworkPostprocSetup(const CNetworkPostprocSetup& other)
    : m_NumPorts(other.m_NumPorts),
      m_MatrixSize(other.m_MatrixSize),
      m_IsModal(other.m_IsModal),
      m_DoRenorm(other.m_DoRenorm),
      m_DoDeembed(other.m_DoDeembed),
      m_UseZpiOnly(other.m_UseZpiOnly),
      m_PortImpeds(CloneOf(other.m_PortImpeds)),
      m_DefaultImpeds(CloneOf(other.m_DefaultImpeds)),
      m_Impeds(CloneOf(other.m_Impeds)),
      m_DefaultDists(CloneOf(other.m_DefaultDists)),
      m_Dists(CloneOf(other.m_Dists)),
      m_LosslessDeembed(other.m_LosslessDeembed),
      m_Modes(other.m_Modes),
      m_DoPortRenorm(other.m_DoPortRenorm),
      m_PortCharImpeds(other.m_PortCharImpeds),
      m_ImpedMultiplier(other.m_ImpedMultiplier),
      m_ExtrapToDC(other.m_ExtrapToDC),
      m_PortLengths(other.m_PortLengths),
      m_PortWidths(other.m_PortWidths),
      m_CalibratePorts(other.m_CalibratePorts),
      m_RenormOverrides(other.m_RenormOverrides),
      m_DistOverrides(other.m_DistOverrides) {
  m_DiffPairs.reserve(other.m_DiffPairs.size());
  for (const auto& pair : other.m_DiffPairs) m_DiffPairs.push_back(pair->Clone());
}

CNetworkPostprocSetup& CNetworkPostprocSetup::operator=(const CNetworkPostprocSetup& other) {
  if (this != &other) *this = CNetworkPostprocSetup(other);
  return *this;
}

CNetworkPostprocSetup::~CNetworkPostprocSetup() = default;

// ---- Renormalisation and de-embedding -------------------------------------

void CNetworkPostprocSetup::SetPostprocessing(bool isModal, const CVector* renormImpeds,
                                              const RVector* deembedDists) {
  const int mMatrixSize = m_MatrixSize;
  m_DefaultImpeds.reset();
  m_DoRenorm = false;
  m_DefaultDists.reset();
  m_DoDeembed = false;
  m_IsModal = isModal;
  if (renormImpeds) {
    REPORT_IF(renormImpeds->size() != mMatrixSize);
    if (renormImpeds->size() == mMatrixSize) {
      m_DefaultImpeds = std::make_unique<CVector>(*renormImpeds);
      m_DoRenorm = true;
    }
  }
  if (deembedDists) {
    REPORT_IF(deembedDists->size() != mMatrixSize);
    if (deembedDists->size() == mMatrixSize) {
      m_DefaultDists = std::make_unique<RVector>(*deembedDists);
      m_DoDeembed = true;
    }
  }
  RebuildEffectiveValues();
}

void CNetworkPostprocSetup::SetRenormImpeds(
    const std::vector<std::pair<int, Complex>>& renormImpeds) {
  const int mMatrixSize = m_MatrixSize;
  m_RenormOverrides.clear();
  for (size_t i = 0; i < renormImpeds.size(); ++i) {
    ASSERT(0 <= renormImpeds[i].first);
    ASSERT(renormImpeds[i].first < mMatrixSize);
    if (0 <= renormImpeds[i].first && renormImpeds[i].first < mMatrixSize)
      m_RenormOverrides.push_back(renormImpeds[i]);
  }
  if (m_RenormOverrides.empty()) m_Impeds.reset();
  RebuildEffectiveValues();
}

void CNetworkPostprocSetup::SetDeembedDists(
    const std::vector<std::pair<int, double>>& deembedDists) {
  const int mMatrixSize = m_MatrixSize;
  m_DistOverrides.clear();
  for (size_t i = 0; i < deembedDists.size(); ++i) {
    ASSERT(0 <= deembedDists[i].first);
    ASSERT(deembedDists[i].first < mMatrixSize);
    if (0 <= deembedDists[i].first && deembedDists[i].first < mMatrixSize)
      m_DistOverrides.push_back(deembedDists[i]);
  }
  if (m_DistOverrides.empty()) m_Dists.reset();
  RebuildEffectiveValues();
}

void CNetworkPostprocSetup::RebuildEffectiveValues() {
  const int n = m_MatrixSize;
  // Without overrides of its own the per-entry vector (if any) came from a
  // file, which holds the complete effective values: keep it as it is.
  if (!m_RenormOverrides.empty()) {
    auto impeds = std::make_unique<CVector>(n, Complex());
    if (m_DefaultImpeds)
      std::copy_n(m_DefaultImpeds->begin(), std::min(n, m_DefaultImpeds->size()), impeds->begin());
    for (const auto& [index, z] : m_RenormOverrides)
      if (index < n) (*impeds)[index] = z;
    m_Impeds = std::move(impeds);
  }
  if (!m_DistOverrides.empty()) {
    auto dists = std::make_unique<RVector>(n, 0.0);
    if (m_DefaultDists)
      std::copy_n(m_DefaultDists->begin(), std::min(n, m_DefaultDists->size()), dists->begin());
    for (const auto& [index, d] : m_DistOverrides)
      if (index < n) (*dists)[index] = d;
    m_Dists = std::move(dists);
  }
}

const CNetworkPostprocSetup::CVector* CNetworkPostprocSetup::GetRenormImpeds() const {
  return m_Impeds ? m_Impeds.get() : m_DefaultImpeds.get();
}

const CNetworkPostprocSetup::RVector* CNetworkPostprocSetup::GetDeembedDists() const {
  return m_Dists ? m_Dists.get() : m_DefaultDists.get();
}

void CNetworkPostprocSetup::SetPortImpedances(const CVector* impeds) {
  m_PortImpeds = impeds ? std::make_unique<CVector>(*impeds) : nullptr;
}

// ---- What needs to be done ------------------------------------------------

bool CNetworkPostprocSetup::DoesRenormalize() const {
  if (m_DoRenorm || m_Impeds) return true;
  return std::any_of(m_DiffPairs.begin(), m_DiffPairs.end(),
                     [](const auto& pair) { return pair->DoesRenormalize(); });
}

bool CNetworkPostprocSetup::DoesDeembed() const {
  return m_DoDeembed || m_Dists;
}

bool CNetworkPostprocSetup::HasPortCalibration() const {
  if (m_PortWidths.empty() || m_PortLengths.empty() || m_NumPorts < 1) return false;
  const size_t ports = std::min(static_cast<size_t>(m_NumPorts), m_CalibratePorts.size());
  for (size_t i = 0; i < ports; ++i)
    if (m_CalibratePorts[i]) return true;
  return false;
}

bool CNetworkPostprocSetup::NeedsPostprocessing() const {
  if (m_MatrixSize == 0) return false;
  return DoesRenormalize() || DoesDeembed() || !m_IsModal || !m_UseZpiOnly || m_ExtrapToDC ||
         m_ImpedMultiplier != 1.0 || HasPortCalibration();
}

// ---- Differential pairs and calibration -----------------------------------

const CFxemDifferentialPair* CNetworkPostprocSetup::GetDiffPair(int i) const {
  ASSERT(0 <= i && i < GetNumDiffPairs());
  if (i < 0 || i >= GetNumDiffPairs()) return nullptr;
  return m_DiffPairs[static_cast<size_t>(i)].get();
}

CFxemDifferentialPair* CNetworkPostprocSetup::GetDiffPair(int i) {
  return const_cast<CFxemDifferentialPair*>(std::as_const(*this).GetDiffPair(i));
}

void CNetworkPostprocSetup::AddDiffPair(std::unique_ptr<CFxemDifferentialPair> pair) {
  ASSERT(pair != nullptr);
  if (pair) m_DiffPairs.push_back(std::move(pair));
}

void CNetworkPostprocSetup::SetPortCalibration(std::vector<bool> calibrate,
                                               std::vector<double> lengths,
                                               std::vector<double> widths) {
  m_CalibratePorts = std::move(calibrate);
  m_PortLengths = std::move(lengths);
  m_PortWidths = std::move(widths);
}

// ---- Persistence ----------------------------------------------------------

bool CNetworkPostprocSetup::Write(io::CBlock& block) const {
  block.AddInteger("NumPorts", m_NumPorts);
  block.AddInteger("MatrixSize", m_MatrixSize);
  block.AddBoolean("IsModal", m_IsModal);
  block.AddBoolean("DoRenorm", m_DoRenorm);
  block.AddBoolean("DoDeembed", m_DoDeembed);
  block.AddBoolean("UseZpiOnly", m_UseZpiOnly);
  block.AddBoolean("LosslessDeembed", m_LosslessDeembed);
  block.AddReal("ImpedMultiplier", m_ImpedMultiplier);

  AddList(block, "Modes", m_Modes, [](int m) { return io::CValue::Integer(m); });
  if (m_PortImpeds) WriteComplexVector(block, "PortImpeds", *m_PortImpeds, m_MatrixSize);
  if (m_DefaultImpeds) WriteComplexVector(block, "DefaultImpeds", *m_DefaultImpeds, m_MatrixSize);
  if (m_Impeds) WriteComplexVector(block, "Impeds", *m_Impeds, m_MatrixSize);
  if (m_DefaultDists)
    block.AddRealFunction("DefaultDists", {m_DefaultDists->begin(), m_DefaultDists->end()});
  if (m_Dists) block.AddRealFunction("Dists", {m_Dists->begin(), m_Dists->end()});
  AddList(block, "DoPortRenorm", m_DoPortRenorm, [](bool b) { return io::CValue::Boolean(b); });
  // Every kind is stored by name; one never chosen means the default, Zpi.
  AddList(block, "PortCharImpeds", m_PortCharImpeds, [](Kind kind) {
    const int k = static_cast<int>(kind);
    const bool named = k >= 0 && k < static_cast<int>(kKindNames.size());
    return io::CValue::Name(kKindNames[named ? static_cast<size_t>(k) : 0]);
  });

  bool ok = true;
  if (!m_DiffPairs.empty()) {
    io::CBlock& pairs = block.AddBlock("DiffPairs");
    // After a failure the remaining pairs keep their places as empty blocks,
    // so a reader still sees how many pairs there were.
    for (const auto& pair : m_DiffPairs) {
      io::CBlock& sub = pairs.AddBlock("Pair");
      if (ok) ok = pair->Write(sub);
    }
  }
  if (m_ExtrapToDC) block.AddBoolean("ExtrapToDC", true);

  if (HasPortCalibration()) {
    const size_t ports = m_Modes.size();
    std::vector<io::CValue> flags(ports, io::CValue::Boolean(false));
    std::vector<double> lengths(ports, 0.0), widths(ports, 0.0);
    for (size_t i = 0; i < ports; ++i) {
      if (i < m_CalibratePorts.size()) flags[i] = io::CValue::Boolean(m_CalibratePorts[i]);
      if (i < m_PortLengths.size()) lengths[i] = m_PortLengths[i];
      if (i < m_PortWidths.size()) widths[i] = m_PortWidths[i];
    }
    block.AddFunction("CalibratePorts", flags);
    block.AddRealFunction("PortLengths", lengths);
    block.AddRealFunction("PortWidths", widths);
  }
  return ok;
}

int CNetworkPostprocSetup::Read(const io::CBlock& block) {
  // Each look-up leaves absent items as they are; anything unreadable is
  // recorded in the block's error state and ends the read with its code.
  const io::ReadError scalars[] = {
      block.GetInteger("NumPorts", m_NumPorts),
      block.GetInteger("MatrixSize", m_MatrixSize),
      block.GetBoolean("IsModal", m_IsModal),
      block.GetBoolean("DoRenorm", m_DoRenorm),
      block.GetBoolean("DoDeembed", m_DoDeembed),
      block.GetBoolean("UseZpiOnly", m_UseZpiOnly),
      block.GetBoolean("LosslessDeembed", m_LosslessDeembed),
      block.GetReal("ImpedMultiplier", m_ImpedMultiplier),
  };
  for (const io::ReadError r : scalars)
    if (!io::IsReadOk(r)) return r;
  // The vectors below are allocated at this size: a damaged file must not
  // ask for more than any structure has entries.
  constexpr int kMaxEntries = 1 << 16;
  if (m_NumPorts < 0 || m_NumPorts > kMaxEntries || m_MatrixSize < 0 ||
      m_MatrixSize > kMaxEntries) {
    return block.ReportReadError(
        io::kReadBadValue, block.FindItem("MatrixSize"),
        AString::Format("expected \"NumPorts\" and \"MatrixSize\" from 0 to %d", kMaxEntries));
  }

  m_Modes.clear();
  m_DoPortRenorm.clear();
  m_PortCharImpeds.clear();

  // Older files end after any of the lists below; what they hold is a
  // complete setup.
  long index = -1;
  io::ReadError r = FindList(block, "Modes", io::ValueKind::Integer, "integers", index);
  if (r == io::kReadTolerated) return io::kReadOk;
  if (r != io::kReadOk) return r;
  const io::CItemView modes = block.GetItem(static_cast<size_t>(index));
  for (size_t k = 0; k < modes.GetNumValues(); ++k) {
    const std::int64_t m = modes.GetValue(k).GetInteger();
    if (m < std::numeric_limits<int>::min() || m > std::numeric_limits<int>::max()) {
      return block.ReportReadError(
          io::kReadBadValue, index,
          AString::Format("\"Modes\": expected a 32-bit integer, found %lld as value %zu",
                          static_cast<long long>(m), k + 1));
    }
    m_Modes.push_back(static_cast<int>(m));
  }

  const int n = m_MatrixSize;
  if (r = ReadComplexVector(block, "PortImpeds", n, m_PortImpeds); !io::IsReadOk(r)) return r;
  if (r = ReadComplexVector(block, "DefaultImpeds", n, m_DefaultImpeds); !io::IsReadOk(r)) return r;
  if (r = ReadComplexVector(block, "Impeds", n, m_Impeds); !io::IsReadOk(r)) return r;
  if (r = ReadRealVector(block, "DefaultDists", n, m_DefaultDists); !io::IsReadOk(r)) return r;
  if (r = ReadRealVector(block, "Dists", n, m_Dists); !io::IsReadOk(r)) return r;

  r = FindList(block, "DoPortRenorm", io::ValueKind::Boolean, "true or false", index);
  if (r == io::kReadTolerated) return io::kReadOk;
  if (r != io::kReadOk) return r;
  const io::CItemView flags = block.GetItem(static_cast<size_t>(index));
  for (size_t k = 0; k < flags.GetNumValues(); ++k)
    m_DoPortRenorm.push_back(flags.GetValue(k).GetBoolean());

  r = FindList(block, "PortCharImpeds", io::ValueKind::Name, io::ValueKind::String,
               "Zpi, Zpv or Zvi", index);
  if (r == io::kReadTolerated) return io::kReadOk;
  if (r != io::kReadOk) return r;
  const io::CItemView kinds = block.GetItem(static_cast<size_t>(index));
  for (size_t k = 0; k < kinds.GetNumValues(); ++k) {
    const io::CValue word = kinds.GetValue(k);
    // A word this version does not know is dropped rather than guessed.
    for (size_t i = 0; i < kKindNames.size(); ++i) {
      if (word.GetText() == kKindNames[i]) {
        m_PortCharImpeds.push_back(static_cast<Kind>(i));
        break;
      }
    }
  }

  if (const long at = block.FindItem("DiffPairs"); at >= 0) {
    const io::CBlock* pairs = block.GetItem(static_cast<size_t>(at)).GetBlock();
    if (!pairs)
      return block.ReportReadError(io::kReadWrongType, at, "\"DiffPairs\": expected a block");
    for (size_t k = 0; k < pairs->GetNumItems(); ++k) {
      const io::CBlock* sub = pairs->GetItem(k).GetBlock();
      if (!sub) continue;
      auto pair = std::make_unique<CFxemDifferentialPair>();
      const int status = pair->Read(*sub);
      if (status != io::kReadOk && status != io::kReadTolerated) return status;
      m_DiffPairs.push_back(std::move(pair));
    }
  }

  m_ExtrapToDC = false;
  if (r = block.GetBoolean("ExtrapToDC", m_ExtrapToDC); !io::IsReadOk(r)) return r;

  // Calibration came last; a block already in error is not trusted with it.
  if (!block.HasReadError()) {
    r = FindList(block, "CalibratePorts", io::ValueKind::Boolean, "true or false", index);
    if (r == io::kReadOk) {
      const io::CItemView calibrate = block.GetItem(static_cast<size_t>(index));
      std::vector<double> lengths, widths;
      if (r = block.GetRealFunction("PortLengths", lengths); !io::IsReadOk(r)) return r;
      if (r = block.GetRealFunction("PortWidths", widths); !io::IsReadOk(r)) return r;
      for (size_t k = 0; k < calibrate.GetNumValues(); ++k)
        m_CalibratePorts.push_back(calibrate.GetValue(k).GetBoolean());
      m_PortLengths.insert(m_PortLengths.end(), lengths.begin(), lengths.end());
      m_PortWidths.insert(m_PortWidths.end(), widths.begin(), widths.end());
    } else if (r != io::kReadTolerated) {
      return r;
    }
  }
  return io::kReadOk;
}
