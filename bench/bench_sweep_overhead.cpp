// The interpolating sweep's own cost per proposed frequency (adding the
// solved point to its range, refitting, estimating the error, choosing the
// next frequency), for a 32-port network with 30 resonances swept with a
// goal it cannot meet, up to 100 solved points. The solve itself (the model)
// is outside the timing. Prints the mean and largest overhead per proposal
// over points 81 to 100.
#include <algorithm>
#include <chrono>
#include <cstdio>

#include "PoleResidueModel.h"
#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/interp/FxemModalSolution.h"

int main() {
  using Clock = std::chrono::steady_clock;
  constexpr int kPorts = 32, kPoints = 100;
  const PoleResidueModel model(kPorts, 30, 11);
  CFxemModalSolution s("Sweep");
  s.SetSolutionType(CNetworkDataSolution::FxemInterpolatingSweep);
  for (int k = 0; k < kPorts; ++k) s.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  auto interp = std::make_unique<CFxemInterpolator>(kPorts);
  interp->SetBand(1e9, 10e9);
  interp->SetErrorTolerance(1e-15);
  s.SetInterpolator(std::move(interp));

  double f = 0.0, total = 0.0, worst = 0.0;
  int counted = 0;
  int status = 0;
  double tolerance = 0.0;
  f = s.GetInterpolator()->GetNextFrequency(status, tolerance);
  for (int k = 1; k <= kPoints && status == 3; ++k) {
    auto point = s.CreateNetworkData();
    point->SetFrequency(f);
    point->SetSMatrix(std::make_unique<TNT::CMatrix>(model.S(f)));
    static_cast<CFxemModalData&>(*point).SetPortImpedance(
        std::make_unique<TNT::CVector>(kPorts, AComplex<double>(50.0)));
    const auto t0 = Clock::now();
    s.AddSweepPoint(std::move(point));
    f = s.GetInterpolator()->GetNextFrequency(status, tolerance);
    const double seconds = std::chrono::duration<double>(Clock::now() - t0).count();
    if (k > kPoints - 20) {
      total += seconds;
      worst = std::max(worst, seconds);
      ++counted;
    }
  }
  std::printf("sweep overhead per proposal, %d ports, points %d to %d (%d ranges): mean %.1f ms, largest %.1f ms\n",
              kPorts, kPoints - 19, kPoints, s.GetInterpolator()->GetNumRanges(), 1e3 * total / counted,
              1e3 * worst);
  return 0;
}
