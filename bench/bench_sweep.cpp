// Solves used by the interpolating sweep on every built-in device at goals
// 1e-2, 1e-3 and 1e-4, the true worst error of the finished sweep against
// the device's exact response on 2001 frequencies, and, measured in the
// same run, how many uniformly spaced solves cubic-spline interpolation
// (not-a-knot, as scipy and scikit-rf use) needs to reach the goal on the
// same grid. Prints a Markdown table.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sstream>

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

}  // namespace

int main() {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("bench_sweep_" + std::to_string(::getpid()) + ".ndp");
  std::printf("| device | goal | sweep solves | true worst error | uniform + cubic spline solves | ratio |\n");
  std::printf("|---|---|---|---|---|---|\n");
  for (const sparam::CDevice* d : sparam::BuiltInDevices()) {
    const std::vector<double> grid = Grid(d->GetDefaultStart(), d->GetDefaultStop(), kGrid);
    const std::vector<TNT::CMatrix> truth = Truth(*d, grid);
    for (double goal : {1e-2, 1e-3, 1e-4}) {
      sparam::SweepSettings settings{"device:" + std::string(d->GetName()), d->GetDefaultStart(),
                                     d->GetDefaultStop(), goal, 400};
      auto project = sparam::NewSweepProject(settings, d->GetNumPorts());
      CFxemModalSolution* s = nullptr;
      sparam::FindSweep(*project, settings, s, nullptr);
      sparam::DeviceSolver solver(*d);
      std::ostringstream progress;
      const sparam::SweepOutcome outcome = sparam::RunSweep(*project, *s, settings, path, solver, progress);
      double worst = 0.0;
      for (size_t g = 0; g < grid.size(); ++g) {
        CNetworkData* p = s->GetNetworkData(grid[g], 0.0, true);
        if (!p) {
          worst = INFINITY;
          break;
        }
        const TNT::CMatrix& m = *p->GetSMatrix(true);
        for (int e = 0; e < m.size(); ++e) worst = std::max(worst, abs(m.data()[e] - truth[g].data()[e]));
        s->ReleaseNetworkData(grid[g]);
      }
      const int uniform = UniformCount(*d, goal, grid, truth);
      std::printf("| %s | %.0e | %d%s | %.2g%s | %d | %.1fx fewer |\n", std::string(d->GetName()).c_str(), goal,
                  s->GetNumFrequencies(), outcome.stop == sparam::SweepOutcome::Converged ? "" : " (not converged)",
                  worst, worst <= goal ? "" : " (ABOVE GOAL)", uniform,
                  static_cast<double>(uniform) / s->GetNumFrequencies());
      std::fflush(stdout);
    }
  }
  std::filesystem::remove(path);
  return 0;
}
