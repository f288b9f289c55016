// sparam: the command-line tool for network data files.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>

#include "product/CombineCommand.h"
#include "product/ConvertCommand.h"
#include "product/ExportNetworkDataCmd.h"
#include "product/FrequencyList.h"
#include "product/InfoCommand.h"
#include "product/Devices.h"
#include "product/InterpCommand.h"
#include "product/SetupCommand.h"
#include "product/SweepCommand.h"

namespace {

struct ExportOptions {
  std::string input, output, format, kind = "S", display = "MA", renorm, quantities, freq;
  std::string solution;
  size_t variation = 1;
  int precision = 8;
  bool gamma = false, clip = false, noRenorm = false, noPostprocessing = false;
};

int Fail(const char* command, const std::string& why) {
  std::cerr << "sparam " << command << ": " << why << "\n";
  return 1;
}

void PrintNotes(const char* command, const std::vector<std::string>& notes) {
  for (const auto& note : notes) std::cerr << "sparam " << command << ": " << note << "\n";
}

// The options `export` and `convert` share, as an export request; a
// message when one of them is wrong. A project (.ndp) output needs no
// format when `projectOutput` allows it.
std::optional<std::string> BuildRequest(const ExportOptions& o, bool projectOutput, ExportRequest& request) {
  request.output = o.output;
  if (!o.format.empty()) {
    static const std::map<std::string, nd::NetworkDataExportFormat> formats = {
        {"touchstone", nd::kExportTouchstone}, {"supercompact", nd::kExportSupercompact},
        {"matlab", nd::kExportMatlab},         {"citifile", nd::kExportCitifile},
        {"tab", nd::kExportSpreadsheet}};
    request.format = formats.at(o.format);  // CLI11 has checked the choice
  } else if (auto f = CExportNetworkDataCmd::FormatFromExtension(o.output)) {
    request.format = *f;
  } else if (!projectOutput || !IsProjectFile(o.output)) {
    return o.output + ": cannot tell the format from the extension; use --format";
  }
  request.kind = o.kind == "Y" ? nd::kYMatrix : o.kind == "Z" ? nd::kZMatrix : nd::kSMatrix;
  request.display = o.display == "DB"   ? nd::kDbAngle
                    : o.display == "RI" ? nd::kRealImaginary
                                        : nd::kMagnitudeAngle;
  request.precision = o.precision;
  request.gamma = o.gamma;
  request.clip = o.clip;
  request.noPostprocessing = o.noPostprocessing;
  request.keepPortImpedances = o.noRenorm;
  if (o.noRenorm && !o.renorm.empty()) return std::string("--renorm and --no-renorm exclude each other");
  request.variation = o.variation - 1;
  request.solution = o.solution;
  request.projectName = std::filesystem::path(o.input).stem().string();
  if (!o.renorm.empty()) {
    const auto ohms = sparam::ParseFrequency(o.renorm);  // a plain positive number
    if (!ohms || *ohms <= 0.0) return "expected --renorm OHMS above 0, found \"" + o.renorm + "\"";
    request.renormalizeTo = *ohms;
  }
  if (!o.freq.empty()) {
    std::string why;
    auto list = sparam::ParseFrequencyList(o.freq, &why);
    if (!list) return "--freq: " + why;
    request.frequencies = std::move(*list);
  }
  if (!o.quantities.empty()) {
    static const std::map<std::string, int> codes = {
        {"S", nd::kSMatrix}, {"Y", nd::kYMatrix}, {"Z", nd::kZMatrix},
        {"Zo", nd::kPortImpedances}, {"Gamma", nd::kPropagationConstants}};
    std::stringstream list(o.quantities);
    for (std::string q; std::getline(list, q, ',');) {
      const auto it = codes.find(q);
      if (it == codes.end()) return "--quantities: expected S, Y, Z, Zo or Gamma, found \"" + q + "\"";
      request.quantities.push_back(it->second);
    }
  }
  return std::nullopt;
}

int RunExport(const ExportOptions& o) {
  ExportRequest request;
  if (auto why = BuildRequest(o, false, request)) return Fail("export", *why);
  AString error;
  // The project is read whole before anything is written, but an export
  // onto it would still replace the only copy of the data with something
  // else.
  if (std::error_code ec; std::filesystem::equivalent(o.output, o.input, ec))
    return Fail("export", o.output + " is the project " + o.input + "; write the export to another file");
  std::unique_ptr<CProject> project = CProject::Load(o.input, &error);
  if (!project) return Fail("export", error);
  std::string why;
  std::vector<std::string> notes;
  const bool ok = CExportNetworkDataCmd().Execute(*project, request, &why, &notes);
  PrintNotes("export", notes);
  return ok ? 0 : Fail("export", why);
}

int RunConvert(const ExportOptions& o) {
  ExportRequest request;
  if (auto why = BuildRequest(o, true, request)) return Fail("convert", *why);
  std::string why;
  std::vector<std::string> notes;
  const bool ok = sparam::Convert(o.input, request, &why, &notes);
  PrintNotes("convert", notes);
  return ok ? 0 : Fail("convert", why);
}

// The writer options of `export` and `convert`.
void AddWriterOptions(CLI::App* command, ExportOptions& o) {
  command->add_option("--variation", o.variation, "variation number, from 1")
      ->default_val(1)->check(CLI::PositiveNumber);
  command->add_option("--solution", o.solution, "solution name (default: the first)");
  command->add_option("--format", o.format, "file format instead of the extension's")
      ->check(CLI::IsMember({"touchstone", "citifile", "tab", "supercompact", "matlab"}));
  command->add_option("--kind", o.kind, "matrix kind")
      ->default_val("S")->check(CLI::IsMember({"S", "Y", "Z"}));
  command->add_option("--display", o.display, "magnitude/angle, dB/angle or real/imaginary")
      ->default_val("MA")->check(CLI::IsMember({"MA", "DB", "RI"}));
  command->add_option("--precision", o.precision, "significant digits (MATLAB: decimals)")
      ->default_val(8)->check(CLI::Range(1, 17));
  command->add_option("--renorm", o.renorm,
                      "renormalise every port to OHMS (refused for data without port impedances)");
  command->add_flag("--no-renorm", o.noRenorm,
                    "Touchstone: keep port impedances that differ between ports or vary with "
                    "frequency (listed as comments) instead of renormalising to 50 ohms; other "
                    "tools will read the data as at 50 ohms");
  command->add_flag("--no-postproc", o.noPostprocessing,
                    "write the data as solved, without the post-processing of `sparam setup`");
  command->add_flag("--clip", o.clip,
                    "leave out --freq frequencies outside the solved band instead of refusing them");
  command->add_flag("--gamma", o.gamma, "Touchstone: add gamma and port impedance comments");
  command->add_option("--quantities", o.quantities, "MATLAB: comma list of S,Y,Z,Zo,Gamma");
  command->add_option("--freq", o.freq,
                      "frequencies: START:STOP:COUNT (e.g. 1GHz:5GHz:401) or an increasing comma "
                      "list, inside the solved band; default: the solved ones");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"sparam: inspect and export network data (S, Y, Z parameters) and project files"};
  app.require_subcommand(1);
  app.footer(
      "Output files are complete or absent: a file is written beside its target and renamed over "
      "it only once every byte is on disk, so a failed command leaves the old file as it was. "
      "A symbolic link is followed; a fifo, a device or \"-\" (standard output, with --format) is "
      "written directly.\n\n"
      "Exit status: 0 success; 1 the work failed (one line on standard error says why); 2 usage "
      "error. sweep also exits 3 (solve budget spent), 4 (the solver's scatter is above the "
      "goal), 130/143/129 (stopped by SIGINT/SIGTERM/SIGHUP).");
  int status = 0;

