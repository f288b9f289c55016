// `sparam interp`: switching a solution to barycentric interpolation,
// interpolated copies with their error estimates as projects and exports,
// and the refusals a user meets.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "product/InfoCommand.h"
#include "product/InterpCommand.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;

class InterpCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("sparam_interp_test." + std::to_string(::getpid()) + "." +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir);
    // 2 ports, 10 points from 1 to 10 GHz.
    ASSERT_TRUE(testing_support::RandomProject(1, 2, 10)->Save(In()));
  }
  void TearDown() override { fs::remove_all(dir); }
  std::string In() const { return (dir / "in.ndp").string(); }
  std::string Out(const char* name) const { return (dir / name).string(); }
  int Run(const std::string& output, const std::string& freq, const std::string& method = "bri") {
    sparam::InterpOptions o;
    o.project = In();
    o.output = output;
    o.freq = freq;
    o.method = method;
    out.str("");
    err.str("");
    return sparam::RunInterp(o, out, err);
  }
  const CNetworkDataSolution& Loaded(const std::string& path) {
    AString error;
    loaded = CProject::Load(path, &error);
    EXPECT_NE(loaded, nullptr) << error;
    return *loaded->GetVariations().front()->GetNetworkDataSolution();
  }
  fs::path dir;
  std::ostringstream out, err;
  std::unique_ptr<CProject> loaded;
};

TEST_F(InterpCommand, SwitchedSolutionKeepsItsWeightsAndAnswersBetweenPoints) {
  ASSERT_EQ(Run(Out("bri.ndp"), ""), 0) << err.str();
  EXPECT_NE(out.str().find("now uses InterpolateBRI"), std::string::npos) << out.str();
  const CNetworkDataSolution& s = Loaded(Out("bri.ndp"));
  EXPECT_EQ(s.GetSolutionType(), CNetworkDataSolution::InterpolateBRI);
  ASSERT_NE(s.GetBRIWeights(), nullptr);
  EXPECT_EQ(s.GetBRIWeights()->GetFrequencies().size(), 10u);
  CNetworkData* p = const_cast<CNetworkDataSolution&>(s).GetNetworkData(2.5e9, 0.0, true);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->GetDataType(), CNetworkData::Interpolated);
}

TEST_F(InterpCommand, CopiesCarryTheirErrorEstimatesIntoInfo) {
  for (const char* method : {"neville", "bri"}) {
    // 1, 2.5, 4, 5.5 and 7 GHz: 1, 4 and 7 GHz are solved.
    ASSERT_EQ(Run(Out("copy.ndp"), "1GHz:7GHz:5", method), 0) << err.str();
    EXPECT_NE(out.str().find("5 frequencies, 2 interpolated"), std::string::npos) << out.str();
    const CNetworkDataSolution& s = Loaded(Out("copy.ndp"));
    EXPECT_EQ(s.GetSolutionType(), CNetworkDataSolution::DiscreteSweep);
    ASSERT_EQ(s.GetNumFrequencies(), 5);
    const CNetworkData& at25 = *s.GetFrequencyMap().at(2.5e9);
    EXPECT_EQ(at25.GetDataType(), CNetworkData::Interpolated);
    EXPECT_GT(at25.GetValue(), 0.0) << method;
    EXPECT_EQ(s.GetFrequencyMap().at(4e9)->GetDataType(), CNetworkData::ExactPoint);

    std::ostringstream info, infoErr;
    ASSERT_EQ(sparam::RunInfo({Out("copy.ndp"), false}, info, infoErr), 0) << infoErr.str();
    EXPECT_NE(info.str().find("2 interpolated points, largest error estimate"), std::string::npos)
        << info.str();
  }
}

TEST_F(InterpCommand, ExportsAndRefusals) {
  ASSERT_EQ(Run(Out("copy.s2p"), "1.5GHz,2.5GHz,9GHz"), 0) << err.str();
  std::ifstream in(Out("copy.s2p"));
  int records = 0;
  for (std::string line; std::getline(in, line);) records += !line.empty() && line[0] != '!' && line[0] != '#';
  EXPECT_EQ(records, 3);

  const struct {
    std::string output, freq, reason;
  } refusals[] = {
      {Out("x.s2p"), "", "--freq is needed"},
      {Out("x.txt"), "2GHz", "expected a project"},
      {Out("x.ndp"), "0.5GHz", "cannot interpolate at 500 MHz"},
      {Out("x.ndp"), "1GHz:2GHz", "--freq: "},
  };
  for (const auto& r : refusals) {
    EXPECT_EQ(Run(r.output, r.freq), 1) << r.output;
    EXPECT_NE(err.str().find(r.reason), std::string::npos) << err.str();
    EXPECT_FALSE(fs::exists(r.output)) << r.output;
  }
}

}  // namespace
