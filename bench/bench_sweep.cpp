// Interpolating sweeps of every built-in device, measured against the
// device's exact response on 2001 frequencies. Two Markdown tables:
//
//  exact data: solves used at goals 1e-2, 1e-3 and 1e-4, the true worst
//    error of the finished sweep and, measured in the same run, how many
//    uniformly spaced solves cubic-spline interpolation (not-a-knot, as scipy
//    and scikit-rf use) needs to reach the goal on the same grid;
//  scattered data: the same goals with the solver's answers scattered by 0,
//    1e-7 and 1e-5 (Gaussian, real and imaginary parts each, seed 1; see
//    DeviceSolver), as real field solvers scatter: solves, how the sweep
//    stopped, the error it claims, the error it has, and whether a converged
//    sweep's claim holds.
//
// Flags (default: both tables, every device):
//   --exact          the exact-data table only
//   --scatter        the scattered-data table only
//   --device NAME    one device only (repeatable)
//   --budget N       solve budget of every sweep (default 400)
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "product/Devices.h"
#include "product/Sweep.h"

namespace {

using C = AComplex<double>;
constexpr int kGrid = 2001;

std::vector<double> Grid(double a, double b, int n) {
  std::vector<double> x;
  for (int k = 0; k < n; ++k) x.push_back(a + (b - a) * k / (n - 1));
  return x;
}

std::vector<TNT::CMatrix> Truth(const sparam::CDevice& d, const std::vector<double>& f) {
  std::vector<TNT::CMatrix> s;
  for (double x : f) {
    SolvedPoint p;
    std::string why;
    d.Evaluate(x, p, &why);
    s.push_back(p.s);
  }
  return s;
}

// Largest |S_ij - truth| of a not-a-knot cubic spline through `n` uniform
// samples, per entry (real and imaginary parts alike).
double SplineError(const sparam::CDevice& d, int n, const std::vector<double>& grid,
                   const std::vector<TNT::CMatrix>& truth) {
  const double a = d.GetDefaultStart(), b = d.GetDefaultStop(), h = (b - a) / (n - 1);
  const std::vector<TNT::CMatrix> y = Truth(d, Grid(a, b, n));
  const int entries = y[0].size();
  double worst = 0.0;
  std::vector<C> M(static_cast<size_t>(n)), r(static_cast<size_t>(n)), c(static_cast<size_t>(n));
  for (int e = 0; e < entries; ++e) {
    auto v = [&](int i) { return y[static_cast<size_t>(i)].data()[e]; };
    for (int i = 1; i + 1 < n; ++i) r[static_cast<size_t>(i)] = (v(i - 1) - v(i) * 2.0 + v(i + 1)) * (6.0 / (h * h));
    // Not-a-knot: M0 - 2 M1 + M2 = 0 (and at the other end) turns the first
    // and last interior rows into 6 M1 = r1 and 6 M(n-2) = r(n-2); the rows
    // between are tridiagonal (1 4 1).
    M[1] = r[1] * (1.0 / 6.0);
    M[static_cast<size_t>(n - 2)] = r[static_cast<size_t>(n - 2)] * (1.0 / 6.0);
    if (n > 4) {
      // Thomas algorithm for rows 2 .. n-3.
      std::vector<double> cp(static_cast<size_t>(n));
      std::vector<C> dp(static_cast<size_t>(n));
      for (int i = 2; i <= n - 3; ++i) {
        C rhs = r[static_cast<size_t>(i)];
        if (i == 2) rhs -= M[1];
        if (i == n - 3) rhs -= M[static_cast<size_t>(n - 2)];
        const double denom = 4.0 - (i == 2 ? 0.0 : cp[static_cast<size_t>(i - 1)]);
        cp[static_cast<size_t>(i)] = 1.0 / denom;
        dp[static_cast<size_t>(i)] = (rhs - (i == 2 ? C() : dp[static_cast<size_t>(i - 1)])) * (1.0 / denom);
      }
      for (int i = n - 3; i >= 2; --i)
        M[static_cast<size_t>(i)] = dp[static_cast<size_t>(i)] -
                                    (i == n - 3 ? C() : M[static_cast<size_t>(i + 1)] * cp[static_cast<size_t>(i)]);
    }
    M[0] = M[1] * 2.0 - M[2];
    M[static_cast<size_t>(n - 1)] = M[static_cast<size_t>(n - 2)] * 2.0 - M[static_cast<size_t>(n - 3)];
    for (size_t g = 0; g < grid.size(); ++g) {
      const int i = std::min(n - 2, static_cast<int>((grid[g] - a) / h));
      const double t = (grid[g] - (a + i * h)) / h, u = 1.0 - t;
      const C s = v(i) * u + v(i + 1) * t +
                  (M[static_cast<size_t>(i)] * (u * u * u - u) + M[static_cast<size_t>(i + 1)] * (t * t * t - t)) *
                      (h * h / 6.0);
      worst = std::max(worst, abs(s - truth[g].data()[e]));
    }
  }
  return worst;
}

// Fewest uniform samples whose spline meets `goal` (doubling, then halving
// the interval; the error falls with n, apart from small wiggles).
int UniformCount(const sparam::CDevice& d, double goal, const std::vector<double>& grid,
                 const std::vector<TNT::CMatrix>& truth) {
  int hi = 4;
  while (SplineError(d, hi, grid, truth) > goal) {
    if (hi > 100000) return -1;
    hi *= 2;
  }
  int lo = hi / 2;
  while (hi - lo > 1) {
    const int mid = (lo + hi) / 2;
    (SplineError(d, mid, grid, truth) > goal ? lo : hi) = mid;
  }
  return hi;
}

struct SweepResult {
  int solves = 0;
  sparam::SweepOutcome outcome;
  double claimed = 0.0;   // largest per-range error the sweep reports
  double scatter = 0.0;   // largest scatter a range measured (S units)
  double trueWorst = 0.0; // against the exact response on the grid
  double seconds = 0.0;
};

// Sweeps `d` at `goal` with answers scattered by `noise` and measures the
// finished sweep on the grid.
SweepResult Sweep(const sparam::CDevice& d, double goal, double noise, std::uint64_t seed, int budget,
                  const std::filesystem::path& path, const std::vector<double>& grid,
                  const std::vector<TNT::CMatrix>& truth) {
  SweepResult result;
  sparam::SweepSettings settings{"device:" + std::string(d.GetName()), d.GetDefaultStart(), d.GetDefaultStop(),
                                 goal, budget};
  auto project = sparam::NewSweepProject(settings, d.GetNumPorts());
  CFxemModalSolution* s = nullptr;
  sparam::FindSweep(*project, settings, s, nullptr);
  sparam::DeviceSolver solver(d, noise, seed);
  std::ostringstream progress;
  const auto t0 = std::chrono::steady_clock::now();
  result.outcome = sparam::RunSweep(*project, *s, settings, path, solver, progress);
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  result.solves = s->GetNumFrequencies();
  // What the range summary prints: a range that met its goal reports its
  // estimate, one that did not the accuracy it reached.
  const CFxemInterpolator& interp = *s->GetInterpolator();
  for (int i = 0; i < interp.GetNumRanges(); ++i) {
    const CAdaptiveInterp* r = interp.GetRangeInterpolator(i);
    const double reported = !r ? INFINITY : r->Check() ? r->GetClaimedError() : r->GetReachedAccuracy();
    result.claimed = std::max(result.claimed, r ? reported * r->GetNormalizingMagnitude() : INFINITY);
  }
  result.scatter = interp.GetNoiseEstimate();
  for (size_t g = 0; g < grid.size(); ++g) {
    CNetworkData* p = s->GetNetworkData(grid[g], 0.0, true);
    if (!p) {
      result.trueWorst = INFINITY;
      break;
    }
    const TNT::CMatrix& m = *p->GetSMatrix(true);
    for (int e = 0; e < m.size(); ++e)
      result.trueWorst = std::max(result.trueWorst, abs(m.data()[e] - truth[g].data()[e]));
    s->ReleaseNetworkData(grid[g]);
  }
  return result;
}

// No default: a new way to stop fails the build here until the table can name it.
const char* StopName(sparam::SweepOutcome::Stop stop) {
  switch (stop) {
    case sparam::SweepOutcome::Converged:
      return "converged";
    case sparam::SweepOutcome::BudgetSpent:
      return "budget";
    case sparam::SweepOutcome::NoiseFloor:
      return "noise floor";
    case sparam::SweepOutcome::SolverFailed:
      return "solver failed";
    case sparam::SweepOutcome::SaveFailed:
      return "save failed";
    case sparam::SweepOutcome::Interrupted:
      return "interrupted";
    case sparam::SweepOutcome::Stuck:
      return "stuck";
  }
  return "?";
}

[[noreturn]] void Usage(const char* why) {
  std::fprintf(stderr, "bench_sweep: %s\nusage: bench_sweep [--exact] [--scatter] [--device NAME]... [--budget N]\n",
               why);
  std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
  bool exact = false, scatter = false;
  int budget = 400;
  std::vector<const sparam::CDevice*> devices;
  for (int a = 1; a < argc; ++a) {
    if (std::strcmp(argv[a], "--exact") == 0) {
      exact = true;
    } else if (std::strcmp(argv[a], "--scatter") == 0) {
      scatter = true;
    } else if (std::strcmp(argv[a], "--device") == 0 && a + 1 < argc) {
      const sparam::CDevice* d = sparam::FindDevice(argv[++a]);
      if (!d) Usage((std::string("no device ") + argv[a]).c_str());
      devices.push_back(d);
    } else if (std::strcmp(argv[a], "--budget") == 0 && a + 1 < argc) {
      budget = std::atoi(argv[++a]);
      if (budget < 4) Usage("the budget must be at least 4");
    } else {
      Usage((std::string("unknown argument ") + argv[a]).c_str());
    }
  }
  if (!exact && !scatter) exact = scatter = true;
  if (devices.empty()) devices = sparam::BuiltInDevices();

  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("bench_sweep_" + std::to_string(::getpid()) + ".ndp");
  constexpr double kGoals[] = {1e-2, 1e-3, 1e-4};
  if (exact) {
    std::printf("| device | goal | sweep solves | true worst error | uniform + cubic spline solves | ratio |\n");
    std::printf("|---|---|---|---|---|---|\n");
    for (const sparam::CDevice* d : devices) {
      const std::vector<double> grid = Grid(d->GetDefaultStart(), d->GetDefaultStop(), kGrid);
      const std::vector<TNT::CMatrix> truth = Truth(*d, grid);
      for (double goal : kGoals) {
        const SweepResult r = Sweep(*d, goal, 0.0, 0, budget, path, grid, truth);
        const int uniform = UniformCount(*d, goal, grid, truth);
        std::printf("| %s | %.0e | %d%s | %.2g%s | %d | %.1fx fewer |\n", std::string(d->GetName()).c_str(), goal,
                    r.solves, r.outcome.stop == sparam::SweepOutcome::Converged ? "" : " (not converged)",
                    r.trueWorst, r.trueWorst <= goal ? "" : " (ABOVE GOAL)", uniform,
                    static_cast<double>(uniform) / r.solves);
        std::fflush(stdout);
      }
    }
  }
  if (scatter) {
    if (exact) std::printf("\n");
    // Claimed: the largest error the range summary reports. "claim true?"
    // asks of a converged sweep whether its true worst error is within the
    // goal; a sweep that stopped otherwise claims no goal.
    std::printf("| device | goal | scatter | solves | stopped | claimed error | measured scatter | true worst error "
                "| claim true? | sweep s |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
    constexpr std::uint64_t kSeed = 1;
    for (const sparam::CDevice* d : devices) {
      const std::vector<double> grid = Grid(d->GetDefaultStart(), d->GetDefaultStop(), kGrid);
      const std::vector<TNT::CMatrix> truth = Truth(*d, grid);
      for (double goal : kGoals)
        for (double noise : {0.0, 1e-7, 1e-5}) {
          const SweepResult r = Sweep(*d, goal, noise, kSeed, budget, path, grid, truth);
          const bool converged = r.outcome.stop == sparam::SweepOutcome::Converged;
          std::string stopped = StopName(r.outcome.stop);
          // The usual stops speak for themselves; the others need their reason.
          using Stop = sparam::SweepOutcome;
          if (r.outcome.stop != Stop::Converged && r.outcome.stop != Stop::BudgetSpent &&
              r.outcome.stop != Stop::NoiseFloor)
            stopped += ": " + r.outcome.message;
          std::printf("| %s | %.0e | %.0e | %d | %s | %.2g | %.2g | %.2g | %s | %.2f |\n",
                      std::string(d->GetName()).c_str(), goal, noise, r.solves, stopped.c_str(), r.claimed,
                      r.scatter, r.trueWorst, !converged ? "-" : r.trueWorst <= goal ? "yes" : "NO", r.seconds);
          std::fflush(stdout);
        }
    }
  }
  std::filesystem::remove(path);
  return 0;
}
