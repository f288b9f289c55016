// `sparam sweep`, `sparam devices` and `sparam demo`: interpolating sweeps
// of a built-in device or an external solver process, written to a project
// point by point.
#pragma once

#include <iosfwd>
#include <string>

namespace sparam {

struct SweepCommandOptions {
  std::string device, solver, start, stop, output, resume;
  double tolerance = 1e-3;
  int maxSolves = 0;         // 0: 100, or what a resumed sweep stored
  double solveTimeout = 300;  // seconds per solve of an external solver
};

// 0 when the error goal was met; 1 with the reason on `err` otherwise
// (the project then holds every point solved so far).
int RunSweepCommand(const SweepCommandOptions& options, std::ostream& out, std::ostream& err);

// Sweeps the bandpass filter device into `folder` (project, Touchstone and
// MATLAB files) and reports the solves used, the estimated error and the
// true worst error against the device's response.
int RunDemo(const std::string& folder, std::ostream& out, std::ostream& err);

}  // namespace sparam
