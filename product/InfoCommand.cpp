// Summary of a project: variations, solutions, ports and frequency ranges.
#include "product/InfoCommand.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <ostream>

#include "product/ConvertCommand.h"
#include "product/Project.h"
#include "product/SetupCommand.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/interp/FxemModalPartitionedSolution.h"

namespace sparam {
namespace {

using nlohmann::ordered_json;

ordered_json SolutionSummary(const CNetworkDataSolution& s) {
  ordered_json j;
  j["name"] = s.GetName();
  j["type"] = CNetworkDataSolution::kSolutionTypeNames[static_cast<size_t>(s.GetSolutionType())];
  j["object_type"] = CNetworkDataSolution::kObjectTypeNames[static_cast<size_t>(s.GetObjectType())];
  j["ports"] = s.GetNumMatrixEntries();
  ordered_json entries = ordered_json::array();
  for (int k = 0; k < s.GetNumMatrixEntries(); ++k) {
    const CMatrixEntry* e = s.GetMatrixEntry(k);
    const AString& name = !e->GetModalEntryName().empty() ? e->GetModalEntryName() : e->GetPortName();
    entries.push_back(name);
  }
  j["entries"] = entries;
  j["solved_points"] = s.GetFrequencyMap().size();
  j["interpolated_points"] = s.GetInterpolatedMap().size();
  if (!s.GetFrequencyMap().empty()) {
    j["min_frequency_hz"] = s.GetFrequencyMap().begin()->first;
    j["max_frequency_hz"] = s.GetFrequencyMap().rbegin()->first;
  }
  // Points that were interpolated carry the interpolation's error estimate
  // (not a number when the estimate was undefined).
  ordered_json errors = ordered_json::array();
  for (const auto* map : {&s.GetFrequencyMap(), &s.GetInterpolatedMap()})
    for (const auto& [f, point] : *map)
      if (point->GetDataType() == CNetworkData::Interpolated)
        errors.push_back({{"frequency_hz", f}, {"error", point->GetValue()}});
  if (!errors.empty()) j["interpolation_errors"] = errors;
  if (const auto* combined = dynamic_cast<const CFxemModalPartitionedSolution*>(&s)) {
    ordered_json parts = ordered_json::array();
    for (size_t k = 0; k < combined->GetParts().size(); ++k)
      parts.push_back({{"name", combined->GetParts()[k]->GetName()},
                       {"share_from_hz", combined->GetShareStarts()[k]}});
    j["combined_from"] = parts;
  }
  if (const InterpolateBRI* w = s.GetBRIWeights()) {
    j["bri_weights"] = {{"frequencies", w->GetFrequencies().size()},
                        {"support_points", w->GetSupportFrequencies().size()},
                        {"fit_residual", w->GetFitErrors().empty() ? 0.0 : w->GetFitErrors().back()}};
  }
  return j;
}

ordered_json ProjectSummary(const CProject& project, const std::string& path) {
  ordered_json j;
  j["file"] = path;
  j["design"] = project.GetDesignName();
  ordered_json variations = ordered_json::array();
  for (const auto& v : project.GetVariations()) {
    ordered_json jv;
    jv["product"] = v->GetProductName();
    jv["product_version"] = v->GetProductVersion();
    ordered_json vars = ordered_json::object();
    for (const auto& [name, value] : v->GetDesignVariables()) vars[name] = value;
    jv["variables"] = vars;
    jv["postprocessing"] = v->GetPostprocSetup() && v->GetPostprocSetup()->NeedsPostprocessing();
    if (v->GetPostprocSetup()) jv["postprocessing_steps"] = DescribeSetup(*v->GetPostprocSetup());
    ordered_json solutions = ordered_json::array();
    for (const auto& s : v->GetSolutions())
      if (s->GetNetworkDataSolution()) solutions.push_back(SolutionSummary(*s->GetNetworkDataSolution()));
    jv["solutions"] = solutions;
    variations.push_back(jv);
  }
  j["variations"] = variations;
  return j;
}

void PrintInterpolation(const ordered_json& s, std::ostream& out) {
  if (s.contains("combined_from")) {
    out << "    combined sweep:";
    std::string sep = " ";
    for (const auto& part : s["combined_from"]) {
      out << sep << part["name"].get<std::string>() << " from "
          << FormatFrequency(part["share_from_hz"].get<double>());
      sep = ", ";
    }
    out << "\n";
  }
  if (s.contains("interpolation_errors")) {
    const auto& errors = s["interpolation_errors"];
    double worst = 0.0, at = 0.0;
    for (const auto& e : errors) {
      // NaN and infinity are written as null by the JSON library.
      const double v = e["error"].is_null() ? NAN : e["error"].get<double>();
      if (!(v <= worst)) worst = v, at = e["frequency_hz"].get<double>();
    }
    out << "    " << errors.size() << " interpolated points, largest error estimate "
        << AString::Format("%.3g", worst) << " at " << FormatFrequency(at) << "\n";
  }
  if (s.contains("bri_weights")) {
    const auto& w = s["bri_weights"];
    out << "    barycentric weights for " << w["frequencies"].get<size_t>() << " frequencies, "
        << w["support_points"].get<size_t>() << " support points, fit residual "
        << AString::Format("%.2g", w["fit_residual"].get<double>()) << "\n";
  }
}

void PrintText(const ordered_json& j, std::ostream& out) {
  out << "project " << j["file"].get<std::string>() << "\n";
  out << "design  \"" << j["design"].get<std::string>() << "\"\n";
  int index = 0;
  for (const auto& v : j["variations"]) {
    out << "variation " << ++index;
    const auto& vars = v["variables"];
    if (vars.empty()) out << " (no design variables)";
    bool first = true;
    for (const auto& [name, value] : vars.items()) {
      out << (first ? ": " : ", ") << name << " = " << value.get<std::string>();
      first = false;
    }
    out << "\n";
    if (v.contains("postprocessing_steps"))
      for (const auto& step : v["postprocessing_steps"]) out << "  post-processing: " << step.get<std::string>() << "\n";
    if (!v["product"].get<std::string>().empty()) {
      out << "  exported by " << v["product"].get<std::string>() << " "
          << v["product_version"].get<std::string>() << "\n";
    }
    for (const auto& s : v["solutions"]) {
      out << "  solution \"" << s["name"].get<std::string>() << "\": "
          << s["type"].get<std::string>() << ", " << s["object_type"].get<std::string>() << ", "
          << s["ports"].get<int>() << (s["ports"].get<int>() == 1 ? " port" : " ports");
      std::string sep = " (";
      for (const auto& e : s["entries"]) {
        out << sep << e.get<std::string>();
        sep = ", ";
      }
      if (!s["entries"].empty()) out << ")";
      out << "\n    " << s["solved_points"].get<size_t>() << " solved, "
          << s["interpolated_points"].get<size_t>() << " interpolated";
      if (s.contains("min_frequency_hz")) {
        out << ", " << FormatFrequency(s["min_frequency_hz"].get<double>()) << " to "
            << FormatFrequency(s["max_frequency_hz"].get<double>());
      }
      out << "\n";
      PrintInterpolation(s, out);
    }
  }
}

}  // namespace

std::string FormatFrequency(double hertz) {
  static const struct {
    double scale;
    const char* unit;
  } units[] = {{1e12, "THz"}, {1e9, "GHz"}, {1e6, "MHz"}, {1e3, "kHz"}};
  for (const auto& u : units) {
    if (std::fabs(hertz) >= u.scale) return AString::Format("%.10g %s", hertz / u.scale, u.unit);
  }
  return AString::Format("%.10g Hz", hertz);
}

int RunInfo(const InfoOptions& options, std::ostream& out, std::ostream& err) {
  std::string error;
  const std::unique_ptr<CProject> project = LoadNetworkFile(options.path, &error);
  if (!project) {
    err << "sparam info: " << error << "\n";
    return 1;
  }
  const ordered_json summary = ProjectSummary(*project, options.path);
  if (options.json) {
    out << summary.dump(2) << "\n";
  } else {
    PrintText(summary, out);
  }
  return 0;
}

}  // namespace sparam
