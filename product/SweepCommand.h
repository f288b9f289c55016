// `sparam sweep`, `sparam devices` and `sparam demo`: interpolating sweeps
// of a built-in device or an external solver process, written to a project
// point by point.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace sparam {

struct SweepCommandOptions {
  std::string device, solver, start, stop, output, resume;
  std::string maxStep;        // guard: largest gap between solves, with units ("50MHz")
  int minSolves = -1;         // guard: fewest solves in the band; -1: 0, or what a resumed sweep stored
  double noise = 0.0;         // scatter of a built-in device's answers
  std::uint64_t seed = 1;     // its seed
  double tolerance = 1e-3;
  int maxSolves = 0;         // 0: 100, or what a resumed sweep stored
  double solveTimeout = 300;  // seconds per solve of an external solver
};

// The sweep's exit status (ExitStatus in product/Sweep.h: 0 goal met, 1
// failed, 3 budget spent, 4 stopped by the data's scatter, 130
// interrupted), with the reason on `err` when the goal was not met; the
// project then holds every point solved so far.
int RunSweepCommand(const SweepCommandOptions& options, std::ostream& out, std::ostream& err);

// Sweeps the bandpass filter device into `folder` (project, Touchstone and
// MATLAB files) and reports the solves used, the estimated error and the
// true worst error against the device's response.
int RunDemo(const std::string& folder, std::ostream& out, std::ostream& err);

}  // namespace sparam
