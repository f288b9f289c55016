// Save and load throughput of a 1001-point, 32-port project (about a million
// complex entries), and the peak memory of a load.
//   bench_project                      Google Benchmark: save and load MB/s
//   bench_project --load-peak FILE     loads FILE once; prints its size and the
//                                      peak resident memory of the process
//   bench_project --make FILE          writes the benchmark project to FILE
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

constexpr int kPorts = 32;
constexpr int kPoints = 1001;

fs::path TempPath(const char* name) { return fs::temp_directory_path() / name; }

long PeakResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  return -1;
}

void BM_SaveProject(benchmark::State& state) {
  const auto project = testing_support::RandomProject(1, kPorts, kPoints);
  const fs::path path = TempPath("bench_project_save.ndp");
  for (auto _ : state) {
    AString error;
    if (!project->Save(path, &error)) state.SkipWithError(error.c_str());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(path)));
  fs::remove(path);
}

void BM_LoadProject(benchmark::State& state) {
  const fs::path path = TempPath("bench_project_load.ndp");
  const auto project = testing_support::RandomProject(1, kPorts, kPoints);
  project->Save(path);
  for (auto _ : state) {
    AString error;
    auto loaded = CProject::Load(path, &error);
    if (!loaded) state.SkipWithError(error.c_str());
    benchmark::DoNotOptimize(loaded.get());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(path)));
  fs::remove(path);
}

}  // namespace

BENCHMARK(BM_SaveProject)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LoadProject)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--make") == 0) {
    AString error;
    if (!testing_support::RandomProject(1, kPorts, kPoints)->Save(argv[2], &error)) {
      std::cerr << error << "\n";
      return 1;
    }
    return 0;
  }
  if (argc == 3 && std::strcmp(argv[1], "--load-peak") == 0) {
    const long before = PeakResidentKiB();
    AString error;
    const auto project = CProject::Load(argv[2], &error);
    if (!project) {
      std::cerr << error << "\n";
      return 1;
    }
    const double file = static_cast<double>(fs::file_size(argv[2])) / 1024.0;
    const long peak = PeakResidentKiB();
    std::cout << "file " << file / 1024.0 << " MiB, peak resident " << peak / 1024.0
              << " MiB (before load " << before / 1024.0 << " MiB), peak / file = "
              << static_cast<double>(peak) / file << "\n";
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
