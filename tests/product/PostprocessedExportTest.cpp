// Exports apply the variation's post-processing to copies of the points:
// the file holds what the setup asks for, the stored points stay as solved,
// --no-postproc gives them as solved, and what cannot be applied is refused.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "core/BlockText.h"
#include "product/ConvertCommand.h"
#include "product/ExportNetworkDataCmd.h"
#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkTransforms.h"
#include "support/RandomNetwork.h"
#include "support/SampleProject.h"
#include "support/ScratchDir.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;

class PostprocessedExport : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = testing_support::ScratchDirectory("sparam_postproc");
    project = testing_support::RandomProject(1, 4, 6);
    setup = std::make_unique<CNetworkPostprocSetup>();
    setup->SetNumPorts(4);
    setup->SetMatrixSize(4);
    setup->SetModes({1, 1, 1, 1});
  }
  void TearDown() override { fs::remove_all(dir); }
  CNetworkDataSolution& Solution() { return *project->GetVariation(0)->GetWritableSolution(""); }
  std::string Text() {
    io::CBlock block;
    Solution().Write(block, true);
    std::string text;
    io::WriteBlockText(block, text);
    return text;
  }
  // Exports as Touchstone 2.0 (RI, 15 digits) and reads the file back.
  std::unique_ptr<CProject> ExportAndRead(bool raw = false, std::string* error = nullptr,
                                          bool keepImpedances = false) {
    project->GetVariation(0)->SetPostprocSetup(std::make_unique<CNetworkPostprocSetup>(*setup));
    ExportRequest request;
    request.output = (dir / "out.ts").string();
    request.display = nd::kRealImaginary;
    request.precision = 15;
    request.noPostprocessing = raw;
    request.keepPortImpedances = keepImpedances;
    std::string why;
    if (!CExportNetworkDataCmd().Execute(*project, request, &why)) {
      if (error) *error = why;
      return nullptr;
    }
    auto back = sparam::LoadNetworkFile(request.output, &why);
    EXPECT_TRUE(back) << why;
    return back;
  }
  static CNetworkDataSolution& Only(CProject& p) { return *p.GetVariation(0)->GetWritableSolution(""); }
  fs::path dir;
  std::unique_ptr<CProject> project;
  std::unique_ptr<CNetworkPostprocSetup> setup;
};

// Multiplier, de-embedding, per-entry renormalisation and a matched pair in
// one setup: the file holds the chain's result at the references it states,
// the pair's names, and the stored solution is unchanged to the bit.
TEST_F(PostprocessedExport, TheFileHoldsTheChainAndTheSolutionStaysAsSolved) {
  const TNT::CVector renorm(4, C(50.0));
  const C z75(75.0, -5.0);
  CNetworkPostprocSetup::RVector dists(4, 0.0);
  dists[0] = 0.01;
  dists[3] = -0.02;
  setup->SetPostprocessing(true, &renorm, &dists);
  setup->SetRenormImpeds({{1, z75}});
  setup->SetPortRenormFlags({true, true, false, true});
  setup->SetLosslessDeembed(false);
  setup->SetImpedMultiplier(2.0);
  auto pair = std::make_unique<CFxemDifferentialPair>();
  pair->SetPosTerminalIndex(0);
  pair->SetNegTerminalIndex(2);
  pair->SetDiffName("D_Diff");
  pair->SetCommonName("D_Comm");
  pair->SetUseMatched(true);
  setup->AddDiffPair(std::move(pair));
  const std::string before = Text();
  auto back = ExportAndRead();
  ASSERT_TRUE(back);
  EXPECT_EQ(Text(), before);
  EXPECT_EQ(Only(*back).GetMatrixEntry(0)->GetModalEntryName(), AString("D_Diff"));
  EXPECT_EQ(Only(*back).GetMatrixEntry(2)->GetModalEntryName(), AString("D_Comm"));

  auto got = Only(*back).GetFrequencyMap().begin();
  for (const auto& [f, stored] : Solution().GetFrequencyMap()) {
    // The chain by hand, from the library's transforms.
    auto copy = stored->Clone();
    auto& p = static_cast<CNetworkModalData&>(*copy);
    nd::ScaleImpedance(2.0, p);
    TNT::CMatrix s;
    ASSERT_EQ(nd::DeembedS(*p.GetSMatrix(true), *p.GetGamma(), {0.01, 0.0, 0.0, -0.02}, false, s), 0);
    p.DropDerivedMatrices();
    p.SetSMatrix(std::make_unique<TNT::CMatrix>(s));
    TNT::CVector target = *p.GetPortImpedance();
    target[0] = C(50.0);
    target[1] = z75;
    target[3] = C(50.0);
    ASSERT_TRUE(p.Renormalize(target));
    const nd::PortPairs pairs = {{0, 2}};
    const TNT::CVector zMixed = nd::MatchedMixedModeImpedances(target, pairs);
    TNT::CMatrix mixed;
    ASSERT_EQ(nd::SingleEndedToMixedMode(*p.GetSMatrix(true), target, pairs, zMixed, mixed), 0);
    // Complex and differing references: the file is at 50 ohms, said so.
    auto& read = static_cast<CNetworkModalData&>(*(got++)->second);
    for (int k = 0; k < 4; ++k) EXPECT_EQ((*read.GetPortImpedance())[k], C(50.0));
    TNT::CMatrix at50;
    ASSERT_EQ(nd::RenormalizeS(mixed, nd::SqrtImpedances(zMixed), nd::SqrtImpedances(TNT::CVector(4, C(50.0))), at50), 0);
    EXPECT_LE(testing_support::MaxAbsDiff(*read.GetSMatrix(), at50), 1e-12 * testing_support::MaxAbs(at50));
  }
}

