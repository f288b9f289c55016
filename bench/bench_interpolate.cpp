// Interpolation of a 32-port solution with 50 solved points onto 10,001
// frequencies: barycentric weights (fit once, then evaluation) and the
// Neville-type tableau (quadratic in the solved points, so timed on fewer
// frequencies and at 10, 20 and 50 points). The data is a pole-residue
// model with 6 resonances of Q 8 to 40 in 1-10 GHz, so every method's
// worst error against the model is reported beside its time.
// bench/compare_interpolate.py sets scikit-rf's cubic interpolation of the
// same data beside it; with --write DIR the program leaves the 50 solved
// points (Touchstone, 17 digits) and the model's values at every 100th
// target frequency there for it. The barycentric weight fit alone is also
// timed at 200 solved points (a long sweep's solution), on the exact model
// ("bri_fit_200") and with every answer scattered by 1e-6 as a field
// solver's are ("bri_fit_200_scattered": the fit cannot converge and runs
// its longest); --fit-only measures just those. Prints one JSON object.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "PoleResidueModel.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/interp/BRIInterpolateVisitor.h"
#include "sparamlib/solution/NetworkModalSolution.h"

namespace {

using C = AComplex<double>;
using Clock = std::chrono::steady_clock;

constexpr int kPorts = 32, kPoints = 50, kTargets = 10001;
constexpr double kStart = 1e9, kStop = 10e9;

// `points` uniformly spaced solved points of the model; with noise > 0 every
// S entry's real and imaginary parts are scattered by N(0, noise^2), as a
// field solver's answers are (fixed seed).
std::unique_ptr<CNetworkModalSolution> Solved(const PoleResidueModel& model, int points, double noise = 0.0) {
  std::mt19937_64 rng(1);
  std::normal_distribution<double> scatter(0.0, noise > 0.0 ? noise : 1.0);
  auto s = std::make_unique<CNetworkModalSolution>("Sweep");
  for (int k = 0; k < kPorts; ++k) s->AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  for (int k = 0; k < points; ++k) {
    auto point = s->CreateNetworkData();
    point->SetFrequency(kStart + (kStop - kStart) * k / (points - 1));
    point->SetDataType(CNetworkData::ExactPoint);
    auto sm = std::make_unique<TNT::CMatrix>(model.S(point->GetFrequency()));
    if (noise > 0.0)
      for (int e = 0; e < sm->size(); ++e) sm->data()[e] += C(scatter(rng), scatter(rng));
    point->SetSMatrix(std::move(sm));
    static_cast<CNetworkModalData&>(*point).SetPortImpedance(
        std::make_unique<TNT::CVector>(kPorts, C(50.0)));
    s->AddNetworkData(std::move(point));
  }
  return s;
}

double Target(int k, int count) { return kStart + (kStop - kStart) * k / (count - 1); }

struct Run {
  double seconds = 0.0, worst = 0.0;
  int frequencies = 0;
};

// Reads `count` of the target frequencies (every `stride`-th) the way a
// writer does, point by point, releasing each; the worst error against
// the model is checked on every 100th target outside the timing.
Run Interpolate(CNetworkDataSolution& s, const PoleResidueModel& model, int stride) {
  Run run;
  const auto t0 = Clock::now();
  for (int k = 0; k < kTargets; k += stride, ++run.frequencies) {
    const double f = Target(k, kTargets);
    CNetworkData* p = s.GetNetworkData(f, 0.0, true);
    if (!p || !p->GetSMatrix(false)) {
      std::fprintf(stderr, "no data at %.17g Hz\n", f);
      std::exit(1);
    }
    s.ReleaseNetworkData(f);
  }
  run.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
  for (int k = 0; k < kTargets; k += std::max(stride, 100)) {
    const double f = Target(k, kTargets);
    const TNT::CMatrix truth = model.S(f);
    const TNT::CMatrix& got = *s.GetNetworkData(f, 0.0, true)->GetSMatrix(false);
    for (int e = 0; e < truth.size(); ++e) run.worst = std::max(run.worst, abs(got.data()[e] - truth.data()[e]));
    s.ReleaseNetworkData(f);
  }
  return run;
}

void WritePeerFiles(const std::string& dir, CNetworkDataSolution& solved, const PoleResidueModel& model) {
  std::vector<double> fs;
  for (const auto& [f, p] : solved.GetFrequencyMap()) fs.push_back(f);
  nd::WriteTouchstoneFile(dir + "/solved.s32p", solved, fs, "bench", false, 50.0,
                          nd::kRealImaginary, nd::kSMatrix, 17, false, false, nullptr);
  // The model at every 100th target, same format.
  CNetworkModalSolution truth("Truth");
  for (int k = 0; k < kPorts; ++k) truth.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  std::vector<double> checks;
  for (int k = 0; k < kTargets; k += 100) {
    auto point = truth.CreateNetworkData();
    point->SetFrequency(Target(k, kTargets));
    point->SetSMatrix(std::make_unique<TNT::CMatrix>(model.S(point->GetFrequency())));
    static_cast<CNetworkModalData&>(*point).SetPortImpedance(std::make_unique<TNT::CVector>(kPorts, C(50.0)));
    checks.push_back(point->GetFrequency());
    truth.AddNetworkData(std::move(point));
  }
  nd::WriteTouchstoneFile(dir + "/truth.s32p", truth, checks, "bench", false, 50.0,
                          nd::kRealImaginary, nd::kSMatrix, 17, false, false, nullptr);
}

// The weight fit of `points` solved points of the same model, timed alone
// (each of `repeats` runs on a fresh solution, so nothing is cached), and the
// worst error of the fitted weights on every 100th target.
void PrintFit(const char* name, const PoleResidueModel& model, int points, double noise, int repeats) {
  std::vector<double> runs;
  std::unique_ptr<CNetworkModalSolution> s;
  for (int r = 0; r < repeats; ++r) {
    s = Solved(model, points, noise);
    s->SetSolutionType(CNetworkDataSolution::InterpolateBRI);
    const auto t0 = Clock::now();
    auto weights = nd::ComputeBRIWeights(*s);
    runs.push_back(std::chrono::duration<double>(Clock::now() - t0).count());
    if (!weights) {
      std::fprintf(stderr, "no weights for %d points\n", points);
      std::exit(1);
    }
    s->SetBRIWeights(std::move(weights));
  }
  const Run check = Interpolate(*s, model, 100);
  std::printf("\"%s\": {\"points\": %d, \"scatter\": %g, \"support\": %zu, \"best_s\": %.4g, \"runs_s\": [",
              name, points, noise, s->GetBRIWeights()->GetSupportFrequencies().size(),
              *std::min_element(runs.begin(), runs.end()));
  for (size_t r = 0; r < runs.size(); ++r) std::printf("%s%.4g", r ? ", " : "", runs[r]);
  std::printf("], \"worst\": %.3g}", check.worst);
}

}  // namespace

