// The sweep loop and the stored description of a sweep.
#include "product/Sweep.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstring>
#include <ostream>
#include <thread>

#include "product/InfoCommand.h"
#include "sparamlib/data/FxemModalData.h"

namespace sparam {
namespace {

constexpr const char* kProduct = "sparam sweep";

std::string Number(double v) { return AString::Format("%.17g", v); }

}  // namespace

std::unique_ptr<CProject> NewSweepProject(const SweepSettings& settings, int ports) {
  auto project = std::make_unique<CProject>();
  project->SetDesignName("Sweep of " + settings.solver);
  FxSolutionVariation& variation = project->AddVariation();
  variation.SetProduct(kProduct, "1");
  variation.AddDesignVariable("solver", settings.solver);
  variation.AddDesignVariable("start", Number(settings.start));
  variation.AddDesignVariable("stop", Number(settings.stop));
  variation.AddDesignVariable("tolerance", Number(settings.tolerance));
  variation.AddDesignVariable("max_solves", std::to_string(settings.maxSolves));
  variation.AddDesignVariable("min_solves", std::to_string(settings.minSolves));
  variation.AddDesignVariable("max_step", Number(settings.maxStep));
  if (settings.noise > 0.0) {
    variation.AddDesignVariable("noise", Number(settings.noise));
    variation.AddDesignVariable("seed", std::to_string(settings.seed));
  }
  auto solution = std::make_unique<CFxemModalSolution>("Sweep");
  solution->SetSolutionType(CNetworkDataSolution::FxemInterpolatingSweep);
  for (int k = 0; k < ports; ++k) {
    CMatrixEntry entry("Port" + std::to_string(k + 1), 1, k);
    entry.SetModalEntryName("Port" + std::to_string(k + 1) + ":1");
    solution->AddMatrixEntry(entry);
  }
  auto interpolator = std::make_unique<CFxemInterpolator>(ports);
  interpolator->SetBand(settings.start, settings.stop);
  interpolator->SetErrorTolerance(settings.tolerance);
  interpolator->SetGuards(settings.minSolves, settings.maxStep);
  solution->SetInterpolator(std::move(interpolator));
  variation.AddSolution(std::move(solution));
  return project;
}

bool FindSweep(CProject& project, SweepSettings& settings, CFxemModalSolution*& solution,
               std::string* why) {
  for (const auto& v : project.GetVariations()) {
    if (v->GetProductName() != kProduct) continue;
    for (const auto& handle : v->GetSolutions()) {
      auto* s = dynamic_cast<CFxemModalSolution*>(handle->GetWritableSolution());
      if (!s || !s->GetInterpolator()) continue;
      for (const auto& [name, value] : v->GetDesignVariables()) {
        if (name == "solver") settings.solver = value;
        if (name == "max_solves") settings.maxSolves = std::atoi(value.c_str());
        if (name == "min_solves") settings.minSolves = std::atoi(value.c_str());
        if (name == "max_step") settings.maxStep = std::strtod(value.c_str(), nullptr);
        if (name == "noise") settings.noise = std::strtod(value.c_str(), nullptr);
        if (name == "seed") settings.seed = std::strtoull(value.c_str(), nullptr, 10);
      }
      settings.start = s->GetInterpolator()->GetLowSampleFreq();
      settings.stop = s->GetInterpolator()->GetHighSampleFreq();
      settings.tolerance = s->GetInterpolator()->GetErrorTolerance();
      s->GetInterpolator()->SetGuards(settings.minSolves, settings.maxStep);
      solution = s;
      return true;
    }
  }
  if (why) *why = "the project holds no sweep made by sparam sweep";
  return false;
}

SweepOutcome RunSweep(CProject& project, CFxemModalSolution& solution, const SweepSettings& settings,
                      const std::filesystem::path& path, ISweepSolver& solver, std::ostream& progress,
                      const std::atomic<int>* interrupt) {
  SweepOutcome outcome;
  auto stop = [&](SweepOutcome::Stop why, std::string message) {
    outcome.stop = why;
    outcome.message = std::move(message);
    return outcome;
  };
  CFxemInterpolator& interp = *solution.GetInterpolator();
  const int n = solution.GetNumPorts();
  auto interrupted = [&] {
    outcome.signal = interrupt ? interrupt->load() : 0;
    return stop(SweepOutcome::Interrupted, InterruptedBy(outcome.signal) + "; every point solved so far is saved");
  };
  for (;;) {
    if (interrupt && interrupt->load()) return interrupted();
    int status = 0;
    double tolerance = 0.0;
    const double f = interp.GetNextFrequency(status, tolerance);
    if (status != CPartitionedRangeInterpolator::kFrequencyProposed) {
      if (interp.CheckAllRanges()) return stop(SweepOutcome::Converged, "error goal met on every range");
      if (interp.AtNoiseFloor()) {
        return stop(SweepOutcome::NoiseFloor,
                    AString::Format("the solver's data scatter by about %.2g, so the goal %.2g cannot be met; "
                                    "more solves would only follow the scatter",
                                    interp.GetNoiseEstimate(), settings.tolerance));
      }
      return stop(SweepOutcome::Stuck, "no range can propose a frequency; stopped");
    }
    if (solution.GetNumFrequencies() >= settings.maxSolves) {
      return stop(SweepOutcome::BudgetSpent,
                  "solve budget of " + std::to_string(settings.maxSolves) + " spent before the error goal was met");
    }
    if (solution.GetFrequencyMap().count(f)) {
      return stop(SweepOutcome::Stuck, "the sweep asked for " + FormatFrequency(f) + " again; stopped");
    }
    SolvedPoint answer;
    std::string why;
    if (!solver.Solve(f, tolerance, answer, &why)) {
      // A solver stopped by the interrupt fails its solve; that is the
      // user's stop, not the solver's fault.
      if (interrupt && interrupt->load()) return interrupted();
      return stop(SweepOutcome::SolverFailed, why);
    }
    if (answer.s.num_rows() != n || answer.s.num_cols() != n) {
      return stop(SweepOutcome::SolverFailed,
                  AString::Format("the solver answered %d x %d S at %s, expected %d x %d", answer.s.num_rows(),
                                  answer.s.num_cols(), FormatFrequency(f).c_str(), n, n));
    }
    auto point = solution.CreateNetworkData();
    auto& modal = static_cast<CFxemModalData&>(*point);
    modal.SetFrequency(answer.frequency);
    modal.SetDataType(CNetworkData::ExactPoint);
    modal.SetPortImpedance(std::make_unique<TNT::CVector>(
        answer.portImpedance ? *answer.portImpedance : TNT::CVector(n, AComplex<double>(nd::kDefaultReferenceOhms))));
    if (answer.gamma) modal.SetGamma(std::make_unique<TNT::CVector>(*answer.gamma));
    if (answer.zpv) modal.SetImpedanceZpv(std::make_unique<TNT::CVector>(*answer.zpv));
    if (answer.zvi) modal.SetImpedanceZvi(std::make_unique<TNT::CVector>(*answer.zvi));
    modal.SetSMatrix(std::make_unique<TNT::CMatrix>(std::move(answer.s)));
    if (!solution.AddSweepPoint(std::move(point))) {
      return stop(SweepOutcome::Stuck, "the solver answered " + FormatFrequency(answer.frequency) +
                                           ", which is solved already; stopped");
    }
    ++outcome.solvesThisRun;
    AString error;
    if (!project.Save(path, &error)) return stop(SweepOutcome::SaveFailed, error);
    double estimate = 0.0;
    const int range = interp.GetRangeIndex(answer.frequency);
    if (const CAdaptiveInterp* r = interp.GetRangeInterpolator(range))
      estimate = r->GetClaimedError() * r->GetNormalizingMagnitude();
    progress << "solve " << solution.GetNumFrequencies() << " at " << FormatFrequency(answer.frequency)
             << ": estimated error " << AString::Format("%.2g", estimate) << " (goal "
             << AString::Format("%.2g", settings.tolerance) << ")\n"
             << std::flush;
  }
}

std::string InterruptedBy(int signal) {
  switch (signal) {
    case SIGINT:
      return "interrupted by SIGINT (Ctrl-C)";
    case SIGTERM:
      return "interrupted by SIGTERM";
    case SIGHUP:
      return "interrupted by SIGHUP (the terminal went away)";
    default:
      return signal > 0 ? "interrupted by signal " + std::to_string(signal) : "interrupted";
  }
}

int ExitStatus(const SweepOutcome& outcome) {
  switch (outcome.stop) {
    case SweepOutcome::Converged:
      return 0;
    case SweepOutcome::BudgetSpent:
      return 3;
    case SweepOutcome::NoiseFloor:
      return 4;
    case SweepOutcome::Interrupted:
      // The shell's convention for a program ended by a signal.
      return 128 + (outcome.signal > 0 ? outcome.signal : SIGINT);
    default:
      return 1;
  }
}

namespace {

// The process id written in a lock file, or 0 when it holds none (yet: the
// holder writes it just after taking the lock).
long LockHolder(int fd) {
  char text[32] = {};
  const ssize_t n = ::pread(fd, text, sizeof text - 1, 0);
  if (n <= 0) return 0;
  return std::strtol(text, nullptr, 10);
}

// Whether `fd` is still the file at `path`: a releasing holder removes the
// lock file before it unlocks, so a lock taken on a removed file is no lock.
bool IsFileAt(int fd, const std::filesystem::path& path) {
  struct stat open {}, named {};
  return ::fstat(fd, &open) == 0 && ::stat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
         open.st_ino == named.st_ino;
}

}  // namespace

std::filesystem::path SweepLock::LockPath(const std::filesystem::path& project) {
  std::error_code ec;
  std::filesystem::path real = std::filesystem::weakly_canonical(project, ec);
  if (ec) real = std::filesystem::absolute(project, ec);
  if (ec) real = project;
  real += ".lock";
  return real;
}

std::unique_ptr<SweepLock> SweepLock::Acquire(const std::filesystem::path& project, std::string* why) {
  const std::filesystem::path path = LockPath(project);
  auto fail = [&](std::string reason) -> std::unique_ptr<SweepLock> {
    if (why) *why = std::move(reason);
    return nullptr;
  };
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return fail("cannot lock " + project.string() + ": " + path.string() + ": " + std::strerror(errno));
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
      if (!IsFileAt(fd, path)) {  // its holder removed it while we opened it
        ::close(fd);
        continue;
      }
      // Our process id, for the message of a sweep we keep out.
      const std::string pid = std::to_string(::getpid()) + "\n";
      if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        const int e = errno;
        ::unlink(path.c_str());
        ::close(fd);
        return fail("cannot lock " + project.string() + ": " + path.string() + ": " + std::strerror(e));
      }
      return std::unique_ptr<SweepLock>(new SweepLock(path, fd));
    }
    const int e = errno;
    if (e != EWOULDBLOCK && e != EINTR) {
      ::close(fd);
      return fail("cannot lock " + project.string() + ": " + path.string() + ": " + std::strerror(e));
    }
    if (e == EINTR || !IsFileAt(fd, path)) {
      ::close(fd);
      continue;
    }
    // Held. The holder writes its id right after locking; give it a moment.
    long holder = LockHolder(fd);
    for (int k = 0; k < 20 && holder <= 0; ++k) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      holder = LockHolder(fd);
    }
    ::close(fd);
    return fail(project.string() + " is being swept by " +
                (holder > 0 ? "process " + std::to_string(holder) : std::string("another process")) +
                " (it holds " + path.string() + "); wait for that sweep to end or stop it first");
  }
  return fail("cannot lock " + project.string() + ": " + path.string() + " keeps being replaced");
}