  sparam::InfoOptions info;
  CLI::App* infoCommand = app.add_subcommand(
      "info", "Summarise a project (.ndp), Touchstone (.sNp, .ts) or Citifile (.cit) file: "
              "design variables, solutions, ports, frequencies");
  infoCommand->add_option("FILE", info.path, "file to describe")->required();
  infoCommand->add_flag("--json", info.json, "machine-readable output");
  infoCommand->callback([&] { status = sparam::RunInfo(info, std::cout, std::cerr); });

  ExportOptions ex;
  CLI::App* exportCommand = app.add_subcommand(
      "export", "Write a solution of a project as Touchstone (.sNp, .ts), Citifile (.cit), "
                "spreadsheet (.tab), MATLAB (.m) or Supercompact (.sc); the format follows "
                "OUTPUT's extension");
  exportCommand->add_option("PROJECT", ex.input, "project file (.ndp)")->required();
  exportCommand->add_option("OUTPUT", ex.output, "file to write")->required();
  AddWriterOptions(exportCommand, ex);
  exportCommand->callback([&] { status = RunExport(ex); });

  ExportOptions cv;
  CLI::App* convertCommand = app.add_subcommand(
      "convert", "Convert network data between project (.ndp), Touchstone (.sNp, .ts), Citifile "
                 "(.cit), spreadsheet (.tab), MATLAB (.m) and Supercompact (.sc) files, by "
                 "extension; port impedances are kept unless --renorm is given. OUTPUT must not be INPUT "
                 "itself (nor the same file through a link)");
  convertCommand->add_option("INPUT", cv.input, "file to read (.ndp, .sNp, .ts, .cit)")->required();
  convertCommand->add_option("OUTPUT", cv.output, "file to write")->required();
  AddWriterOptions(convertCommand, cv);
  convertCommand->callback([&] { status = RunConvert(cv); });

