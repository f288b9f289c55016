// Frequency lookup, point ownership, matrix entries and the stored form of a
// network data solution.
#include "sparamlib/solution/NetworkDataSolution.h"

#include <algorithm>
#include <cmath>

#include "core/Assert.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/solution/InterpolateVisitor.h"

namespace {

// The first key at or above f - t, if it lies within f + t; exact key for t = 0.
CNetworkData* Find(const CNetworkDataSolution::PointMap& map, double f, double t, bool exact) {
  if (exact) {
    const auto it = map.find(f);
    return it == map.end() ? nullptr : it->second.get();
  }
  const auto it = map.lower_bound(f - t);
  return it != map.end() && it->first <= f + t ? it->second.get() : nullptr;
}

}  // namespace

CNetworkDataSolution::CNetworkDataSolution(const AString& name) : m_Name(name) {}

CNetworkDataSolution::CNetworkDataSolution(const CNetworkDataSolution& other)
    : INetworkDataOwner(other),
      m_Name(other.m_Name),
      m_SolutionType(other.m_SolutionType),
      m_AdaptivePass(other.m_AdaptivePass),
      m_EnergyError(other.m_EnergyError),
      m_MatrixIndexMap(other.m_MatrixIndexMap),
      m_EntryCount(other.m_EntryCount) {
  for (const auto& [f, point] : other.m_FrequencyMap) {
    auto copy = point->Clone();
    copy->SetOwner(this);
    m_FrequencyMap.emplace(f, std::move(copy));
  }
  for (const auto& [f, point] : other.m_InterpolatedMap) {
    auto copy = point->Clone();
    copy->SetOwner(this);
    m_InterpolatedMap.emplace(f, std::move(copy));
  }
  int iloop = 0;
  for (auto it = other.m_MatrixEntries.begin(); it != other.m_MatrixEntries.end(); ++it, ++iloop) {
    ASSERT((*it)->GetMatrixIndex() == iloop);
    m_MatrixEntries.push_back(std::make_unique<CMatrixEntry>(**it));
  }
  if (other.m_NoiseSolution)
    m_NoiseSolution = std::make_unique<CNoiseDataSolution>(*other.m_NoiseSolution);
  if (other.m_PostprocSetup)
    m_PostprocSetup = std::make_unique<CNetworkPostprocSetup>(*other.m_PostprocSetup);
  if (other.m_BRIWeights) m_BRIWeights = std::make_unique<::InterpolateBRI>(*other.m_BRIWeights);
}

CNetworkDataSolution::~CNetworkDataSolution() = default;

std::unique_ptr<CNetworkDataSolution> CNetworkDataSolution::Clone() const {
  return std::make_unique<CNetworkDataSolution>(*this);
}

// ---- Points ---------------------------------------------------------------

CNetworkData* CNetworkDataSolution::GetNetworkData(double frequency, double tolerance,
                                                   bool interpolate) {
  if (m_FrequencyMap.empty()) return nullptr;
  const double t = std::max(frequency * 1e-9, tolerance);
  const bool exact = tolerance == 0.0;
  // A state-space fit answers from its model even where a point was
  // solved; only points already interpolated from it are reused.
  const bool skipSolved = m_SolutionType == StateSpaceFit && interpolate;
  if (!skipSolved) {
    if (CNetworkData* p = Find(m_FrequencyMap, frequency, t, exact)) return p;
  }
  if (CNetworkData* p = Find(m_InterpolatedMap, frequency, t, exact)) return p;
  if (!interpolate) return nullptr;
  const std::unique_ptr<CInterpolateVisitor> visitor = MakeInterpolateVisitor();
  return visitor ? Interpolate(*visitor, frequency) : nullptr;
}

bool CNetworkDataSolution::AddNetworkData(std::unique_ptr<CNetworkData> point) {
  if (!point) return false;
  const double f = point->GetFrequency();
  if (m_FrequencyMap.count(f)) return false;
  m_FrequencyMap.emplace(f, std::move(point));
  m_InterpolatedMap.erase(f);
  return true;
}

CNetworkData* CNetworkDataSolution::NearestSolved(double frequency) const {
  if (m_FrequencyMap.empty()) return nullptr;
  auto it = m_FrequencyMap.lower_bound(frequency);
  if (it == m_FrequencyMap.end()) return std::prev(it)->second.get();
  if (it != m_FrequencyMap.begin() && frequency - std::prev(it)->first < it->first - frequency)
    --it;
  return it->second.get();
}

