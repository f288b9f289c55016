// The cost of post-processing on an export: a 32-port, 1001-point solution
// written as Touchstone (RI, 8 digits) through the export command, plain and
// with renormalisation to 50 ohms, de-embedding of every port and two
// matched differential pairs. The aim: post-processed at most twice plain.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "product/ExportNetworkDataCmd.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

std::unique_ptr<CNetworkPostprocSetup> Setup(int ports) {
  auto setup = std::make_unique<CNetworkPostprocSetup>();
  setup->SetNumPorts(ports);
  setup->SetMatrixSize(ports);
  setup->SetModes(std::vector<int>(static_cast<size_t>(ports), 1));
  const CNetworkPostprocSetup::CVector z(ports, AComplex<double>(50.0, 0.0));
  const CNetworkPostprocSetup::RVector d(ports, 0.002);
  setup->SetPostprocessing(true, &z, &d);
  setup->SetLosslessDeembed(false);
  for (int p = 0; p < 2; ++p) {
    auto pair = std::make_unique<CFxemDifferentialPair>();
    pair->SetPosTerminalIndex(2 * p);
    pair->SetNegTerminalIndex(2 * p + 1);
    pair->SetDiffName("D" + std::to_string(p));
    pair->SetCommonName("C" + std::to_string(p));
    pair->SetUseMatched(true);
    setup->AddDiffPair(std::move(pair));
  }
  return setup;
}

void BM_Export(benchmark::State& state) {
  const bool postprocessed = state.range(0) != 0;
  const int ports = 32, points = 1001;
  auto project = testing_support::RandomProject(1, ports, points);
  if (postprocessed) project->GetVariation(0)->SetPostprocSetup(Setup(ports));
  ExportRequest request;
  request.output = (fs::temp_directory_path() / "bench_postproc.s32p").string();
  request.display = nd::kRealImaginary;
  std::vector<std::string> notes;
  for (auto _ : state) {
    std::string why;
    if (!CExportNetworkDataCmd().Execute(*project, request, &why, &notes)) state.SkipWithError(why.c_str());
  }
  state.SetLabel(postprocessed ? "renormalised, de-embedded, two pairs" : "plain");
  fs::remove(request.output);
}
BENCHMARK(BM_Export)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
