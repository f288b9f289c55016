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

// Chooses how a converted solution keeps its port impedances (see Convert).
void KeepImpedances(const CNetworkDataSolution& solution, ExportRequest& request) {
  if (request.renormalizeTo) return;
  bool uniform = true, anyImpedance = false, anyGamma = false;
  double reference = 0.0;
  for (const auto& [f, point] : solution.GetFrequencyMap()) {
    anyGamma = anyGamma || point->GetPortVector(nd::kPropagationConstants);
    const TNT::CVector* z = point->GetPortVector(nd::kPortImpedances);
    if (!z) {
      uniform = false;
      continue;
    }
    anyImpedance = true;
    for (const auto& v : *z) {
      if (reference == 0.0) reference = v.re;
      uniform = uniform && v.im == 0.0 && v.re == reference;
    }
  }
  if (uniform && anyImpedance && reference > 0.0) {
    request.dataAtReference = reference;
  } else if (anyImpedance) {
    request.gamma = true;
  }
  request.gamma = request.gamma || anyGamma;
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

bool Convert(const std::string& input, ExportRequest request, std::string* error) {
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
      KeepImpedances(*solution, request);
  }
  return CExportNetworkDataCmd().Execute(*project, request, error);
}

}  // namespace sparam
