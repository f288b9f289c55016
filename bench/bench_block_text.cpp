// Throughput of the project-file text form on a point-heavy tree: 200
// frequency blocks, each holding a 32x32 complex matrix stored as rows of
// "c" = [re, im] items, the shape that dominates real project files.
#include <benchmark/benchmark.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <unistd.h>

#include "core/BlockText.h"

namespace {

constexpr int kFrequencies = 200;
constexpr int kPorts = 32;

io::CBlock MakeTree() {
  io::CBlock root;
  root.AddInteger("Version", 1);
  std::mt19937_64 rng(20240611);
  std::uniform_real_distribution<double> part(-1.0, 1.0);
  for (int f = 0; f < kFrequencies; ++f) {
    io::CBlock& point = root.AddBlock("Frequency");
    point.AddReal("f", 1e9 + 5e6 * f);
    io::CBlock& matrix = point.AddBlock("S");
    matrix.AddInteger("m", kPorts);
    matrix.AddInteger("n", kPorts);
    for (int i = 0; i < kPorts; ++i) {
      io::CBlock& row = matrix.AddBlock("r" + std::to_string(i));
      for (int j = 0; j < kPorts; ++j) row.AddComplex("c", {part(rng), part(rng)});
    }
  }
  return root;
}

// Built once and checked once: a benchmark of a wrong answer is worthless.
struct Fixture {
  io::CBlock tree = MakeTree();
  std::string text;
  bool exact = false;
  std::string problem;

  Fixture() {
    io::WriteBlockText(tree, text);
    io::CBlock back;
    if (io::ParseBlockText(text, "bench", back) != io::kReadOk) {
      problem = "parse failed: " + back.GetReadError();
    } else if (!(back == tree)) {
      problem = "round trip changed the tree";
    } else {
      exact = true;
    }
  }
};

const Fixture& Data() {
  static const Fixture data;
  return data;
}

void BM_WriteBlockText(benchmark::State& state) {
  const Fixture& d = Data();
  if (!d.exact) {
    state.SkipWithError(d.problem.c_str());
    return;
  }
  std::string out;
  for (auto _ : state) {
    out.clear();  // keeps the capacity, as a caller saving repeatedly would
    io::WriteBlockText(d.tree, out);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(d.text.size()));
  state.counters["text_MB"] = static_cast<double>(d.text.size()) / 1e6;
}

void BM_ParseBlockText(benchmark::State& state) {
  const Fixture& d = Data();
  if (!d.exact) {
    state.SkipWithError(d.problem.c_str());
    return;
  }
  for (auto _ : state) {
    io::CBlock root;
    const io::ReadError r = io::ParseBlockText(d.text, "bench", root);
    benchmark::DoNotOptimize(r);
    benchmark::DoNotOptimize(root.GetNumItems());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(d.text.size()));
}

// Whole-file paths: atomic save (fsync included) and one-read load.
void BM_FileRoundTrip(benchmark::State& state) {
  const Fixture& d = Data();
  if (!d.exact) {
    state.SkipWithError(d.problem.c_str());
    return;
  }
  const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                     ("bench_block_text." + std::to_string(::getpid()) + ".sp");
  for (auto _ : state) {
    AString error;
    if (!io::WriteBlockFile(path, d.tree, &error)) {
      state.SkipWithError(error.c_str());
      break;
    }
    io::CBlock root;
    if (io::ReadBlockFile(path, root) != io::kReadOk) {
      state.SkipWithError(root.GetReadError().c_str());
      break;
    }
  }
  std::error_code ec;
  std::filesystem::remove(path, ec);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 2 *
                          static_cast<int64_t>(d.text.size()));
}

}  // namespace

BENCHMARK(BM_WriteBlockText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseBlockText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FileRoundTrip)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
