// `sparam sweep`, `sparam devices` and `sparam demo`: interpolating sweeps
// of a built-in device or an external solver process, written to a project
// point by point.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace sparam {

// The options of `sparam sweep`. Those that are optional here describe the
// sweep itself: a new sweep uses their defaults when they are absent, and a
// resumed one refuses them when they differ from what the project stores.
struct SweepCommandOptions {
  std::string device, solver, start, stop, output, resume;
  std::string maxStep;        // guard: largest gap between solves, with units ("50MHz")
  int minSolves = -1;         // guard: fewest solves in the band; -1: 0, or what a resumed sweep stored
  std::optional<double> noise;         // scatter of a built-in device's answers (none)
  std::optional<std::uint64_t> seed;   // its seed (1)
  std::optional<double> tolerance;     // the goal (1e-3)
  int maxSolves = 0;         // 0: 100, or what a resumed sweep stored
  double solveTimeout = 300;  // seconds per solve of an external solver
  bool force = false;         // --resume with another solver than the project's
};

// The sweep's exit status (ExitStatus in product/Sweep.h: 0 goal met, 1
// failed or refused, 3 budget spent, 4 stopped by the data's scatter, 130,
// 143 or 129 stopped by SIGINT, SIGTERM or SIGHUP), with the reason on
// `err` when the goal was not met; the project then holds every point
// solved so far. The project is locked while the command runs: another
// sweep of it is refused.
int RunSweepCommand(const SweepCommandOptions& options, std::ostream& out, std::ostream& err);

// Sweeps the bandpass filter device into `folder` (project, Touchstone and
// MATLAB files) and reports the solves used, the estimated error and the
// true worst error against the device's response.
int RunDemo(const std::string& folder, std::ostream& out, std::ostream& err);

}  // namespace sparam
