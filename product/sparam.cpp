// sparam: the command-line tool for network data files.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>

#include "product/ExportNetworkDataCmd.h"
#include "product/FrequencyList.h"
#include "product/InfoCommand.h"
#include "product/InterpCommand.h"

namespace {

struct ExportOptions {
  std::string project, output, format, kind = "S", display = "MA", renorm, quantities, freq;
  std::string solution;
  size_t variation = 1;
  int precision = 8;
  bool gamma = false;
};

int Fail(const std::string& why) {
  std::cerr << "sparam export: " << why << "\n";
  return 1;
}

int RunExport(const ExportOptions& o) {
  ExportRequest request;
  request.output = o.output;
  if (!o.format.empty()) {
    static const std::map<std::string, nd::NetworkDataExportFormat> formats = {
        {"touchstone", nd::kExportTouchstone},
        {"supercompact", nd::kExportSupercompact},
        {"matlab", nd::kExportMatlab}};
    request.format = formats.at(o.format);  // CLI11 has checked the choice
  } else if (auto f = CExportNetworkDataCmd::FormatFromExtension(o.output)) {
    request.format = *f;
  } else {
    return Fail(o.output + ": cannot tell the format from the extension; use --format");
  }
  request.kind = o.kind == "Y" ? nd::kYMatrix : o.kind == "Z" ? nd::kZMatrix : nd::kSMatrix;
  request.display = o.display == "DB"   ? nd::kDbAngle
                    : o.display == "RI" ? nd::kRealImaginary
                                        : nd::kMagnitudeAngle;
  request.precision = o.precision;
  request.gamma = o.gamma;
  request.variation = o.variation - 1;
  request.solution = o.solution;
  request.projectName = std::filesystem::path(o.project).stem().string();
  if (!o.renorm.empty()) {
    const auto ohms = sparam::ParseFrequency(o.renorm);  // a plain positive number
    if (!ohms || *ohms <= 0.0) return Fail("expected --renorm OHMS above 0, found \"" + o.renorm + "\"");
    request.renormalizeTo = *ohms;
  }
  if (!o.freq.empty()) {
    std::string why;
    auto list = sparam::ParseFrequencyList(o.freq, &why);
    if (!list) return Fail("--freq: " + why);
    request.frequencies = std::move(*list);
  }
  if (!o.quantities.empty()) {
    static const std::map<std::string, int> codes = {
        {"S", nd::kSMatrix}, {"Y", nd::kYMatrix}, {"Z", nd::kZMatrix},
        {"Zo", nd::kPortImpedances}, {"Gamma", nd::kPropagationConstants}};
    std::stringstream list(o.quantities);
    for (std::string q; std::getline(list, q, ',');) {
      const auto it = codes.find(q);
      if (it == codes.end()) return Fail("--quantities: expected S, Y, Z, Zo or Gamma, found \"" + q + "\"");
      request.quantities.push_back(it->second);
    }
  }
  AString error;
  std::unique_ptr<CProject> project = CProject::Load(o.project, &error);
  if (!project) return Fail(error);
  std::string why;
  if (!CExportNetworkDataCmd().Execute(*project, request, &why)) return Fail(why);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"sparam: inspect and export network data (S, Y, Z parameters) and project files"};
  app.require_subcommand(1);
  int status = 0;

  sparam::InfoOptions info;
  CLI::App* infoCommand = app.add_subcommand(
      "info", "Summarise a project file (.ndp): design variables, solutions, ports, frequencies");
  infoCommand->add_option("FILE", info.path, "project file to describe")->required();
  infoCommand->add_flag("--json", info.json, "machine-readable output");
  infoCommand->callback([&] { status = sparam::RunInfo(info, std::cout, std::cerr); });

  ExportOptions ex;
  CLI::App* exportCommand = app.add_subcommand(
      "export", "Write a solution of a project as Touchstone (.sNp, .ts), MATLAB (.m) or "
                "Supercompact (.sc); the format follows OUTPUT's extension");
  exportCommand->add_option("PROJECT", ex.project, "project file (.ndp)")->required();
  exportCommand->add_option("OUTPUT", ex.output, "file to write")->required();
  exportCommand->add_option("--variation", ex.variation, "variation number, from 1")
      ->default_val(1)->check(CLI::PositiveNumber);
  exportCommand->add_option("--solution", ex.solution, "solution name (default: the first)");
  exportCommand->add_option("--format", ex.format, "file format instead of the extension's")
      ->check(CLI::IsMember({"touchstone", "supercompact", "matlab"}));
  exportCommand->add_option("--kind", ex.kind, "matrix kind")
      ->default_val("S")->check(CLI::IsMember({"S", "Y", "Z"}));
  exportCommand->add_option("--display", ex.display, "magnitude/angle, dB/angle or real/imaginary")
      ->default_val("MA")->check(CLI::IsMember({"MA", "DB", "RI"}));
  exportCommand->add_option("--precision", ex.precision, "significant digits (MATLAB: decimals)")
      ->default_val(8)->check(CLI::Range(1, 17));
  exportCommand->add_option("--renorm", ex.renorm, "renormalise every port to OHMS first");
  exportCommand->add_flag("--gamma", ex.gamma, "Touchstone: add gamma and port impedance comments");
  exportCommand->add_option("--quantities", ex.quantities, "MATLAB: comma list of S,Y,Z,Zo,Gamma");
  exportCommand->add_option("--freq", ex.freq,
                            "frequencies: START:STOP:COUNT (e.g. 1GHz:5GHz:401) or a comma list; "
                            "default: the solved ones");
  exportCommand->callback([&] { status = RunExport(ex); });

  sparam::InterpOptions interp;
  CLI::App* interpCommand = app.add_subcommand(
      "interp",
      "Interpolate a solution: with --freq, write it read at those frequencies (a project, or "
      "Touchstone/MATLAB/Supercompact by OUTPUT's extension) with an error estimate per "
      "interpolated point; without, write the project with the solution switched to the method "
      "(bri stores its weights)");
  interpCommand->add_option("PROJECT", interp.project, "project file (.ndp)")->required();
  interpCommand->add_option("-o,--output", interp.output, "file to write")->required();
  interpCommand->add_option("--method", interp.method,
                            "neville: rational tableau through every solved point; bri: "
                            "barycentric weights fitted once, fast to evaluate")
      ->default_val("bri")->check(CLI::IsMember({"neville", "bri"}));
  interpCommand->add_option("--freq", interp.freq,
                            "frequencies: START:STOP:COUNT (e.g. 1GHz:5GHz:2001) or a comma list");
  interpCommand->add_option("--variation", interp.variation, "variation number, from 1")
      ->default_val(1)->check(CLI::PositiveNumber);
  interpCommand->add_option("--solution", interp.solution, "solution name (default: the first)");
  interpCommand->callback([&] { status = sparam::RunInterp(interp, std::cout, std::cerr); });

  CLI11_PARSE(app, argc, argv);
  return status;
}
