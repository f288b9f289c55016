// ExportPlan: everything an export decides before it writes a byte. The
// points to write are copied out of the solution (interpolated where asked,
// with the setup's renormalisation applied, renormalised again where the
// file must state one reference) into a solution of their own, so that the
// writers see exactly what the file will say, and the project's solution is
// left as the export found it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "product/ExportNetworkDataCmd.h"
#include "sparamlib/solution/NetworkDataSolution.h"

namespace sparam {

struct ExportPlan {
  // The points to write, each at its own frequency, and nothing else.
  std::unique_ptr<CNetworkDataSolution> data;
  std::vector<double> frequencies;  // those points' frequencies, increasing
  // The real impedance every port's S is referred to, when there is one.
  std::optional<double> reference;
  // Touchstone 2.0 only: one constant real reference per port.
  std::vector<double> portReferences;
  // The data keep port impedances that no option line can state
  // (--no-renorm): Touchstone then lists them behind each record.
  bool keepsPortImpedances = false;
  // MATLAB: the requested quantities that at least one point has.
  std::vector<int> quantities;
  // Lines for standard error: what was done to the data, what was left out.
  std::vector<std::string> notes;
};

// True when the request writes Touchstone 2.0 (.ts files, and every Y or Z
// Touchstone file: version 1 has no way to say they are not normalised).
bool WritesTouchstone2(const ExportRequest& request);

// Decides the plan for exporting `solution` as `request` asks. False with a
// one-line reason when the request cannot be written truthfully.
bool PlanExport(CNetworkDataSolution& solution, const ExportRequest& request, ExportPlan& plan,
                std::string* error);

}  // namespace sparam
