// Setting up, resuming and reporting sweeps.
#include "product/SweepCommand.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <memory>
#include <ostream>

#include "product/Devices.h"
#include "product/ExportNetworkDataCmd.h"
#include "product/ExternalSolver.h"
#include "product/FrequencyList.h"
#include "product/InfoCommand.h"
#include "product/Sweep.h"

namespace sparam {
namespace {

namespace fs = std::filesystem;

std::atomic<bool> g_interrupted{false};

extern "C" void OnInterrupt(int) { g_interrupted.store(true); }

// Catches Ctrl-C for the length of a sweep, so the sweep stops between
// solves with everything saved.
class InterruptScope {
 public:
  InterruptScope() {
    g_interrupted.store(false);
    previous_ = std::signal(SIGINT, OnInterrupt);
  }
  ~InterruptScope() { std::signal(SIGINT, previous_); }

 private:
  void (*previous_)(int);
};

// Hands out one answer solved ahead (to learn an external solver's port
// count before the project exists), then asks the solver itself.
class FirstAnswer : public ISweepSolver {
 public:
  FirstAnswer(ISweepSolver& solver, SolvedPoint first) : solver_(solver), first_(std::move(first)) {}
  int GetNumPorts() const override { return first_.s.num_rows(); }
  bool Solve(double f, double tolerance, SolvedPoint& out, std::string* why) override {
    if (!used_ && f == first_.frequency) {
      used_ = true;
      out = first_;
      return true;
    }
    return solver_.Solve(f, tolerance, out, why);
  }
  std::string Describe() const override { return solver_.Describe(); }