int main(int argc, char** argv) {
  const PoleResidueModel model(kPorts, 6, 7);
  if (argc == 2 && std::strcmp(argv[1], "--fit-only") == 0) {
    std::printf("{\"ports\": %d,\n ", kPorts);
    PrintFit("bri_fit_200", model, 200, 0.0, 3);
    std::printf(",\n ");
    PrintFit("bri_fit_200_scattered", model, 200, 1e-6, 3);
    std::printf("}\n");
    return 0;
  }
  auto s = Solved(model, kPoints);
  if (argc == 3 && std::strcmp(argv[1], "--write") == 0) WritePeerFiles(argv[2], *s, model);

  // Barycentric: fit once, then evaluate (best of 3).
  s->SetSolutionType(CNetworkDataSolution::InterpolateBRI);
  auto t0 = Clock::now();
  s->SetBRIWeights(nd::ComputeBRIWeights(*s));
  const double fit = std::chrono::duration<double>(Clock::now() - t0).count();
  Run bri;
  for (int r = 0; r < 3; ++r) {
    const Run run = Interpolate(*s, model, 1);
    if (r == 0 || run.seconds < bri.seconds) bri = run;
  }
  std::printf("{\"ports\": %d, \"points\": %d, \"targets\": %d,\n", kPorts, kPoints, kTargets);
  std::printf(" \"bri\": {\"fit_s\": %.4g, \"support\": %zu, \"eval_s\": %.4g, \"worst\": %.3g},\n", fit,
              s->GetBRIWeights()->GetSupportFrequencies().size(), bri.seconds, bri.worst);

  // Neville: every 50th target (201 frequencies), at 10, 20 and 50 points.
  std::printf(" \"neville\": [");
  const char* sep = "";
  for (int points : {10, 20, 50}) {
    auto n = Solved(model, points);
    n->SetSolutionType(CNetworkDataSolution::InterpolateNeville);
    const Run run = Interpolate(*n, model, 50);
    std::printf("%s\n  {\"points\": %d, \"frequencies\": %d, \"seconds\": %.4g, \"per_frequency_s\": %.4g, "
                "\"worst\": %.3g}",
                sep, points, run.frequencies, run.seconds, run.seconds / run.frequencies, run.worst);
    sep = ",";
  }
  std::printf("],\n ");
  PrintFit("bri_fit_200", model, 200, 0.0, 3);
  std::printf(",\n ");
  PrintFit("bri_fit_200_scattered", model, 200, 1e-6, 3);
  std::printf("}\n");
  return 0;
}
