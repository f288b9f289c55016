// SolveLinear against LAPACK's zgesv on the same random complex systems,
// B = identity (n right-hand sides, as in S -> Y/Z) and B = one column.
// Each pair first checks that both give the same X, then times it; the run
// ends with a table of the median times and the ratio to zgesv.
//
//   build-b/bench/bench_solve --benchmark_repetitions=5
//       --benchmark_report_aggregates_only=true [--kernels=baseline]
//
// --kernels=baseline times the x86-64 baseline kernels even on a CPU with
// AVX2, so both sets can be compared from one build.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "math/matrix/MatrixOps.h"

namespace TNT::detail {
bool AllowAvx2SolveKernels(bool allow);  // SolveLinear.cpp
}

extern "C" void zgesv_(const int* n, const int* nrhs, TNT::Complex* a, const int* lda, int* ipiv,
                       TNT::Complex* b, const int* ldb, int* info);

namespace {

using TNT::CMatrix;
using TNT::Complex;

enum class Rhs { kIdentity, kColumn };

const char* RhsName(Rhs rhs) { return rhs == Rhs::kIdentity ? "identity" : "column"; }

// One system in both layouts: row-major for SolveLinear, column-major for zgesv.
struct System {
  CMatrix A, B;
  std::vector<Complex> a_cm, b_cm;
};

// Entries uniform in the unit square: such matrices are well conditioned
// (condition numbers of order n) and pivoting still moves rows around.
System MakeSystem(int n, Rhs rhs) {
  std::mt19937_64 gen(0x5eed0000u + static_cast<unsigned>(n) * 2u + (rhs == Rhs::kColumn ? 1u : 0u));
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  System s;
  s.A = CMatrix(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) s.A[i][j] = Complex(u(gen), u(gen));
  if (rhs == Rhs::kIdentity) {
    s.B = TNT::Identity(n);
  } else {
    s.B = CMatrix(n, 1);
    for (int i = 0; i < n; ++i) s.B[i][0] = Complex(u(gen), u(gen));
  }
  const int m = s.B.num_cols();
  s.a_cm.resize(static_cast<size_t>(n) * n);
  s.b_cm.resize(static_cast<size_t>(n) * m);
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) s.a_cm[static_cast<size_t>(j) * n + i] = s.A[i][j];
    for (int j = 0; j < m; ++j) s.b_cm[static_cast<size_t>(j) * n + i] = s.B[i][j];
  }
  return s;
}

// Solves with zgesv on scratch copies (zgesv overwrites A and B); the
// solution is left in b, column-major.
int RunZgesv(const System& s, std::vector<Complex>& a, std::vector<Complex>& b, std::vector<int>& ipiv) {
  const int n = s.A.num_rows();
  const int m = s.B.num_cols();
  std::copy(s.a_cm.begin(), s.a_cm.end(), a.begin());
  std::copy(s.b_cm.begin(), s.b_cm.end(), b.begin());
  int info = 0;
  zgesv_(&n, &m, a.data(), &n, ipiv.data(), b.data(), &n, &info);
  return info;
}

// Relative max-norm difference of the two solutions, or a message on failure.
bool SameSolution(const System& s, std::string& why) {
  const int n = s.A.num_rows();
  const int m = s.B.num_cols();
  CMatrix X;
  const int status = TNT::SolveLinear(s.A, s.B, X);
  std::vector<Complex> a(s.a_cm.size()), b(s.b_cm.size());
  std::vector<int> ipiv(static_cast<size_t>(n));
  const int info = RunZgesv(s, a, b, ipiv);
  if (status != 0 || info != 0) {
    why = "SolveLinear status " + std::to_string(status) + ", zgesv info " + std::to_string(info);
    return false;
  }
  double diff = 0.0, scale = 0.0;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < m; ++j) {
      const Complex ref = b[static_cast<size_t>(j) * n + i];
      diff = std::max(diff, abs(X[i][j] - ref));
      scale = std::max(scale, abs(ref));
    }
  if (!(diff <= 1e-10 * scale)) {
    why = "solutions differ: max |dX| = " + std::to_string(diff) + ", max |X| = " + std::to_string(scale);
    return false;
  }
  return true;
}