  sparam::SetupOptions setup;
  CLI::App* setupCommand = app.add_subcommand(
      "setup",
      "Choose the post-processing every export of a variation applies: renormalisation, "
      "de-embedding, differential pairs, extrapolation to DC, impedance multiplier. Choices not "
      "named stay as they were (--clear starts afresh); the project is saved in place, atomically. "
      "Without choices, shows the current ones");
  setupCommand->add_option("PROJECT", setup.project, "project file (.ndp)")->required();
  setupCommand->add_option("--variation", setup.variation, "variation number, from 1")
      ->default_val(1)->check(CLI::PositiveNumber);
  setupCommand->add_option("--renorm", setup.renorm,
                           "reference impedances: one for every port (50) or per port "
                           "(1=75,2=50+10j; the others keep theirs)");
  setupCommand->add_option("--deembed", setup.deembed,
                           "move reference planes into the device by a length per port "
                           "(1=2mm,2=3.5mm; a negative length adds line)");
  setupCommand->add_flag("--lossless", setup.lossless,
                         "de-embed through the phase constant only (default: the whole "
                         "propagation constant, loss included)");
  setupCommand->add_option("--pair", setup.pairs,
                           "differential pair NAME=P,N of ports P (+) and N (-); repeat for more")
      ->take_all();
  setupCommand->add_flag("--matched", setup.matched,
                         "pairs referred to matched impedances: differential twice, common half "
                         "the pair's mean port impedance");
  setupCommand->add_flag("--dc", setup.dc, "add a point at DC extrapolated from the lowest frequencies");
  setupCommand->add_option("--multiplier", setup.multiplier,
                           "scale every impedance by X (a symmetry-plane model's half to the whole)");
  setupCommand->add_option("--impedance", setup.impedance,
                           "characteristic-impedance definition the S of a port is referred to: "
                           "Zpi (the solver's), Zpv or Zvi, for every port or per port (1=Zpv,2=Zvi); "
                           "needs a solver that supplies them");
  setupCommand->add_flag("--terminal", setup.terminal,
                         "export the terminal view: each port's conductors through its mode-to-terminal "
                         "transform (USE_STANDARD_MODES=1: odd and even modes for two-conductor ports)");
  setupCommand->add_flag("--modal", setup.modal, "export the modal view (the default)");
  setupCommand->add_flag("--clear", setup.clear, "forget every earlier choice first");
  setupCommand->callback([&] { status = sparam::RunSetup(setup, std::cout, std::cerr); });

  sparam::CombineOptions combine;
  CLI::App* combineCommand = app.add_subcommand(
      "combine",
      "Combine sweeps over adjacent or overlapping bands into one project: each keeps its own "
      "points and interpolation and answers inside its share of the band. Where two bands overlap "
      "the overlap is split at its midpoint (the lower sweep below it, the upper from it on); a gap "
      "between bands, or a band inside another, is refused");
  combineCommand->add_option("INPUTS", combine.inputs, "projects (.ndp), Touchstone or Citifile files")
      ->required()->expected(2, -1);
  combineCommand->add_option("-o,--output", combine.output, "project file to write (.ndp)")->required();
  combineCommand->add_option("--solution", combine.solution, "solution name in each input (default: the first)");
  combineCommand->callback([&] { status = sparam::RunCombine(combine, std::cout, std::cerr); });

  sparam::InterpOptions interp;
  CLI::App* interpCommand = app.add_subcommand(
      "interp",
      "Interpolate a solution: with --freq, write it read at those frequencies (a project, or "
      "Touchstone/MATLAB/Supercompact by OUTPUT's extension) with an error estimate per "
      "interpolated point; without, write the project with the solution switched to the method "
      "(bri stores its weights). The output must not be PROJECT itself (nor the same file through a "
      "link)");
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

