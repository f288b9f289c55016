// Setting up, resuming and reporting sweeps.
#include "product/SweepCommand.h"

#include <signal.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <iterator>
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

// The signal that asked the running sweep to stop, 0 while none did.
std::atomic<int> g_interrupt{0};

extern "C" void OnStopSignal(int signal) {
  int none = 0;
  g_interrupt.compare_exchange_strong(none, signal);  // the first signal names the stop
}

// Catches SIGINT (Ctrl-C), SIGTERM and SIGHUP for the length of a sweep, so
// that the sweep stops its solver, keeps every point solved and exits with
// 128 + the signal's number. A signal that was ignored when we started
// (nohup, a background job) stays ignored. No SA_RESTART: a blocking call
// returns early and its loop looks at the flag.
class InterruptScope {
 public:
  InterruptScope() {
    g_interrupt.store(0);
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    for (size_t k = 0; k < std::size(kSignals); ++k) {
      installed_[k] = ::sigaction(kSignals[k], nullptr, &previous_[k]) == 0 && previous_[k].sa_handler != SIG_IGN &&
                      ::sigaction(kSignals[k], &action, nullptr) == 0;
    }
  }
  ~InterruptScope() {
    for (size_t k = 0; k < std::size(kSignals); ++k)
      if (installed_[k]) ::sigaction(kSignals[k], &previous_[k], nullptr);
  }
  InterruptScope(const InterruptScope&) = delete;
  InterruptScope& operator=(const InterruptScope&) = delete;