void CNetworkDataSolution::SetBRIWeights(std::unique_ptr<::InterpolateBRI> weights) {
  m_BRIWeights = std::move(weights);
}

void CNetworkDataSolution::ReleaseNetworkData(double frequency) {
  m_InterpolatedMap.erase(frequency);
}

void CNetworkDataSolution::Clear() {
  m_FrequencyMap.clear();
  m_InterpolatedMap.clear();
}

std::unique_ptr<CNetworkData> CNetworkDataSolution::CreateNetworkData() {
  return std::make_unique<CNetworkData>(this);
}

CNetworkData* CNetworkDataSolution::Interpolate(CInterpolateVisitor& visitor, double frequency) {
  std::unique_ptr<CNetworkData> target = CreateNetworkData();
  target->SetFrequency(frequency);
  target->SetDataType(CNetworkData::Interpolated);
  if (!Accept(visitor, *target)) return nullptr;
  if (!target->GetSMatrix(false)) {
    // The visitor left the request to the solved data: the solved point
    // nearest the frequency answers.
    return NearestSolved(frequency);
  }
  CNetworkData* kept = target.get();
  m_InterpolatedMap[frequency] = std::move(target);
  return kept;
}

bool CNetworkDataSolution::Accept(CInterpolateVisitor& visitor, CNetworkData& target) {
  return visitor.Visit(*this, target);
}

// ---- Matrix entries -------------------------------------------------------

const CMatrixEntry* CNetworkDataSolution::GetMatrixEntry(int matrix_index) const {
  ASSERT((matrix_index < static_cast<int>(m_MatrixEntries.size())));
  if (matrix_index < 0 || matrix_index >= static_cast<int>(m_MatrixEntries.size())) return nullptr;
  return m_MatrixEntries[static_cast<size_t>(matrix_index)].get();
}

CMatrixEntry& CNetworkDataSolution::AddMatrixEntry(const CMatrixEntry& entry) {
  auto& added = m_MatrixEntries.emplace_back(std::make_unique<CMatrixEntry>(entry));
  added->SetMatrixIndex(static_cast<int>(m_MatrixEntries.size()) - 1);
  return *added;
}

bool CNetworkDataSolution::IsValidMatrixIndex(int matrixIndex) const {
  return m_MatrixIndexMap.empty() || m_MatrixIndexMap.count(matrixIndex) != 0;
}

int CNetworkDataSolution::GetEntryPosition(int matrixIndex) const {
  const auto it = m_MatrixIndexMap.find(matrixIndex);
  return it == m_MatrixIndexMap.end() ? -1 : it->second;
}

void CNetworkDataSolution::AdaptStoredMatrix(TNT::CMatrix& matrix) const {
  // The rows and columns of the entries kept at the last read, in order.
  std::vector<int> kept;
  for (int p = 0; p < matrix.num_rows(); ++p)
    if (IsValidMatrixIndex(p)) kept.push_back(p);
  const int n = GetNumPorts();
  TNT::CMatrix reduced(n, n);
  const int m = std::min(n, static_cast<int>(kept.size()));
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < m; ++j)
      reduced[i][j] = matrix[kept[static_cast<size_t>(i)]][kept[static_cast<size_t>(j)]];
  matrix = std::move(reduced);
}

CNoiseDataSolution& CNetworkDataSolution::GetOrCreateNoiseSolution() {
  if (!m_NoiseSolution) m_NoiseSolution = std::make_unique<CNoiseDataSolution>();
  return *m_NoiseSolution;
}

size_t CNetworkDataSolution::GetMemorySize() const {
  size_t bytes = 0;
  for (const auto& [f, p] : m_FrequencyMap) bytes += p->GetMemorySize();
  for (const auto& [f, p] : m_InterpolatedMap) bytes += p->GetMemorySize();
  return bytes;
}

// ---- Persistence ----------------------------------------------------------