// --no-postproc writes the points as solved; steps this version cannot apply
// are refused, not skipped.
TEST_F(PostprocessedExport, RawExportsAndStepsThatCannotBeApplied) {
  setup->SetImpedMultiplier(3.0);
  auto raw = ExportAndRead(true);
  ASSERT_TRUE(raw);
  auto got = Only(*raw).GetFrequencyMap().begin();
  for (const auto& [f, stored] : Solution().GetFrequencyMap()) {
    auto copy = stored->Clone();
    auto& p = static_cast<CNetworkModalData&>(*copy);
    ASSERT_TRUE(p.Renormalize(TNT::CVector(4, C(50.0))));
    EXPECT_LE(testing_support::MaxAbsDiff(*(got++)->second->GetSMatrix(), *p.GetSMatrix()), 1e-12);
  }
  setup->SetModal(false);
  fs::remove(dir / "out.ts");
  std::string why;
  EXPECT_FALSE(ExportAndRead(false, &why));
  EXPECT_NE(why.find("terminal data, which this version cannot apply"), std::string::npos) << why;
  EXPECT_FALSE(fs::exists(dir / "out.ts"));
}

// DC: a real point at 0 Hz first in the file (at the points' own
// references, kept); the settings come from the environment and a bad one is
// refused by name.
TEST_F(PostprocessedExport, ExtrapolationToDcAddsARealPointFirst) {
  Solution().SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  setup->SetExtrapToDC(true);
  auto back = ExportAndRead(false, nullptr, true);
  ASSERT_TRUE(back);
  const auto& points = Only(*back).GetFrequencyMap();
  ASSERT_EQ(points.size(), Solution().GetFrequencyMap().size() + 1);
  const TNT::CMatrix& dc = *points.begin()->second->GetSMatrix();
  EXPECT_EQ(points.begin()->first, 0.0);
  for (int k = 0; k < 16; ++k) EXPECT_EQ(dc.data()[k].im, 0.0);
  ::setenv("DC_EXTRAP_NUM_SAMPLES", "40", 1);
  std::string why;
  EXPECT_FALSE(ExportAndRead(false, &why));
  ::unsetenv("DC_EXTRAP_NUM_SAMPLES");
  EXPECT_NE(why.find("DC_EXTRAP_NUM_SAMPLES"), std::string::npos) << why;
}

}  // namespace
