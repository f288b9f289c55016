// A real state-space model of an n-port from a vector fit of its n x n
// entries:
//
//   H(s) = C (sI - A)^-1 B + D + s E,
//
// realised column by column: input port j drives its own copy of the
// shared pole set, so A has ports x poles states and is block diagonal with
// a 1 x 1 block [a] per real pole and a 2 x 2 block [[sigma, omega],
// [-omega, sigma]] per pair sigma +- j omega. A is thus tridiagonal and is
// kept as its three diagonals. For a pair with residue r = rr + j ri on
// entry (i, j) the block's B column is (2, 0) and C row i holds (rr, ri):
// r/(s - a) + conj(r)/(s - conj a) = (2 rr (s - sigma) - 2 ri omega) /
// ((s - sigma)^2 + omega^2), which C (sI - A)^-1 B reproduces.
#pragma once

#include <string>
#include <vector>

#include "math/matrix/MatrixOps.h"
#include "sparamlib/fit/VectorFit.h"

namespace nd {

struct StateSpaceModel {
  int ports = 0;
  int states = 0;
  // A's diagonals: lower[k] = A(k, k-1), diagonal[k] = A(k, k), upper[k] =
  // A(k, k+1); lower[0] and upper[states - 1] are 0.
  std::vector<double> lower, diagonal, upper;
  std::vector<double> b;     // states x ports, row by row
  std::vector<double> c;     // ports x states, row by row
  std::vector<double> d, e;  // ports x ports, row by row
};

// The model of `fit`, whose entries are the n x n matrix row by row (entry
// i * ports + j is H(i, j)). False with the reason when the fit is not
// ok, its entry count is not ports^2, or its poles are not real poles
// followed by pairs (a, conj a).
bool RealiseStateSpace(const VectorFitResult& fit, int ports, StateSpaceModel& model,
                       std::string* why);

// H(s) of the model (s in rad/s; j 2 pi f on the frequency axis).
TNT::CMatrix EvaluateStateSpace(const StateSpaceModel& model, AComplex<double> s);

}  // namespace nd