void BM_SolveLinear(benchmark::State& state, Rhs rhs) {
  const System s = MakeSystem(static_cast<int>(state.range(0)), rhs);
  std::string why;
  if (!SameSolution(s, why)) {
    state.SkipWithError(why.c_str());
    return;
  }
  // A fresh X per call, as the conversions use it: its allocation is part of
  // the cost.
  for (auto _ : state) {
    CMatrix X;
    const int status = TNT::SolveLinear(s.A, s.B, X);
    benchmark::DoNotOptimize(status);
    benchmark::DoNotOptimize(X.data());
    benchmark::ClobberMemory();
  }
}

void BM_Zgesv(benchmark::State& state, Rhs rhs) {
  const System s = MakeSystem(static_cast<int>(state.range(0)), rhs);
  std::string why;
  if (!SameSolution(s, why)) {
    state.SkipWithError(why.c_str());
    return;
  }
  // Work arrays allocated once; only the copies zgesv needs are timed with it.
  std::vector<Complex> a(s.a_cm.size()), b(s.b_cm.size());
  std::vector<int> ipiv(static_cast<size_t>(s.A.num_rows()));
  for (auto _ : state) {
    const int info = RunZgesv(s, a, b, ipiv);
    benchmark::DoNotOptimize(info);
    benchmark::DoNotOptimize(b.data());
    benchmark::ClobberMemory();
  }
}

constexpr int kOrders[] = {2, 4, 8, 16, 32, 64, 100};

// Console output as usual, plus the ratio table once every run is in. With
// repetitions the median is used, otherwise the single run.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.run_type == Run::RT_Aggregate && !median) continue;
      const std::string key = run.run_name.function_name + "/" + run.run_name.args;
      if (median || from_median_.count(key) == 0) {
        times_[key] = run.GetAdjustedRealTime() * Multiplier(run.time_unit);
        if (median) from_median_.insert(key);
      }
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-9s %5s %16s %16s %8s\n", "B", "n", "SolveLinear ns", "zgesv ns", "ratio");
    for (Rhs rhs : {Rhs::kIdentity, Rhs::kColumn}) {
      for (int n : kOrders) {
        const std::string suffix = std::string(RhsName(rhs)) + "/" + std::to_string(n);
        const auto ours = times_.find("SolveLinear/" + suffix);
        const auto peer = times_.find("zgesv/" + suffix);
        if (ours == times_.end() || peer == times_.end()) continue;
        std::printf("%-9s %5d %16.1f %16.1f %8.2f\n", RhsName(rhs), n, ours->second, peer->second,
                    ours->second / peer->second);
      }
    }
  }

 private:
  static double Multiplier(benchmark::TimeUnit unit) {
    switch (unit) {
      case benchmark::kSecond: return 1e9;
      case benchmark::kMillisecond: return 1e6;
      case benchmark::kMicrosecond: return 1e3;
      default: return 1.0;
    }
  }
  std::map<std::string, double> times_;
  std::set<std::string> from_median_;
};

// Which LAPACK answered and which of our kernel sets ran: the ratio means
// little without them.
void PrintContext(bool avx2) {
  Dl_info info{};
  std::string lapack = "unknown";
  if (dladdr(reinterpret_cast<void*>(&zgesv_), &info) != 0 && info.dli_fname != nullptr) {
    lapack = info.dli_fname;
    if (char* real = realpath(info.dli_fname, nullptr)) {
      lapack += std::string(" -> ") + real;
      std::free(real);
    }
  }
  std::printf("zgesv from: %s\ncompiler: %s%s\nSolveLinear kernels: %s\n", lapack.c_str(), __VERSION__,
#if defined(__OPTIMIZE__) && defined(NDEBUG)
              ", optimised, NDEBUG",
#else
              ", NOT an optimised release build",
#endif
              avx2 ? "AVX2 from n = 5, baseline below" : "x86-64 baseline");
}

}  // namespace

int main(int argc, char** argv) {
  bool allow_avx2 = true;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--kernels=baseline")
      allow_avx2 = false;
    else
      argv[kept++] = argv[i];
  }
  argc = kept;
  const bool avx2 = TNT::detail::AllowAvx2SolveKernels(allow_avx2);
  for (Rhs rhs : {Rhs::kIdentity, Rhs::kColumn}) {
    for (int n : kOrders) {
      const std::string kind = RhsName(rhs);
      benchmark::RegisterBenchmark(("SolveLinear/" + kind).c_str(), BM_SolveLinear, rhs)->Arg(n);
      benchmark::RegisterBenchmark(("zgesv/" + kind).c_str(), BM_Zgesv, rhs)->Arg(n);
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  PrintContext(avx2);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
