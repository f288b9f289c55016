// Combined sweeps: shares split at the overlap's midpoint, answers from the
// part that owns a frequency, refusals of gaps and nested bands, a project
// round trip, and the Touchstone writer taking the combined list.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "product/Devices.h"
#include "product/Project.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/interp/FxemModalPartitionedSolution.h"
#include "support/RandomNetwork.h"
#include "support/ScratchDir.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;

// The built-in line solved at `count` frequencies from lo to hi, Neville.
std::unique_ptr<CNetworkDataSolution> LineSweep(double lo, double hi, int count, int ports = 2) {
  const sparam::CDevice* line = nullptr;
  for (const sparam::CDevice* d : sparam::BuiltInDevices())
    if (d->GetName() == "line") line = d;
  auto s = std::make_unique<CNetworkModalSolution>("Sweep");
  s->SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  for (int k = 0; k < ports; ++k) s->AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  for (int k = 0; k < count; ++k) {
    SolvedPoint solved;
    std::string why;
    const double f = lo + (hi - lo) * k / (count - 1);
    EXPECT_TRUE(line->Evaluate(f, solved, &why)) << why;
    auto point = s->CreateNetworkData();
    point->SetFrequency(f);
    TNT::CMatrix m(ports, ports);
    for (int i = 0; i < std::min(ports, 2); ++i)
      for (int j = 0; j < std::min(ports, 2); ++j) m[i][j] = solved.s[i][j];
    point->SetSMatrix(std::make_unique<TNT::CMatrix>(m));
    static_cast<CNetworkModalData&>(*point).SetPortImpedance(std::make_unique<TNT::CVector>(ports, C(50.0)));
    s->AddNetworkData(std::move(point));
  }
  return s;
}

std::vector<std::unique_ptr<CNetworkDataSolution>> Parts(std::unique_ptr<CNetworkDataSolution> a,
                                                         std::unique_ptr<CNetworkDataSolution> b) {
  std::vector<std::unique_ptr<CNetworkDataSolution>> parts;
  parts.push_back(std::move(a));
  parts.push_back(std::move(b));
  return parts;
}

TEST(CombinedSweep, SharesSplitAtTheMidpointAndEachPartAnswersInItsOwn) {
  CFxemModalPartitionedSolution combined("Combined");
  std::string why;
  // Given in the wrong order: the lower band comes first anyway.
  ASSERT_TRUE(combined.Combine(Parts(LineSweep(2.5e9, 6e9, 36), LineSweep(0.1e9, 3e9, 30)), &why)) << why;
  ASSERT_EQ(combined.GetShareStarts(), (std::vector<double>{0.1e9, 2.75e9}));
  const auto& list = *combined.GetOwnFrequencyList();
  // The lower sweep's points below 2.75 GHz and the upper's from 2.75 GHz.
  for (double f : list) {
    const auto& part = *combined.GetParts()[f < 2.75e9 ? 0 : 1];
    EXPECT_TRUE(part.GetFrequencyMap().count(f)) << f;
  }
  EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));
  EXPECT_EQ(list.size(), combined.GetFrequencyMap().size());
  // Between points: exactly what the owning part interpolates.
  for (double f : {1.234e9, 2.7e9, 2.8e9, 5.55e9}) {
    CNetworkData* got = combined.GetNetworkData(f, 0.0, true);
    ASSERT_NE(got, nullptr) << f;
    auto& part = const_cast<CNetworkDataSolution&>(*combined.GetParts()[f < 2.75e9 ? 0 : 1]);
    EXPECT_TRUE(part.GetInterpolatedMap().empty()) << "the part keeps nothing of the combined request";
    CNetworkData* want = part.GetNetworkData(f, 0.0, true);
    ASSERT_NE(want, nullptr);
    EXPECT_EQ(testing_support::MaxAbsDiff(*got->GetSMatrix(), *want->GetSMatrix()), 0.0) << f;
    part.ReleaseNetworkData(f);
  }
}

TEST(CombinedSweep, GapsNestedBandsAndDifferentPortsAreRefused) {
  const struct {
    std::unique_ptr<CNetworkDataSolution> a, b;
    const char* reason;
  } cases[] = {
      {LineSweep(1e9, 2e9, 5), LineSweep(3e9, 4e9, 5), "nothing was solved between 2 GHz and 3 GHz"},
      {LineSweep(1e9, 4e9, 5), LineSweep(2e9, 3e9, 5), "lies inside another"},
      {LineSweep(1e9, 2e9, 5), LineSweep(2e9, 3e9, 5, 3), "has 3 ports, solution 1 has 2"},
  };
  for (const auto& c : cases) {
    CFxemModalPartitionedSolution combined;
    std::string why;
    EXPECT_FALSE(combined.Combine(Parts(c.a->Clone(), c.b->Clone()), &why));
    EXPECT_NE(why.find(c.reason), std::string::npos) << why;
  }
}

// Saved and loaded, a combined sweep is one again, with its parts; the
// Touchstone writer writes the combined frequencies whatever it is given.
TEST(CombinedSweep, RoundTripsAndWritesItsOwnFrequencies) {
  const fs::path dir = testing_support::ScratchDirectory("sparam_combine");
  auto combined = std::make_unique<CFxemModalPartitionedSolution>("Combined");
  std::string why;
  ASSERT_TRUE(combined->Combine(Parts(LineSweep(0.1e9, 3e9, 30), LineSweep(2.5e9, 6e9, 36)), &why)) << why;
  const std::vector<double> list = *combined->GetOwnFrequencyList();
  CProject project;
  project.AddVariation().AddSolution(std::move(combined));
  AString error;
  ASSERT_TRUE(project.Save(dir / "c.ndp", &error)) << error;
  auto back = CProject::Load(dir / "c.ndp", &error);
  ASSERT_TRUE(back) << error;
  auto* read = dynamic_cast<CFxemModalPartitionedSolution*>(back->GetVariation(0)->GetWritableSolution(""));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(*read->GetOwnFrequencyList(), list);
  EXPECT_EQ(read->GetParts().size(), 2u);
  ASSERT_TRUE(back->Save(dir / "again.ndp", &error)) << error;
  std::ifstream a(dir / "c.ndp"), b(dir / "again.ndp");
  std::stringstream ta, tb;
  ta << a.rdbuf();
  tb << b.rdbuf();
  EXPECT_EQ(ta.str(), tb.str());

  nd::WriteTouchstoneFile((dir / "c.s2p").string(), *read, {1e9}, "c", false, 50.0, nd::kRealImaginary,
                          nd::kSMatrix, 8, false, true, nullptr);
  std::ifstream in(dir / "c.s2p");
  size_t records = 0;
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && line[0] != '!' && line[0] != '#') ++records;
  EXPECT_EQ(records, list.size());
  fs::remove_all(dir);
}

}  // namespace
