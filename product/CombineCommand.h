// `sparam combine`: one project from sweeps over adjacent or overlapping
// bands, as a combined-sweep solution (CFxemModalPartitionedSolution).
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace sparam {

struct CombineOptions {
  std::vector<std::string> inputs;  // projects, Touchstone or Citifile files
  std::string output;               // a project (.ndp)
  std::string solution;             // in each input; empty: the first
};

int RunCombine(const CombineOptions& options, std::ostream& out, std::ostream& err);

}  // namespace sparam
