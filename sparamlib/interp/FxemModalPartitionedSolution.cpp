// Combined sweeps: shares of the band, points copied from each part's share,
// interpolation handed to the part that owns the frequency.
#include "sparamlib/interp/FxemModalPartitionedSolution.h"

#include <algorithm>
#include <cmath>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/interp/FxemModalSolution.h"
#include "sparamlib/interp/NevilleInterpolateVisitor.h"

namespace {

std::string Ghz(double hz) { return AString::Format("%.10g GHz", hz / 1e9); }

double Lowest(const CNetworkDataSolution& s) { return s.GetFrequencyMap().begin()->first; }
double Highest(const CNetworkDataSolution& s) { return s.GetFrequencyMap().rbegin()->first; }

// A part as stored: modal solutions of the solver or of files.
std::unique_ptr<CNetworkDataSolution> MakePart(int objectType) {
  if (objectType == CNetworkDataSolution::FxemModal) return std::make_unique<CFxemModalSolution>();
  if (objectType == CNetworkDataSolution::Modal) return std::make_unique<CNetworkModalSolution>();
  return nullptr;
}

}  // namespace

CFxemModalPartitionedSolution::CFxemModalPartitionedSolution(const CFxemModalPartitionedSolution& other)
    : CNetworkModalSolution(other), m_ShareStarts(other.m_ShareStarts), m_Frequencies(other.m_Frequencies) {
  for (const auto& part : other.m_Parts) m_Parts.push_back(part->Clone());
}

std::unique_ptr<CNetworkDataSolution> CFxemModalPartitionedSolution::Clone() const {
  return std::make_unique<CFxemModalPartitionedSolution>(*this);
}

bool CFxemModalPartitionedSolution::Combine(std::vector<std::unique_ptr<CNetworkDataSolution>> parts,
                                            std::string* why) {
  auto fail = [why](std::string text) {
    if (why) *why = std::move(text);
    return false;
  };
  if (parts.size() < 2) return fail("a combined sweep needs two solutions or more");
  for (size_t k = 0; k < parts.size(); ++k) {
    if (!parts[k] || parts[k]->GetFrequencyMap().empty())
      return fail("solution " + std::to_string(k + 1) + " has no solved points");
    if (!dynamic_cast<CNetworkModalSolution*>(parts[k].get()))
      return fail("solution " + std::to_string(k + 1) + " is not modal data");
    if (parts[k]->GetNumMatrixEntries() != parts[0]->GetNumMatrixEntries())
      return fail("solution " + std::to_string(k + 1) + " has " +
                  std::to_string(parts[k]->GetNumMatrixEntries()) + " ports, solution 1 has " +
                  std::to_string(parts[0]->GetNumMatrixEntries()));
  }
  std::stable_sort(parts.begin(), parts.end(),
                   [](const auto& a, const auto& b) { return Lowest(*a) < Lowest(*b); });
  std::vector<double> starts = {Lowest(*parts[0])};
  for (size_t k = 1; k < parts.size(); ++k) {
    const CNetworkDataSolution& below = *parts[k - 1];
    const CNetworkDataSolution& above = *parts[k];
    if (Lowest(above) > Highest(below)) {
      return fail("nothing was solved between " + Ghz(Highest(below)) + " and " +
                  Ghz(Lowest(above)) + "; sweep that gap too");
    }
    if (Highest(above) <= Highest(below) || Lowest(above) <= starts.back()) {
      return fail("the band " + Ghz(Lowest(above)) + " to " + Ghz(Highest(above)) +
                  " lies inside another; leave that solution out");
    }
    starts.push_back(0.5 * (Lowest(above) + Highest(below)));
  }
  m_Parts = std::move(parts);
  m_ShareStarts = std::move(starts);
  // The combined solution describes itself as its first part does.
  while (GetNumMatrixEntries() < m_Parts[0]->GetNumMatrixEntries())
    AddMatrixEntry(*m_Parts[0]->GetMatrixEntry(GetNumMatrixEntries()));
  SetSolutionType(m_Parts[0]->GetSolutionType());
  Rebuild();
  return true;
}