SweepLock::~SweepLock() {
  // Remove first: whoever opens the file before we unlock finds it gone
  // once it has the lock, and tries again on a new one.
  ::unlink(m_Path.c_str());
  ::close(m_Fd);
}

void PrintRangeSummary(const CFxemModalSolution& solution, std::ostream& out) {
  const CFxemInterpolator* interp = solution.GetInterpolator();
  if (!interp) return;
  for (int i = 0; i < interp->GetNumRanges(); ++i) {
    const CAdaptiveInterp* r = interp->GetRangeInterpolator(i);
    out << "  " << FormatFrequency(interp->GetRangeLow(i)) << " to " << FormatFrequency(interp->GetRangeHigh(i))
        << ": " << (r ? r->GetBasisSize() : 0) << " points";
    if (r && r->Check()) {
      out << ", estimated error " << AString::Format("%.2g", r->GetClaimedError() * r->GetNormalizingMagnitude())
          << ", goal met\n";
      continue;
    }
    // Not met: the accuracy reached is the larger of the estimate and the
    // last solve's measured prediction error.
    out << ", accuracy reached about "
        << AString::Format("%.2g", r ? r->GetReachedAccuracy() * r->GetNormalizingMagnitude() : INFINITY);
    if (r && r->AtNoiseFloor())
      out << ", data scatter about " << AString::Format("%.2g", r->GetNoiseEstimate() * r->GetNormalizingMagnitude());
    out << ", goal not met\n";
  }
}

}  // namespace sparam
