// `sparam convert`: every format we read to every format we write, with the
// port impedances kept, and failures that leave no output behind.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <fstream>

#include "product/ConvertCommand.h"
#include "sparamlib/data/NetworkModalData.h"
#include "support/RandomNetwork.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;

struct ConvertCommand : ::testing::Test {
  void SetUp() override {
    dir = fs::temp_directory_path() / ("convert_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  std::string Path(const std::string& name) const { return (dir / name).string(); }
  static bool Run(const std::string& in, const std::string& out, std::string* error,
                  bool keepImpedances = false, std::vector<std::string>* notes = nullptr) {
    ExportRequest request;
    request.output = out;
    if (auto f = CExportNetworkDataCmd::FormatFromExtension(out)) request.format = *f;
    request.precision = 12;
    request.keepPortImpedances = keepImpedances;
    return sparam::Convert(in, request, error, notes);
  }
  const CNetworkDataSolution& Only(const CProject& p) {
    return *p.GetVariations().front()->GetSolutions().front()->GetNetworkDataSolution();
  }
  fs::path dir;
};

// A solver's solution with unequal complex port impedances goes through a
// Touchstone file (with --no-renorm), a Citifile and back into a project:
// the S matrix and the impedances survive each step at the printed
// precision.
TEST_F(ConvertCommand, KeepsComplexPortImpedancesThroughEveryReadableFormat) {
  auto project = testing_support::RandomProject(1, 3, 4, 5);
  ASSERT_TRUE(project->Save(Path("in.ndp")));
  std::string error;
  const std::vector<std::string> chain = {"in.ndp", "a.s3p", "b.cit", "c.s3p", "d.ndp"};
  for (size_t k = 1; k < chain.size(); ++k)
    ASSERT_TRUE(Run(Path(chain[k - 1]), Path(chain[k]), &error, true)) << chain[k] << ": " << error;
  auto back = sparam::LoadNetworkFile(Path("d.ndp"), &error);
  ASSERT_TRUE(back) << error;
  const CNetworkDataSolution& original = Only(*project);
  const CNetworkDataSolution& result = Only(*back);
  ASSERT_EQ(result.GetNumFrequencies(), original.GetNumFrequencies());
  auto it = result.GetFrequencyMap().begin();
  for (const auto& [f, p] : original.GetFrequencyMap()) {
    auto& want = static_cast<CNetworkModalData&>(*p);
    auto& got = static_cast<CNetworkModalData&>(*it++->second);
    EXPECT_NEAR(got.GetFrequency(), f, 1e-9 * f);
    EXPECT_LE(testing_support::MaxAbsDiff(*got.GetSMatrix(), *want.GetSMatrix()), 1e-9);
    for (int k = 0; k < 3; ++k) EXPECT_LE(abs((*got.GetPortImpedance())[k] - (*want.GetPortImpedance())[k]), 1e-8);
  }
}

// Without --no-renorm a Touchstone file cannot state those impedances: the
// data are renormalised to 50 ohms, the option line says R 50 and a note
// says so; the Citifile, which carries each point's impedances, keeps them.
TEST_F(ConvertCommand, RenormalisesWhatAnOptionLineCannotState) {
  auto project = testing_support::RandomProject(1, 3, 4, 5);
  ASSERT_TRUE(project->Save(Path("in.ndp")));
  std::string error;
  std::vector<std::string> notes;
  ASSERT_TRUE(Run(Path("in.ndp"), Path("a.s3p"), &error, false, &notes)) << error;
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_NE(notes[0].find("renormalised to 50 ohms"), std::string::npos) << notes[0];
  std::ifstream text(Path("a.s3p"));
  std::string content((std::istreambuf_iterator<char>(text)), std::istreambuf_iterator<char>());
  EXPECT_NE(content.find("# GHZ S MA R 50.000000\n"), std::string::npos);
  auto back = sparam::LoadNetworkFile(Path("a.s3p"), &error);
  ASSERT_TRUE(back) << error;
  auto it = Only(*back).GetFrequencyMap().begin();
  for (const auto& [f, p] : Only(*project).GetFrequencyMap()) {
    auto want = p->Clone();
    auto& modal = static_cast<CNetworkModalData&>(*want);
    ASSERT_TRUE(modal.Renormalize(TNT::CVector(3, C(50.0))));
    auto& got = static_cast<CNetworkModalData&>(*it++->second);
    EXPECT_LE(testing_support::MaxAbsDiff(*got.GetSMatrix(), *modal.GetSMatrix()), 1e-9);
    for (int k = 0; k < 3; ++k) EXPECT_EQ((*got.GetPortImpedance())[k], C(50.0));
  }
  notes.clear();
  ASSERT_TRUE(Run(Path("in.ndp"), Path("b.cit"), &error, false, &notes)) << error;
  EXPECT_TRUE(notes.empty());
}

// A file at 75 ohms says so again after conversion, rather than falling back
// to the 50 ohms a reader assumes without R.
TEST_F(ConvertCommand, KeepsACommonRealReferenceOnTheOptionLine) {
  std::ofstream(Path("in.s1p")) << "# MHz S RI R 75\n100 0.25 0.5\n";
  std::string error;
  ASSERT_TRUE(Run(Path("in.s1p"), Path("out.s1p"), &error)) << error;
  auto back = sparam::LoadNetworkFile(Path("out.s1p"), &error);
  ASSERT_TRUE(back) << error;
  auto& point = static_cast<CNetworkModalData&>(*Only(*back).GetFrequencyMap().begin()->second);
  EXPECT_EQ((*point.GetPortImpedance())[0], C(75.0));
  EXPECT_LE(abs((*point.GetSMatrix(false))[0][0] - C(0.25, 0.5)), 1e-11);  // via 12-digit MA
  EXPECT_EQ(point.GetGamma(), nullptr);
}

TEST_F(ConvertCommand, FailsWithoutTouchingTheOutput) {
  std::ofstream(Path("bad.s2p")) << "# GHz S MA\n1 0 0 0\n";
  std::string error;
  EXPECT_FALSE(Run(Path("bad.s2p"), Path("out.cit"), &error));
  EXPECT_EQ(error, Path("bad.s2p") +
                       ":2:8: expected 9 values on the line of a 2-port record (the frequency and 4 pairs), found 4");
  EXPECT_FALSE(Run(Path("missing.ndp"), Path("out.cit"), &error));
  EXPECT_FALSE(Run(Path("bad.s2p"), Path("out.ndp"), &error));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
}

}  // namespace
