// Test and benchmark helper: projects filled with seeded random data, so
// that every stored bit can be compared after a save and a load.
#pragma once

#include <random>

#include "product/Project.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/interp/FxemModalSolution.h"

namespace testing_support {

inline std::unique_ptr<CNetworkDataSolution> RandomSolution(const AString& name, int ports,
                                                           int points, std::mt19937_64& rng,
                                                           bool solver = false) {
  std::unique_ptr<CNetworkDataSolution> s;
  if (solver) {
    s = std::make_unique<CFxemModalSolution>(name);
  } else {
    s = std::make_unique<CNetworkModalSolution>(name);
  }
  s->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (int k = 0; k < ports; ++k) {
    CMatrixEntry e("Port" + std::to_string(k + 1), 1, k);
    e.SetModalEntryName("Port" + std::to_string(k + 1) + ":1");
    s->AddMatrixEntry(e);
  }
  std::normal_distribution<double> g(0.0, 0.3);
  for (int p = 0; p < points; ++p) {
    auto point = s->CreateNetworkData();
    point->SetFrequency(1e9 + p * (9e9 / std::max(1, points - 1)));
    point->SetDataType(CNetworkData::ExactPoint);
    auto m = std::make_unique<TNT::CMatrix>(ports, ports);
    for (int k = 0; k < ports * ports; ++k) m->data()[k] = AComplex<double>(g(rng), g(rng));
    point->SetSMatrix(std::move(m));
    auto* modal = static_cast<CNetworkModalData*>(point.get());
    auto z = std::make_unique<TNT::CVector>(ports);
    auto gamma = std::make_unique<TNT::CVector>(ports);
    for (int k = 0; k < ports; ++k) {
      (*z)[k] = AComplex<double>(50.0 + g(rng), g(rng));
      (*gamma)[k] = AComplex<double>(std::abs(g(rng)), 20.0 + g(rng));
    }
    modal->SetPortImpedance(std::move(z));
    modal->SetGamma(std::move(gamma));
    s->AddNetworkData(std::move(point));
  }
  return s;
}

// One design, `variations` variations, each with one solution.
inline std::unique_ptr<CProject> RandomProject(int variations, int ports, int points,
                                               unsigned seed = 1) {
  std::mt19937_64 rng(seed);
  auto project = std::make_unique<CProject>();
  project->SetDesignName("Test design");
  for (int v = 0; v < variations; ++v) {
    FxSolutionVariation& variation = project->AddVariation();
    variation.SetProduct("sparamlib tests", "1.0");
    variation.AddDesignVariable("w", std::to_string(v + 1) + "mm");
    variation.AddDesignVariable("eps_r", "4.4");
    variation.AddSolution(RandomSolution("Sweep", ports, points, rng, v % 2 == 1));
  }
  return project;
}

}  // namespace testing_support
