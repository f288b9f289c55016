// `sparam interp`: interpolates a solution of a project with a chosen
// method, either switching the solution to it (and, for barycentric
// interpolation, storing the weights with it) or writing an interpolated
// copy at chosen frequencies, as a project or an export file.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "sparamlib/solution/NetworkDataSolution.h"

namespace sparam {

// `source` with `method` (InterpolateNeville or InterpolateBRI) as its
// solution type; barycentric weights are computed unless the source holds
// weights for exactly its solved frequencies. Null with a reason on failure.
std::unique_ptr<CNetworkDataSolution> WithInterpolation(const CNetworkDataSolution& source,
                                                        CNetworkDataSolution::SolutionType method,
                                                        std::string* why);

// A solution of the same kind whose points are `source` read at
// `frequencies` (solved points where they lie within the standard
// tolerance, interpolated ones with their error estimate elsewhere); a
// discrete sweep. `source` keeps no interpolated point afterwards. Null,
// with the first frequency that could not be had, on failure.
std::unique_ptr<CNetworkDataSolution> InterpolatedCopy(CNetworkDataSolution& source,
                                                       const std::vector<double>& frequencies,
                                                       std::string* why);

struct InterpOptions {
  std::string project, output, method = "bri", solution, freq;
  size_t variation = 1;  // from 1
};

// The command: 0 on success, 1 with a message on `err` otherwise; an
// output that is the input project itself (by name or link) is refused.
int RunInterp(const InterpOptions& options, std::ostream& out, std::ostream& err);

}  // namespace sparam
