// Switching a solution's interpolation method and writing interpolated copies.
#include "product/InterpCommand.h"

#include <cmath>
#include <filesystem>
#include <ostream>

#include "product/ExportNetworkDataCmd.h"
#include "product/FrequencyList.h"
#include "product/InfoCommand.h"
#include "product/Project.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/interp/BRIInterpolateVisitor.h"

namespace sparam {
namespace {

// Whether the stored weights belong to exactly the solved frequencies.
bool WeightsFit(const CNetworkDataSolution& s) {
  const InterpolateBRI* w = s.GetBRIWeights();
  if (!w || !w->GetWeights(0, 0) || w->GetWeights(0, 0)->size() != s.GetNumFrequencies())
    return false;
  size_t k = 0;
  for (const auto& [f, point] : s.GetFrequencyMap())
    if (k >= w->GetFrequencies().size() || w->GetFrequencies()[k++] != f) return false;
  return k == w->GetFrequencies().size();
}

}  // namespace

std::unique_ptr<CNetworkDataSolution> WithInterpolation(const CNetworkDataSolution& source,
                                                        CNetworkDataSolution::SolutionType method,
                                                        std::string* why) {
  std::unique_ptr<CNetworkDataSolution> s = source.Clone();
  s->SetSolutionType(method);
  if (method == CNetworkDataSolution::InterpolateBRI && !WeightsFit(*s)) {
    AString reason;
    std::unique_ptr<InterpolateBRI> weights = nd::ComputeBRIWeights(*s, {}, &reason);
    if (!weights) {
      if (why) *why = "cannot compute interpolation weights: " + reason;
      return nullptr;
    }
    s->SetBRIWeights(std::move(weights));
  }
  return s;
}

std::unique_ptr<CNetworkDataSolution> InterpolatedCopy(CNetworkDataSolution& source,
                                                       const std::vector<double>& frequencies,
                                                       std::string* why) {
  std::unique_ptr<CNetworkDataSolution> copy = source.Clone();
  copy->Clear();
  copy->SetBRIWeights(nullptr);
  copy->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (double f : frequencies) {
    CNetworkData* point =
        source.GetNetworkData(f, CNetworkDataSolution::kStandardFrequencyTolerance, true);
    if (!point) {
      if (why) {
        *why = "cannot interpolate at " + FormatFrequency(f) +
               " (outside the solved band, or too few solved points for the method)";
      }
      return nullptr;
    }
    std::unique_ptr<CNetworkData> kept = point->Clone();
    kept->SetOwner(copy.get());
    source.ReleaseNetworkData(point->GetFrequency());
    copy->AddNetworkData(std::move(kept));  // a solved point asked for twice is kept once
  }
  return copy;
}

int RunInterp(const InterpOptions& o, std::ostream& out, std::ostream& err) {
  auto fail = [&](const std::string& why) {
    err << "sparam interp: " << why << "\n";
    return 1;
  };
  const auto method = o.method == "neville" ? CNetworkDataSolution::InterpolateNeville
                                            : CNetworkDataSolution::InterpolateBRI;
  std::optional<nd::NetworkDataExportFormat> format;
  if (!IsProjectFile(o.output)) {
    format = CExportNetworkDataCmd::FormatFromExtension(o.output);
    if (!format) return fail(o.output + ": expected a project (.ndp), Touchstone, MATLAB or Supercompact file name");
    if (o.freq.empty()) return fail("--freq is needed to write interpolated data to " + o.output);
  }
  // Writing over the project being read would lose it if the write went
  // wrong; the same file under another name or through a link (same device
  // and inode) is the same file.
  if (std::error_code ec; std::filesystem::equivalent(o.output, o.project, ec))
    return fail("-o " + o.output + " is the input " + o.project +
                (o.output == o.project ? "" : " (the same file under another name)") +
                "; write the result to another file");
  std::vector<double> frequencies;
  if (!o.freq.empty()) {
    std::string why;
    auto list = ParseFrequencyList(o.freq, &why);
    if (!list) return fail("--freq: " + why);
    frequencies = std::move(*list);
  }
  AString error;
  std::unique_ptr<CProject> project = CProject::Load(o.project, &error);
  if (!project) return fail(error);
  FxSolutionVariation* variation = project->GetVariation(o.variation - 1);
  if (!variation) return fail(o.project + " has no variation " + std::to_string(o.variation));
  FxSolution* handle = variation->FindSolution(o.solution);
  if (!handle) return fail("no solution \"" + o.solution + "\" in variation " + std::to_string(o.variation));

  std::string why;
  std::unique_ptr<CNetworkDataSolution> result =
      WithInterpolation(*handle->GetNetworkDataSolution(), method, &why);
  if (!result) return fail(why);
  const char* methodName = CNetworkDataSolution::kSolutionTypeNames[method];
  if (frequencies.empty()) {
    out << "solution \"" << result->GetName() << "\" now uses " << methodName;
    if (const InterpolateBRI* w = result->GetBRIWeights()) {
      out << " (" << w->GetSupportFrequencies().size() << " support points of "
          << w->GetFrequencies().size() << ", fit residual "
          << AString::Format("%.2g", w->GetFitErrors().empty() ? 0.0 : w->GetFitErrors().back())
          << ")";
    }
    out << "\n";
  } else {
    result = InterpolatedCopy(*result, frequencies, &why);
    if (!result) return fail(why);
    size_t interpolated = 0;
    double worst = 0.0, at = 0.0;
    for (const auto& [f, point] : result->GetFrequencyMap()) {
      if (point->GetDataType() != CNetworkData::Interpolated) continue;
      ++interpolated;
      if (!(point->GetValue() <= worst)) worst = point->GetValue(), at = f;
    }
    out << result->GetNumFrequencies() << " frequencies, " << interpolated << " interpolated by "
        << methodName;
    if (interpolated) out << ", largest error estimate " << AString::Format("%.3g", worst) << " at " << FormatFrequency(at);
    out << "\n";
  }
  handle->SetSolution(std::move(result));

  if (!format) {
    if (!project->Save(o.output, &error)) return fail(error);
    return 0;
  }
  ExportRequest request;
  request.output = o.output;
  request.format = *format;
  request.variation = o.variation - 1;
  request.solution = o.solution;
  request.projectName = std::filesystem::path(o.project).stem().string();
  std::vector<std::string> notes;
  const bool written = CExportNetworkDataCmd().Execute(*project, request, &why, &notes);
  for (const auto& note : notes) err << "sparam interp: " << note << "\n";
  return written ? 0 : fail(why);
}

}  // namespace sparam
