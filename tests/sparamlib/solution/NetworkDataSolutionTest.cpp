// Solutions: lookup rules, ownership, matrix entries, stored form, copies.
#include <gtest/gtest.h>

#include <cmath>

#include "core/BlockText.h"
#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/interp/FxemModalSolution.h"
#include "sparamlib/solution/TimeDataSolution.h"
#include "support/AssertCapture.h"

using TNT::CMatrix;
using C = AComplex<double>;
using Names = std::vector<std::string>;

namespace {

// Entries "P1".."Pn" and one solved point per frequency.
void Fill(CNetworkDataSolution& s, int n, std::initializer_list<double> frequencies) {
  for (int k = 0; k < n; ++k) s.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, 0));
  for (double f : frequencies) {
    std::unique_ptr<CNetworkData> p = s.CreateNetworkData();
    p->SetFrequency(f);
    auto m = std::make_unique<CMatrix>(n, n);  // S(i, j) = f / GHz + 10 i + j
    for (int k = 0; k < n * n; ++k) m->data()[k] = C(f * 1e-9 + 10 * (k / n) + k % n, 1.0 / 3.0);
    p->SetSMatrix(std::move(m));
    ASSERT_TRUE(s.AddNetworkData(std::move(p)));
  }
}

io::CBlock Parse(const std::string& text) {
  io::CBlock root;
  EXPECT_EQ(io::ParseBlockText(text, "solution.ndp", root), io::kReadOk) << root.GetReadError();
  return root;
}

std::string Text(const io::CBlock& block) {
  std::string text;
  io::WriteBlockText(block, text);
  return text;
}

}  // namespace

TEST(NetworkDataSolutionLookup, ToleranceRules) {
  CNetworkModalSolution s;
  EXPECT_EQ(s.GetNetworkData(1e9, 1e6, true), nullptr);
  Fill(s, 1, {1e9, 1e9 + 0.5, 2e9});
  // Tolerance 0: the exact key only. A positive tolerance is never narrower
  // than f * 1e-9 (2 Hz at 2 GHz), but may be wider. Two keys in the band: the
  // first wins, not the nearest. Found 0: none.
  const double cases[][3] = {{2e9, 0.0, 2e9},        {std::nextafter(2e9, 3e9), 0.0, 0.0},
                             {2e9 + 1.9, 1e-3, 2e9}, {2e9 + 2.1, 1e-3, 0.0},
                             {2e9 + 2.1, 5.0, 2e9},  {1e9 + 0.45, 1.0, 1e9}};
  for (const auto& [f, tolerance, found] : cases) {
    const CNetworkData* p = s.GetNetworkData(f, tolerance, false);
    EXPECT_EQ(p ? p->GetFrequency() : 0.0, found) << f - 2e9 << " " << tolerance;
  }
  // Nothing to interpolate with yet: null, nothing kept.
  s.SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  EXPECT_TRUE(!s.GetNetworkData(1.5e9, 0.0, true) && s.GetInterpolatedMap().empty());
}

