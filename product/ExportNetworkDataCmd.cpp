// Choosing a writer, checking the request, and writing through an output
// file that is complete or absent.
#include "product/ExportNetworkDataCmd.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "core/OutputFile.h"
#include "core/TokenOstream.h"
#include "product/ExportPlan.h"
#include "sparamlib/formats/Citifile.h"
#include "sparamlib/formats/MatlabExportVisitor.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/formats/TabExport.h"
#include "sparamlib/formats/TouchstoneReader.h"

namespace fs = std::filesystem;

namespace {

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// Writes the plan's points into `out` in the requested format.
void WritePlan(io::CToken_ostream& out, sparam::ExportPlan& plan, const ExportRequest& request,
               const AString& projectName, const IDesignVariation* variation) {
  CNetworkDataSolution& data = *plan.data;
  const double reference = plan.reference.value_or(nd::kDefaultReferenceOhms);
  const bool gamma = request.gamma || plan.keepsPortImpedances;
  switch (request.format) {
    case nd::kExportTouchstone:
      if (sparam::WritesTouchstone2(request)) {
        nd::Touchstone2Options options;
        options.referenceImpedance =
            plan.portReferences.empty() ? reference : plan.portReferences.front();
        options.portReferences = plan.portReferences;
        options.exportGamma = gamma;
        nd::WriteTouchstone2(out, data, plan.frequencies, projectName, options, request.display,
                             request.kind, request.precision, variation);
      } else {
        nd::WriteTouchstone(out, data, plan.frequencies, projectName, gamma, reference,
                            request.display, request.kind, request.precision, false,
                            plan.reference.has_value(), variation);
      }
      break;
    case nd::kExportCitifile:
      nd::WriteCitifile(out, data, plan.frequencies, request.kind, request.precision, false, reference);
      break;
    case nd::kExportSpreadsheet:
      nd::WriteTabFile(out, data, plan.frequencies, request.kind, request.display,
                       request.precision, false, reference);
      break;
    case nd::kExportSupercompact:
      nd::WriteSupercompact(out, data, plan.frequencies, projectName, reference, request.kind,
                            request.display, true);
      break;
    default: {  // MATLAB: the command accepts no other format
      CMatlabExportVisitor visitor(out, plan.frequencies, plan.quantities, request.precision,
                                   variation, projectName);
      visitor.Visit(data);
      break;
    }
  }
}

}  // namespace

std::optional<nd::NetworkDataExportFormat> CExportNetworkDataCmd::FormatFromExtension(
    const std::string& path) {
  const std::string extension = Lower(fs::path(path).extension().string());
  if (extension == ".ts" || nd::TouchstonePortsFromName(path) >= 0) return nd::kExportTouchstone;
  if (extension == ".cit") return nd::kExportCitifile;
  if (extension == ".tab") return nd::kExportSpreadsheet;
  if (extension == ".m") return nd::kExportMatlab;
  if (extension == ".sc") return nd::kExportSupercompact;
  return std::nullopt;
}

bool CExportNetworkDataCmd::Execute(CProject& project, const ExportRequest& request,
                                    std::string* error, std::vector<std::string>* notes) const {
  auto fail = [error](std::string why) {
    if (error) *error = std::move(why);
    return false;
  };
  FxSolutionVariation* variation = project.GetVariation(request.variation);
  if (!variation) {
    return fail("no variation " + std::to_string(request.variation + 1) + " (the project has " +
                std::to_string(project.GetVariations().size()) + ")");
  }
  CNetworkDataSolution* solution = variation->GetWritableSolution(request.solution);
  if (!solution) {
    std::string names;
    for (const auto& s : variation->GetSolutions())
      if (s->GetNetworkDataSolution()) names += (names.empty() ? "\"" : ", \"") + s->GetNetworkDataSolution()->GetName() + "\"";
    return fail("no solution \"" + request.solution + "\" in variation " +
                std::to_string(request.variation + 1) + " (it has " +
                (names.empty() ? std::string("none") : names) + ")");
  }
  const int ports = solution->GetNumMatrixEntries();
  const int named = nd::TouchstonePortsFromName(request.output);
  if (request.format == nd::kExportTouchstone && named >= 0 && named != ports) {
    return fail(request.output + ": the solution has " + std::to_string(ports) +
                " ports; name the file ." + "s" + std::to_string(ports) + "p");
  }
  if (request.precision < 1 || request.precision > 17)
    return fail("expected a precision from 1 to 17 digits");

  sparam::ExportPlan plan;
  const bool planned = sparam::PlanExport(*solution, request, plan, error);
  if (notes) notes->insert(notes->end(), plan.notes.begin(), plan.notes.end());
  if (!planned) return false;
  const AString projectName =
      request.projectName.empty() ? project.GetDesignName() : AString(request.projectName);

  io::COutputFile file;
  std::string why;
  if (!file.Open(request.output, &why)) return fail(request.output + ": cannot write the file: " + why);
  {
    io::CToken_ostream out(file);
    WritePlan(out, plan, request, projectName, variation);
    if (!out.Close()) {
      file.Abandon();
      return fail(request.output + ": cannot write the file: write failed: " + out.FailureReason());
    }
  }
  if (!file.Commit(&why)) return fail(request.output + ": cannot write the file: " + why);
  return true;
}
