// The interpolating sweep: asks the solution's interpolator for the next
// frequency, has the solver solve it, adds the point and saves the project
// after every point, until the error goal is met on every range, the solve
// budget is spent, the solver fails or the user interrupts. Everything
// solved before a stop is in the project, and a sweep read back continues
// where it stopped. One sweep at a time works on a project (SweepLock).
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <string>

#include "product/Project.h"
#include "product/SweepSolver.h"
#include "sparamlib/interp/FxemModalSolution.h"

namespace sparam {

// What a sweep is, stored as design variables of its variation so that
// --resume needs nothing else.
struct SweepSettings {
  std::string solver;  // "device:NAME" or "command:CMD"
  double start = 0.0, stop = 0.0;  // Hz
  double tolerance = 1e-3;         // largest error of any S entry
  int maxSolves = 100;
  int minSolves = 0;     // guard: at least this many solves in the band (0: none)
  double maxStep = 0.0;  // guard: no gap between solves wider than this (Hz; 0: none)
  double noise = 0.0;    // scatter added to a built-in device's answers (tests, benchmarks)
  std::uint64_t seed = 0;
};

// A project holding one variation with an empty sweep solution for
// `ports` ports over the settings' band.
std::unique_ptr<CProject> NewSweepProject(const SweepSettings& settings, int ports);
// The settings stored in a project and its sweep solution; false with a
// reason when the project holds no sweep.
bool FindSweep(CProject& project, SweepSettings& settings, CFxemModalSolution*& solution,
               std::string* why);

struct SweepOutcome {
  enum Stop { Converged, BudgetSpent, NoiseFloor, SolverFailed, SaveFailed, Interrupted, Stuck } stop = Converged;
  int solvesThisRun = 0;
  int signal = 0;       // Interrupted: the signal that stopped the sweep (SIGINT, SIGTERM, SIGHUP)
  std::string message;  // why it stopped, for the user
};

// Runs the sweep of `solution` (in `project`, saved to `path` after every
// point) with `solver`. Progress lines go to `progress`. `interrupt` holds
// the number of a signal that asks the sweep to stop, 0 while none came; it
// is polled between solves, and a solve that fails once it is set (an
// external solver watches it too) counts as interrupted, not failed.
SweepOutcome RunSweep(CProject& project, CFxemModalSolution& solution, const SweepSettings& settings,
                      const std::filesystem::path& path, ISweepSolver& solver, std::ostream& progress,
                      const std::atomic<int>* interrupt = nullptr);

// "interrupted by SIGINT (Ctrl-C)" and the like, for messages.
std::string InterruptedBy(int signal);

// The exit status of `sparam sweep` for an outcome: 0 goal met on every
// range, 1 the work failed (solver, save, a stuck proposal), 3 budget spent,
// 4 the data's scatter keeps the goal out of reach, 128 + the signal when
// interrupted (130 SIGINT, 143 SIGTERM, 129 SIGHUP).
int ExitStatus(const SweepOutcome& outcome);

// Keeps every other sweep off one project for as long as it lives: an
// exclusive flock on a lock file beside the project, PROJECT.lock, which
// holds the holder's process id for the message the refused sweep gives.
// The project itself cannot carry the lock: every atomic save replaces its
// inode. The kernel drops a flock when its process ends, however it ends,
// so the file a killed sweep leaves behind never blocks; the descriptor is
// close-on-exec, so a solver process that outlives a killed sweep does not
// hold the lock either.
class SweepLock {
 public:
  // The lock of the project at `project` (a symbolic link is followed, as
  // saving follows it). Null with a one-line reason in `why` when another
  // live process holds it (named by its process id) or the lock file cannot
  // be made.
  static std::unique_ptr<SweepLock> Acquire(const std::filesystem::path& project, std::string* why);
  // Where the lock of `project` lives.
  static std::filesystem::path LockPath(const std::filesystem::path& project);
  // Removes the lock file, then releases the lock.
  ~SweepLock();
  SweepLock(const SweepLock&) = delete;
  SweepLock& operator=(const SweepLock&) = delete;

 private:
  SweepLock(std::filesystem::path path, int fd) : m_Path(std::move(path)), m_Fd(fd) {}
  std::filesystem::path m_Path;
  int m_Fd;
};

// One line per range: its band, its estimated largest error of S and
// whether it met the goal (or the scatter that stopped it).
void PrintRangeSummary(const CFxemModalSolution& solution, std::ostream& out);

}  // namespace sparam