 private:
  static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
  struct sigaction previous_[std::size(kSignals)] {};
  bool installed_[std::size(kSignals)] = {};
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
  if (label.rfind("command:", 0) == 0) {
    auto solver = std::make_unique<ExternalSolver>(label.substr(8), timeout);
    solver->SetInterrupt(&g_interrupt);  // a signal ends a solve in flight, not only the loop
    return solver;
  }
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

// The solver of stored settings, for messages: "device bandpass (noise
// 1e-06, seed 3)", "solver \"python3 my.py\"".
std::string SolverText(const SweepSettings& s) {
  if (s.solver.rfind("device:", 0) == 0) {
    std::string text = "device " + s.solver.substr(7);
    if (s.noise > 0.0)
      text += AString::Format(" (noise %.3g, seed %llu)", s.noise, static_cast<unsigned long long>(s.seed));
    return text;
  }
  if (s.solver.rfind("command:", 0) == 0) return "solver \"" + s.solver.substr(8) + "\"";
  return s.solver;
}

// The command line over the settings a resumed sweep stored. The goal and
// the band are the sweep's own (its model, its ranges and its stopping rule
// are built on them): options that would change them are refused. So is
// another solver, or other scatter on a device's answers, unless --force:
// one model fitted to two solvers' answers is no model of either. What
// applies to this run only (budget, timeout, guards) is taken as given.
bool ApplyResumeOptions(const SweepCommandOptions& o, const fs::path& path, SweepSettings& s, std::string* why) {
  const std::string project = path.string();
  const auto refuse = [&](const std::string& option, const std::string& reason) {
    *why = option + ": " + reason;
    return false;
  };
  if (!o.output.empty()) {
    std::error_code ec;  // the same file, through any name or link: same device and inode
    if (!fs::equivalent(o.output, path, ec))
      return refuse("-o " + o.output, "a resumed sweep keeps saving to " + project +
                                          "; leave -o out, or copy the project and resume the copy");
  }
  if (o.tolerance && *o.tolerance != s.tolerance)
    return refuse("--tol " + AString::Format("%g", *o.tolerance),
                  AString::Format("the sweep in %s has the goal %g, and a resumed sweep keeps its goal; start "
                                  "a new sweep with -o to aim at another",
                                  project.c_str(), s.tolerance));
  for (const auto& [text, stored, name] : {std::tuple{&o.start, s.start, "--start"},
                                           std::tuple{&o.stop, s.stop, "--stop"}}) {
    if (text->empty()) continue;
    const auto f = ParseFrequency(*text);
    if (!f || *f <= 0.0)
      return refuse(name, "expected a FREQUENCY above 0 (e.g. 2.5GHz), found \"" + *text + "\"");
    if (*f != stored)
      return refuse(std::string(name) + " " + *text,
                    "the sweep in " + project + " covers " + FormatFrequency(s.start) + " to " +
                        FormatFrequency(s.stop) + ", and a resumed sweep keeps its band; start a new sweep with "
                        "-o for another band");
  }
  if (!o.device.empty() && !o.solver.empty()) {
    *why = "give either --device NAME or --solver \"COMMAND\", not both";
    return false;
  }
  SweepSettings wanted = s;
  if (!o.device.empty()) wanted.solver = "device:" + o.device;
  if (!o.solver.empty()) wanted.solver = "command:" + o.solver;
  const bool device = wanted.solver.rfind("device:", 0) == 0;
  if (o.noise) {
    if (!device) return refuse("--noise", "it scatters a built-in device's answers; it needs a device");
    if (!(*o.noise > 0.0) || !std::isfinite(*o.noise)) return refuse("--noise", "expected a finite number above 0");
    if (!(wanted.noise > 0.0)) wanted.seed = 1;  // scatter added on resume: the seed a new sweep would use
    wanted.noise = *o.noise;
  }
  if (o.seed) {
    if (!(wanted.noise > 0.0)) return refuse("--seed", "it seeds the scatter of --noise, and this sweep has none");
    wanted.seed = *o.seed;
  }
  if (!device) wanted.noise = 0.0, wanted.seed = 0;  // scatter belongs to a device, never to a command
  if (wanted.solver == s.solver && wanted.noise == s.noise && wanted.seed == s.seed) return true;
  if (!o.force) {
    *why = project + " was swept with " + SolverText(s) + "; continuing it with " + SolverText(wanted) +
           " would fit one model to two solvers' answers. Leave --device/--solver/--noise/--seed out to "
           "continue with the project's own, or add --force";
    return false;
  }
  s.solver = wanted.solver;
  s.noise = wanted.noise;
  s.seed = wanted.seed;
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
  // First made, last gone: the solver is stopped and the lock released
  // while the signals still only set the flag.
  InterruptScope scope;
  std::unique_ptr<SweepLock> lock;
  std::string why;
  std::unique_ptr<CProject> project;
  SweepSettings settings;
  CFxemModalSolution* solution = nullptr;
  fs::path path;
  std::unique_ptr<ISweepSolver> solver;
  std::unique_ptr<FirstAnswer> first;

  if (!o.resume.empty()) {
    path = o.resume;
    // Locked before it is read, so that what is read is what no one else
    // will write.
    if (!(lock = SweepLock::Acquire(path, &why))) return fail(why);
    AString error;
    project = CProject::Load(path, &error);
    if (!project) return fail(error);
    if (!FindSweep(*project, settings, solution, &why)) return fail(path.string() + ": " + why);
    const std::string stored = SolverText(settings);
    if (!ApplyResumeOptions(o, path, settings, &why)) return fail(why);
    if (SolverText(settings) != stored)
      err << "sparam sweep: --force: continuing " << path.string() << " with " << SolverText(settings)
          << "; it was swept with " << stored << ", which the project keeps naming\n";
    if (o.maxSolves > 0) settings.maxSolves = o.maxSolves;
    if (!ParseGuards(o, settings, &why)) return fail(why);
    solution->GetInterpolator()->SetGuards(settings.minSolves, settings.maxStep);
    solver = MakeSolver(settings, o.solveTimeout, &why);
    if (!solver) return fail(why);
  } else {
    if (o.device.empty() == o.solver.empty()) return fail("give either --device NAME or --solver \"COMMAND\"");
    if (o.output.empty()) return fail("-o PROJECT is needed");
    if (o.force) return fail("--force lets --resume continue a sweep with another solver; a new sweep needs none");
    const double tolerance = o.tolerance.value_or(1e-3);
    if (!(tolerance > 0.0)) return fail("--tol must be above 0");
    settings.solver = o.device.empty() ? "command:" + o.solver : "device:" + o.device;
    if (o.noise) {
      if (o.device.empty()) return fail("--noise scatters a built-in device's answers; it needs --device");
      if (!(*o.noise > 0.0) || !std::isfinite(*o.noise)) return fail("--noise must be a finite number above 0");
      settings.noise = *o.noise;
      settings.seed = o.seed.value_or(1);
    } else if (o.seed) {
      return fail("--seed seeds the scatter of --noise; give --noise too");
    }
    settings.tolerance = tolerance;
    settings.maxSolves = o.maxSolves > 0 ? o.maxSolves : 100;
    path = o.output;
    // Locked before the existence check, so that two sweeps started at once
    // on one name cannot both find it free.
    if (!(lock = SweepLock::Acquire(path, &why))) return fail(why);
    if (fs::exists(path)) {
      return fail(path.string() + " exists; continue it with --resume " + path.string() +
                  " or choose another name");
    }
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
      if (!solver->Solve(settings.stop, settings.stop * 1e-12, answer, &why)) {
        if (const int signal = g_interrupt.load()) {
          err << "sweep stopped: " << InterruptedBy(signal) << " before the solver's first answer; nothing was "
              << "solved, so " << path.string() << " was not written\n";
          SweepOutcome stopped;
          stopped.stop = SweepOutcome::Interrupted;
          stopped.signal = signal;
          return ExitStatus(stopped);
        }
        return fail(why);
      }
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
  const SweepOutcome outcome = RunSweep(*project, *solution, settings, path, used, err, &g_interrupt);
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
