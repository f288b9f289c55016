// MATLAB m-file write throughput: 1001 frequencies x 32 ports, S only,
// precision 8, to a temporary file (about a million complex entries).
// There is no m-file writer in scikit-rf to set beside it; the figure is
// absolute (bytes of file written per second of wall time).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "sparamlib/formats/MatlabExportVisitor.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

void BM_WriteMatlab(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  const int points = static_cast<int>(state.range(1));
  std::mt19937_64 rng(1);
  const auto solution = testing_support::RandomSolution("Sweep", ports, points, rng);
  const fs::path path = fs::temp_directory_path() / "bench_matlab.m";
  for (auto _ : state) {
    io::CToken_ostream out(path);
    CMatlabExportVisitor(out, {}, {nd::kSMatrix}, 8, nullptr, "bench").Visit(*solution);
    if (!out.Close()) state.SkipWithError("cannot write the m-file");
  }
  // A written file of the wrong shape would make the rate meaningless: one
  // assignment line per frequency, each with ports^2 values.
  std::ifstream in(path);
  std::string line;
  int assignments = 0;
  while (std::getline(in, line))
    if (line.rfind("S(", 0) == 0 &&
        static_cast<int>(std::count(line.begin(), line.end(), 'i')) == ports * ports)
      ++assignments;
  if (assignments != points) state.SkipWithError("unexpected m-file contents");
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(fs::file_size(path)));
  state.SetItemsProcessed(state.iterations() * points * ports * ports);
  fs::remove(path);
}

}  // namespace

// Wall time: the figure a user waiting for the file sees, write calls included.
BENCHMARK(BM_WriteMatlab)->Args({32, 1001})->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
