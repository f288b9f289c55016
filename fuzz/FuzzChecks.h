// What every network-file fuzz target asks of a read: a failure is one line
// that names the file and leaves nothing; a success is a solution whose
// every point holds a matrix of the solution's port count and only finite
// numbers (the readers refuse nan and inf), in increasing frequency.
#pragma once

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "sparamlib/solution/NoiseDataSolution.h"

namespace fuzz {

inline bool Finite(const AComplex<double>* v, int count) {
  for (int k = 0; k < count; ++k)
    if (!std::isfinite(v[k].re) || !std::isfinite(v[k].im)) return false;
  return true;
}

inline void CheckRead(const std::unique_ptr<CNetworkModalSolution>& solution, const std::string& error,
                      const std::string& name) {
  if (!solution) {
    if (error.rfind(name + ":", 0) != 0 || error.find('\n') != std::string::npos) std::abort();
    return;
  }
  if (!error.empty()) std::abort();
  const int n = solution->GetNumPorts();
  if (n < 1 || solution->GetNumFrequencies() < 1) std::abort();
  double last = -1.0;
  for (const auto& [f, point] : solution->GetFrequencyMap()) {
    if (!std::isfinite(f) || f < 0.0 || !(f > last)) std::abort();
    last = f;
    const TNT::CMatrix* stored = point->GetSMatrix(false);
    if (!stored) stored = point->GetYMatrix(false);
    if (!stored) stored = point->GetZMatrix(false);
    if (!stored || stored->num_rows() != n || stored->num_cols() != n || !Finite(stored->data(), stored->size()))
      std::abort();
    const auto* modal = dynamic_cast<const CNetworkModalData*>(point.get());
    if (!modal) std::abort();
    for (const TNT::CVector* v : {modal->GetPortImpedance(), modal->GetGamma()})
      if (v && (v->size() != n || !Finite(v->data(), v->size()))) std::abort();
  }
  if (const CNoiseDataSolution* noise = solution->GetNoiseSolution()) {
    for (const auto& [f, p] : noise->GetPoints()) {
      double fmin = 0, mag = 0, ang = 0, rn = 0;
      p->GetNoiseParameters(fmin, mag, ang, rn);
      if (!std::isfinite(f) || !std::isfinite(fmin) || !std::isfinite(mag) || !std::isfinite(ang) ||
          !std::isfinite(rn))
        std::abort();
    }
  }
}

}  // namespace fuzz
