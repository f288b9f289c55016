// Exports apply the variation's post-processing to copies of the points:
// the file holds what the setup asks for, the stored points stay as solved,
// --no-postproc gives them as solved, and what cannot be applied is refused.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <complex>
#include <filesystem>

#include "core/BlockText.h"
#include "product/ConvertCommand.h"
#include "product/Devices.h"
#include "product/ExportNetworkDataCmd.h"
#include "sparamlib/data/DcExtrapolation.h"
#include "sparamlib/interp/FxemModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"
#include "sparamlib/solution/Postprocessing.h"
#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkTerminalData.h"
#include "sparamlib/data/NetworkTransforms.h"
#include "support/RandomNetwork.h"
#include "support/RunSparam.h"
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

// What the solution hands out with its setup: the export's numbers, while
// the stored point and the solution's caches stay as they were.
TEST_F(PostprocessedExport, PostprocessedDataIsWhatExportsWrite) {
  const TNT::CVector renorm(4, C(75.0));
  setup->SetPostprocessing(true, &renorm, nullptr);
  project->GetVariation(0)->SetPostprocSetup(std::make_unique<CNetworkPostprocSetup>(*setup));
  Solution().SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  const std::string before = Text();
  std::string why;
  for (double f : {1e9, 2.5e9}) {
    auto got = nd::GetPostprocessedData(Solution(), f, 0.0, true, &why);
    ASSERT_TRUE(got) << why;
    EXPECT_EQ((*static_cast<CNetworkModalData&>(*got).GetPortImpedance())[2], C(75.0));
    auto raw = Solution().GetNetworkData(f, 0.0, true)->Clone();
    Solution().ReleaseNetworkData(f);
    ASSERT_TRUE(static_cast<CNetworkModalData&>(*raw).Renormalize(renorm));
    EXPECT_LE(testing_support::MaxAbsDiff(*got->GetSMatrix(), *raw->GetSMatrix()), 1e-13);
  }
  EXPECT_EQ(Text(), before);
  EXPECT_FALSE(nd::GetPostprocessedData(Solution(), 50e9, 0.0, false, &why));
}

// A terminal solution renormalised for the file: its terminals reach the
// reference the option line states (never a claim over data left at 50).
TEST_F(PostprocessedExport, TerminalSolutionsAreRenormalisedBeforeTheyAreClaimed) {
  auto modal = std::unique_ptr<CNetworkModalSolution>(
      static_cast<CNetworkModalSolution*>(Solution().Clone().release()));
  AString error;
  auto terminal = nd::MakeTerminalSolution(*modal, nullptr, nd::TerminalViewSettings{}, &error);
  ASSERT_TRUE(terminal) << error;
  auto reference = std::unique_ptr<CNetworkDataSolution>(terminal->Clone());
  project = std::make_unique<CProject>();
  project->AddVariation().AddSolution(std::move(terminal));
  ExportRequest request;
  request.output = (dir / "t.s4p").string();
  request.display = nd::kRealImaginary;
  request.precision = 15;
  request.renormalizeTo = 75.0;
  std::string why;
  ASSERT_TRUE(CExportNetworkDataCmd().Execute(*project, request, &why)) << why;
  auto back = sparam::LoadNetworkFile(request.output, &why);
  ASSERT_TRUE(back) << why;
  auto got = Only(*back).GetFrequencyMap().begin();
  for (const auto& [f, point] : reference->GetFrequencyMap()) {
    auto copy = point->Clone();
    auto& t = static_cast<CNetworkTerminalData&>(*copy);
    ASSERT_TRUE(t.Renormalize(TNT::CVector(4, C(75.0))));
    auto& read = static_cast<CNetworkModalData&>(*(got++)->second);
    EXPECT_EQ((*read.GetPortImpedance())[0], C(75.0));
    EXPECT_LE(testing_support::MaxAbsDiff(*read.GetSMatrix(), *t.GetSMatrix()), 1e-12 * testing_support::MaxAbs(*t.GetSMatrix()));
  }
}

