// ISweepSolver: what an interpolating sweep asks of a solver. A solver
// solves one frequency at a time and hands back the scattering matrix with,
// optionally, the port impedances and propagation constants of its port
// modes. Built-in analytic devices and external solver processes implement
// it.
#pragma once

#include <optional>
#include <string>

#include "math/matrix/MatrixOps.h"

struct SolvedPoint {
  double frequency = 0.0;  // Hz, as solved (may differ from the request within its tolerance)
  TNT::CMatrix s;          // n x n
  std::optional<TNT::CVector> portImpedance;  // ohms, one per port; absent: 50 ohms
  std::optional<TNT::CVector> gamma;          // propagation constants, one per port
  // The ports' characteristic impedances by the power-voltage and the
  // voltage-current definition, when the solver computes them.
  std::optional<TNT::CVector> zpv, zvi;
};

class ISweepSolver {
 public:
  virtual ~ISweepSolver() = default;
  // Number of ports of every answer.
  virtual int GetNumPorts() const = 0;
  // Solves at `frequency` (Hz); `tolerance` (Hz) says how far from it the
  // solver may move. False with a one-line reason in `why` when the solve
  // failed; the sweep then stops and keeps what it has.
  virtual bool Solve(double frequency, double tolerance, SolvedPoint& out, std::string* why) = 0;
  // A short description for progress and summaries ("device bandpass",
  // "solver python3 mysolver.py").
  virtual std::string Describe() const = 0;
};
