// Solutions: lookup rules, ownership, matrix entries, stored form, copies.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "core/BlockText.h"
#include "sparamlib/BlockMatrixIO.h"
#include "sparamlib/FxemModalData.h"
#include "sparamlib/FxemModalSolution.h"
#include "sparamlib/NetworkModalData.h"
#include "sparamlib/TimeDataSolution.h"
#include "support/AssertCapture.h"

using TNT::CMatrix;
using C = AComplex<double>;

namespace {

// A solution with n entries "P1".."Pn" and one solved point per frequency,
// S(i, j) = f * 1e-9 + i + j*i.
template <class Solution>
void Fill(Solution& s, int n, std::initializer_list<double> frequencies) {
  for (int k = 0; k < n; ++k) s.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, 0));
  for (double f : frequencies) {
    std::unique_ptr<CNetworkData> p = s.CreateNetworkData();
    p->SetFrequency(f);
    p->SetDataType(CNetworkData::ExactPoint);
    auto m = std::make_unique<CMatrix>(n, n);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) (*m)[i][j] = C(f * 1e-9 + i, j * 0.5);
    p->SetSMatrix(std::move(m));
    if (auto* modal = dynamic_cast<CNetworkModalData*>(p.get()))
      modal->SetPortImpedance(std::make_unique<TNT::CVector>(n, C(50.0, 1.0 / 3.0)));
    ASSERT_TRUE(s.AddNetworkData(std::move(p)));
  }
}

io::CBlock Parse(const std::string& text) {
  io::CBlock root;
  EXPECT_EQ(io::ParseBlockText(text, "solution.ndp", root), io::kReadOk) << root.GetReadError();
  return root;
}

std::string Ports(std::initializer_list<int> indices) {
  std::string text = "Ports {\n";
  int k = 0;
  for (int index : indices) {
    text += "  Port {\n    PortName = \"P" + std::to_string(++k) + "\"\n    MatrixIndex = " +
            std::to_string(index) + "\n  } Port\n";
  }
  return text + "} Ports\n";
}

bool SameBits(const CMatrix* a, const CMatrix* b) {
  return a && b && a->size() == b->size() &&
         std::memcmp(a->data(), b->data(), sizeof(C) * static_cast<size_t>(a->size())) == 0;
}

}  // namespace

TEST(NetworkDataSolutionLookup, EmptySolutionAnswersNull) {
  CNetworkModalSolution s;
  EXPECT_EQ(s.GetNetworkData(1e9, 0.0, false), nullptr);
  EXPECT_EQ(s.GetNetworkData(1e9, 1e6, true), nullptr);
}

TEST(NetworkDataSolutionLookup, ToleranceRules) {
  CNetworkModalSolution s;
  Fill(s, 1, {1e9, 1e9 + 0.5, 2e9});
  // Zero tolerance: the exact key only.
  EXPECT_NE(s.GetNetworkData(2e9, 0.0, false), nullptr);
  EXPECT_EQ(s.GetNetworkData(std::nextafter(2e9, 3e9), 0.0, false), nullptr);
  // A positive tolerance is never narrower than f * 1e-9 (2 Hz at 2 GHz)...
  EXPECT_NE(s.GetNetworkData(2e9 + 1.9, 1e-3, false), nullptr);
  EXPECT_EQ(s.GetNetworkData(2e9 + 2.1, 1e-3, false), nullptr);
  // ...and may be wider.
  EXPECT_NE(s.GetNetworkData(2e9 + 2.1, 5.0, false), nullptr);
  // Two keys in the band: the first at or above f - t wins, not the nearest.
  CNetworkData* p = s.GetNetworkData(1e9 + 0.45, 1.0, false);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->GetFrequency(), 1e9);
  // Nothing to interpolate with yet: null, nothing kept.
  s.SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  EXPECT_EQ(s.GetNetworkData(1.5e9, 0.0, true), nullptr);
  EXPECT_TRUE(s.GetInterpolatedMap().empty());
}

TEST(NetworkDataSolutionLookup, InterpolatedPointsAndTheStateSpaceAsymmetry) {
  CNetworkModalSolution source;
  Fill(source, 1, {1e9, 2e9});
  io::CBlock block;
  ASSERT_TRUE(source.Write(block, false));
  // The same points once more, stored as interpolated ones at 1 and 3 GHz.
  std::string text;
  io::WriteBlockText(block, text);
  text += "InterpolatedFrequencies {\n DataPoint {\n Frequency = 1e9\n DataType = Interpolated\n"
          " } DataPoint\n DataPoint {\n Frequency = 3e9\n DataType = Interpolated\n } DataPoint\n"
          "} InterpolatedFrequencies\n";
  CNetworkModalSolution s;
  ASSERT_EQ(s.Read(Parse(text)), 0);
  ASSERT_EQ(s.GetInterpolatedMap().size(), 2u);
  EXPECT_EQ(s.GetNetworkData(1e9, 0.0, false)->GetDataType(), CNetworkData::ExactPoint);
  EXPECT_EQ(s.GetNetworkData(3e9, 0.0, false)->GetDataType(), CNetworkData::Interpolated);

  // A state-space fit answers from its model even at solved frequencies, but
  // reuses what it already interpolated.
  s.SetSolutionType(CNetworkDataSolution::StateSpaceFit);
  EXPECT_EQ(s.GetNetworkData(1e9, 0.0, true)->GetDataType(), CNetworkData::Interpolated);
  EXPECT_EQ(s.GetNetworkData(2e9, 0.0, true), nullptr);
  EXPECT_EQ(s.GetNetworkData(2e9, 0.0, false)->GetDataType(), CNetworkData::ExactPoint);

  // Solving a frequency replaces its interpolated point; releasing drops one.
  auto solved = s.CreateNetworkData();
  solved->SetFrequency(3e9);
  EXPECT_TRUE(s.AddNetworkData(std::move(solved)));
  EXPECT_EQ(s.GetInterpolatedMap().size(), 1u);
  s.ReleaseNetworkData(1e9);
  EXPECT_TRUE(s.GetInterpolatedMap().empty());
}

