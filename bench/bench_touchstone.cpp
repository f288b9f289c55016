// Touchstone export throughput: 1001 frequencies x 32 ports, MA, 8 digits,
// to a temporary file (the case bench/compare_touchstone.py sets beside
// scikit-rf), and the cost of one number in the writer's value format, fast
// path against snprintf.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <unistd.h>

#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/formats/NumberFormat.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

// The first data line as snprintf lays it out: frequency, then the first
// four entries of row 1 as magnitude and angle.
std::string ReferenceFirstLine(CNetworkDataSolution& s, double f) {
  const TNT::CMatrix& m = *s.GetNetworkData(f, 0.0, false)->GetSMatrix();
  char buf[64];
  std::snprintf(buf, sizeof buf, "%-16.8G ", f / 1e9);
  std::string line = buf;
  for (int j = 0; j < 4; ++j) {
    for (double v :
         {std::hypot(m[0][j].re, m[0][j].im), std::atan2(m[0][j].im, m[0][j].re) * 180.0 / M_PI}) {
      std::snprintf(buf, sizeof buf, "%-16.8G ", v);
      line += buf;
    }
  }
  return line;
}

void BM_WriteTouchstone(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  const int points = static_cast<int>(state.range(1));
  std::mt19937_64 rng(1);
  auto s = testing_support::RandomSolution("Sweep", ports, points, rng);
  std::vector<double> frequencies;
  for (const auto& [f, p] : s->GetFrequencyMap()) frequencies.push_back(f);
  const fs::path path =
      fs::temp_directory_path() / ("bench_touchstone_" + std::to_string(::getpid()) + ".snp");

  // Check the output before timing it.
  nd::WriteTouchstoneFile(path.string(), *s, frequencies, "Bench", false, 50.0, nd::kMagnitudeAngle,
                          nd::kSMatrix, 8, false, false, nullptr);
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line) && (line.empty() || line[0] == '!' || line[0] == '#')) {
  }
  if (line != ReferenceFirstLine(*s, frequencies.front())) {
    state.SkipWithError("first data line differs from snprintf's layout");
    return;
  }
  const auto bytes = static_cast<int64_t>(fs::file_size(path));

  for (auto _ : state) {
    // A new file each time, as an export makes: rewriting a truncated file
    // costs a forced write-back on some file systems that exports never see.
    state.PauseTiming();
    fs::remove(path);
    state.ResumeTiming();
    nd::WriteTouchstoneFile(path.string(), *s, frequencies, "Bench", false, 50.0,
                            nd::kMagnitudeAngle, nd::kSMatrix, 8, false, false, nullptr);
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.counters["file_bytes"] = static_cast<double>(bytes);
  std::error_code ec;
  fs::remove(path, ec);
}
BENCHMARK(BM_WriteTouchstone)->Args({32, 1001})->Unit(benchmark::kMillisecond);

// One value in "%-16.8G " for random magnitudes and angles.
template <bool kFast>
void BM_FormatValue(benchmark::State& state) {
  std::mt19937_64 rng(1);
  std::uniform_real_distribution<double> u(-180.0, 180.0);
  std::vector<double> values(4096);
  for (double& v : values) v = u(rng) * (rng() % 2 ? 1.0 : 1e-3);
  const nd::CNumberFormat format("%-16.8G ");
  std::string out;
  char buf[64];
  size_t k = 0;
  for (auto _ : state) {
    const double v = values[k++ & 4095];
    if constexpr (kFast) {
      out.clear();
      format.Append(out, v);
      benchmark::DoNotOptimize(out.data());
    } else {
      benchmark::DoNotOptimize(std::snprintf(buf, sizeof buf, "%-16.8G ", v));
    }
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FormatValue<true>)->Name("BM_FormatValue/fast");
BENCHMARK(BM_FormatValue<false>)->Name("BM_FormatValue/snprintf");

}  // namespace

BENCHMARK_MAIN();
