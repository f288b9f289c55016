// What `sparam export` and `convert` promise about the files they write, run
// as a user runs them: complete or absent (full disk, links, fifos, standard
// output), a reference impedance stated only when the data have it, version
// 2.0 where version 1 would be misread, requested frequencies checked, and
// exit statuses 0, 1 and 2.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "product/ConvertCommand.h"
#include "sparamlib/data/NetworkModalData.h"
#include "support/RandomNetwork.h"
#include "support/RunSparam.h"
#include "support/SampleProject.h"
#include "support/ScratchDir.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;
using testing_support::ReadWholeFile;

// A two-port at 75 ohms, three frequencies, real/imaginary.
constexpr const char* kAt75 =
    "# GHz S RI R 75\n"
    "1 0.10 0.20 0.30 0.40 0.30 0.40 0.50 0.60\n"
    "2 0.15 0.25 0.35 0.45 0.35 0.45 0.55 0.65\n"
    "3 0.20 0.30 0.40 0.50 0.40 0.50 0.60 0.70\n";

class ExportTruth : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = testing_support::ScratchDirectory("sparam_export_truth");
    fs::create_directories(dir / "run");
    std::ofstream(P("at75.s2p")) << kAt75;
    ASSERT_EQ(Sparam({"convert", P("at75.s2p"), P("at75.ndp")}).status, 0);
  }
  void TearDown() override { fs::remove_all(dir); }
  std::string P(const std::string& name) const { return (dir / name).string(); }
  testing_support::SparamRun Sparam(const std::vector<std::string>& args,
                                    std::optional<size_t> limit = std::nullopt) {
    return testing_support::RunSparam(SPARAM_BINARY, args, dir / "run", limit);
  }
  // The files in the directory, apart from the captured output.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir))
      if (e.path().filename() != "run") names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  // A project with the solution's points in memory, saved as `name`.
  void Save(CProject& project, const std::string& name) {
    AString why;
    ASSERT_TRUE(project.Save(P(name), &why)) << why;
  }
  std::unique_ptr<CProject> Load(const std::string& name) {
    std::string why;
    auto project = sparam::LoadNetworkFile(P(name), &why);
    EXPECT_TRUE(project) << why;
    return project;
  }
  // A one-port plain solution (no port impedances) solved at 1 and 2 GHz.
  static CProject& PlainProject() {
    static CProject plain;
    if (!plain.GetVariations().empty()) return plain;
    auto solution = std::make_unique<CNetworkDataSolution>("Plain");
    solution->AddMatrixEntry(CMatrixEntry("P1", 1, 0));
    for (double f : {1e9, 2e9}) {
      auto point = solution->CreateNetworkData();
      point->SetFrequency(f);
      auto s = std::make_unique<TNT::CMatrix>(1, 1);
      (*s)[0][0] = C(0.2, 0.1);
      point->SetSMatrix(std::move(s));
      solution->AddNetworkData(std::move(point));
    }
    plain.AddVariation().AddSolution(std::move(solution));
    return plain;
  }
  static CNetworkDataSolution& Only(CProject& p) {
    return *p.GetVariations().front()->GetWritableSolution("");
  }
  fs::path dir;
};

// Every format, and a project save, under a file-size limit: status 1, the
// system's reason, the old file exactly as it was, nothing else left.
TEST_F(ExportTruth, AFullDiskLeavesEveryOldFileAsItWas) {
  Save(*testing_support::RandomProject(1, 2, 40), "big.ndp");
  for (const char* name : {"o.s2p", "o.ts", "o.sc", "o.cit", "o.tab", "o.m", "o.ndp"}) {
    std::ofstream(P(name)) << "old contents\n";
    const auto before = Files();
    const std::string command = fs::path(name).extension() == ".ndp" ? "convert" : "export";
    const auto run = Sparam({command, P("big.ndp"), P(name), "--kind", "S"}, 300);
    EXPECT_EQ(run.status, 1) << name;
    EXPECT_NE(run.err.find(P(name)), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("File too large"), std::string::npos) << name << ": " << run.err;
    EXPECT_EQ(ReadWholeFile(P(name)), "old contents\n") << name;
    EXPECT_EQ(Files(), before) << name << ": no temporary file stays";
  }
}

