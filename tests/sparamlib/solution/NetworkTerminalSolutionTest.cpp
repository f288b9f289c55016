// Terminal solutions made from modal ones: ports from the entries, terminal
// names, every point's view, copies; a point without a view fails the whole.
// (Their stored form is checked through a project, tests/product.)
#include <gtest/gtest.h>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"
#include "support/RandomNetwork.h"

using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

namespace {

// Port "A" with odd and even modes (standard transform stored), port "B"
// with one mode whose terminal is named "Centre".
std::unique_ptr<CNetworkModalSolution> PairAndSingle(int points) {
  auto modal = std::make_unique<CNetworkModalSolution>("Sweep");
  modal->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (const auto& [port, mode] : {std::pair{"A", 1}, {"A", 2}, {"B", 1}})
    modal->AddMatrixEntry(CMatrixEntry(port, mode, 0));
  modal->GetMatrixEntry(2)->SetTerminalName("Centre");
  std::mt19937_64 rng(4);
  for (int p = 0; p < points; ++p) {
    auto m = std::make_unique<CNetworkModalData>(modal.get(), 1e9 * (p + 1));
    m->SetSMatrix(std::make_unique<CMatrix>(testing_support::RandomS(3, rng)));
    m->SetPortImpedance(std::make_unique<CVector>(testing_support::RandomImpedances(3, rng)));
    auto tv = std::make_unique<CMatrix>(3, 3);
    (*tv)[0][0] = C(0.5);
    (*tv)[1][0] = C(-0.5);
    (*tv)[0][1] = (*tv)[1][1] = (*tv)[2][2] = C(1.0);
    m->SetTerminalTransform(std::move(tv));
    modal->AddNetworkData(std::move(m));
  }
  return modal;
}

}  // namespace

TEST(NetworkTerminalSolution, MadeFromAModalSolutionPortByPort) {
  CNetworkDataSolution runs;
  for (const char* port : {"A", "A", "B", "", "", "C", "C", "A"})
    runs.AddMatrixEntry(CMatrixEntry(port, 1, 0));
  EXPECT_EQ(nd::EntriesPerPort(runs), (std::vector<int>{2, 1, 1, 1, 2, 1}));

  const auto modal = PairAndSingle(3);
  const CVector zt(3, C(75.0));
  AString why;
  const auto terminal = nd::MakeTerminalSolution(*modal, &zt, {}, &why);
  ASSERT_NE(terminal, nullptr) << why;
  EXPECT_TRUE(terminal->GetObjectType() == CNetworkDataSolution::Terminal &&
              terminal->GetName() == "Sweep" &&
              terminal->GetSolutionType() == CNetworkDataSolution::DiscreteSweep);
  const char* names[][3] = {{"A", "T1", "A:T1"}, {"A", "T2", "A:T2"}, {"B", "Centre", "B:Centre"}};
  for (int k = 0; k < 3; ++k) {
    const CMatrixEntry* e = terminal->GetMatrixEntry(k);
    EXPECT_TRUE(e->GetPortName() == names[k][0] && e->GetTerminalName() == names[k][1] &&
                e->GetTerminalEntryName() == names[k][2] && e->GetMatrixIndex() == k)
        << k;
  }
  ASSERT_EQ(terminal->GetFrequencyMap().size(), 3u);
  for (const auto& [f, point] : modal->GetFrequencyMap()) {
    const auto expected =
        nd::TerminalView(static_cast<const CNetworkModalData&>(*point), {2, 1}, &zt, {});
    auto* got = dynamic_cast<CNetworkTerminalData*>(terminal->GetNetworkData(f, 0.0, false));
    ASSERT_TRUE(got && expected);
    EXPECT_EQ(got->GetOwner(), terminal.get());
    EXPECT_EQ(testing_support::MaxAbsDiff(*got->GetSMatrix(false), *expected->GetSMatrix(false)),
              0.0);
  }
  const auto copy = terminal->Clone();  // deep, its points its own
  EXPECT_EQ(copy->GetObjectType(), CNetworkDataSolution::Terminal);
  EXPECT_EQ(copy->GetFrequencyMap().begin()->second->GetOwner(), copy.get());
  EXPECT_TRUE(copy->CreateNetworkData()->IsTerminal());

  // One point loses its transform: its pair has no terminals, so the whole
  // solution has no terminal view, unless the standard modes stand in.
  static_cast<CNetworkModalData*>(modal->GetNetworkData(2e9, 0.0, false))
      ->SetTerminalTransform(nullptr);
  EXPECT_EQ(nd::MakeTerminalSolution(*modal, nullptr, {}, &why), nullptr);
  EXPECT_NE(why.find("2000000000 Hz has no terminal view"), std::string::npos) << why;
  EXPECT_NE(nd::MakeTerminalSolution(*modal, nullptr, {true, false}, &why), nullptr);
}