TEST(NetworkDataSolutionPoints, DuplicatesAreRefusedAndPointsKnowTheirOwner) {
  CFxemModalSolution s;
  Fill(s, 2, {1e9});
  auto again = s.CreateNetworkData();
  again->SetFrequency(1e9);
  EXPECT_FALSE(s.AddNetworkData(std::move(again)));
  EXPECT_EQ(s.GetNumFrequencies(), 1);
  CNetworkData* p = s.GetNetworkData(1e9, 0.0, false);
  EXPECT_EQ(p->GetOwner(), &s);
  EXPECT_EQ(p->GetNumPorts(), 2);
  EXPECT_NE(dynamic_cast<CFxemModalData*>(p), nullptr);
  EXPECT_NE(p->GetYMatrix(true), nullptr);
  s.Clear();
  EXPECT_EQ(s.GetNumFrequencies(), 0);
}

TEST(NetworkDataSolutionStorage, WriteReadReproducesEveryStoredBit) {
  CNetworkModalSolution s("Sweep 1");
  s.SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  s.SetAdaptivePass(3);
  s.SetEnergyError(0.1 / 3.0);
  Fill(s, 3, {1e9, 1.5e9, 2e9 / 3.0});
  s.GetOrCreateNoiseSolution().SetNoiseParameters(1e9, 1.2, 0.3, -45.0, 7.5);
  io::CBlock block("SolutionData");
  ASSERT_TRUE(s.Write(block, true));
  std::vector<std::string> keys;
  for (size_t k = 0; k < block.GetNumItems(); ++k) keys.push_back(block.GetItem(k).GetName());
  EXPECT_EQ(keys, (std::vector<std::string>{"ObjectType", "SolutionType", "Name", "AdaptivePass",
                                            "EnergyError", "Frequencies", "Ports",
                                            "NoiseSolution"}));
  std::string text;
  io::WriteBlockText(block, text);

  CNetworkModalSolution back;
  ASSERT_EQ(back.Read(Parse(text)), 0);
  EXPECT_EQ(back.GetName(), "Sweep 1");
  EXPECT_EQ(back.GetSolutionType(), CNetworkDataSolution::DiscreteSweep);
  EXPECT_EQ(back.GetAdaptivePass(), 3);
  EXPECT_EQ(back.GetEnergyError(), 0.1 / 3.0);
  ASSERT_EQ(back.GetNumMatrixEntries(), 3);
  EXPECT_EQ(back.GetMatrixEntry(2)->GetPortName(), "P3");
  EXPECT_EQ(back.GetMatrixEntry(2)->GetMatrixIndex(), 2);
  ASSERT_EQ(back.GetNumFrequencies(), 3);
  for (const auto& [f, p] : s.GetFrequencyMap()) {
    CNetworkData* q = back.GetNetworkData(f, 0.0, false);
    ASSERT_NE(q, nullptr);
    EXPECT_TRUE(SameBits(q->GetSMatrix(false), p->GetSMatrix(false)));
    auto* zq = dynamic_cast<CNetworkModalData*>(q)->GetPortImpedance();
    ASSERT_NE(zq, nullptr);
    EXPECT_EQ((*zq)[2], C(50.0, 1.0 / 3.0));
  }
  ASSERT_NE(back.GetNoiseSolution(), nullptr);
  EXPECT_NE(back.GetNoiseSolution()->GetNoiseData(1e9), nullptr);
}

TEST(NetworkDataSolutionStorage, EntryIndicesOfOlderFilesAreRenumbered) {
  struct Case {
    std::initializer_list<int> stored;
    std::vector<int> expected;
    bool warns;
  };
  const Case cases[] = {{{1, 2, 3}, {0, 1, 2}, true}, {{0, 1, 2}, {0, 1, 2}, false}};
  for (const Case& c : cases) {
    testing_support::AssertCapture capture;
    CNetworkModalSolution s;
    ASSERT_EQ(s.Read(Parse(Ports(c.stored))), 0);
    std::vector<int> indices;
    for (int k = 0; k < s.GetNumMatrixEntries(); ++k)
      indices.push_back(s.GetMatrixEntry(k)->GetMatrixIndex());
    EXPECT_EQ(indices, c.expected);
    EXPECT_EQ(capture.empty(), !c.warns);
    if (c.warns) {
      EXPECT_EQ(capture.conditions()[0], "!\"Matrix entries are 1-based indexed??\"");
    }
  }
}