void CFxemModalPartitionedSolution::Rebuild() {
  Clear();
  m_Frequencies.clear();
  for (size_t k = 0; k < m_Parts.size(); ++k) {
    const double end = k + 1 < m_Parts.size() ? m_ShareStarts[k + 1] : INFINITY;
    for (const auto& [f, point] : m_Parts[k]->GetFrequencyMap()) {
      if (f < m_ShareStarts[k] || f >= end) continue;
      auto copy = CreateNetworkData();
      auto* modal = static_cast<CNetworkModalData*>(copy.get());
      const auto* source = dynamic_cast<const CNetworkModalData*>(point.get());
      modal->SetFrequency(f);
      modal->SetDataType(point->GetDataType());
      if (const TNT::CMatrix* s = point->GetSMatrix(true)) modal->SetSMatrix(std::make_unique<TNT::CMatrix>(*s));
      if (source && source->GetPortImpedance())
        modal->SetPortImpedance(std::make_unique<TNT::CVector>(*source->GetPortImpedance()));
      if (source && source->GetGamma()) modal->SetGamma(std::make_unique<TNT::CVector>(*source->GetGamma()));
      AddNetworkData(std::move(copy));
      m_Frequencies.push_back(f);
    }
  }
}

const CNetworkDataSolution* CFxemModalPartitionedSolution::PartFor(double frequency) const {
  if (m_Parts.empty()) return nullptr;
  size_t k = 0;
  while (k + 1 < m_Parts.size() && frequency >= m_ShareStarts[k + 1]) ++k;
  return m_Parts[k].get();
}

std::unique_ptr<CInterpolateVisitor> CFxemModalPartitionedSolution::MakeInterpolateVisitor() const {
  // Accept answers every request itself; a visitor is only the ticket.
  return std::make_unique<CNevilleInterpolateVisitor>();
}

bool CFxemModalPartitionedSolution::Accept(CInterpolateVisitor&, CNetworkData& target) {
  auto* part = const_cast<CNetworkDataSolution*>(PartFor(target.GetFrequency()));
  if (!part) return false;
  const double f = target.GetFrequency();
  const double tolerance = kStandardFrequencyTolerance;
  const bool held = part->GetNetworkData(f, tolerance, false) != nullptr;
  CNetworkData* answer = part->GetNetworkData(f, tolerance, true);
  const TNT::CMatrix* s = answer ? answer->GetSMatrix(true) : nullptr;
  const bool ok = s && std::fabs(answer->GetFrequency() - f) <= std::max(tolerance, f * 1e-9);
  if (ok) {
    auto& out = static_cast<CNetworkModalData&>(target);
    out.SetSMatrix(std::make_unique<TNT::CMatrix>(*s));
    if (const auto* modal = dynamic_cast<const CNetworkModalData*>(answer)) {
      if (modal->GetPortImpedance()) out.SetPortImpedance(std::make_unique<TNT::CVector>(*modal->GetPortImpedance()));
      if (modal->GetGamma()) out.SetGamma(std::make_unique<TNT::CVector>(*modal->GetGamma()));
    }
    out.SetValue(answer->GetValue());
  }
  if (answer && !held) part->ReleaseNetworkData(f);
  return ok;
}

bool CFxemModalPartitionedSolution::Write(io::CBlock& block, bool withInterpolated) const {
  if (!CNetworkModalSolution::Write(block, withInterpolated)) return false;
  io::CBlock& parts = block.AddBlock("Parts");
  for (const auto& part : m_Parts)
    if (!part->Write(parts.AddBlock("SolutionData"), withInterpolated)) return false;
  return true;
}

int CFxemModalPartitionedSolution::Read(const io::CBlock& block) {
  const int result = CNetworkModalSolution::Read(block);
  if (!io::IsReadOk(result)) return result;
  const io::CBlock* parts = block.FindBlock("Parts");
  if (!parts) return block.ReportReadError(io::kReadBadValue, -1, "a combined sweep needs its \"Parts\"");
  std::vector<std::unique_ptr<CNetworkDataSolution>> read;
  for (const io::CBlock* part : parts->FindBlocks("SolutionData")) {
    int type = NoObject;
    const io::ReadError found = part->GetEnum("ObjectType", kObjectTypeNames, type);
    std::unique_ptr<CNetworkDataSolution> solution = io::IsReadOk(found) ? MakePart(type) : nullptr;
    if (!solution) {
      return part->ReportReadError(io::kReadBadValue, part->FindItem("ObjectType"),
                                   "a part of a combined sweep must be modal data");
    }
    const int partResult = solution->Read(*part);
    if (!io::IsReadOk(partResult)) return partResult;
    read.push_back(std::move(solution));
  }
  std::string why;
  CFxemModalPartitionedSolution check;
  if (!check.Combine(std::move(read), &why)) return block.ReportReadError(io::kReadBadValue, -1, why);
  // The stored combined points are what the project holds; the shares and
  // parts come from the parts as stored.
  m_Parts = std::move(check.m_Parts);
  m_ShareStarts = std::move(check.m_ShareStarts);
  m_Frequencies.clear();
  for (const auto& [f, point] : GetFrequencyMap()) m_Frequencies.push_back(f);
  return result;
}
