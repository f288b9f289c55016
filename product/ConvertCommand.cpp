// Loading network files of every kind we read, and converting between them.
#include "product/ConvertCommand.h"

#include <filesystem>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/Citifile.h"
#include "sparamlib/formats/TouchstoneReader.h"

namespace sparam {
namespace {

namespace fs = std::filesystem;

std::string Extension(const std::string& path) {
  std::string e = fs::path(path).extension().string();
  for (char& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return e;
}

// A conversion keeps what the source holds: propagation constants travel as
// comment lines behind each Touchstone record when the points have them.
// Which reference the file states is the export's decision, the same as for
// `sparam export`.
void KeepGamma(const CNetworkDataSolution& solution, ExportRequest& request) {
  for (const auto& [f, point] : solution.GetFrequencyMap()) {
    if (point->GetPortVector(nd::kPropagationConstants)) {
      request.gamma = true;
      return;
    }
  }
}

}  // namespace

bool IsNetworkFile(const std::string& path) {
  const std::string e = Extension(path);
  return IsProjectFile(path) || e == ".ts" || e == ".cit" || nd::TouchstonePortsFromName(path) >= 0;
}

std::unique_ptr<CProject> LoadNetworkFile(const std::string& path, std::string* error) {
  const std::string e = Extension(path);
  std::unique_ptr<CNetworkModalSolution> solution;
  if (e == ".cit") {
    solution = nd::ReadCitifile(path, error);
  } else if (e == ".ts" || nd::TouchstonePortsFromName(path) >= 0) {
    solution = nd::ReadTouchstoneFile(path, error);
  } else {
    AString why;
    std::unique_ptr<CProject> project = CProject::Load(path, &why);
    if (!project && error) *error = why;
    return project;
  }
  if (!solution) return nullptr;
  auto project = std::make_unique<CProject>();
  project->SetDesignName(fs::path(path).stem().string());
  project->AddVariation().AddSolution(std::move(solution));
  return project;
}

bool Convert(const std::string& input, ExportRequest request, std::string* error,
             std::vector<std::string>* notes) {
  // A conversion onto its own input would replace the only copy of the data
  // with a rewrite of it; the same file under another name or through a link
  // (same device and inode) counts.
  if (std::error_code ec; fs::equivalent(request.output, input, ec)) {
    if (error) {
      *error = request.output + " is the input " + input +
               (request.output == input ? "" : " (the same file under another name)") +
               "; write the conversion to another file";
    }
    return false;
  }
  std::unique_ptr<CProject> project = LoadNetworkFile(input, error);
  if (!project) return false;
  if (IsProjectFile(request.output)) {
    AString why;
    if (project->Save(request.output, &why)) return true;
    if (error) *error = why;
    return false;
  }
  if (FxSolutionVariation* variation = project->GetVariation(request.variation)) {
    if (const CNetworkDataSolution* solution = variation->GetNetworkDataSolution(request.solution))
      KeepGamma(*solution, request);
  }
  return CExportNetworkDataCmd().Execute(*project, request, error, notes);
}

}  // namespace sparam