TEST(NetworkDataSolutionLookup, InterpolatedPointsAndTheStateSpaceAsymmetry) {
  const std::string text =  // solved at 1 and 2 GHz, interpolated at 1 and 3 GHz
      "Frequencies { DataPoint { Frequency = 1e9 } DataPoint DataPoint { Frequency = 2e9 }"
      " DataPoint } Frequencies InterpolatedFrequencies {"
      " DataPoint { Frequency = 1e9 DataType = Interpolated } DataPoint"
      " DataPoint { Frequency = 3e9 DataType = Interpolated } DataPoint } InterpolatedFrequencies";
  CNetworkModalSolution s;
  ASSERT_EQ(s.Read(Parse(text)), 0);
  ASSERT_EQ(s.GetInterpolatedMap().size(), 2u);
  EXPECT_EQ(s.GetNetworkData(1e9, 0.0, false)->GetDataType(), CNetworkData::None);
  EXPECT_EQ(s.GetNetworkData(3e9, 0.0, false)->GetDataType(), CNetworkData::Interpolated);

  // A state-space fit answers from its model even at solved frequencies, but
  // reuses what it already interpolated.
  s.SetSolutionType(CNetworkDataSolution::StateSpaceFit);
  EXPECT_EQ(s.GetNetworkData(1e9, 0.0, true)->GetDataType(), CNetworkData::Interpolated);
  EXPECT_EQ(s.GetNetworkData(2e9, 0.0, true), nullptr);
  EXPECT_EQ(s.GetNetworkData(2e9, 0.0, false)->GetDataType(), CNetworkData::None);

  // Solving a frequency replaces its interpolated point; releasing drops one.
  auto solved = s.CreateNetworkData();
  solved->SetFrequency(3e9);
  EXPECT_TRUE(s.AddNetworkData(std::move(solved)));
  EXPECT_EQ(s.GetInterpolatedMap().size(), 1u);
  s.ReleaseNetworkData(1e9);
  EXPECT_TRUE(s.GetInterpolatedMap().empty());
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
  Names keys;
  for (size_t k = 0; k < block.GetNumItems(); ++k) keys.push_back(block.GetItem(k).GetName());
  EXPECT_EQ(keys, (Names{"ObjectType", "SolutionType", "Name", "AdaptivePass", "EnergyError",
                         "Frequencies", "Ports", "NoiseSolution"}));

  // Read back from text and written again, every item and every real's bits
  // are those of the original.
  CNetworkModalSolution back;
  ASSERT_EQ(back.Read(Parse(Text(block))), 0);
  io::CBlock again("SolutionData");
  ASSERT_TRUE(back.Write(again, true));
  EXPECT_TRUE(again == block) << Text(again);
}

TEST(NetworkDataSolutionStorage, EntriesOfOlderOrOtherLayoutsAreRenumberedBrokenOnesAbort) {
  for (const int first : {1, 0}) {
    testing_support::AssertCapture capture;
    std::string ports = "Ports {\n";
    for (int k = 0; k < 3; ++k)
      ports += " Port { MatrixIndex = " + std::to_string(first + k) + " } Port\n";
    CNetworkModalSolution s;
    ASSERT_EQ(s.Read(Parse(ports + "} Ports\n")), 0);
    ASSERT_EQ(s.GetNumMatrixEntries(), 3);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(s.GetMatrixEntry(k)->GetMatrixIndex(), k);
    EXPECT_EQ(capture.conditions(),
              first ? Names{"!\"Matrix entries are 1-based indexed??\""} : Names{});
  }

  // A hard error stops the read, keeping what was read before it.
  io::CBlock block = Parse(  // the second entry is broken
      "Ports {\n  Port { MatrixIndex = 0 } Port\n  Port { Mode = \"one\" } Port\n} Ports\n"
      "Frequencies { DataPoint { Frequency = 1e9 } DataPoint } Frequencies\n");
  CNetworkModalSolution broken;
  EXPECT_EQ(broken.Read(block), io::kReadWrongType);
  EXPECT_EQ(broken.GetNumMatrixEntries(), 1);
  EXPECT_EQ(broken.GetNumFrequencies(), 0);
  EXPECT_NE(block.GetReadError().find("solution.ndp:3:10: "), std::string::npos)
      << block.GetReadError();

  // Four entries stored; the solution's layout keeps positions 0, 2, 3 as
  // entries 0, 1, 2. Stored matrices are 4 x 4 and must shrink to 3 x 3.
  CNetworkModalSolution four;
  Fill(four, 4, {1e9});
  io::CBlock stored;
  ASSERT_TRUE(four.Write(stored, false));
  CNetworkModalSolution mapped;
  mapped.SetMatrixIndexMap({{0, 0}, {2, 1}, {3, 2}});
  ASSERT_EQ(mapped.Read(Parse(Text(stored))), 0);
  EXPECT_EQ(mapped.GetEntryCount(), 4);
  ASSERT_EQ(mapped.GetNumMatrixEntries(), 3);
  EXPECT_EQ(mapped.GetMatrixEntry(1)->GetPortName(), "P3");
  EXPECT_EQ(mapped.GetMatrixEntry(1)->GetMatrixIndex(), 1);
  ASSERT_EQ(mapped.GetNumFrequencies(), 1);
  const CMatrix* m = mapped.GetNetworkData(1e9, 0.0, false)->GetSMatrix(false);
  ASSERT_TRUE(m && m->num_rows() == 3);
  EXPECT_EQ((*m)[1][2], C(24.0, 1.0 / 3.0));
}

