// Projects: bit-exact save and load, and the failures users meet (damaged,
// foreign, missing files, unwritable targets), which must never leave a
// damaged project or a half-loaded one.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include <cstring>
#include <fstream>
#include <sstream>

#include "product/InfoCommand.h"
#include "sparamlib/solution/TimeDataSolution.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

class Project : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() /
          ("sparam_project_test." + std::to_string(::getpid()) + "." +
           ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  static std::string Read(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  static void WriteText(const fs::path& p, const std::string& text) {
    std::ofstream(p, std::ios::binary) << text;
  }
  fs::path dir;
};

bool SameBits(const TNT::CMatrix* a, const TNT::CMatrix* b) {
  return a && b && a->size() == b->size() &&
         std::memcmp(a->data(), b->data(), sizeof(AComplex<double>) * static_cast<size_t>(a->size())) == 0;
}

TEST_F(Project, SaveAndLoadKeepEveryPointBitForBit) {
  const auto project = testing_support::RandomProject(2, 4, 15);
  auto setup = std::make_unique<CNetworkPostprocSetup>();
  project->GetVariation(0)->SetPostprocSetup(std::move(setup));
  const fs::path path = dir / "filter.ndp";
  AString error;
  ASSERT_TRUE(project->Save(path, &error)) << error;
  const auto back = CProject::Load(path, &error);
  ASSERT_NE(back, nullptr) << error;
  EXPECT_EQ(back->GetDesignName(), "Test design");
  ASSERT_EQ(back->GetVariations().size(), 2u);
  EXPECT_NE(back->GetVariations()[0]->GetPostprocSetup(), nullptr);
  for (size_t v = 0; v < 2; ++v) {
    const FxSolutionVariation& a = *project->GetVariations()[v];
    const FxSolutionVariation& b = *back->GetVariations()[v];
    EXPECT_EQ(b.GetDesignVariables(), a.GetDesignVariables());
    EXPECT_EQ(b.GetProductName(), a.GetProductName());
    const CNetworkDataSolution* sa = a.GetNetworkDataSolution("Sweep");
    const CNetworkDataSolution* sb = b.GetNetworkDataSolution("Sweep");
    ASSERT_NE(sb, nullptr);
    EXPECT_EQ(sb->GetObjectType(), sa->GetObjectType());
    ASSERT_EQ(sb->GetFrequencyMap().size(), sa->GetFrequencyMap().size());
    for (auto ia = sa->GetFrequencyMap().begin(), ib = sb->GetFrequencyMap().begin();
         ia != sa->GetFrequencyMap().end(); ++ia, ++ib) {
      EXPECT_EQ(ia->first, ib->first);
      EXPECT_TRUE(SameBits(ia->second->GetSMatrix(false), ib->second->GetSMatrix(false)));
      const auto* ma = static_cast<const CNetworkModalData*>(ia->second.get());
      const auto* mb = static_cast<const CNetworkModalData*>(ib->second.get());
      ASSERT_NE(mb->GetGamma(), nullptr);
      EXPECT_EQ(std::memcmp(ma->GetGamma()->data(), mb->GetGamma()->data(), 4 * 16), 0);
    }
  }
  // Saving what was loaded gives the same file.
  ASSERT_TRUE(back->Save(dir / "again.ndp", &error)) << error;
  EXPECT_EQ(Read(dir / "again.ndp"), Read(path));
}

// Every solution comes back as the class it was saved as, with what only
// that class holds (a time-domain solution's termination and kind).
TEST_F(Project, SolutionsComeBackAsTheirOwnClass) {
  CProject project;
  FxSolutionVariation& variation = project.AddVariation();
  auto time = std::make_unique<CTimeDataSolution>();
  time->SetName("Step");
  time->SetPortTermination(75.0);
  time->SetTimeDataType(CTimeDataSolution::TimeStep);
  variation.AddSolution(std::move(time));
  variation.AddSolution(std::make_unique<CNetworkDataSolution>("Plain"));
  AString error;
  ASSERT_TRUE(project.Save(dir / "t.ndp", &error)) << error;
  const auto back = CProject::Load(dir / "t.ndp", &error);
  ASSERT_NE(back, nullptr) << error;
  const auto* step = dynamic_cast<const CTimeDataSolution*>(back->GetVariations()[0]->GetNetworkDataSolution("Step"));
  ASSERT_NE(step, nullptr);
  EXPECT_EQ(step->GetPortTermination(), 75.0);
  EXPECT_EQ(step->GetTimeDataType(), CTimeDataSolution::TimeStep);
  const CNetworkDataSolution* plain = back->GetVariations()[0]->GetNetworkDataSolution("Plain");
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(dynamic_cast<const CTimeDataSolution*>(plain), nullptr);
}

TEST_F(Project, UnusableFilesGiveOneLineErrorsAndNoProject) {
  const fs::path good = dir / "good.ndp";
  ASSERT_TRUE(testing_support::RandomProject(1, 2, 3)->Save(good));
  const std::string text = Read(good);
  struct Case {
    const char* name;
    std::string content;
    const char* expected;  // part of the message after the file name
  };
  const Case cases[] = {
      {"truncated.ndp", text.substr(0, text.size() * 2 / 3), ":"},
      {"foreign.ndp", "! Touchstone file\n# GHZ S MA R 50\n1 0.5 0 0.5 0\n", ":1:1: expected"},
      {"other.ndp", "Design { Name = \"x\" } Design\n",
       "expected a sparamlib project (a block \"Project\")"},
      {"newer.ndp", "Project {\n  FormatVersion = 99\n} Project\n", ":1:1: in block \"Project\": expected \"FormatVersion\""},
      {"damaged.ndp", text.substr(0, text.find("c = [")) + "c = [1.0, \"x\"]" +
                          text.substr(text.find("]", text.find("c = [")) + 1),
       ": in block \"r0\": expected numbers"},
  };
  for (const Case& c : cases) {
    const fs::path path = dir / c.name;
    WriteText(path, c.content);
    AString error;
    EXPECT_EQ(CProject::Load(path, &error), nullptr) << c.name;
    EXPECT_EQ(error.rfind(path.string(), 0), 0u) << error;
    EXPECT_NE(error.find(c.expected), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
  AString error;
  EXPECT_EQ(CProject::Load(dir / "missing.ndp", &error), nullptr);
  EXPECT_NE(error.find("missing.ndp"), std::string::npos) << error;
}

TEST_F(Project, FailedSaveLeavesTheExistingProjectUntouched) {
  const fs::path path = dir / "keep.ndp";
  ASSERT_TRUE(testing_support::RandomProject(1, 2, 3, 7)->Save(path));
  const std::string before = Read(path);
  // A full disk, as the process sees it: writes beyond the limit fail.
  rlimit old{};
  ::getrlimit(RLIMIT_FSIZE, &old);
  const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit small = old;
  small.rlim_cur = before.size() + 100;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  AString error;
  const bool saved = testing_support::RandomProject(1, 4, 40, 8)->Save(path, &error);
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);
  EXPECT_FALSE(saved);
  EXPECT_NE(error.find("keep.ndp"), std::string::npos) << error;
  EXPECT_EQ(Read(path), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1)
      << "no temporary file is left behind";
  // A target in a directory that does not exist fails the same way.
  EXPECT_FALSE(testing_support::RandomProject(1, 2, 3)->Save(dir / "no" / "x.ndp", &error));
  EXPECT_NE(error.find("x.ndp"), std::string::npos) << error;
}

TEST_F(Project, InfoSummarisesEveryVariationAndSolution) {
  const fs::path path = dir / "info.ndp";
  ASSERT_TRUE(testing_support::RandomProject(2, 3, 11)->Save(path));
  std::ostringstream out, err;
  ASSERT_EQ(sparam::RunInfo({path.string(), false}, out, err), 0) << err.str();
  const std::string text = out.str();
  EXPECT_NE(text.find("variation 2: w = 2mm, eps_r = 4.4"), std::string::npos) << text;
  EXPECT_NE(text.find("solution \"Sweep\": DiscreteSweep, FxemModal, 3 ports (Port1:1, Port2:1, Port3:1)"),
            std::string::npos) << text;
  EXPECT_NE(text.find("11 solved, 0 interpolated, 1 GHz to 10 GHz"), std::string::npos) << text;

  std::ostringstream json;
  ASSERT_EQ(sparam::RunInfo({path.string(), true}, json, err), 0);
  EXPECT_NE(json.str().find("\"solved_points\": 11"), std::string::npos) << json.str();

  std::ostringstream none, why;
  EXPECT_EQ(sparam::RunInfo({(dir / "nope.ndp").string(), false}, none, why), 1);
  EXPECT_TRUE(none.str().empty());
  EXPECT_EQ(why.str().rfind("sparam info: ", 0), 0u) << why.str();
}

TEST(FrequencyText, UsesTheLargestFittingUnit) {
  EXPECT_EQ(sparam::FormatFrequency(1.5e9), "1.5 GHz");
  EXPECT_EQ(sparam::FormatFrequency(250e3), "250 kHz");
  EXPECT_EQ(sparam::FormatFrequency(0.0), "0 Hz");
}

}  // namespace
