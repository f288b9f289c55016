// Choosing a writer, checking the request and writing atomically.
#include "product/ExportNetworkDataCmd.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "core/TokenOstream.h"
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

std::atomic<unsigned> g_exportCounter{0};

std::string TempPathBeside(const fs::path& target) {
  return target.string() + ".tmp" + std::to_string(::getpid()) + "." +
         std::to_string(g_exportCounter.fetch_add(1));
}

// Makes the finished temporary file durable and puts it in place.
bool Commit(const std::string& temp, const fs::path& target, std::string* error) {
  const int fd = ::open(temp.c_str(), O_RDONLY | O_CLOEXEC);
  bool ok = fd >= 0 && ::fsync(fd) == 0;
  if (fd >= 0) ::close(fd);
  if (ok && ::rename(temp.c_str(), target.c_str()) != 0) ok = false;
  if (!ok) {
    if (error) *error = target.string() + ": cannot write the file: " + std::strerror(errno);
    ::unlink(temp.c_str());
  }
  return ok;
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
                                    std::string* error) const {
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
  const std::string extension = Lower(fs::path(request.output).extension().string());
  const int named = nd::TouchstonePortsFromName(request.output);
  if (request.format == nd::kExportTouchstone && named >= 0 && named != ports) {
    return fail(request.output + ": the solution has " + std::to_string(ports) +
                " ports; name the file ." + "s" + std::to_string(ports) + "p");
  }
  if (request.precision < 1 || request.precision > 17)
    return fail("expected a precision from 1 to 17 digits");
  if (solution->GetFrequencyMap().empty()) return fail("the solution has no data points");

  std::vector<double> frequencies = request.frequencies;
  if (frequencies.empty() && request.format != nd::kExportMatlab) {
    for (const auto& [f, point] : solution->GetFrequencyMap()) frequencies.push_back(f);
  }
  const AString projectName = request.projectName.empty() ? project.GetDesignName() : AString(request.projectName);

  // Writers give up silently on a file they cannot open: create it first so
  // that problem is reported here.
  const fs::path target(request.output);
  const std::string temp = TempPathBeside(target);
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return fail(request.output + ": cannot write the file: " + std::strerror(errno));
  ::close(fd);

  switch (request.format) {
    case nd::kExportTouchstone:
      nd::WriteTouchstoneFile(temp, *solution, frequencies, projectName, request.gamma,
                              request.renormalizeTo.value_or(request.dataAtReference.value_or(nd::kDefaultReferenceOhms)),
                              request.display, request.kind, request.precision,
                              request.renormalizeTo.has_value(),
                              request.dataAtReference.has_value(), variation);
      break;
    case nd::kExportCitifile:
    case nd::kExportSpreadsheet: {
      const bool written =
          request.format == nd::kExportCitifile
              ? nd::WriteCitifile(temp, *solution, frequencies, request.kind, request.precision,
                                  request.renormalizeTo.has_value(), request.renormalizeTo.value_or(nd::kDefaultReferenceOhms))
              : nd::WriteTabFile(temp, *solution, frequencies, request.kind, request.display,
                                 request.precision, request.renormalizeTo.has_value(),
                                 request.renormalizeTo.value_or(nd::kDefaultReferenceOhms));
      if (!written) {
        ::unlink(temp.c_str());
        return fail(request.output + ": cannot write the file");
      }
      break;
    }
    case nd::kExportSupercompact:
      nd::WriteSupercompactFile(temp, *solution, frequencies, projectName,
                                request.renormalizeTo.value_or(nd::kDefaultReferenceOhms), request.kind,
                                request.display, false);
      break;
    case nd::kExportMatlab: {
      io::CToken_ostream out(temp);
      std::vector<int> quantities = request.quantities;
      if (quantities.empty()) quantities.push_back(request.kind);
      CMatlabExportVisitor visitor(out, frequencies, quantities, request.precision, variation,
                                   projectName);
      visitor.Visit(*solution);
      if (!out.Close()) {
        ::unlink(temp.c_str());
        return fail(request.output + ": cannot write the file");
      }
      break;
    }
    default:
      ::unlink(temp.c_str());
      return fail("this export format is not available");
  }
  return Commit(temp, target, error);
}
