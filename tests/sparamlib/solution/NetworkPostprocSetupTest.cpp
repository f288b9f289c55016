// Post-processing setup: what needs post-processing, defaults and overrides,
// stored form (exact layout, round trip, older and malformed blocks).
#include <gtest/gtest.h>

#include <string>

#include "core/BlockText.h"
#include "sparamlib/solution/NetworkPostprocSetup.h"
#include "support/AssertCapture.h"

using PSetup = CNetworkPostprocSetup;  // gtest's Test already has a Setup
using Kind = PSetup::ImpedanceKind;
using C = AComplex<double>;
using Texts = std::vector<std::string>;

namespace {

std::unique_ptr<CFxemDifferentialPair> Pair(bool matched) {
  auto pair = std::make_unique<CFxemDifferentialPair>();
  pair->SetUseMatched(matched);
  return pair;
}

PSetup TwoPorts() {  // of two modes and one
  PSetup s;
  s.SetNumPorts(2);
  s.SetMatrixSize(3);
  s.SetModes({2, 1});
  return s;
}

std::string Text(const PSetup& s) {
  io::CBlock root;
  EXPECT_TRUE(s.Write(root.AddBlock("Setup")));
  std::string text;
  io::WriteBlockText(root, text);
  return text;
}

int ReadText(const std::string& text, PSetup& s, io::CBlock& root) {
  EXPECT_EQ(io::ParseBlockText(text, "setup.txt", root), io::kReadOk) << root.GetReadError();
  return root.FindBlock("Setup") ? s.Read(*root.FindBlock("Setup")) : -100;
}

}  // namespace

TEST(NetworkPostprocSetup, NeedsPostprocessingOnlyWhenSomethingIsAsked) {
  // clang-format off
  const std::pair<void (*)(PSetup&), bool> cases[] = {
      {[](PSetup&) {}, false},
      {[](PSetup& s) { s.SetModal(false); }, true},
      {[](PSetup& s) { s.SetImpedMultiplier(1.0000001); }, true},
      {[](PSetup& s) { s.AddDiffPair(Pair(true)); }, true},
      {[](PSetup& s) { s.AddDiffPair(Pair(false)); }, false},
      {[](PSetup& s) { s.SetPortCalibration({false, true}, {1.0, 2.0}, {3.0, 4.0}); }, true},
      {[](PSetup& s) { s.SetPortCalibration({false, false}, {1.0, 2.0}, {3.0, 4.0}); }, false},
      {[](PSetup& s) { s.SetPortCalibration({true, true}, {1.0, 2.0}, {}); }, false},
      {[](PSetup& s) { s.SetNumPorts(0), s.SetPortCalibration({true}, {1.0}, {1.0}); }, false},
      {[](PSetup& s) { s.SetModal(false), s.SetExtrapToDC(true), s.SetMatrixSize(0); }, false},
  };
  // clang-format on
  for (size_t i = 0; i < std::size(cases); ++i) {
    PSetup s = TwoPorts();
    cases[i].first(s);
    EXPECT_EQ(s.NeedsPostprocessing(), cases[i].second) << "case " << i;
  }
}

TEST(NetworkPostprocSetup, MisuseIsReportedAndSkipped) {
  PSetup s = TwoPorts();
  const PSetup::CVector z3(3, C(50.0)), z2(2, C(50.0));
  const PSetup::RVector d3(3, 0.1), d4(4, 0.1);
  s.SetPostprocessing(true, &z3, &d3);
  testing_support::AssertCapture capture;
  s.SetPostprocessing(false, &z2, &d3);
  EXPECT_TRUE(!s.DoesRenormalize() && !s.GetRenormImpeds() && s.DoesDeembed());
  s.SetPostprocessing(true, &z3, &d4);
  EXPECT_TRUE(s.DoesRenormalize() && !s.DoesDeembed() && !s.GetDeembedDists());
  s.SetPostprocessing(true, nullptr, nullptr);
  s.SetRenormImpeds({{-1, C(1.0)}, {2, C(75.0, 1.0)}, {3, C(1.0)}});
  s.SetDeembedDists({{3, 1.0}, {-1, 1.0}, {0, 0.25}});
  EXPECT_EQ(capture.conditions(),
            (Texts{"renormImpeds->size() != mMatrixSize", "deembedDists->size() != mMatrixSize",
                   "0 <= renormImpeds[i].first", "renormImpeds[i].first < mMatrixSize",
                   "deembedDists[i].first < mMatrixSize", "0 <= deembedDists[i].first"}));
  EXPECT_TRUE(s.DoesRenormalize() && !s.GetDoRenorm());
  EXPECT_EQ((*s.GetRenormImpeds())[0], C());  // no default to fall back on

  // New defaults fill the entries that have no override of their own.
  s.SetPostprocessing(true, &z3, &d3);
  EXPECT_NE(Text(s).find("  Impeds = [50.0, 0.0, 50.0, 0.0, 75.0, 1.0]\n"
                         "  DefaultDists = [0.1, 0.1, 0.1]\n  Dists = [0.25, 0.1, 0.1]\n"),
            std::string::npos)
      << Text(s);
}