TEST(NetworkDataSolutionPoints, DuplicatesAreRefusedPointsAndDeepCopiesKnowTheirOwner) {
  CNetworkModalSolution modal("A");
  CFxemModalSolution solver;
  CTimeDataSolution time;
  time.SetPortTermination(75.0);
  time.SetTimeDataType(CTimeDataSolution::TimeStep);
  for (CNetworkDataSolution* s :
       std::initializer_list<CNetworkDataSolution*>{&modal, &solver, &time}) {
    Fill(*s, 2, {1e9, 2e9});
    EXPECT_FALSE(s->AddNetworkData(s->GetNetworkData(1e9, 0.0, false)->Clone()));
    EXPECT_EQ(s->GetNumFrequencies(), 2);
    EXPECT_EQ(s->GetNetworkData(1e9, 0.0, false)->GetOwner(), s);

    std::unique_ptr<CNetworkDataSolution> copy = s->Clone();
    io::CBlock original, copied;  // same class, same items
    ASSERT_TRUE(s->Write(original, true) && copy->Write(copied, true));
    EXPECT_TRUE(copied == original) << Text(copied);
    CNetworkData* p = copy->GetNetworkData(1e9, 0.0, false);
    EXPECT_EQ(p->GetOwner(), copy.get());
    (*p->GetSMatrix(false))[0][0] = C(99.0);
    EXPECT_NE((*s->GetNetworkData(1e9, 0.0, false)->GetSMatrix(false))[0][0], C(99.0));
  }
  EXPECT_NE(dynamic_cast<CFxemModalData*>(solver.GetNetworkData(1e9, 0.0, false)), nullptr);
}

TEST(TimeDataSolution, OwnItemsPrecedeTheBaseAndAnUnsetTypeSurvives) {
  io::CBlock block;
  ASSERT_TRUE(CTimeDataSolution().Write(block, false));
  EXPECT_EQ(Text(block),
            "PortTermination = 0.0\nTimeDataType = 4\nObjectType = None\nSolutionType = None\n"
            "Name = \"\"\nAdaptivePass = -1\nEnergyError = 0.0\n");
  const std::pair<std::string, int> cases[] = {
      {Text(block), 4}, {"TimeDataType = TimeStep\n", 1}, {"TimeDataType = TimeImpulse\n", 0}};
  for (const auto& [text, type] : cases) {
    CTimeDataSolution t;
    t.SetTimeDataType(2);
    EXPECT_EQ(t.Read(Parse(text)), 0);
    EXPECT_EQ(t.GetTimeDataType(), type) << text;
  }
}

TEST(NetworkDataSolutionStorage, PointsWithoutAUsableFrequencyOrWithNonFiniteDataAbort) {
  const std::string ports = "Ports {\n  Port { MatrixIndex = 0 } Port\n} Ports\n";
  const std::string good = "  DataPoint { Frequency = 1e9\n    SMatrix { m = 1\n n = 1\n r0 { c = [0.5, 0.1] } r0 } SMatrix } DataPoint\n";
  struct Case {
    std::string point, message;
  };
  for (const Case& c : {
           Case{"  DataPoint { Frequency = nan } DataPoint\n",
                "solution.ndp:9:15: in block \"DataPoint\": expected a finite frequency of 0 Hz or more, found nan"},
           Case{"  DataPoint { Frequency = -inf } DataPoint\n", "found -inf"},
           Case{"  DataPoint { DataType = ExactPoint } DataPoint\n", "a data point needs its \"Frequency\""},
           Case{"  DataPoint { Frequency = 2e9\n    SMatrix { m = 1\n n = 1\n r0 { c = [nan, 0.1] } r0 } SMatrix } "
                "DataPoint\n",
                "the data point at 2000000000 Hz holds a value that is not finite"},
       }) {
    // The bad point comes second: before, a NaN key swallowed every later
    // point as its duplicate, and a lookup could return it.
    io::CBlock block = Parse(ports + "Frequencies {\n" + good + c.point + "} Frequencies\n");
    CNetworkModalSolution s;
    EXPECT_EQ(s.Read(block), io::kReadBadValue) << c.point;
    EXPECT_NE(block.GetReadError().find(c.message), std::string::npos) << block.GetReadError();
  }
}