// A link is followed and its target replaced with its permissions; "-" is
// standard output; a fifo is written in place; a directory is refused.
TEST_F(ExportTruth, OutputTargetsAreWrittenTheWayTheyAreMeant) {
  std::ofstream(P("real.s2p")) << "old\n";
  ::chmod(P("real.s2p").c_str(), 0600);
  fs::create_symlink("real.s2p", dir / "link.s2p");
  ASSERT_EQ(Sparam({"export", P("at75.ndp"), P("link.s2p")}).status, 0);
  EXPECT_TRUE(fs::is_symlink(dir / "link.s2p"));
  EXPECT_EQ(ReadWholeFile(P("real.s2p")).rfind("! Touchstone file", 0), 0u);
  EXPECT_EQ(fs::status(dir / "real.s2p").permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);

  auto run = Sparam({"export", P("at75.ndp"), "-", "--format", "touchstone"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("# GHZ S MA R 75.000000\n"), std::string::npos) << run.out;

  // The read end is open before the export starts (the file is far smaller
  // than a pipe's buffer), so nothing blocks whatever the export does.
  ASSERT_EQ(::mkfifo(P("pipe.s2p").c_str(), 0644), 0);
  const int reader = ::open(P("pipe.s2p").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  run = Sparam({"export", P("at75.ndp"), P("pipe.s2p")});
  std::string received;
  char buffer[4096];
  for (ssize_t n; (n = ::read(reader, buffer, sizeof buffer)) > 0;) received.append(buffer, static_cast<size_t>(n));
  ::close(reader);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(received.find("# GHZ S MA R 75.000000\n"), std::string::npos);
  EXPECT_TRUE(fs::is_fifo(dir / "pipe.s2p"));

  fs::create_directory(dir / "folder.s2p");
  run = Sparam({"export", P("at75.ndp"), P("folder.s2p")});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("Is a directory"), std::string::npos) << run.err;
}

// .ts output and every Y or Z export are version 2.0 with the keywords a
// reader sizes the data by; Y and Z stand in siemens and ohms and read
// back as the project's own.
TEST_F(ExportTruth, VersionTwoWhereVersionOneWouldBeMisread) {
  ASSERT_EQ(Sparam({"export", P("at75.ndp"), P("a.ts"), "--precision", "12"}).status, 0);
  const std::string ts = ReadWholeFile(P("a.ts"));
  for (const char* line : {"\n[Version] 2.0\n# GHZ S MA R 75.000000\n[Number of Ports] 2\n"
                           "[Two-Port Data Order] 21_12\n[Number of Frequencies] 3\n[Network Data]\n",
                           "\n[End]\n"})
    EXPECT_NE(ts.find(line), std::string::npos) << line << "\n" << ts;
  auto original = Load("at75.ndp");
  auto back = Load("a.ts");
  ASSERT_TRUE(original && back);
  auto want = Only(*original).GetFrequencyMap().begin();
  for (const auto& [f, point] : Only(*back).GetFrequencyMap()) {
    auto& got = static_cast<CNetworkModalData&>(*point);
    EXPECT_EQ((*got.GetPortImpedance())[1], C(75.0));
    EXPECT_LE(testing_support::MaxAbsDiff(*got.GetSMatrix(), *(want++)->second->GetSMatrix()), 1e-11);
  }
  for (const char* kind : {"Y", "Z"}) {
    const std::string name = std::string("k") + kind + ".s2p";
    ASSERT_EQ(Sparam({"export", P("at75.ndp"), P(name), "--kind", kind, "--display", "RI",
                      "--precision", "12"}).status, 0);
    const std::string text = ReadWholeFile(P(name));
    EXPECT_NE(text.find(std::string("[Version] 2.0\n# GHZ ") + kind + " RI R 75.000000\n"),
              std::string::npos) << text;
    auto readBack = Load(name);
    ASSERT_TRUE(readBack);
    auto expected = Only(*original).GetFrequencyMap().begin();
    for (const auto& [f, point] : Only(*readBack).GetFrequencyMap()) {
      const bool y = kind[0] == 'Y';
      const TNT::CMatrix* got = y ? point->GetYMatrix(true) : point->GetZMatrix(true);
      CNetworkData& source = *(expected++)->second;
      const TNT::CMatrix* ref = y ? source.GetYMatrix(true) : source.GetZMatrix(true);
      ASSERT_TRUE(got && ref);
      EXPECT_LE(testing_support::MaxAbsDiff(*got, *ref), 1e-10 * testing_support::MaxAbs(*ref)) << kind;
    }
  }
}

// `export` and `convert` state the same reference: the data's own when it is
// one real value, 50 ohms after renormalising otherwise (or the impedances
// kept, with a warning, under --no-renorm); --renorm needs port impedances.
TEST_F(ExportTruth, AFileClaimsOnlyTheReferenceItsDataHave) {
  ASSERT_EQ(Sparam({"export", P("at75.ndp"), P("e.s2p")}).status, 0);
  ASSERT_EQ(Sparam({"convert", P("at75.ndp"), P("c.s2p")}).status, 0);
  for (const char* name : {"e.s2p", "c.s2p"})
    EXPECT_NE(ReadWholeFile(P(name)).find("\n# GHZ S MA R 75.000000\n"), std::string::npos) << name;

  Save(*testing_support::RandomProject(1, 2, 4), "complex.ndp");
  auto run = Sparam({"export", P("complex.ndp"), P("r.s2p")});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.err.find("the data are renormalised to 50 ohms"), std::string::npos) << run.err;
  EXPECT_NE(ReadWholeFile(P("r.s2p")).find("\n# GHZ S MA R 50.000000\n"), std::string::npos);
  run = Sparam({"export", P("complex.ndp"), P("k.s2p"), "--no-renorm"});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.err.find("other tools will take the data as referred to 50 ohms"), std::string::npos);
  const std::string kept = ReadWholeFile(P("k.s2p"));
  EXPECT_NE(kept.find("!Data is not renormalized\n# GHZ S MA\n"), std::string::npos);
  EXPECT_NE(kept.find("! Port Impedance  "), std::string::npos);
  run = Sparam({"export", P("complex.ndp"), P("k.sc"), "--no-renorm"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("a Supercompact file states one reference impedance"), std::string::npos);

  // Points without port impedances: nothing to renormalise from, and no Y.
  Save(PlainProject(), "plain.ndp");
  run = Sparam({"export", P("plain.ndp"), P("p.s1p"), "--renorm", "75"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("--renorm: the points carry no port impedances"), std::string::npos) << run.err;
  for (const char* name : {"p.s1p", "p.sc", "p.cit", "p.tab"}) {
    run = Sparam({"export", P("plain.ndp"), P(name), "--kind", "Y"});
    EXPECT_EQ(run.status, 1) << name;
    EXPECT_NE(run.err.find("Y cannot be formed at 1 GHz"), std::string::npos) << run.err;
  }
  EXPECT_FALSE(fs::exists(dir / "p.s1p"));
}

// A setup's renormalisation reaches the data before the option line says
// so, and Supercompact's --renorm reaches its data, not only its header.
TEST_F(ExportTruth, RenormalisationIsAppliedBeforeItIsClaimed) {
  auto project = Load("at75.ndp");
  auto setup = std::make_unique<CNetworkPostprocSetup>();
  setup->SetNumPorts(2);
  setup->SetMatrixSize(2);
  const TNT::CVector to50(2, C(50.0));
  setup->SetPostprocessing(true, &to50, nullptr);
  project->GetVariation(0)->SetPostprocSetup(std::move(setup));
  Save(*project, "setup.ndp");
  ASSERT_EQ(Sparam({"export", P("setup.ndp"), P("s.s2p"), "--display", "RI", "--precision", "12"}).status, 0);
  EXPECT_NE(ReadWholeFile(P("s.s2p")).find("\n# GHZ S RI R 50.000000\n"), std::string::npos);
  auto back = Load("s.s2p");
  auto at75 = Load("at75.ndp");
  ASSERT_TRUE(back && at75);
  auto got = Only(*back).GetFrequencyMap().begin();
  for (const auto& [f, point] : Only(*at75).GetFrequencyMap()) {
    auto& modal = static_cast<CNetworkModalData&>(*point);
    ASSERT_TRUE(modal.Renormalize(to50));
    EXPECT_LE(testing_support::MaxAbsDiff(*(got++)->second->GetSMatrix(), *modal.GetSMatrix()), 1e-11);
  }

  ASSERT_EQ(Sparam({"export", P("at75.ndp"), P("r.sc"), "--renorm", "50", "--display", "RI"}).status, 0);
  std::istringstream sc(ReadWholeFile(P("r.sc")));
  std::string header, title, frequency;
  std::getline(sc, header);
  std::getline(sc, title);
  EXPECT_NE(header.find(" 2 50"), std::string::npos) << header;
  double re = 0.0, im = 0.0;
  sc >> frequency >> re >> im;
  auto first = Only(*at75).GetFrequencyMap().begin()->second->Clone();
  ASSERT_TRUE(static_cast<CNetworkModalData&>(*first).Renormalize(to50));
  EXPECT_NEAR(re, (*first->GetSMatrix())[0][0].re, 1e-6);
  EXPECT_NEAR(im, (*first->GetSMatrix())[0][0].im, 1e-6);
}

// --freq: inside the solved band, increasing, each record at its point's
// own frequency; --clip trims what lies outside.
TEST_F(ExportTruth, RequestedFrequenciesAreCheckedNotSilentlyDropped) {
  const struct {
    const char* freq;
    const char* reason;
  } refused[] = {{"0.5GHz:2GHz:4", "--freq: 0.5 GHz lies outside the solved band 1 GHz to 3 GHz"},
                 {"2GHz,1GHz", "must increase, without repeats: 1 GHz follows 2 GHz"},
                 {"1GHz,1GHz", "must increase, without repeats"}};
  for (const auto& c : refused) {
    const auto run = Sparam({"export", P("at75.ndp"), P("f.s2p"), "--freq", c.freq});
    EXPECT_EQ(run.status, 1) << c.freq;
    EXPECT_NE(run.err.find(c.reason), std::string::npos) << run.err;
  }
  EXPECT_FALSE(fs::exists(dir / "f.s2p"));

  auto run = Sparam({"export", P("at75.ndp"), P("f.tab"), "--freq", "0.5GHz:4GHz:8", "--clip"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("--clip: left out 3 of 8 frequencies outside the solved band"), std::string::npos)
      << run.err;
  const std::string tab = ReadWholeFile(P("f.tab"));
  EXPECT_EQ(std::count(tab.begin(), tab.end(), '\n'), 1 + 5);

  // A solution that does not interpolate has nothing to write between its
  // points.
  Save(PlainProject(), "plain.ndp");
  run = Sparam({"export", P("plain.ndp"), P("p.s1p"), "--freq", "1.5GHz"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("1.5 GHz was not solved and this solution does not interpolate"),
            std::string::npos) << run.err;

  // Half a hertz from the solved point: the record says the point's frequency.
  ASSERT_EQ(Sparam({"export", P("at75.ndp"), P("g.s2p"), "--freq", "1000000000.5", "--precision", "15"}).status, 0);
  const std::string g = ReadWholeFile(P("g.s2p"));
  EXPECT_NE(g.find("\n1                0."), std::string::npos) << g;
}

// MATLAB: an assignment only where the point has the quantity; a quantity
// no point has is left out with a note.
TEST_F(ExportTruth, MatlabFilesOnlyAssignWhatThePointsHave) {
  const auto run = Sparam({"export", P("at75.ndp"), P("q.m"), "--quantities", "S,Gamma,Zo,Y"});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.err.find("no point has Gamma (propagation constants); it is left out"), std::string::npos)
      << run.err;
  const std::string m = ReadWholeFile(P("q.m"));
  EXPECT_EQ(m.find("Gamma"), std::string::npos);
  EXPECT_NE(m.find("Zo(3,:) = [ "), std::string::npos);
  EXPECT_EQ(std::count(m.begin(), m.end(), '['), std::count(m.begin(), m.end(), ']'));
}

// Exit statuses: 0, 1 with one line, 2 for usage errors; an export never
// writes over its own project.
TEST_F(ExportTruth, ExitStatusesAreDocumentedAndKept) {
  auto run = Sparam({"--help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find("Exit status: 0 success; 1 the work failed"), std::string::npos) << run.out;
  for (const std::vector<std::string>& usage :
       {std::vector<std::string>{"export"}, {"export", P("at75.ndp"), P("x.s2p"), "--bogus"},
        {"frobnicate"}, {"export", P("at75.ndp"), P("x.s2p"), "--kind", "Q"}}) {
    run = Sparam(usage);
    EXPECT_EQ(run.status, 2) << run.err;
  }
  const std::string before = ReadWholeFile(P("at75.ndp"));
  run = Sparam({"export", P("at75.ndp"), P("at75.ndp"), "--format", "touchstone"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("is the project"), std::string::npos) << run.err;
  EXPECT_EQ(ReadWholeFile(P("at75.ndp")), before);
}

}  // namespace
