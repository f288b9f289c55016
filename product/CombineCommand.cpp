// Loading the sweeps, combining them and saving the result.
#include "product/CombineCommand.h"

#include <filesystem>
#include <ostream>

#include "product/ConvertCommand.h"
#include "product/InfoCommand.h"
#include "sparamlib/interp/FxemModalPartitionedSolution.h"

namespace sparam {

int RunCombine(const CombineOptions& o, std::ostream& out, std::ostream& err) {
  namespace fs = std::filesystem;
  auto fail = [&](const std::string& why) {
    err << "sparam combine: " << why << "\n";
    return 1;
  };
  if (!IsProjectFile(o.output)) return fail(o.output + ": expected a project file (.ndp) to write");
  std::vector<std::unique_ptr<CNetworkDataSolution>> parts;
  std::string designName;
  for (const std::string& input : o.inputs) {
    // The inputs are read whole first, but writing over one would still
    // replace data with a derivative of it.
    if (std::error_code ec; fs::equivalent(o.output, input, ec))
      return fail(o.output + " is the input " + input + "; write the combination to another file");
    std::string why;
    std::unique_ptr<CProject> project = LoadNetworkFile(input, &why);
    if (!project) return fail(why);
    const FxSolutionVariation* variation = project->GetVariation(0);
    const CNetworkDataSolution* solution = variation ? variation->GetNetworkDataSolution(o.solution) : nullptr;
    if (!solution) return fail(input + ": no solution \"" + o.solution + "\" in variation 1");
    if (designName.empty()) designName = project->GetDesignName();
    auto part = solution->Clone();
    part->SetName(fs::path(input).stem().string());
    parts.push_back(std::move(part));
  }
  auto combined = std::make_unique<CFxemModalPartitionedSolution>("Combined");
  std::string why;
  if (!combined->Combine(std::move(parts), &why)) return fail(why);
  const auto& starts = combined->GetShareStarts();
  const auto& list = *combined->GetOwnFrequencyList();
  for (size_t k = 0; k < combined->GetParts().size(); ++k) {
    const CNetworkDataSolution& part = *combined->GetParts()[k];
    const double end = k + 1 < starts.size() ? starts[k + 1] : part.GetFrequencyMap().rbegin()->first;
    out << FormatFrequency(starts[k]) << (k + 1 < starts.size() ? " up to " : " to ") << FormatFrequency(end)
        << ": " << part.GetName() << "\n";
  }
  out << list.size() << " solved frequencies in \"" << combined->GetName() << "\"\n";
  CProject project;
  project.SetDesignName(designName);
  FxSolutionVariation& variation = project.AddVariation();
  variation.SetProduct("sparam combine", "1");
  variation.AddSolution(std::move(combined));
  AString error;
  if (!project.Save(o.output, &error)) return fail(error);
  return 0;
}

}  // namespace sparam
