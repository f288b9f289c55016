// S -> Y and S -> Z conversion throughput of data points, per point for
// several port counts and over a 1001-point, 32-port sweep (the case that
// bench/compare_conversions.py sets beside scikit-rf).
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "sparamlib/data/NetworkModalData.h"
#include "support/FixedPorts.h"

namespace {

std::unique_ptr<CNetworkModalData> RandomPoint(testing_support::FixedPorts& owner, int n, std::mt19937_64& rng) {
  std::normal_distribution<double> g(0.0, 0.5 / 3.0 / std::sqrt(static_cast<double>(n)));
  std::uniform_real_distribution<double> re(20.0, 90.0), im(-30.0, 30.0);
  auto s = std::make_unique<TNT::CMatrix>(n, n);
  for (int k = 0; k < n * n; ++k) s->data()[k] = AComplex<double>(g(rng), g(rng));
  auto z = std::make_unique<TNT::CVector>(n);
  for (auto& v : *z) v = AComplex<double>(re(rng), im(rng));
  auto p = std::make_unique<CNetworkModalData>(&owner, 1e9, CNetworkData::ExactPoint);
  p->SetSMatrix(std::move(s));
  p->SetPortImpedance(std::move(z));
  return p;
}

template <bool kToY>
void Convert(CNetworkModalData& p) {
  p.DropDerivedMatrices();
  benchmark::DoNotOptimize(kToY ? p.GetYMatrix(true) : p.GetZMatrix(true));
}

template <bool kToY>
void BM_PerPoint(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  testing_support::FixedPorts owner(n);
  std::mt19937_64 rng(1);
  auto p = RandomPoint(owner, n, rng);
  for (auto _ : state) Convert<kToY>(*p);
  state.SetItemsProcessed(state.iterations());
}

template <bool kToY>
void BM_Sweep(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const int points = static_cast<int>(state.range(1));
  testing_support::FixedPorts owner(n);
  std::mt19937_64 rng(1);
  std::vector<std::unique_ptr<CNetworkModalData>> sweep;
  for (int k = 0; k < points; ++k) sweep.push_back(RandomPoint(owner, n, rng));
  for (auto _ : state)
    for (auto& p : sweep) Convert<kToY>(*p);
  state.SetItemsProcessed(state.iterations() * points);
}

void BM_SToY(benchmark::State& state) { BM_PerPoint<true>(state); }
void BM_SToZ(benchmark::State& state) { BM_PerPoint<false>(state); }
void BM_SToY_Sweep(benchmark::State& state) { BM_Sweep<true>(state); }
void BM_SToZ_Sweep(benchmark::State& state) { BM_Sweep<false>(state); }

}  // namespace

BENCHMARK(BM_SToY)->Arg(2)->Arg(8)->Arg(32)->Arg(100);
BENCHMARK(BM_SToZ)->Arg(2)->Arg(8)->Arg(32)->Arg(100);
BENCHMARK(BM_SToY_Sweep)->Args({32, 1001})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SToZ_Sweep)->Args({32, 1001})->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
