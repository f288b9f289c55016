// Deciding what an export writes: which points, at which frequencies, and
// which reference impedance the file may state for them.
#include "product/ExportPlan.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/data/NetworkTerminalData.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/interp/FxemModalPartitionedSolution.h"
#include "sparamlib/formats/TouchstoneReader.h"
#include "sparamlib/solution/Postprocessing.h"

namespace sparam {
namespace {

using Complex = AComplex<double>;
using TNT::CVector;

std::string Ghz(double hz) {
  char text[48];
  std::snprintf(text, sizeof text, "%.10g GHz", hz / 1e9);
  return text;
}

bool Fail(std::string* error, std::string why) {
  if (error) *error = std::move(why);
  return false;
}

const CVector* PortImpedances(const CNetworkData& point, int n) {
  const CVector* z = point.GetPortVector(nd::kPortImpedances);
  return z && z->dim() == n ? z : nullptr;
}

// ---- Frequencies ------------------------------------------------------------

// The requested frequencies that can be written: increasing, inside the
// solved band (or trimmed to it under --clip).
// `dc`: the setup extrapolates to DC; 0 Hz is then a frequency that can be
// asked for (and is left out of `chosen`, in `wantDc`).
bool ChooseFrequencies(const CNetworkDataSolution& solution, const ExportRequest& request, bool dc,
                       std::vector<double>& chosen, bool& wantDc, ExportPlan& plan,
                       std::string* error) {
  const auto& solved = solution.GetFrequencyMap();
  wantDc = dc && (request.frequencies.empty() || request.frequencies.front() == 0.0);
  if (request.frequencies.empty()) {
    for (const auto& entry : solved) chosen.push_back(entry.first);
    return true;
  }
  const std::vector<double>& asked = request.frequencies;
  for (size_t i = 1; i < asked.size(); ++i) {
    if (!(asked[i] > asked[i - 1])) {
      return Fail(error, "--freq: the frequencies must increase, without repeats: " +
                             Ghz(asked[i]) + " follows " + Ghz(asked[i - 1]));
    }
  }
  const double low = solved.begin()->first, high = solved.rbegin()->first;
  const double slack = CNetworkDataSolution::kStandardFrequencyTolerance;
  const std::string band = Ghz(low) + " to " + Ghz(high);
  size_t outside = 0;
  for (double f : asked) {
    if (f == 0.0 && wantDc) continue;
    if (f >= low - std::max(slack, low * 1e-9) && f <= high + std::max(slack, high * 1e-9)) {
      chosen.push_back(f);
      continue;
    }
    if (!request.clip) {
      return Fail(error, "--freq: " + Ghz(f) + " lies outside the solved band " + band +
                             ", where no interpolation applies; use --clip to leave such "
                             "frequencies out");
    }
    ++outside;
  }
  if (chosen.empty() && !wantDc)
    return Fail(error, "--freq: no frequency lies in the solved band " + band);
  if (outside > 0) {
    plan.notes.push_back("--clip: left out " + std::to_string(outside) + " of " +
                         std::to_string(asked.size()) + " frequencies outside the solved band " +
                         band);
  }
  return true;
}

// A copy of the point at each frequency. Points interpolated for this are
// released again, so the solution holds what it held before.
bool CopyPoints(CNetworkDataSolution& solution, const std::vector<double>& frequencies,
                ExportPlan& plan, std::string* error) {
  const double tolerance = CNetworkDataSolution::kStandardFrequencyTolerance;
  for (double f : frequencies) {
    const bool held = solution.GetNetworkData(f, tolerance, false) != nullptr;
    const CNetworkData* point = solution.GetNetworkData(f, tolerance, true);
    // A solution that cannot interpolate answers with the nearest solved
    // point, or not at all: writing that under f would be a wrong record.
    const bool atF = point && std::fabs(point->GetFrequency() - f) <= std::max(tolerance, f * 1e-9);
    if (!atF) {
      if (point && !held) solution.ReleaseNetworkData(f);
      return Fail(error, Ghz(f) + " was not solved and this solution does not interpolate; "
                         "leave out --freq, or switch it to interpolation first with sparam interp");
    }
    std::unique_ptr<CNetworkData> copy = point->Clone();
    if (!held) solution.ReleaseNetworkData(f);
    plan.frequencies.push_back(copy->GetFrequency());
    plan.data->AddNetworkData(std::move(copy));
  }
  return true;
}

// ---- References -------------------------------------------------------------

// Refers a modal point's ports, or a terminal point's terminals, to `z`.
bool RenormalizePoint(CNetworkData& point, const CVector& z) {
  if (auto* modal = dynamic_cast<CNetworkModalData*>(&point)) return modal->Renormalize(z);
  if (auto* terminal = dynamic_cast<CNetworkTerminalData*>(&point)) return terminal->Renormalize(z);
  return false;
}

// Refers every point to `target(point's impedances)`; false, with the
// frequency of the first that cannot be, when a point cannot be
// renormalised: a file must never state a reference its data do not have.
template <class Target>
bool RenormalizeAll(ExportPlan& plan, int n, Target target, std::string* error) {
  for (const auto& [f, point] : plan.data->GetFrequencyMap()) {
    const CVector* z = PortImpedances(*point, n);
    if (!z || !RenormalizePoint(*point, target(*z)))
      return Fail(error, "the point at " + Ghz(f) + " cannot be renormalised");
  }
  return true;
}

// The solution's post-processing, applied to every copy; the entries take
// the names the setup gives them (a pair's differential and common names).
bool ApplySetup(const CNetworkPostprocSetup& setup, ExportPlan& plan, std::string* error) {
  const std::vector<std::string> unapplied = nd::UnappliedPostprocessing(setup);
  if (!unapplied.empty()) {
    std::string list;
    for (const auto& s : unapplied) list += (list.empty() ? "" : ", ") + s;
    return Fail(error, "the solution's post-processing setup asks for " + list +
                           ", which this version cannot apply; export with --no-postproc for the "
                           "data as solved, or change the setup with sparam setup");
  }
  for (const auto& [f, point] : plan.data->GetFrequencyMap()) {
    auto* modal = dynamic_cast<CNetworkModalData*>(point.get());
    std::string why;
    if (!modal) {
      return Fail(error, "the solution's post-processing setup needs modal points (with port "
                         "impedances); export with --no-postproc for the data as solved");
    }
    if (!nd::PostprocessPoint(setup, *modal, &why))
      return Fail(error, "post-processing the point at " + Ghz(f) + ": " + why);
  }
  if (!setup.IsModal()) {
    const auto* modal = dynamic_cast<const CNetworkModalSolution*>(plan.data.get());
    std::string why;
    std::unique_ptr<CNetworkDataSolution> terminal =
        modal ? nd::TerminalExport(setup, *modal, &why) : nullptr;
    if (!terminal) return Fail(error, modal ? why : "the terminal view needs a modal solution");
    plan.data = std::move(terminal);
    return true;
  }
  const std::vector<AString> names = nd::PostprocessedEntryNames(setup, *plan.data);
  for (int k = 0; k < plan.data->GetNumMatrixEntries(); ++k)
    plan.data->GetMatrixEntry(k)->SetModalEntryName(names[static_cast<size_t>(k)]);
  return true;
}

// The point at DC, when the setup asks for it and the request includes DC.
bool AddDcPoint(const CNetworkPostprocSetup& setup, CNetworkDataSolution& solution,
                ExportPlan& plan, std::string* error) {
  std::string why;
  std::unique_ptr<CNetworkModalData> dc = nd::PostprocessedDcPoint(setup, solution, &why);
  if (!dc) return Fail(error, "extrapolation to DC: " + why);
  plan.data->AddNetworkData(std::move(dc));
  plan.frequencies.insert(plan.frequencies.begin(), 0.0);
  plan.notes.push_back("a point at DC is extrapolated from the lowest frequencies (DC_EXTRAP_* "
                       "environment variables set how)");
  return true;
}

enum class References { None, Mixed, Uniform, PerPort, Varying };

// How the points' port impedances stand: none, the same real value on every
// port, one constant real value per port, or anything else.
References Classify(const CNetworkDataSolution& data, int n, std::vector<double>& perPort) {
  int with = 0, without = 0;
  bool uniform = true, constant = true;
  const CVector* first = nullptr;
  for (const auto& [f, point] : data.GetFrequencyMap()) {
    const CVector* z = PortImpedances(*point, n);
    if (!z) {
      ++without;
      continue;
    }
    ++with;
    if (!first) first = z;
    for (int k = 0; k < n; ++k) {
      const Complex v = (*z)[k];
      constant = constant && v.im == 0.0 && v.re > 0.0 && v == (*first)[k];
      uniform = uniform && v == (*first)[0];
    }
  }
  if (with == 0) return References::None;
  if (without > 0) return References::Mixed;
  if (!constant) return References::Varying;
  for (int k = 0; k < n; ++k) perPort.push_back((*first)[k].re);
  return uniform ? References::Uniform : References::PerPort;
}

// Whether the format states a reference impedance for S that a reader
// believes: Touchstone and Supercompact do; Citifile carries each point's
// port impedances itself, MATLAB and the spreadsheet state none.
bool StatesReference(const ExportRequest& request) {
  return request.format == nd::kExportTouchstone || request.format == nd::kExportSupercompact;
}

bool ChooseReference(const ExportRequest& request, int n, ExportPlan& plan, std::string* error) {
  std::vector<double> perPort;
  const References references = Classify(*plan.data, n, perPort);
  if (references == References::Mixed) {
    return Fail(error, "some points carry port impedances and others do not, so no one "
                       "reference can be stated or reached");
  }
  if (request.renormalizeTo) {
    const double r = *request.renormalizeTo;
    if (references == References::None) {
      return Fail(error, "--renorm: the points carry no port impedances, so their data cannot "
                         "be referred to another impedance");
    }
    if (!RenormalizeAll(plan, n, [&](const CVector&) { return CVector(n, Complex(r, 0.0)); }, error))
      return false;
    plan.reference = r;
    return true;
  }
  if (references == References::Uniform) {
    plan.reference = perPort.front();
    return true;
  }
  if (references == References::None || !StatesReference(request)) return true;
  if (references == References::PerPort && request.format == nd::kExportTouchstone &&
      WritesTouchstone2(request)) {
    plan.portReferences = perPort;
    return true;
  }
  // Y and Z do not depend on the reference; only S must be brought to one.
  if (request.kind != nd::kSMatrix) return true;
  if (request.keepPortImpedances) {
    if (request.format == nd::kExportSupercompact) {
      return Fail(error, "--no-renorm: a Supercompact file states one reference impedance, and "
                         "these ports differ or vary with frequency; leave out --no-renorm or "
                         "write Touchstone");
    }
    plan.keepsPortImpedances = true;
    plan.notes.push_back("--no-renorm: the port impedances differ between ports or vary with "
                         "frequency; they are written as \"! Port Impedance\" comments, but other "
                         "tools will take the data as referred to 50 ohms");
    return true;
  }
  const double r = nd::kDefaultReferenceOhms;
  if (!RenormalizeAll(plan, n, [&](const CVector&) { return CVector(n, Complex(r, 0.0)); }, error))
    return false;
  plan.reference = r;
  plan.notes.push_back("the port impedances differ between ports or vary with frequency, and the "
                       "file can state only one reference: the data are renormalised to 50 ohms "
                       "(--renorm OHMS for another value, --no-renorm to keep them)");
  return true;
}

// ---- Quantities -------------------------------------------------------------

const char* QuantityName(int kind) {
  switch (kind) {
    case nd::kYMatrix: return "Y";
    case nd::kZMatrix: return "Z";
    case nd::kPortImpedances: return "Zo (port impedances)";
    case nd::kPropagationConstants: return "Gamma (propagation constants)";
    default: return "S";
  }
}

bool HasQuantity(CNetworkData& point, int kind, int n) {
  if (kind == nd::kPortImpedances || kind == nd::kPropagationConstants) {
    const CVector* v = point.GetPortVector(kind);
    return v && v->dim() == n;
  }
  return nd::MatrixOf(point, static_cast<nd::NetworkDataType>(kind), n) != nullptr;
}

// How many points have the quantity, and the first one that has not.
size_t CountHaving(const CNetworkDataSolution& data, int kind, int n, double& firstMissing) {
  size_t having = 0;
  firstMissing = -1.0;
  for (const auto& [f, point] : data.GetFrequencyMap()) {
    if (HasQuantity(*point, kind, n)) {
      ++having;
    } else if (firstMissing < 0.0) {
      firstMissing = f;
    }
  }
  return having;
}

bool ChooseQuantities(const ExportRequest& request, int n, ExportPlan& plan, std::string* error) {
  const size_t points = plan.data->GetFrequencyMap().size();
  double missing = 0.0;
  if (request.format != nd::kExportMatlab) {
    if (CountHaving(*plan.data, request.kind, n, missing) == points) return true;
    return Fail(error, std::string(QuantityName(request.kind)) + " cannot be formed at " +
                           Ghz(missing) + ": the point has no port impedances to form it from");
  }
  std::vector<int> asked = request.quantities;
  if (asked.empty()) asked.push_back(request.kind);
  for (int kind : asked) {
    const size_t having = CountHaving(*plan.data, kind, n, missing);
    const std::string name = QuantityName(kind);
    if (having == 0) {
      plan.notes.push_back("no point has " + name + "; it is left out of the file");
      continue;
    }
    if (having < points) {
      plan.notes.push_back(name + ": " + std::to_string(points - having) + " of " +
                           std::to_string(points) + " points do not have it (the first at " +
                           Ghz(missing) + "); their entries stay zero");
    }
    plan.quantities.push_back(kind);
  }
  if (plan.quantities.empty()) return Fail(error, "no point has any of the quantities asked for");
  return true;
}

}  // namespace

bool WritesTouchstone2(const ExportRequest& request) {
  if (request.format != nd::kExportTouchstone) return false;
  std::string extension = std::filesystem::path(request.output).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".ts" || request.kind != nd::kSMatrix;
}

bool PlanExport(CNetworkDataSolution& solution, const ExportRequest& request, ExportPlan& plan,
                std::string* error) {
  if (solution.GetFrequencyMap().empty()) return Fail(error, "the solution has no data points");
  const CNetworkPostprocSetup* setup = solution.GetPostprocSetup();
  if (request.noPostprocessing || (setup && !setup->NeedsPostprocessing())) setup = nullptr;
  std::vector<double> frequencies;
  bool wantDc = false;
  if (!ChooseFrequencies(solution, request, setup && setup->GetExtrapToDC(), frequencies, wantDc,
                         plan, error))
    return false;
  // A copy of the solution's description (entries, noise data, setup)
  // without its points; the copies chosen below take their place. Its
  // points are looked up where they stand, never through a model.
  // A combined sweep's copy is its combined points without its parts (the
  // parts only serve interpolation, which is done by then).
  if (const auto* combined = dynamic_cast<const CFxemModalPartitionedSolution*>(&solution))
    plan.data = std::make_unique<CNetworkModalSolution>(*combined);
  else
    plan.data = solution.Clone();
  plan.data->Clear();
  plan.data->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  if (!CopyPoints(solution, frequencies, plan, error)) return false;
  const int n = solution.GetNumMatrixEntries();
  if (setup && !ApplySetup(*setup, plan, error)) return false;
  if (wantDc && !AddDcPoint(*setup, solution, plan, error)) return false;
  return ChooseReference(request, n, plan, error) &&
         ChooseQuantities(request, n, plan, error);
}

}  // namespace sparam
