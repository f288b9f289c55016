// The post-processing chain over copies of points; the transforms
// themselves live with the data (NetworkTransforms, DcExtrapolation).
#include "sparamlib/solution/Postprocessing.h"

#include <algorithm>

#include "sparamlib/data/DcExtrapolation.h"
#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/data/NetworkTerminalData.h"
#include "sparamlib/data/NetworkTransforms.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

namespace nd {
namespace {

using TNT::CMatrix;
using TNT::CVector;

bool Fail(std::string* why, std::string text) {
  if (why) *why = std::move(text);
  return false;
}

std::unique_ptr<CNetworkModalData> NoPoint(std::string* why, std::string text) {
  Fail(why, std::move(text));
  return nullptr;
}

PortPairs PairsOf(const CNetworkPostprocSetup& setup) {
  PortPairs pairs;
  for (int i = 0; i < setup.GetNumDiffPairs(); ++i) {
    const CFxemDifferentialPair& p = *setup.GetDiffPair(i);
    pairs.emplace_back(p.GetPosTerminalIndex(), p.GetNegTerminalIndex());
  }
  return pairs;
}

// Installs a new S computed from the old one; everything derived from the
// old S goes.
void ReplaceS(CNetworkModalData& point, CMatrix s) {
  point.DropDerivedMatrices();
  point.SetSMatrix(std::make_unique<CMatrix>(std::move(s)));
}

// The solver's modal S is normalised to the power each mode carries, and is
// the same whichever definition gives the mode its voltage and current; the
// definition only says which impedance that S stands at. An entry whose
// setup asks for Zpv or Zvi therefore keeps its S and takes that impedance
// as its reference (so its Y and Z, and any renormalisation after, change).
bool ChooseImpedanceKinds(const CNetworkPostprocSetup& setup, CNetworkModalData& point, int n,
                          std::string* why) {
  using Kind = CNetworkPostprocSetup::ImpedanceKind;
  const std::vector<Kind>& kinds = setup.GetCharImpedanceKinds();
  if (setup.GetUseZpiOnly() ||
      std::none_of(kinds.begin(), kinds.end(), [](Kind k) { return k == Kind::Zpv || k == Kind::Zvi; }))
    return true;
  const CVector* own = point.GetPortImpedance();
  if (!own || own->dim() != n)
    return Fail(why, "choosing an impedance definition needs each port's impedance, and the points carry none");
  const auto* solver = dynamic_cast<const CFxemModalData*>(&point);
  auto target = std::make_unique<CVector>(*own);
  for (int k = 0; k < n && static_cast<size_t>(k) < kinds.size(); ++k) {
    const Kind kind = kinds[static_cast<size_t>(k)];
    if (kind != Kind::Zpv && kind != Kind::Zvi) continue;
    const char* name = kind == Kind::Zpv ? "Zpv" : "Zvi";
    const CVector* alternative =
        solver ? (kind == Kind::Zpv ? solver->GetImpedanceZpv() : solver->GetImpedanceZvi()) : nullptr;
    if (!alternative || alternative->dim() != n) {
      return Fail(why, std::string("the setup asks for the ") + name + " impedance of entry " +
                           std::to_string(k + 1) + ", but the solver supplied Zpi only for this point");
    }
    (*target)[k] = (*alternative)[k];
  }
  auto s = std::make_unique<CMatrix>(*point.GetSMatrix(true));
  point.SetPortImpedance(std::move(target));
  point.DropDerivedMatrices();
  point.SetSMatrix(std::move(s));
  return true;
}

bool Deembed(const CNetworkPostprocSetup& setup, CNetworkModalData& point, int n, std::string* why) {
  const CNetworkPostprocSetup::RVector* d = setup.GetDeembedDists();
  if (!setup.DoesDeembed() || !d) return true;
  const CVector* gamma = point.GetGamma();
  if (!gamma || gamma->dim() != n)
    return Fail(why, "de-embedding needs each port's propagation constant, and the points carry none");
  if (d->dim() != n) return Fail(why, "the setup's de-embedding distances do not match the ports");
  CMatrix out;
  if (DeembedS(*point.GetSMatrix(true), *gamma, std::vector<double>(d->begin(), d->end()),
               setup.GetLosslessDeembed(), out) != 0)
    return Fail(why, "de-embedding failed");
  ReplaceS(point, std::move(out));
  return true;
}

bool Renormalize(const CNetworkPostprocSetup& setup, CNetworkModalData& point, int n, std::string* why) {
  const CNetworkPostprocSetup::CVector* z = setup.GetRenormImpeds();
  if (!z || z->dim() != n) return true;  // impedances exist only when asked for
  const CVector* own = point.GetPortImpedance();
  if (!own || own->dim() != n)
    return Fail(why, "renormalisation needs each port's impedance, and the points carry none");
  const std::vector<bool>& flags = setup.GetPortRenormFlags();
  CVector target = *own;
  for (int k = 0; k < n; ++k)
    if (flags.empty() || (static_cast<size_t>(k) < flags.size() && flags[static_cast<size_t>(k)]))
      target[k] = (*z)[k];
  if (!point.Renormalize(target)) return Fail(why, "renormalisation failed");
  return true;
}

bool FormPairs(const CNetworkPostprocSetup& setup, CNetworkModalData& point, int n, std::string* why) {
  const PortPairs pairs = PairsOf(setup);
  if (pairs.empty()) return true;
  if (!ValidPortPairs(pairs, n)) return Fail(why, "the setup's differential pairs name ports the solution does not have");
  const CVector* z = point.GetPortImpedance();
  if (!z || z->dim() != n)
    return Fail(why, "differential pairs need each port's impedance, and the points carry none");
  // Matched pairs take the references of uncoupled lines; the others keep
  // the references their positions have.
  const CVector matched = MatchedMixedModeImpedances(*z, pairs);
  CVector zMixed = *z;
  for (int i = 0; i < setup.GetNumDiffPairs(); ++i) {
    if (!setup.GetDiffPair(i)->GetUseMatched()) continue;
    const auto [pos, neg] = pairs[static_cast<size_t>(i)];
    zMixed[pos] = matched[pos];
    zMixed[neg] = matched[neg];
  }
  CMatrix out;
  if (SingleEndedToMixedMode(*point.GetSMatrix(true), *z, pairs, zMixed, out) != 0)
    return Fail(why, "forming the differential pairs failed");
  ReplaceS(point, std::move(out));
  point.SetPortImpedance(std::make_unique<CVector>(zMixed));
  return true;
}

}  // namespace

std::vector<std::string> UnappliedPostprocessing(const CNetworkPostprocSetup& setup) {
  std::vector<std::string> steps;
  if (!setup.IsModal() && setup.GetNumDiffPairs() > 0)
    steps.push_back("differential pairs in the terminal view");
  if (!setup.IsModal() && setup.GetExtrapToDC()) steps.push_back("extrapolation to DC in the terminal view");
  if (setup.HasPortCalibration())
    steps.push_back("lumped-port calibration (Lumped port calibration failed: this version has no "
                    "calibration model for lumped ports)");
  return steps;
}

bool PostprocessPoint(const CNetworkPostprocSetup& setup, CNetworkModalData& point, std::string* why) {
  const CMatrix* s = point.GetSMatrix(true);
  if (!s) return Fail(why, "the point has no S matrix");
  const int n = s->num_rows();
  if (!ChooseImpedanceKinds(setup, point, n, why)) return false;
  if (setup.GetImpedMultiplier() != 1.0) ScaleImpedance(setup.GetImpedMultiplier(), point);
  // In the terminal view the renormalisation impedances are the terminals'
  // references, applied when the terminal view is formed (TerminalExport).
  if (!setup.IsModal()) return Deembed(setup, point, n, why);
  return Deembed(setup, point, n, why) && Renormalize(setup, point, n, why) &&
         FormPairs(setup, point, n, why);
}

std::unique_ptr<CNetworkDataSolution> TerminalExport(const CNetworkPostprocSetup& setup,
                                                     const CNetworkModalSolution& processed,
                                                     std::string* why) {
  const CVector* z = setup.DoesRenormalize() ? setup.GetRenormImpeds() : nullptr;
  AString reason;
  auto terminal = MakeTerminalSolution(processed, z, ReadTerminalViewSettings(), &reason);
  if (!terminal) Fail(why, "the terminal view: " + std::string(reason));
  return terminal;
}

std::unique_ptr<CNetworkData> GetPostprocessedData(CNetworkDataSolution& solution, double frequency,
                                                   double tolerance, bool interpolate, std::string* why) {
  const bool held = solution.GetNetworkData(frequency, tolerance, false) != nullptr;
  const CNetworkData* point = solution.GetNetworkData(frequency, tolerance, interpolate);
  std::unique_ptr<CNetworkData> copy = point ? point->Clone() : nullptr;
  if (point && !held) solution.ReleaseNetworkData(frequency);
  if (!copy) {
    Fail(why, "no point at " + std::string(AString::Format("%.10g Hz", frequency)));
    return nullptr;
  }
  const CNetworkPostprocSetup* setup = solution.GetPostprocSetup();
  if (!setup || !setup->NeedsPostprocessing()) return copy;
  if (!setup->IsModal()) {
    Fail(why, "the terminal view is formed for whole solutions (exports), not point by point");
    return nullptr;
  }
  const std::vector<std::string> unapplied = UnappliedPostprocessing(*setup);
  if (!unapplied.empty()) {
    Fail(why, "the setup asks for " + unapplied.front() + ", which this version cannot apply");
    return nullptr;
  }
  auto* modal = dynamic_cast<CNetworkModalData*>(copy.get());
  if (!modal) {
    Fail(why, "post-processing needs modal points (with port impedances)");
    return nullptr;
  }
  if (!PostprocessPoint(*setup, *modal, why)) return nullptr;
  return copy;
}

std::vector<AString> PostprocessedEntryNames(const CNetworkPostprocSetup& setup,
                                             const CNetworkDataSolution& solution) {
  std::vector<AString> names;
  for (int k = 0; k < solution.GetNumMatrixEntries(); ++k) {
    const CMatrixEntry* e = solution.GetMatrixEntry(k);
    names.push_back(e->GetModalEntryName().empty() ? e->GetPortName() : e->GetModalEntryName());
  }
  for (int i = 0; i < setup.GetNumDiffPairs(); ++i) {
    const CFxemDifferentialPair& p = *setup.GetDiffPair(i);
    const auto at = [&](int k) { return k >= 0 && static_cast<size_t>(k) < names.size(); };
    if (at(p.GetPosTerminalIndex()) && !p.GetDiffName().empty())
      names[static_cast<size_t>(p.GetPosTerminalIndex())] = p.GetDiffName();
    if (at(p.GetNegTerminalIndex()) && !p.GetCommonName().empty())
      names[static_cast<size_t>(p.GetNegTerminalIndex())] = p.GetCommonName();
  }
  return names;
}

std::unique_ptr<CNetworkModalData> PostprocessedDcPoint(const CNetworkPostprocSetup& setup,
                                                        CNetworkDataSolution& solution,
                                                        std::string* why) {
  const auto& solved = solution.GetFrequencyMap();
  if (solved.empty()) return NoPoint(why, "no solved points to extrapolate from");
  DcExtrapolationSettings settings;
  std::vector<double> f;
  if (!ReadDcExtrapolationSettings(settings, why) ||
      !DcSampleFrequencies(solved.begin()->first, solved.rbegin()->first, settings, f, why))
    return nullptr;
  const double tolerance = CNetworkDataSolution::kStandardFrequencyTolerance;
  std::vector<CMatrix> samples;
  std::unique_ptr<CNetworkModalData> first;
  for (double fk : f) {
    const bool held = solution.GetNetworkData(fk, tolerance, false) != nullptr;
    const CNetworkData* point = solution.GetNetworkData(fk, tolerance, true);
    const bool atF = point && std::abs(point->GetFrequency() - fk) <= std::max(tolerance, fk * 1e-9);
    std::unique_ptr<CNetworkData> copy = atF ? point->Clone() : nullptr;
    if (point && !held) solution.ReleaseNetworkData(fk);
    auto* modal = dynamic_cast<CNetworkModalData*>(copy.get());
    if (!modal) {
      return NoPoint(why, "extrapolation to DC needs the solution interpolated at " +
                              std::string(AString::Format("%.10g Hz", fk)) +
                              ", and it does not interpolate modal data there");
    }
    if (!PostprocessPoint(setup, *modal, why)) return nullptr;
    samples.push_back(*modal->GetSMatrix(true));
    if (!first) first.reset(static_cast<CNetworkModalData*>(copy.release()));
  }
  CMatrix dc;
  if (!ExtrapolateToDC(f, samples, settings.order, dc, why)) return nullptr;
  first->SetFrequency(0.0);
  first->SetDataType(CNetworkData::Extrapolated);
  ReplaceS(*first, std::move(dc));
  // A propagation constant at DC is not what the samples say; none is
  // better than a wrong one.
  first->SetGamma(nullptr);
  return first;
}

}  // namespace nd