namespace {

// A map of points as one sub-block per point; false (and nothing added) when
// a point cannot write itself.
bool WritePoints(io::CBlock& block, const char* key, const CNetworkDataSolution::PointMap& map) {
  io::CBlock points(key);
  for (const auto& [f, point] : map)
    if (!point->WriteToBlock(points.AddBlock(point->GetBlockName()))) return false;
  block.AddBlock(std::move(points));
  return true;
}

// The error estimate of every interpolated point, "e = [frequency, error]"
// in frequency order; nothing when no point was interpolated. (The point's
// own block has no place for it.)
void WriteInterpolationErrors(io::CBlock& block, const CNetworkDataSolution::PointMap& solved,
                              const CNetworkDataSolution::PointMap& interpolated, bool withInterpolated) {
  io::CBlock errors("InterpolationErrors");
  auto add = [&](const CNetworkDataSolution::PointMap& map) {
    for (const auto& [f, point] : map) {
      const auto type = point->GetDataType();
      if (type != CNetworkData::Interpolated && type != CNetworkData::Extrapolated) continue;
      const double item[] = {f, point->GetValue()};
      errors.AddRealFunction("e", item);
    }
  };
  add(solved);
  if (withInterpolated) add(interpolated);
  if (!errors.IsEmpty()) block.AddBlock(std::move(errors));
}

}  // namespace

bool CNetworkDataSolution::Write(io::CBlock& block, bool withInterpolated) const {
  block.AddEnum("ObjectType", kObjectTypeNames, GetObjectType());
  block.AddEnum("SolutionType", kSolutionTypeNames, m_SolutionType);
  block.AddString("Name", m_Name);
  block.AddInteger("AdaptivePass", m_AdaptivePass);
  block.AddReal("EnergyError", m_EnergyError);
  if (!m_FrequencyMap.empty() && !WritePoints(block, "Frequencies", m_FrequencyMap)) return false;
  if (!m_MatrixEntries.empty()) {
    io::CBlock ports("Ports");
    for (const auto& entry : m_MatrixEntries)
      if (!entry->WriteToBlock(ports.AddBlock("Port"))) return false;
    block.AddBlock(std::move(ports));
  }
  if (withInterpolated && !m_InterpolatedMap.empty() &&
      !WritePoints(block, "InterpolatedFrequencies", m_InterpolatedMap)) {
    return false;
  }
  WriteInterpolationErrors(block, m_FrequencyMap, m_InterpolatedMap, withInterpolated);
  if (m_NoiseSolution && !m_NoiseSolution->WriteToBlock(block.AddBlock("NoiseSolution")))
    return false;
  if (m_BRIWeights && !m_BRIWeights->WriteToBlock(block.AddBlock("BRIInterpolationWeights")))
    return false;
  return true;
}

int CNetworkDataSolution::Read(const io::CBlock& block) {
  int type = m_SolutionType;
  block.GetEnum("SolutionType", kSolutionTypeNames, type);
  m_SolutionType = static_cast<SolutionType>(type);
  block.GetInteger("AdaptivePass", m_AdaptivePass);
  block.GetString("Name", m_Name);
  block.GetReal("EnergyError", m_EnergyError);

  Clear();
  m_MatrixEntries.clear();

  if (const io::CBlock* ports = block.FindBlock("Ports")) {
    const int result = ReadEntries(*ports);
    if (!io::IsReadOk(result)) return result;
  }
  if (const io::CBlock* points = block.FindBlock("Frequencies")) {
    const int result = ReadPoints(*points, false);
    if (!io::IsReadOk(result)) return result;
  }
  if (const io::CBlock* points = block.FindBlock("InterpolatedFrequencies")) {
    const int result = ReadPoints(*points, true);
    if (!io::IsReadOk(result)) return result;
  }
  if (const io::CBlock* errors = block.FindBlock("InterpolationErrors")) ReadInterpolationErrors(*errors);
  if (const io::CBlock* noise = block.FindBlock("NoiseSolution")) {
    const int result = GetOrCreateNoiseSolution().ReadFromBlock(*noise);
    if (!io::IsReadOk(result)) return result;
  }
  m_BRIWeights.reset();
  if (const io::CBlock* weights = block.FindBlock("BRIInterpolationWeights")) {
    auto read = std::make_unique<::InterpolateBRI>();
    if (read->ReadFromBlock(*weights) == io::kReadOk) m_BRIWeights = std::move(read);
  }
  return io::kReadOk;
}