// The terminal view of a modal setup: a two-conductor port with odd and
// even modes (the standard modes) exports as the single-ended terminals the
// mixed-mode relations give, at the setup's impedances as references.
TEST_F(PostprocessedExport, TheTerminalViewOfOddAndEvenModes) {
  auto solution = std::make_unique<CNetworkModalSolution>("Modes");
  solution->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (int k = 0; k < 2; ++k) {
    CMatrixEntry e("P1", k + 1, k);
    solution->AddMatrixEntry(e);
  }
  const TNT::CVector zModes = [] {
    TNT::CVector z(2, C(0.0));
    z[0] = C(90.0, 3.0);   // odd (differential) mode
    z[1] = C(28.0, -1.0);  // even (common) mode
    return z;
  }();
  const auto& source = Solution().GetFrequencyMap();
  for (auto it = source.begin(); it != source.end(); ++it) {
    auto point = solution->CreateNetworkData();
    point->SetFrequency(it->first);
    TNT::CMatrix s(2, 2);
    for (int i = 0; i < 2; ++i)
      for (int j = 0; j < 2; ++j) s[i][j] = (*it->second->GetSMatrix(false))[i][j];
    point->SetSMatrix(std::make_unique<TNT::CMatrix>(s));
    static_cast<CNetworkModalData&>(*point).SetPortImpedance(std::make_unique<TNT::CVector>(zModes));
    solution->AddNetworkData(std::move(point));
  }
  auto copy = solution->Clone();
  project = std::make_unique<CProject>();
  project->AddVariation().AddSolution(std::move(solution));
  setup = std::make_unique<CNetworkPostprocSetup>();
  setup->SetNumPorts(1);
  setup->SetMatrixSize(2);
  setup->SetModes({2});
  const TNT::CVector terminals(2, C(50.0));
  setup->SetPostprocessing(false, &terminals, nullptr);
  ::setenv("USE_STANDARD_MODES", "1", 1);
  std::string why;
  auto back = ExportAndRead(false, &why);
  ::unsetenv("USE_STANDARD_MODES");
  ASSERT_TRUE(back) << why;
  EXPECT_NE(testing_support::ReadWholeFile(dir / "out.ts").find("! Terminal data exported"), std::string::npos);
  auto got = Only(*back).GetFrequencyMap().begin();
  for (const auto& [f, point] : copy->GetFrequencyMap()) {
    TNT::CMatrix want;
    ASSERT_EQ(nd::MixedModeToSingleEnded(*point->GetSMatrix(false), zModes, {{0, 1}}, terminals, want), 0);
    EXPECT_LE(testing_support::MaxAbsDiff(*(got++)->second->GetSMatrix(), want), 1e-12);
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
  auto pair = std::make_unique<CFxemDifferentialPair>();
  pair->SetPosTerminalIndex(0);
  pair->SetNegTerminalIndex(1);
  setup->AddDiffPair(std::move(pair));
  fs::remove(dir / "out.ts");
  std::string why;
  EXPECT_FALSE(ExportAndRead(false, &why));
  EXPECT_NE(why.find("differential pairs in the terminal view, which this version cannot apply"),
            std::string::npos) << why;
  EXPECT_FALSE(fs::exists(dir / "out.ts"));
}

// The impedance definition: an entry asked to stand at Zpv keeps the
// solver's S and takes Zpv as its reference, so the file (renormalised to
// 50 ohms) is the S renormalised from Zpv, not from Zpi; a definition the
// solver did not supply is refused by name.
TEST_F(PostprocessedExport, ImpedanceDefinitionsTheSolverSupplies) {
  using Kind = CNetworkPostprocSetup::ImpedanceKind;
  auto solver = std::make_unique<CFxemModalSolution>("Solver");
  solver->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (int k = 0; k < 4; ++k) solver->AddMatrixEntry(*Solution().GetMatrixEntry(k));
  TNT::CVector zpv(4, C(0.0));
  for (int k = 0; k < 4; ++k) zpv[k] = C(40.0 + 3.0 * k, -2.0 * k);
  for (const auto& [f, stored] : Solution().GetFrequencyMap()) {
    auto point = solver->CreateNetworkData();
    auto& p = static_cast<CFxemModalData&>(*point);
    p.SetFrequency(f);
    p.SetSMatrix(std::make_unique<TNT::CMatrix>(*stored->GetSMatrix(false)));
    p.SetPortImpedance(std::make_unique<TNT::CVector>(*static_cast<const CNetworkModalData&>(*stored).GetPortImpedance()));
    p.SetImpedanceZpv(std::make_unique<TNT::CVector>(zpv));
    solver->AddNetworkData(std::move(point));
  }
  project = std::make_unique<CProject>();
  project->AddVariation().AddSolution(std::move(solver));
  // The alternative impedances are kept with the project.
  AString error;
  ASSERT_TRUE(project->Save(dir / "solver.ndp", &error)) << error;
  project = CProject::Load(dir / "solver.ndp", &error);
  ASSERT_TRUE(project) << error;
  const auto& first = *Solution().GetFrequencyMap().begin()->second;
  ASSERT_NE(dynamic_cast<const CFxemModalData&>(first).GetImpedanceZpv(), nullptr);
  EXPECT_EQ((*dynamic_cast<const CFxemModalData&>(first).GetImpedanceZpv())[3], zpv[3]);
  setup->SetUseZpiOnly(false);
  setup->SetCharImpedanceKinds({Kind::Zpv, Kind::Zpi, Kind::Zpi, Kind::Zvi});
  std::string why;
  EXPECT_FALSE(ExportAndRead(false, &why));
  EXPECT_NE(why.find("the Zvi impedance of entry 4, but the solver supplied Zpi only"), std::string::npos) << why;

  setup->SetCharImpedanceKinds({Kind::Zpv, Kind::Zpi, Kind::Zpi, Kind::Zpi});
  auto back = ExportAndRead();
  ASSERT_TRUE(back);
  auto got = Only(*back).GetFrequencyMap().begin();
  for (const auto& [f, stored] : Solution().GetFrequencyMap()) {
    TNT::CVector from = *static_cast<const CNetworkModalData&>(*stored).GetPortImpedance();
    from[0] = zpv[0];
    TNT::CMatrix want, fromZpi;
    const auto to50 = nd::SqrtImpedances(TNT::CVector(4, C(50.0)));
    ASSERT_EQ(nd::RenormalizeS(*stored->GetSMatrix(false), nd::SqrtImpedances(from), to50, want), 0);
    const TNT::CMatrix& read = *(got++)->second->GetSMatrix();
    EXPECT_LE(testing_support::MaxAbsDiff(read, want), 1e-12 * testing_support::MaxAbs(want));
    ASSERT_EQ(nd::RenormalizeS(*stored->GetSMatrix(false),
                               nd::SqrtImpedances(*static_cast<const CNetworkModalData&>(*stored).GetPortImpedance()),
                               to50, fromZpi), 0);
    EXPECT_GT(testing_support::MaxAbsDiff(read, fromZpi), 1e-3) << "the definition must matter";
  }
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

// The DC point of built-in devices against their analytic response near
// 0 Hz: real, passive, and within the bound DcExtrapolationErrorBound
// states: C max|g''| + G delta (degree 1), doubled 2n-fold if the passivity
// scaling acted; max|g''| is measured on the device, delta is the
// interpolation error of the samples (Neville through 41 solved points,
// taken as 1e-9).
TEST(DcExtrapolation, BuiltInDevicesWithinTheStatedBound) {
  for (const char* name : {"line", "bandpass", "coupler"}) {
    const sparam::CDevice* device = nullptr;
    for (const sparam::CDevice* d : sparam::BuiltInDevices())
      if (d->GetName() == name) device = d;
    ASSERT_NE(device, nullptr) << name;
    const int n = device->GetNumPorts();
    CNetworkModalSolution solution("Sweep");
    solution.SetSolutionType(CNetworkDataSolution::InterpolateNeville);
    for (int k = 0; k < n; ++k) solution.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
    const double lo = device->GetDefaultStart(), hi = device->GetDefaultStop();
    const auto add = [&](double f) {
      SolvedPoint solved;
      std::string why;
      EXPECT_TRUE(device->Evaluate(f, solved, &why)) << why;
      auto point = solution.CreateNetworkData();
      point->SetFrequency(f);
      point->SetSMatrix(std::make_unique<TNT::CMatrix>(solved.s));
      auto& modal = static_cast<CNetworkModalData&>(*point);
      modal.SetPortImpedance(std::make_unique<TNT::CVector>(
          solved.portImpedance.value_or(TNT::CVector(n, C(50.0)))));
      solution.AddNetworkData(std::move(point));
    };
    for (int k = 0; k <= 40; ++k) add(lo + (hi - lo) * k / 40.0);
    CNetworkPostprocSetup setup;
    setup.SetMatrixSize(n);
    setup.SetExtrapToDC(true);
    std::string why;
    auto dc = nd::PostprocessedDcPoint(setup, solution, &why);
    ASSERT_TRUE(dc) << why;
    EXPECT_EQ(solution.GetInterpolatedMap().size(), 0u) << "samples are released";

    nd::DcExtrapolationSettings settings;
    std::vector<double> f;
    ASSERT_TRUE(nd::DcSampleFrequencies(lo, hi, settings, f, &why)) << why;
    nd::DcExtrapolationBound bound;
    ASSERT_TRUE(nd::DcExtrapolationErrorBound(f, settings.order, bound, &why)) << why;
    // max |g''| over (0, f_last] by second differences of the device.
    double curvature = 0.0;
    const int steps = 4000;
    const double h = f.back() / steps;
    std::vector<TNT::CMatrix> g;
    for (int k = 1; k <= steps; ++k) {
      SolvedPoint solved;
      ASSERT_TRUE(device->Evaluate(k * h, solved, &why)) << why;
      g.push_back(solved.s);
    }
    for (size_t k = 1; k + 1 < g.size(); ++k)
      for (int e = 0; e < n * n; ++e)
        curvature = std::max(curvature, abs(g[k + 1].data()[e] - 2.0 * g[k].data()[e] + g[k - 1].data()[e]) / (h * h));
    const double stated = 2.0 * n * (bound.kernel * curvature + bound.noiseGain * 1e-9);
    SolvedPoint nearDc;
    ASSERT_TRUE(device->Evaluate(1e-3, nearDc, &why)) << why;
    const TNT::CMatrix& got = *dc->GetSMatrix(false);
    for (int e = 0; e < n * n; ++e) {
      EXPECT_EQ(got.data()[e].im, 0.0) << name;
      EXPECT_LE(abs(got.data()[e] - nearDc.s.data()[e]), stated) << name << " entry " << e;
    }
    // Passive: no column carries more power out than comes in, and the
    // largest singular value (power iteration on S^T S) is at most 1.
    TNT::CVector x(n, C(1.0));
    double sigma = 0.0;
    for (int it = 0; it < 200; ++it) {
      TNT::CVector y(n, C(0.0)), w(n, C(0.0));
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) y[i] += got[i][j] * x[j];
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) w[i] += got[j][i] * y[j];
      double norm = 0.0;
      for (int i = 0; i < n; ++i) norm += std::norm(std::complex<double>(w[i].re, w[i].im));
      norm = std::sqrt(norm);
      if (norm == 0.0) break;
      sigma = std::sqrt(norm);
      for (int i = 0; i < n; ++i) x[i] = w[i] / norm;
    }
    EXPECT_LE(sigma, 1.0 + 1e-12) << name;
    RecordProperty(std::string(name) + "_dc_error_bound", std::to_string(stated));
  }
}

}  // namespace