TEST(NetworkDataSolutionStorage, DroppedEntriesAreRenumberedAndMatricesAdapted) {
  // Four entries stored; the solution's layout keeps positions 0, 2, 3 as
  // entries 0, 1, 2. Stored matrices are 4 x 4 and must shrink to 3 x 3.
  std::string text = Ports({0, 1, 2, 3}) + "Frequencies {\n DataPoint {\n Frequency = 1e9\n";
  io::CBlock matrix;
  CMatrix big(4, 4);
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) big[i][j] = C(10.0 * i + j);
  nd::WriteMatrix(matrix, "SMatrix", big);
  io::WriteBlockText(matrix, text);
  text += " } DataPoint\n} Frequencies\n";

  CNetworkModalSolution s;
  s.SetMatrixIndexMap({{0, 0}, {2, 1}, {3, 2}});
  ASSERT_EQ(s.Read(Parse(text)), 0);
  EXPECT_EQ(s.GetEntryCount(), 4);
  ASSERT_EQ(s.GetNumMatrixEntries(), 3);
  EXPECT_EQ(s.GetMatrixEntry(1)->GetPortName(), "P3");
  EXPECT_EQ(s.GetMatrixEntry(1)->GetMatrixIndex(), 1);
  const CMatrix* m = s.GetNetworkData(1e9, 0.0, false)->GetSMatrix(false);
  ASSERT_NE(m, nullptr);
  ASSERT_EQ(m->num_rows(), 3);
  EXPECT_EQ((*m)[1][2], C(23.0));
}

TEST(NetworkDataSolutionStorage, HardErrorsAbortTheReadKeepingWhatWasRead) {
  io::CBlock block = Parse(
      "Ports {\n"
      "  Port { MatrixIndex = 0 } Port\n"
      "  Port { Mode = \"one\" } Port\n"
      "} Ports\n"
      "Frequencies { DataPoint { Frequency = 1e9 } DataPoint } Frequencies\n");
  CNetworkModalSolution s;
  EXPECT_EQ(s.Read(block), io::kReadWrongType);
  EXPECT_EQ(s.GetNumMatrixEntries(), 1);
  EXPECT_EQ(s.GetNumFrequencies(), 0);
  EXPECT_NE(block.GetReadError().find("solution.ndp:3:10: "), std::string::npos)
      << block.GetReadError();
}

TEST(NetworkDataSolutionCopy, CopiesAreDeepAndOwnTheirPoints) {
  CNetworkModalSolution s("A");
  Fill(s, 2, {1e9, 2e9});
  std::unique_ptr<CNetworkDataSolution> copy = s.Clone();
  ASSERT_NE(dynamic_cast<CNetworkModalSolution*>(copy.get()), nullptr);
  CNetworkData* p = copy->GetNetworkData(1e9, 0.0, false);
  EXPECT_EQ(p->GetOwner(), copy.get());
  (*p->GetSMatrix(false))[0][0] = C(99.0);
  EXPECT_NE((*s.GetNetworkData(1e9, 0.0, false)->GetSMatrix(false))[0][0], C(99.0));
  EXPECT_EQ(copy->GetMatrixEntry(1)->GetPortName(), "P2");
}

TEST(TimeDataSolution, OwnItemsPrecedeTheBaseAndSurviveAClone) {
  CTimeDataSolution fresh;
  io::CBlock block;
  ASSERT_TRUE(fresh.Write(block, false));
  EXPECT_EQ(block.GetItem(0).GetName(), "PortTermination");
  EXPECT_EQ(block.GetItem(1).GetName(), "TimeDataType");
  EXPECT_EQ(block.GetItem(2).GetName(), "ObjectType");
  CTimeDataSolution back;
  back.SetTimeDataType(0);
  EXPECT_EQ(back.Read(block), 0);
  EXPECT_EQ(back.GetTimeDataType(), 4) << "the unset type survives a save";

  for (const auto& [name, value] : {std::pair{"TimeStep", 1}, std::pair{"TimeImpulse", 0}}) {
    CTimeDataSolution t;
    EXPECT_EQ(t.Read(Parse(std::string("TimeDataType = ") + name + "\n")), 0);
    EXPECT_EQ(t.GetTimeDataType(), value);
  }

  CTimeDataSolution s;
  s.SetPortTermination(75.0);
  s.SetTimeDataType(CTimeDataSolution::TimeStep);
  Fill(s, 1, {1e9});
  std::unique_ptr<CNetworkDataSolution> clone = s.Clone();
  auto* t = dynamic_cast<CTimeDataSolution*>(clone.get());
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->GetPortTermination(), 75.0);
  EXPECT_EQ(t->GetTimeDataType(), 1);
  EXPECT_EQ(t->GetNetworkData(1e9, 0.0, false)->GetOwner(), t);
}