 private:
  ISweepSolver& solver_;
  SolvedPoint first_;
  bool used_ = false;
};

std::unique_ptr<ISweepSolver> MakeSolver(const SweepSettings& settings, double timeout, std::string* why) {
  const std::string& label = settings.solver;
  if (label.rfind("device:", 0) == 0) {
    const CDevice* device = FindDevice(label.substr(7));
    if (device) return std::make_unique<DeviceSolver>(*device, settings.noise, settings.seed);
    std::string names;
    for (const CDevice* d : BuiltInDevices()) names += (names.empty() ? "" : ", ") + std::string(d->GetName());
    *why = "no built-in device \"" + label.substr(7) + "\" (there are " + names + "; see sparam devices)";
    return nullptr;
  }
  if (label.rfind("command:", 0) == 0) return std::make_unique<ExternalSolver>(label.substr(8), timeout);
  *why = "the sweep names no solver (\"" + label + "\")";
  return nullptr;
}

bool ParseBand(const SweepCommandOptions& o, const CDevice* device, SweepSettings& s, std::string* why) {
  s.start = device ? device->GetDefaultStart() : 0.0;
  s.stop = device ? device->GetDefaultStop() : 0.0;
  for (const auto& [text, value, name] : {std::tuple{&o.start, &s.start, "--start"},
                                          std::tuple{&o.stop, &s.stop, "--stop"}}) {
    if (text->empty()) {
      if (!device) {
        *why = std::string(name) + " is needed with --solver";
        return false;
      }
      continue;
    }
    const auto f = ParseFrequency(*text);
    if (!f || *f <= 0.0) {
      *why = std::string("expected ") + name + " FREQUENCY above 0 (e.g. 2.5GHz), found \"" + *text + "\"";
      return false;
    }
    *value = *f;
  }
  if (!(s.stop > s.start)) {
    *why = "--stop must lie above --start";
    return false;
  }
  return true;
}

// The guards of the command line; on a resumed sweep only those given
// replace the stored ones.
bool ParseGuards(const SweepCommandOptions& o, SweepSettings& s, std::string* why) {
  if (o.minSolves >= 0) s.minSolves = o.minSolves;
  if (!o.maxStep.empty()) {
    const auto step = ParseFrequency(o.maxStep);
    if (!step || *step <= 0.0) {
      *why = "expected --max-step FREQUENCY above 0 (e.g. 50MHz), found \"" + o.maxStep + "\"";
      return false;
    }
    s.maxStep = *step;
  }
  if (s.maxStep > 0.0 && (s.stop - s.start) / s.maxStep > 100000.0) {
    *why = "--max-step " + o.maxStep + " would take more than 100000 solves over the band";
    return false;
  }
  return true;
}

int Report(const SweepOutcome& outcome, const CFxemModalSolution& solution, const fs::path& path,
           std::ostream& out, std::ostream& err) {
  (outcome.stop == SweepOutcome::Converged ? out : err)
      << "sweep " << (outcome.stop == SweepOutcome::Converged ? "finished" : "stopped") << ": "
      << outcome.message << "\n";
  out << solution.GetNumFrequencies() << " solves (" << outcome.solvesThisRun << " in this run), saved in "
      << path.string() << "\n";
  PrintRangeSummary(solution, out);
  if (outcome.stop != SweepOutcome::Converged && outcome.stop != SweepOutcome::SaveFailed &&
      outcome.stop != SweepOutcome::NoiseFloor)
    err << "continue with: sparam sweep --resume " << path.string() << "\n";
  return ExitStatus(outcome);
}

}  // namespace

int RunSweepCommand(const SweepCommandOptions& o, std::ostream& out, std::ostream& err) {
  auto fail = [&](const std::string& why) {
    err << "sparam sweep: " << why << "\n";
    return 1;
  };
  std::string why;
  std::unique_ptr<CProject> project;
  SweepSettings settings;
  CFxemModalSolution* solution = nullptr;
  fs::path path;
  std::unique_ptr<ISweepSolver> solver;
  std::unique_ptr<FirstAnswer> first;

  if (!o.resume.empty()) {
    path = o.resume;
    AString error;
    project = CProject::Load(path, &error);
    if (!project) return fail(error);
    if (!FindSweep(*project, settings, solution, &why)) return fail(path.string() + ": " + why);
    if (!o.device.empty()) settings.solver = "device:" + o.device;
    if (!o.solver.empty()) settings.solver = "command:" + o.solver;
    if (o.maxSolves > 0) settings.maxSolves = o.maxSolves;
    if (!ParseGuards(o, settings, &why)) return fail(why);
    solution->GetInterpolator()->SetGuards(settings.minSolves, settings.maxStep);
    solver = MakeSolver(settings, o.solveTimeout, &why);
    if (!solver) return fail(why);
  } else {
    if (o.device.empty() == o.solver.empty()) return fail("give either --device NAME or --solver \"COMMAND\"");
    if (o.output.empty()) return fail("-o PROJECT is needed");
    path = o.output;
    if (fs::exists(path)) {
      return fail(path.string() + " exists; continue it with --resume " + path.string() +
                  " or choose another name");
    }
    if (!(o.tolerance > 0.0)) return fail("--tol must be above 0");
    settings.solver = o.device.empty() ? "command:" + o.solver : "device:" + o.device;
    if (o.noise != 0.0) {
      if (o.device.empty()) return fail("--noise scatters a built-in device's answers; it needs --device");
      if (!(o.noise > 0.0) || !std::isfinite(o.noise)) return fail("--noise must be a finite number above 0");
      settings.noise = o.noise;
      settings.seed = o.seed;
    }
    settings.tolerance = o.tolerance;
    settings.maxSolves = o.maxSolves > 0 ? o.maxSolves : 100;
    solver = MakeSolver(settings, o.solveTimeout, &why);
    if (!solver) return fail(why);
    const auto* device = o.device.empty() ? nullptr : &static_cast<DeviceSolver&>(*solver).GetDevice();
    if (!ParseBand(o, device, settings, &why)) return fail(why);
    if (!ParseGuards(o, settings, &why)) return fail(why);
    int ports = solver->GetNumPorts();
    if (ports <= 0) {
      // An external solver tells its port count with its first answer: the
      // top of the band, which the sweep asks for first anyway.
      SolvedPoint answer;
      if (!solver->Solve(settings.stop, settings.stop * 1e-12, answer, &why)) return fail(why);
      first = std::make_unique<FirstAnswer>(*solver, std::move(answer));
      ports = first->GetNumPorts();
    }
    project = NewSweepProject(settings, ports);
    FindSweep(*project, settings, solution, &why);
    AString error;
    if (!project->Save(path, &error)) return fail(error);
  }
  std::string warning;
  SubrangeBasisSizeFromEnvironment(50, &warning);
  if (!warning.empty()) err << "sparam sweep: " << warning << "\n";
  ISweepSolver& used = first ? static_cast<ISweepSolver&>(*first) : *solver;
  err << "sweeping " << used.Describe() << " from " << FormatFrequency(settings.start) << " to "
      << FormatFrequency(settings.stop) << ", goal " << AString::Format("%.2g", settings.tolerance)
      << ", at most " << settings.maxSolves << " solves\n";
  InterruptScope scope;
  const SweepOutcome outcome = RunSweep(*project, *solution, settings, path, used, err, &g_interrupted);
  return Report(outcome, *solution, path, out, err);
}

int RunDemo(const std::string& folder, std::ostream& out, std::ostream& err) {
  const CDevice* device = FindDevice("bandpass");
  if (!device) {
    err << "sparam demo: the bandpass device is missing\n";
    return 1;
  }
  const fs::path dir = folder;
  std::error_code ec;
  fs::create_directories(dir, ec);
  const fs::path project = dir / "bandpass.ndp";
  fs::remove(project, ec);  // the demo's own output of an earlier run
  SweepCommandOptions o;
  o.device = "bandpass";
  o.output = project.string();
  o.tolerance = 1e-3;
  out << "Interpolating sweep of the built-in " << device->GetDescription() << "\n";
  if (RunSweepCommand(o, out, err) != 0) return 1;

  AString error;
  std::unique_ptr<CProject> loaded = CProject::Load(project, &error);
  if (!loaded) {
    err << "sparam demo: " << error << "\n";
    return 1;
  }
  // The true error of the finished sweep on a fine grid.
  auto* s = loaded->GetVariation(0)->GetWritableSolution();
  const double start = device->GetDefaultStart(), stop = device->GetDefaultStop();
  std::vector<double> grid;
  for (int k = 0; k <= 2000; ++k) grid.push_back(start + (stop - start) * k / 2000.0);
  double worst = 0.0, at = 0.0;
  for (double f : grid) {
    SolvedPoint truth;
    std::string why;
    CNetworkData* p = s->GetNetworkData(f, 0.0, true);
    if (!p || !device->Evaluate(f, truth, &why)) continue;
    const TNT::CMatrix& m = *p->GetSMatrix(true);
    for (int e = 0; e < m.size(); ++e) {
      const double d = abs(m.data()[e] - truth.s.data()[e]);
      if (d > worst) worst = d, at = f;
    }
    s->ReleaseNetworkData(f);
  }
  for (const char* name : {"bandpass.s2p", "bandpass.m"}) {
    ExportRequest request;
    request.output = (dir / name).string();
    request.format = *CExportNetworkDataCmd::FormatFromExtension(request.output);
    request.frequencies = grid;
    request.display = nd::kDbAngle;
    std::string why;
    if (!CExportNetworkDataCmd().Execute(*loaded, request, &why)) {
      err << "sparam demo: " << why << "\n";
      return 1;
    }
  }
  out << "true worst error of any S entry against the filter's exact response on 2001 frequencies: "
      << AString::Format("%.2g", worst) << " at " << FormatFrequency(at) << " (goal 0.001)\n"
      << "wrote " << project.string() << ", " << (dir / "bandpass.s2p").string() << " and "
      << (dir / "bandpass.m").string() << " (2001 frequencies each)\n";
  return 0;
}

}  // namespace sparam
