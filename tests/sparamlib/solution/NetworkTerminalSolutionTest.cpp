// Terminal solutions: their points and stored form, the ports of a
// solution's entries, and the terminal solution made from a modal one.
#include <gtest/gtest.h>

#include <cstring>

#include "core/BlockText.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"
#include "support/RandomNetwork.h"

using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

namespace {

// Modes "A" x2 (odd, even) and "B" x1, stored transform block-diagonal.
std::unique_ptr<CNetworkModalSolution> ModalPairAndSingle(int points) {
  auto modal = std::make_unique<CNetworkModalSolution>("Sweep");
  modal->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (const auto& [port, mode] : {std::pair{"A", 1}, {"A", 2}, {"B", 1}}) {
    CMatrixEntry e(port, mode, 0);
    e.SetModalEntryName(std::string(port) + ":" + std::to_string(mode));
    modal->AddMatrixEntry(e);
  }
  modal->GetMatrixEntry(2)->SetTerminalName("Centre");
  std::mt19937_64 rng(4);
  for (int p = 0; p < points; ++p) {
    auto point = modal->CreateNetworkData();
    auto* m = static_cast<CNetworkModalData*>(point.get());
    m->SetFrequency(1e9 * (p + 1));
    m->SetDataType(CNetworkData::ExactPoint);
    m->SetSMatrix(std::make_unique<CMatrix>(testing_support::RandomS(3, rng)));
    m->SetPortImpedance(std::make_unique<CVector>(testing_support::RandomImpedances(3, rng)));
    auto gamma = std::make_unique<CVector>(3);
    for (int k = 0; k < 3; ++k) (*gamma)[k] = C(0.1 * p, 20.0 + p + 5.0 * k);
    m->SetGamma(std::move(gamma));
    auto tv = std::make_unique<CMatrix>(3, 3);
    (*tv)[0][0] = C(0.5);
    (*tv)[0][1] = C(1.0);
    (*tv)[1][0] = C(-0.5);
    (*tv)[1][1] = C(1.0);
    (*tv)[2][2] = C(1.0);
    m->SetTerminalTransform(std::move(tv));
    modal->AddNetworkData(std::move(point));
  }
  return modal;
}

std::string Text(const CNetworkDataSolution& s) {
  io::CBlock block("SolutionData");
  EXPECT_TRUE(s.Write(block, true));
  std::string text;
  io::WriteBlockText(block, text);
  return text;
}

}  // namespace

TEST(EntriesPerPort, RunsOfOnePortName) {
  CNetworkDataSolution s;
  for (const char* port : {"A", "A", "B", "", "", "C", "C", "C", "A"})
    s.AddMatrixEntry(CMatrixEntry(port, 1, 0));
  EXPECT_EQ(nd::EntriesPerPort(s), (std::vector<int>{2, 1, 1, 1, 3, 1}));
  EXPECT_TRUE(nd::EntriesPerPort(CNetworkDataSolution()).empty());
}

// Every solved point becomes its terminal view; the entries name the
// terminals; the result is stored and read back as a terminal solution,
// text for text and bit for bit.
TEST(NetworkTerminalSolution, MadeFromAModalSolutionStoredAndReadBack) {
  const auto modal = ModalPairAndSingle(3);
  const CVector zt(3, C(75.0));
  AString why;
  auto terminal = nd::MakeTerminalSolution(*modal, &zt, {false, true}, &why);
  ASSERT_NE(terminal, nullptr) << why;
  EXPECT_EQ(terminal->GetObjectType(), CNetworkDataSolution::Terminal);
  EXPECT_EQ(terminal->GetName(), "Sweep");
  EXPECT_EQ(terminal->GetSolutionType(), CNetworkDataSolution::DiscreteSweep);
  ASSERT_EQ(terminal->GetNumMatrixEntries(), 3);
  const char* names[][3] = {{"A", "T1", "A:T1"}, {"A", "T2", "A:T2"}, {"B", "Centre", "B:Centre"}};
  for (int k = 0; k < 3; ++k) {
    const CMatrixEntry* e = terminal->GetMatrixEntry(k);
    EXPECT_EQ(e->GetPortName(), names[k][0]);
    EXPECT_EQ(e->GetTerminalName(), names[k][1]);
    EXPECT_EQ(e->GetTerminalEntryName(), names[k][2]);
    EXPECT_EQ(e->GetMatrixIndex(), k);
  }
  ASSERT_EQ(terminal->GetFrequencyMap().size(), 3u);
  for (const auto& [f, point] : modal->GetFrequencyMap()) {
    const auto expected = nd::TerminalView(static_cast<const CNetworkModalData&>(*point), {2, 1},
                                           &zt, {false, true});
    auto* got = dynamic_cast<CNetworkTerminalData*>(terminal->GetNetworkData(f, 0.0, false));
    ASSERT_TRUE(got && expected);
    EXPECT_EQ(got->GetOwner(), terminal.get());
    EXPECT_EQ(testing_support::MaxAbsDiff(*got->GetSMatrix(false), *expected->GetSMatrix(false)),
              0.0);
    EXPECT_NE((*got->GetGammaMatrix())[0][1], C(0.0));  // the full matrix, as asked
  }

  // Stored and read: a terminal solution again, with terminal points and
  // names; written again, the same text.
  const std::string text = Text(*terminal);
  EXPECT_NE(text.find("ObjectType = Terminal"), std::string::npos);
  EXPECT_NE(text.find("TerminalEntryName = \"B:Centre\""), std::string::npos);
  io::CBlock root;
  ASSERT_EQ(io::ParseBlockText(text, "t.ndp", root), io::kReadOk);
  CNetworkTerminalSolution back;
  ASSERT_EQ(back.Read(root), io::kReadOk) << root.GetReadError();
  EXPECT_EQ(Text(back), text);
  const auto* p = dynamic_cast<CNetworkTerminalData*>(back.GetNetworkData(2e9, 0.0, false));
  ASSERT_NE(p, nullptr);
  const auto* q = static_cast<CNetworkTerminalData*>(terminal->GetNetworkData(2e9, 0.0, false));
  EXPECT_EQ(std::memcmp(p->GetGammaMatrix()->data(), q->GetGammaMatrix()->data(), 9 * sizeof(C)), 0);
  EXPECT_EQ(std::memcmp(p->GetTerminalImpedance()->data(), zt.data(), 3 * sizeof(C)), 0);

  // A deep copy belongs to itself.
  const auto copy = back.Clone();
  EXPECT_EQ(copy->GetObjectType(), CNetworkDataSolution::Terminal);
  EXPECT_EQ(copy->GetFrequencyMap().begin()->second->GetOwner(), copy.get());
  EXPECT_TRUE(copy->GetFrequencyMap().begin()->second->IsTerminal());
}

TEST(NetworkTerminalSolution, APointWithoutAViewFailsTheWholeSolution) {
  auto modal = ModalPairAndSingle(2);
  auto* second = static_cast<CNetworkModalData*>(modal->GetNetworkData(2e9, 0.0, false));
  second->SetTerminalTransform(nullptr);  // the pair's modes no longer map to terminals
  AString why;
  EXPECT_EQ(nd::MakeTerminalSolution(*modal, nullptr, {}, &why), nullptr);
  EXPECT_NE(why.find("2000000000 Hz has no terminal view"), std::string::npos) << why;
  // With the standard modes the pair needs no stored transform.
  EXPECT_NE(nd::MakeTerminalSolution(*modal, nullptr, {true, false}, &why), nullptr);
}
