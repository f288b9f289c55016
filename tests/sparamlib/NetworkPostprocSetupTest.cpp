// Post-processing setup: what needs post-processing, defaults and overrides,
// stored form (exact layout, round trip, older and malformed blocks).
#include <gtest/gtest.h>

#include <string>

#include "core/BlockText.h"
#include "sparamlib/NetworkPostprocSetup.h"
#include "support/AssertCapture.h"

using PSetup = CNetworkPostprocSetup;  // gtest's Test already has a Setup
using Kind = PSetup::ImpedanceKind;
using C = AComplex<double>;
using Texts = std::vector<std::string>;

namespace {

std::unique_ptr<CFxemDifferentialPair> Pair(const char* diffName, bool matched) {
  auto pair = std::make_unique<CFxemDifferentialPair>();
  pair->SetDiffName(diffName);
  pair->SetUseMatched(matched);
  return pair;
}

PSetup TwoPorts(int matrixSize = 3) {
  PSetup s;
  s.SetNumPorts(2);
  s.SetMatrixSize(matrixSize);
  s.SetModes({matrixSize - 1, 1});
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
  const io::CBlock* block = root.FindBlock("Setup");
  return block ? s.Read(*block) : -100;
}

}  // namespace

TEST(NetworkPostprocSetup, NeedsPostprocessingOnlyWhenSomethingIsAsked) {
  using Change = void (*)(PSetup&);
  // clang-format off
  const std::pair<Change, bool> cases[] = {
      {[](PSetup&) {}, false},
      {[](PSetup& s) { s.SetModal(false); }, true},
      {[](PSetup& s) { s.SetImpedMultiplier(1.0000001); }, true},
      {[](PSetup& s) { s.AddDiffPair(Pair("d", true)); }, true},
      {[](PSetup& s) { s.AddDiffPair(Pair("d", false)); }, false},
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
  EXPECT_EQ(capture.conditions(), Texts{"renormImpeds->size() != mMatrixSize"});
  EXPECT_TRUE(!s.DoesRenormalize() && !s.GetRenormImpeds() && s.DoesDeembed());
  s.SetPostprocessing(true, &z3, &d4);
  EXPECT_EQ(capture.conditions().back(), "deembedDists->size() != mMatrixSize");
  EXPECT_TRUE(s.DoesRenormalize() && !s.DoesDeembed() && !s.GetDeembedDists());

  s.SetPostprocessing(true, nullptr, nullptr);
  s.SetRenormImpeds({{-1, C(1.0)}, {2, C(75.0, 1.0)}, {3, C(1.0)}});
  s.SetDeembedDists({{3, 1.0}, {-1, 1.0}, {0, 0.25}});
  const Texts all = capture.conditions();
  EXPECT_EQ(Texts(all.begin() + 2, all.end()),
            (Texts{"0 <= renormImpeds[i].first", "renormImpeds[i].first < mMatrixSize",
                   "deembedDists[i].first < mMatrixSize", "0 <= deembedDists[i].first"}));
  EXPECT_TRUE(s.DoesRenormalize() && !s.GetDoRenorm());
  EXPECT_EQ((*s.GetRenormImpeds())[0], C());  // no default to fall back on

  // New defaults fill the entries that have no override of their own.
  s.SetPostprocessing(true, &z3, &d3);
  EXPECT_EQ((*s.GetRenormImpeds())[0], C(50.0));
  EXPECT_EQ((*s.GetRenormImpeds())[2], C(75.0, 1.0));
  EXPECT_EQ((*s.GetDeembedDists())[0], 0.25);
  EXPECT_EQ((*s.GetDeembedDists())[1], 0.1);
  s.SetDeembedDists({});
  EXPECT_EQ(s.GetDeembedDists(), s.GetDefaultDeembedDists());
}

TEST(NetworkPostprocSetup, WritesItsItemsInStoredOrderAndReadsThemBack) {
  PSetup s = TwoPorts(2);
  const PSetup::CVector z(2, C(50.0, -1.0));
  const PSetup::RVector d(2, 0.125);
  s.SetPortImpedances(&z);
  s.SetPostprocessing(false, &z, &d);
  s.SetRenormImpeds({{1, C(25.0)}});
  s.SetDeembedDists({{0, 0.5}});
  s.SetPortRenormFlags({true, false});
  s.SetCharImpedanceKinds({Kind::Zvi, Kind::NotSet, static_cast<Kind>(7), Kind::Zpv});
  s.AddDiffPair(Pair("d", false));
  s.SetImpedMultiplier(0.5);
  s.SetExtrapToDC(true);
  s.SetPortCalibration({false, true}, {1.0, 2.0}, {3.0, 4.0});
  const std::string text = Text(s);
  EXPECT_EQ(text,
            "Setup {\n"
            "  NumPorts = 2\n  MatrixSize = 2\n  IsModal = false\n  DoRenorm = true\n"
            "  DoDeembed = true\n  UseZpiOnly = true\n  LosslessDeembed = true\n"
            "  ImpedMultiplier = 0.5\n  Modes = [1, 1]\n"
            "  PortImpeds = [50.0, -1.0, 50.0, -1.0]\n"
            "  DefaultImpeds = [50.0, -1.0, 50.0, -1.0]\n"
            "  Impeds = [50.0, -1.0, 25.0, 0.0]\n"
            "  DefaultDists = [0.125, 0.125]\n  Dists = [0.5, 0.125]\n"
            "  DoPortRenorm = [true, false]\n"
            "  PortCharImpeds = [Zvi, Zpi, Zpi, Zpv]\n"
            "  DiffPairs {\n    Pair {\n"
            "      CommPortName = \"\"\n      DiffPortName = \"\"\n      DiffName = \"d\"\n"
            "      PosTerminalIndex = -1\n      CommonName = \"\"\n      NegTerminalIndex = -1\n"
            "      UseMatched = false\n    } Pair\n  } DiffPairs\n"
            "  ExtrapToDC = true\n"
            "  CalibratePorts = [false, true]\n  PortLengths = [1.0, 2.0]\n"
            "  PortWidths = [3.0, 4.0]\n"
            "} Setup\n");

  PSetup back;
  io::CBlock root;
  ASSERT_EQ(ReadText(text, back, root), 0) << root.GetReadError();
  EXPECT_EQ(Text(back), text);
  EXPECT_EQ(back.GetCharImpedanceKinds(),
            (std::vector<Kind>{Kind::Zvi, Kind::Zpi, Kind::Zpi, Kind::Zpv}));
}

TEST(NetworkPostprocSetup, ReadsOlderAndUnusualBlocks) {
  const struct {
    std::string body;
    int result;
    std::vector<int> modes;
    std::vector<Kind> kinds;
    bool extrapToDC;  // was true before reading
  } cases[] = {
      // clang-format off
      {"", 0, {}, {}, true},
      {"Modes = [1, 1]\n", 0, {1, 1}, {}, true},
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
      {"Modes = [2]\n PortImpeds = [1, 2, 3, 4, 5, 6]\n Dists = [0.5]\n", 0, {2}, {}, true},
      // clang-format on
  };
  for (const auto& c : cases) {
    PSetup s;
    s.SetExtrapToDC(true);
    io::CBlock root;
    const std::string text = "Setup {\n MatrixSize = 2\n" + c.body + "} Setup\n";
    EXPECT_EQ(ReadText(text, s, root), c.result) << c.body;
    EXPECT_EQ(s.GetModes(), c.modes) << c.body;
    EXPECT_EQ(s.GetCharImpedanceKinds(), c.kinds) << c.body;
    EXPECT_EQ(s.GetExtrapToDC(), c.extrapToDC) << c.body;
    EXPECT_EQ(root.HasReadError(), c.result != 0) << c.body;
    EXPECT_EQ(s.GetNumDiffPairs(), c.result == -1 ? 1 : 0) << c.body;
    if (c.modes == std::vector<int>{2}) {
      ASSERT_TRUE(s.GetPortImpedances() && s.GetDeembedDists());
      EXPECT_EQ(s.GetPortImpedances()->size(), 2);
      EXPECT_EQ((*s.GetPortImpedances())[1], C(3.0, 4.0));
      EXPECT_EQ(s.GetDeembedDists()->size(), 2);
      EXPECT_EQ((*s.GetDeembedDists())[1], 0.0);
    }
  }
  // A damaged size must not make the reader allocate without bound.
  PSetup huge;
  io::CBlock root;
  EXPECT_EQ(ReadText("Setup {\n MatrixSize = 2000000000\n Modes = [1]\n PortImpeds = [1, 2]\n} Setup\n",
                     huge, root),
            io::kReadBadValue);
}

TEST(FxemDifferentialPair, OlderPortNameFillsBothPortsAndIsNeverWritten) {
  io::CBlock in;
  in.AddString("PortName", "P7");
  in.AddString("CommPortName", "ignored");
  CFxemDifferentialPair pair;
  EXPECT_EQ(pair.Read(in), 0);
  EXPECT_EQ(pair.GetCommPortName(), "P7");
  EXPECT_EQ(pair.GetDiffPortName(), "P7");
  io::CBlock out;
  EXPECT_TRUE(pair.Write(out));
  EXPECT_FALSE(out.HasItem("PortName"));
}

TEST(NetworkPostprocSetup, FailedPairWriteKeepsEmptyPlacesForTheRest) {
  PSetup s = TwoPorts();
  s.AddDiffPair(Pair("a", true));
  s.AddDiffPair(Pair("b", true));
  io::CBlock root;
  root.SetReadError("earlier failure");
  EXPECT_FALSE(s.Write(root));
  const auto pairs = root.FindBlock("DiffPairs")->FindBlocks("Pair");
  ASSERT_EQ(pairs.size(), 2u);
  EXPECT_TRUE(!pairs[0]->IsEmpty() && pairs[1]->IsEmpty());
}

TEST(NetworkPostprocSetup, CopiesAreIndependent) {
  PSetup s = TwoPorts();
  s.SetRenormImpeds({{0, C(10.0)}});
  s.AddDiffPair(Pair("a", true));
  PSetup copy;
  copy = s;
  s.SetRenormImpeds({{0, C(20.0)}});
  s.GetDiffPair(0)->SetDiffName("changed");
  EXPECT_EQ((*copy.GetRenormImpeds())[0], C(10.0));
  EXPECT_EQ(copy.GetDiffPair(0)->GetDiffName(), "a");
  EXPECT_EQ(Text(PSetup(copy)), Text(copy));
}
