// The export command: format choice, request checks, atomic output; and the
// frequency lists users type.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "core/BlockText.h"

#include "product/ExportNetworkDataCmd.h"
#include "product/FrequencyList.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

TEST(FrequencyList, ParsesUnitsRangesAndLists) {
  EXPECT_EQ(sparam::ParseFrequency("1GHz"), 1e9);
  EXPECT_EQ(sparam::ParseFrequency(" 2.5 mhz "), 2.5e6);
  EXPECT_EQ(sparam::ParseFrequency("1e3"), 1e3);
  EXPECT_EQ(sparam::ParseFrequency("10 THz"), 1e13);
  // The unit shifts the decimal exponent: one rounding, the nearest double.
  EXPECT_EQ(sparam::ParseFrequency("8.2GHz"), 8.2e9);
  EXPECT_EQ(sparam::ParseFrequency("0.1e-3 GHz"), 1e5);
  for (const char* bad : {"", "GHz", "1 GHzz", "-1GHz", "1 parsec", "nan"})
    EXPECT_FALSE(sparam::ParseFrequency(bad)) << bad;

  std::string why;
  EXPECT_EQ(*sparam::ParseFrequencyList("1GHz:2GHz:3", &why), (std::vector<double>{1e9, 1.5e9, 2e9}));
  EXPECT_EQ(*sparam::ParseFrequencyList("5MHz:5MHz:1", &why), (std::vector<double>{5e6}));
  EXPECT_EQ(*sparam::ParseFrequencyList("1GHz, 3GHz,2e9", &why), (std::vector<double>{1e9, 3e9, 2e9}));
  const struct {
    const char* text;
    const char* reason;
  } bad[] = {{"1GHz:2GHz", "START:STOP:COUNT"},   {"1GHz:2GHz:0", "COUNT from 1"},
             {"2GHz:1GHz:5", "STOP at or above"}, {"1GHz:2GHz:x", "COUNT"},
             {"1GHz,,2GHz", "found \"\""},        {"1GHz:2GHz:3:4", "START:STOP:COUNT"}};
  for (const auto& b : bad) {
    EXPECT_FALSE(sparam::ParseFrequencyList(b.text, &why)) << b.text;
    EXPECT_NE(why.find(b.reason), std::string::npos) << b.text << ": " << why;
  }
}

class ExportCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("sparam_export_test." + std::to_string(::getpid()) + "." +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir);
    project = testing_support::RandomProject(1, 2, 5);
  }
  void TearDown() override { fs::remove_all(dir); }
  size_t FilesInDir() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
  }
  fs::path dir;
  std::unique_ptr<CProject> project;
};

TEST_F(ExportCommand, FormatFollowsTheExtension) {
  using F = nd::NetworkDataExportFormat;
  EXPECT_EQ(CExportNetworkDataCmd::FormatFromExtension("a.s2p"), F::kExportTouchstone);
  EXPECT_EQ(CExportNetworkDataCmd::FormatFromExtension("dir.x/a.S12P"), F::kExportTouchstone);
  EXPECT_EQ(CExportNetworkDataCmd::FormatFromExtension("a.ts"), F::kExportTouchstone);
  EXPECT_EQ(CExportNetworkDataCmd::FormatFromExtension("a.m"), F::kExportMatlab);
  EXPECT_EQ(CExportNetworkDataCmd::FormatFromExtension("a.sc"), F::kExportSupercompact);
  EXPECT_FALSE(CExportNetworkDataCmd::FormatFromExtension("a.txt"));
  EXPECT_FALSE(CExportNetworkDataCmd::FormatFromExtension("a.sxp"));
}

// Including a point interpolated before the export began, and the points
// the export interpolates itself (which go again).
TEST_F(ExportCommand, WritesEveryFormatAndLeavesTheSolutionAsItWas) {
  CNetworkDataSolution* s = project->GetVariation(0)->GetWritableSolution("");
  s->SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  ASSERT_TRUE(s->GetNetworkData(2e9, 0.0, true));
  ASSERT_EQ(s->GetInterpolatedMap().size(), 1u);
  const std::string before = [&] {
    io::CBlock b;
    s->Write(b, true);
    std::string t;
    io::WriteBlockText(b, t);
    return t;
  }();
  for (const auto& [name, format] :
       {std::pair{"out.s2p", nd::kExportTouchstone}, std::pair{"out.m", nd::kExportMatlab},
        std::pair{"out.sc", nd::kExportSupercompact}}) {
    ExportRequest request;
    request.output = (dir / name).string();
    request.format = format;
    request.renormalizeTo = 75.0;
    request.frequencies = {1e9, 2e9, 2.5e9, 3.25e9};
    std::string why;
    ASSERT_TRUE(CExportNetworkDataCmd().Execute(*project, request, &why)) << why;
    EXPECT_GT(fs::file_size(dir / name), 100u) << name;
  }
  io::CBlock b;
  s->Write(b, true);
  std::string after;
  io::WriteBlockText(b, after);
  EXPECT_EQ(after, before);
  EXPECT_EQ(s->GetInterpolatedMap().size(), 1u);
  EXPECT_EQ(FilesInDir(), 3u) << "no temporary files are left";
}

TEST_F(ExportCommand, BadRequestsFailWithoutTouchingTheTarget) {
  const fs::path existing = dir / "keep.s2p";
  std::ofstream(existing) << "old contents\n";
  const struct {
    std::function<void(ExportRequest&)> change;
    const char* reason;
  } cases[] = {
      {[](ExportRequest& r) { r.variation = 3; }, "no variation 4 (the project has 1)"},
      {[](ExportRequest& r) { r.solution = "Other"; }, "no solution \"Other\" in variation 1 (it has \"Sweep\")"},
      {[&](ExportRequest& r) { r.output = (dir / "keep.s3p").string(); }, "has 2 ports; name the file .s2p"},
      {[](ExportRequest& r) { r.precision = 0; }, "precision from 1 to 17"},
      {[&](ExportRequest& r) { r.output = (dir / "no" / "keep.s2p").string(); }, "cannot write the file"},
  };
  for (const auto& c : cases) {
    ExportRequest request;
    request.output = existing.string();
    c.change(request);
    std::string why;
    EXPECT_FALSE(CExportNetworkDataCmd().Execute(*project, request, &why));
    EXPECT_NE(why.find(c.reason), std::string::npos) << why;
  }
  std::ifstream in(existing);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "old contents");
  EXPECT_EQ(FilesInDir(), 1u);
}

}  // namespace