TEST(NetworkPostprocSetup, ReadsAndWritesItsItemsInStoredOrderCopiesDeeplyKeepsPairPlaces) {
  const std::string text =
      "Setup {\n  NumPorts = 2\n  MatrixSize = 2\n  IsModal = false\n  DoRenorm = true\n"
      "  DoDeembed = true\n  UseZpiOnly = true\n  LosslessDeembed = true\n"
      "  ImpedMultiplier = 0.5\n  Modes = [1, 1]\n  PortImpeds = [50.0, -1.0, 50.0, -1.0]\n"
      "  DefaultImpeds = [50.0, -1.0, 50.0, -1.0]\n  Impeds = [50.0, -1.0, 25.0, 0.0]\n"
      "  DefaultDists = [0.125, 0.125]\n  Dists = [0.5, 0.125]\n"
      "  DoPortRenorm = [true, false]\n  PortCharImpeds = [Zvi, Zpi, Zpi, Zpv]\n"
      "  DiffPairs {\n    Pair {\n      CommPortName = \"\"\n      DiffPortName = \"\"\n"
      "      DiffName = \"d\"\n      PosTerminalIndex = -1\n      CommonName = \"\"\n"
      "      NegTerminalIndex = -1\n      UseMatched = false\n    } Pair\n  } DiffPairs\n"
      "  ExtrapToDC = true\n  CalibratePorts = [false, true]\n  PortLengths = [1.0, 2.0]\n"
      "  PortWidths = [3.0, 4.0]\n} Setup\n";
  PSetup s;
  io::CBlock root;
  ASSERT_EQ(ReadText(text, s, root), 0) << root.GetReadError();
  EXPECT_EQ(Text(s), text);
  // Kinds without a name of their own are written as Zpi.
  s.SetCharImpedanceKinds({Kind::Zvi, Kind::NotSet, static_cast<Kind>(7), Kind::Zpv});
  EXPECT_EQ(Text(s), text);

  PSetup copy;
  copy = s;
  s.SetRenormImpeds({{0, C(20.0)}});
  s.GetDiffPair(0)->SetDiffName("changed");
  EXPECT_EQ(Text(copy), text);
  EXPECT_EQ(Text(PSetup(copy)), text);

  // A setup whose pair fails to write still leaves an empty place per pair.
  s.AddDiffPair(Pair(true));
  root.Clear();
  root.SetReadError("earlier failure");
  EXPECT_FALSE(s.Write(root));
  const auto pairs = root.FindBlock("DiffPairs")->FindBlocks("Pair");
  ASSERT_EQ(pairs.size(), 2u);
  EXPECT_TRUE(!pairs[0]->IsEmpty() && pairs[1]->IsEmpty());
}

TEST(NetworkPostprocSetup, ReadsOlderAndUnusualBlocks) {
  const struct {
    std::string body;
    int result;
    std::vector<int> modes;
    std::vector<Kind> kinds;
    bool extrapToDC;                       // was true before reading
    std::string size = "2", written = "";  // written: part of the setup written again
  } cases[] = {
      // clang-format off
      {"Modes = [1]\n DoPortRenorm = [true]\n", 0, {1}, {}, true},
      {"Modes = [1]\n DoPortRenorm = []\n PortCharImpeds = [Zpi, Zxy, \"Zvi\"]\n", 0, {1},
       {Kind::Zpi, Kind::Zvi}, false},
      {"Modes = \"1 1\"\n", io::kReadWrongType, {}, {}, true},
      {"Modes = [1, 2.0]\n", io::kReadWrongType, {}, {}, true},
      // The second pair is broken: the read stops there, keeping the first.
      {"Modes = [1]\n DoPortRenorm = []\n PortCharImpeds = [Zpv]\n"
       " DiffPairs {\n Pair {\n DiffName = \"ok\"\n } Pair\n"
       " Pair {\n PosTerminalIndex = \"x\"\n } Pair\n } DiffPairs\n ExtrapToDC = false\n",
       -1, {1}, {Kind::Zpv}, true},
      // Numbers beyond the matrix size are ignored, missing ones are zeros.
      {"Modes = [2]\n PortImpeds = [1, 2, 3, 4, 5, 6]\n Dists = [0.5]\n", 0, {2}, {}, true, "2",
       "  PortImpeds = [1.0, 2.0, 3.0, 4.0]\n  Dists = [0.5, 0.0]\n"},
      // A damaged size must not make the reader allocate without bound.
      {"Modes = [1]\n PortImpeds = [1, 2]\n", io::kReadBadValue, {}, {}, true, "2000000000"},
      // clang-format on
  };
  for (const auto& c : cases) {
    PSetup s;
    s.SetExtrapToDC(true);
    io::CBlock root;
    const std::string text = "Setup {\n MatrixSize = " + c.size + "\n" + c.body + "} Setup\n";
    EXPECT_EQ(ReadText(text, s, root), c.result) << c.body;
    EXPECT_EQ(s.GetModes(), c.modes) << c.body;
    EXPECT_EQ(s.GetCharImpedanceKinds(), c.kinds) << c.body;
    EXPECT_EQ(s.GetExtrapToDC(), c.extrapToDC) << c.body;
    EXPECT_EQ(root.HasReadError(), c.result != 0) << c.body;
    EXPECT_EQ(s.GetNumDiffPairs(), c.result == -1 ? 1 : 0) << c.body;
    EXPECT_NE(Text(s).find(c.written), std::string::npos) << Text(s);
  }
}

TEST(FxemDifferentialPair, OlderPortNameFillsBothPortsAndIsNeverWritten) {
  io::CBlock in, out;
  in.AddString("PortName", "P7");
  in.AddString("CommPortName", "ignored");
  CFxemDifferentialPair pair;
  EXPECT_EQ(pair.Read(in), 0);
  EXPECT_TRUE(pair.GetCommPortName() == "P7" && pair.GetDiffPortName() == "P7");
  EXPECT_TRUE(pair.Write(out) && !out.HasItem("PortName"));
}
