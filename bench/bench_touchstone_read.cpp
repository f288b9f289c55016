// Touchstone reading: a 32-port, 1001-frequency file (MA, 8 digits, as our
// writer lays it out, about 40 MB) read into a solution, checked against the
// data it was written from before it is timed; and the peak memory of one
// read next to the data the solution then holds.
//   bench_touchstone_read                     Google Benchmark (BM_ReadTouchstone)
//   bench_touchstone_read --make FILE         writes the benchmark file
//   bench_touchstone_read --read-peak FILE    reads FILE once; prints bytes held
//                                             and the growth of the peak resident set
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>

#include <unistd.h>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/formats/TouchstoneReader.h"
#include "support/RandomNetwork.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

constexpr int kPorts = 32;
constexpr int kPoints = 1001;

std::unique_ptr<CNetworkDataSolution> Source() {
  std::mt19937_64 rng(1);
  return testing_support::RandomSolution("Sweep", kPorts, kPoints, rng);
}

void Make(const CNetworkDataSolution& source, const fs::path& path) {
  auto copy = source.Clone();
  std::vector<double> frequencies;
  for (const auto& [f, p] : copy->GetFrequencyMap()) frequencies.push_back(f);
  nd::WriteTouchstoneFile(path.string(), *copy, frequencies, "Bench", false, 50.0, nd::kMagnitudeAngle,
                          nd::kSMatrix, 8, false, false, nullptr);
}

// KiB of a /proc/self/status field.
long Status(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind(field, 0) == 0) return std::stol(line.substr(std::strlen(field)));
  return -1;
}

// Matrices and port vectors the solution holds.
size_t BytesHeld(const CNetworkDataSolution& s) {
  size_t bytes = s.GetMemorySize();
  for (const auto& [f, p] : s.GetFrequencyMap()) {
    for (int kind : {nd::kPortImpedances, nd::kPropagationConstants})
      if (const auto* v = p->GetPortVector(kind)) bytes += sizeof(AComplex<double>) * static_cast<size_t>(v->dim());
  }
  return bytes;
}

void BM_ReadTouchstone(benchmark::State& state) {
  const auto source = Source();
  const fs::path path =
      fs::temp_directory_path() / ("bench_touchstone_read_" + std::to_string(::getpid()) + ".s32p");
  Make(*source, path);
  const auto bytes = static_cast<int64_t>(fs::file_size(path));

  // Check what is read before timing it: every S at the printed 8 digits.
  std::string error;
  auto read = nd::ReadTouchstoneFile(path, &error);
  if (!read || read->GetNumFrequencies() != kPoints) {
    state.SkipWithError(("read failed: " + error).c_str());
    return;
  }
  auto it = read->GetFrequencyMap().begin();
  for (const auto& [f, p] : source->GetFrequencyMap()) {
    const TNT::CMatrix& want = *p->GetSMatrix(false);
    if (testing_support::MaxAbsDiff(*it++->second->GetSMatrix(false), want) > 1e-6 * testing_support::MaxAbs(want)) {
      state.SkipWithError("the S read differs from the S written beyond 8 digits");
      return;
    }
  }
  read.reset();

  for (auto _ : state) {
    auto solution = nd::ReadTouchstoneFile(path, &error);
    benchmark::DoNotOptimize(solution.get());
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.counters["file_bytes"] = static_cast<double>(bytes);
  std::error_code ec;
  fs::remove(path, ec);
}
BENCHMARK(BM_ReadTouchstone)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--make") == 0) {
    Make(*Source(), argv[2]);
    std::cout << fs::file_size(argv[2]) << "\n";
    return 0;
  }
  if (argc == 3 && std::strcmp(argv[1], "--read-peak") == 0) {
    const long before = Status("VmRSS:");
    std::string error;
    auto solution = nd::ReadTouchstoneFile(argv[2], &error);
    if (!solution) {
      std::cerr << error << "\n";
      return 1;
    }
    const long peak = Status("VmHWM:");
    const double held = static_cast<double>(BytesHeld(*solution));
    std::cout << "{\"file_bytes\":" << fs::file_size(argv[2]) << ",\"held_bytes\":" << held
              << ",\"rss_before_kib\":" << before << ",\"peak_kib\":" << peak
              << ",\"peak_growth_over_held\":" << (peak - before) * 1024.0 / held << "}\n";
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