void CNetworkDataSolution::ReadInterpolationErrors(const io::CBlock& errors) {
  for (size_t k = 0; k < errors.GetNumItems(); ++k) {
    const io::CItemView item = errors.GetItem(k);
    if (item.GetKind() != io::ItemKind::Function || item.GetNumValues() != 2) continue;
    double f = 0.0, error = 0.0;
    if (!item.GetValue(0).ToReal(f) || !item.GetValue(1).ToReal(error)) continue;
    for (PointMap* map : {&m_FrequencyMap, &m_InterpolatedMap})
      if (const auto it = map->find(f); it != map->end()) it->second->SetValue(error);
  }
}

int CNetworkDataSolution::ReadEntries(const io::CBlock& ports) {
  bool dropped = false;
  int smallest = 1;
  int position = 0;
  for (size_t k = 0; k < ports.GetNumItems(); ++k) {
    const io::CBlock* sub = ports.GetItem(k).GetBlock();
    if (!sub) continue;
    auto entry = std::make_unique<CMatrixEntry>();
    const int result = entry->ReadFromBlock(*sub);
    if (!io::IsReadOk(result)) return result;
    if (!IsValidMatrixIndex(position++)) {
      dropped = true;
      continue;
    }
    smallest = std::min(smallest, entry->GetMatrixIndex());
    m_MatrixEntries.push_back(std::move(entry));
  }
  m_EntryCount = static_cast<int>(ports.GetNumItems());
  if (dropped) {
    for (auto& entry : m_MatrixEntries) entry->SetMatrixIndex(GetEntryPosition(entry->GetMatrixIndex()));
  } else if (smallest == 1 && !m_MatrixEntries.empty()) {
    // Files of an older kind numbered the entries from 1.
    ASSERT(!"Matrix entries are 1-based indexed??");
    for (auto& entry : m_MatrixEntries) entry->SetMatrixIndex(entry->GetMatrixIndex() - 1);
  }
  return io::kReadOk;
}

namespace {

// Every stored S, Y and Z entry and port vector is a finite number: data
// with NaN or infinity cannot be converted, interpolated or exported.
bool FiniteMatrices(CNetworkData& point) {
  auto finite = [](const AComplex<double>* v, int count) {
    for (int k = 0; k < count; ++k)
      if (!std::isfinite(v[k].re) || !std::isfinite(v[k].im)) return false;
    return true;
  };
  for (const TNT::CMatrix* m : {point.GetSMatrix(false), point.GetYMatrix(false), point.GetZMatrix(false)})
    if (m && !finite(m->data(), m->size())) return false;
  if (auto* modal = dynamic_cast<CNetworkModalData*>(&point)) {
    for (const TNT::CVector* v : {modal->GetPortImpedance(), modal->GetGamma()})
      if (v && !finite(v->data(), v->size())) return false;
  }
  return true;
}

}  // namespace

int CNetworkDataSolution::ReadPoints(const io::CBlock& block, bool interpolated) {
  for (size_t k = 0; k < block.GetNumItems(); ++k) {
    const io::CBlock* sub = block.GetItem(k).GetBlock();
    if (!sub) continue;
    // A point without a usable frequency cannot be placed: a NaN key would
    // swallow every later point as its duplicate, a damaged one would move
    // the point silently.
    const long at = sub->FindItem("Frequency");
    if (at < 0) return sub->ReportReadError(io::kReadBadValue, -1, "a data point needs its \"Frequency\"");
    std::unique_ptr<CNetworkData> point = CreateNetworkData();
    point->SetOwner(this);
    const int result = point->ReadFromBlock(*sub);
    if (!io::IsReadOk(result)) return result;
    if (!std::isfinite(point->GetFrequency()) || point->GetFrequency() < 0.0) {
      return sub->ReportReadError(io::kReadBadValue, at,
                                  AString::Format("expected a finite frequency of 0 Hz or more, found %g",
                                                  point->GetFrequency()));
    }
    if (!FiniteMatrices(*point)) {
      return sub->ReportReadError(io::kReadBadValue, -1,
                                  AString::Format("the data point at %.17g Hz holds a value that is not finite",
                                                  point->GetFrequency()));
    }
    if (interpolated) {
      const double f = point->GetFrequency();
      m_InterpolatedMap.try_emplace(f, std::move(point));
    } else {
      AddNetworkData(std::move(point));
    }
  }
  return io::kReadOk;
}