  sparam::SweepCommandOptions sweep;
  CLI::App* sweepCommand = app.add_subcommand(
      "sweep",
      "Interpolating sweep: solve a built-in device or an external solver at the frequencies a "
      "rational model of the data asks for, until its estimated error meets --tol everywhere in "
      "the band; every point is saved to the project as it arrives, and --resume continues a sweep "
      "that stopped.\n"
      "One sweep at a time: the project is locked (PROJECT.lock beside it) while a sweep runs, and "
      "another sweep or --resume of it is refused, naming the process that holds it; the lock of a "
      "process that has ended never blocks.\n"
      "--resume continues with the solver, goal and band stored in the project: --tol, --start, "
      "--stop or -o that differ from them are refused, and so are another --device or --solver, or "
      "other --noise or --seed, unless --force is given. --max-solves, --solve-timeout and the guards "
      "apply to the resumed run.\n"
      "Ctrl-C (SIGINT), SIGTERM and SIGHUP stop the sweep within a second, even in the middle of a "
      "solve: the solver's process group is ended, every point solved is kept, and --resume "
      "continues.\n"
      "Exit status: 0 the goal is met on every range; 1 the sweep failed (solver, saving, a "
      "repeated proposal; the reason is printed) or was refused (locked project, options a resume "
      "cannot honour); 2 usage error; 3 the solve budget was spent first; 4 the solver's data "
      "scatter too much for the goal (the scatter and the accuracy reached per range are printed); "
      "130 interrupted by SIGINT, 143 by SIGTERM, 129 by SIGHUP. Every status but 2 leaves each "
      "solved point in the project.");
  sweepCommand->add_option("--device", sweep.device, "built-in device to solve (see sparam devices)");
  sweepCommand->add_option("--solver", sweep.solver,
                           "command of a solver process speaking docs/solver-protocol.md");
  sweepCommand->add_option("--start", sweep.start, "lowest frequency, e.g. 1GHz (default: the device's band)");
  sweepCommand->add_option("--stop", sweep.stop, "highest frequency (default: the device's band)");
  sweepCommand->add_option("--tol", sweep.tolerance, "largest error allowed in any S entry (default 1e-3)");
  sweepCommand->add_option("--max-solves", sweep.maxSolves, "solve budget (default 100)")
      ->check(CLI::PositiveNumber);
  sweepCommand->add_option("--min-solves", sweep.minSolves,
                           "guard: solve at least this many frequencies in the band, spread where the "
                           "gaps are widest, even when the goal is met earlier")
      ->check(CLI::NonNegativeNumber);
  sweepCommand->add_option("--max-step", sweep.maxStep,
                           "guard: no gap between solved frequencies wider than this, e.g. 20MHz; a "
                           "feature narrower than the sampling can be missed by any sampler, this "
                           "bounds the sampling");
  sweepCommand->add_option("--noise", sweep.noise,
                           "with --device: add Gaussian scatter of this size to each part of every S "
                           "entry, as an iterative field solver's answers scatter (for trying the "
                           "sweep on realistic data)");
  sweepCommand->add_option("--seed", sweep.seed,
                           "seed of that scatter (default 1; the same seed gives the same answers)");
  sweepCommand->add_option("--solve-timeout", sweep.solveTimeout,
                           "seconds an external solver may take per frequency")
      ->default_val(300)->check(CLI::PositiveNumber);
  sweepCommand->add_option("-o,--output", sweep.output, "project file to create (.ndp)");
  sweepCommand->add_option("--resume", sweep.resume, "project of a sweep to continue");
  sweepCommand->add_flag("--force", sweep.force,
                         "with --resume: continue with the --device, --solver, --noise or --seed given even "
                         "though the project was swept with another");
  sweepCommand->callback([&] { status = sparam::RunSweepCommand(sweep, std::cout, std::cerr); });

  CLI::App* devicesCommand =
      app.add_subcommand("devices", "List the built-in devices that sparam sweep can solve");
  devicesCommand->callback([&] { status = sparam::ListDevices(std::cout); });

  std::string demoFolder = "demo-output";
  CLI::App* demoCommand = app.add_subcommand(
      "demo", "Sweep the built-in bandpass filter to 1e-3 and write a project, a Touchstone and a "
              "MATLAB file; report the solves used and the true error");
  demoCommand->add_option("--dir", demoFolder, "output folder")->default_val("demo-output");
  demoCommand->callback([&] { status = sparam::RunDemo(demoFolder, std::cout, std::cerr); });

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help and --version end here with status 0; every real usage error
    // has status 2, whatever CLI11's own code for it.
    return app.exit(e) == 0 ? 0 : 2;
  }
  return status;
}
