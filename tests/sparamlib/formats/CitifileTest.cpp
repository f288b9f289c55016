// Citifile write and read back, Citifile syntax and errors, and the
// spreadsheet (.tab) layout.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include <unistd.h>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/Citifile.h"
#include "sparamlib/formats/TabExport.h"
#include "support/RandomNetwork.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;

fs::path Temp(const std::string& name) {
  return fs::temp_directory_path() / (std::to_string(::getpid()) + "_" + name);
}

std::vector<double> Solved(const CNetworkDataSolution& s) {
  std::vector<double> f;
  for (const auto& [freq, p] : s.GetFrequencyMap()) f.push_back(freq);
  return f;
}

TEST(Citifile, ReadsWhatItWritesForOneToTwelvePorts) {
  std::mt19937_64 rng(11);
  const fs::path file = Temp("round.cit");
  for (int ports = 1; ports <= 12; ++ports) {
    const auto kind = std::array{nd::kSMatrix, nd::kYMatrix, nd::kZMatrix}[static_cast<size_t>(ports % 3)];
    const int precision = ports % 2 ? 8 : 15;
    auto solution = testing_support::RandomSolution("My sweep", ports, 3, rng);
    ASSERT_TRUE(nd::WriteCitifile(file.string(), *solution, Solved(*solution), kind, precision, false, 50.0));
    std::string error;
    auto read = nd::ReadCitifile(file, &error);
    ASSERT_TRUE(read) << error;
    ASSERT_EQ(read->GetNumMatrixEntries(), ports);
    ASSERT_EQ(read->GetNumFrequencies(), 3);
    const double digits = std::pow(10.0, 1 - precision);
    auto it = read->GetFrequencyMap().begin();
    for (const auto& [f, p] : solution->GetFrequencyMap()) {
      auto& want = static_cast<CNetworkModalData&>(*p);
      auto& got = static_cast<CNetworkModalData&>(*it++->second);
      EXPECT_NEAR(got.GetFrequency(), f, f * 1e-15);
      const TNT::CMatrix* m = kind == nd::kSMatrix ? got.GetSMatrix(false)
                              : kind == nd::kYMatrix ? got.GetYMatrix(false) : got.GetZMatrix(false);
      const TNT::CMatrix* w = kind == nd::kSMatrix ? want.GetSMatrix() : kind == nd::kYMatrix ? want.GetYMatrix()
                                                                                            : want.GetZMatrix();
      ASSERT_TRUE(m) << "the stored kind is the written kind";
      EXPECT_LE(testing_support::MaxAbsDiff(*m, *w), digits * testing_support::MaxAbs(*w)) << ports;
      for (int k = 0; k < ports; ++k) {
        EXPECT_LE(abs((*got.GetPortImpedance())[k] - (*want.GetPortImpedance())[k]), 100 * digits);
        EXPECT_LE(abs((*got.GetGamma())[k] - (*want.GetGamma())[k]), 30 * digits);
      }
    }
  }
  fs::remove(file);
}

TEST(Citifile, ReadsSegmentsAndMagnitudesAtFiftyOhms) {
  std::string error;
  auto s = nd::ReadCitifileText(
      "CITIFILE A.01.00\n#NA instrument line\nNAME MEM\nCOMMENT hello\nVAR FREQ MAG 3\nDATA S[1,1] MAG\n"
      "SEG_LIST_BEGIN\nSEG 1000000000 3000000000 3\nSEG_LIST_END\nBEGIN\n0.5\n0.25\n1E-1\nEND\n",
      "m.cit", &error);
  ASSERT_TRUE(s) << error;
  EXPECT_EQ(Solved(*s), (std::vector<double>{1e9, 2e9, 3e9}));
  const auto& last = static_cast<CNetworkModalData&>(*s->GetFrequencyMap().rbegin()->second);
  EXPECT_EQ((*const_cast<CNetworkModalData&>(last).GetSMatrix(false))[0][0], C(0.1));
  EXPECT_EQ((*last.GetPortImpedance())[0], C(50.0));
}

const std::pair<const char*, const char*> kBadCitifiles[] = {
    // One array for a 100000-port matrix: refused before 10^10 of anything exists.
    {"CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[100000,100000] RI\nVAR_LIST_BEGIN\n1e9\nVAR_LIST_END\nBEGIN\n0.5,0\nEND\n",
     "b.cit:10:1: expected DATA S[1,1]: every element of the 100000-port matrix"},
    {"VAR FREQ MAG 1\n", "b.cit:1:1: expected CITIFILE and a version in the first line, found \"VAR FREQ MAG 1\""},
    {"CITIFILE A.01.00\nVAR TIME MAG 1\n", "b.cit:2:5: expected VAR FREQ MAG and the number of frequencies, found \"TIME MAG 1\""},
    {"CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA E[1] RI\n",
     "b.cit:3:6: expected DATA S[i,j], Y[i,j], Z[i,j], Z0[k] or GAMMA[k] and the format RI or MAG, found \"E[1] RI\""},
    {"CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] RI\nDATA Z[1,1] RI\n",
     "b.cit:4:6: found Z data beside S data; a file holds one kind"},
    {"CITIFILE A.01.00\nVAR FREQ MAG 2\nDATA S[1,1] RI\nVAR_LIST_BEGIN\n2\n1\n",
     "b.cit:6:1: expected frequencies in increasing order, found 1 after 2"},
    {"CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] RI\nVAR_LIST_BEGIN\n1\nVAR_LIST_END\nBEGIN\n1,2\n3,4\n",
     "b.cit:9:1: expected END after the 1 values of the block, found more"},
    {"CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] RI\nVAR_LIST_BEGIN\n1\nVAR_LIST_END\nBEGIN\n1;2\n",
     "b.cit:8:1: expected real,imaginary or END, found \"1;2\""},
    {"CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] RI\nVAR_LIST_BEGIN\n1\nVAR_LIST_END\nBEGIN\n1,2\n",
     "b.cit:9:1: the file ends inside a BEGIN block"},
    {"CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] RI\nDATA S[2,2] RI\nVAR_LIST_BEGIN\n1\nVAR_LIST_END\nBEGIN\n1,2\n"
     "END\nBEGIN\n1,2\nEND\n",
     "b.cit:14:1: expected DATA S[1,2]: every element of the 2-port matrix"},
};

TEST(Citifile, GivesOneClearErrorPerMalformedFile) {
  for (const auto& [text, message] : kBadCitifiles) {
    std::string error;
    EXPECT_FALSE(nd::ReadCitifileText(text, "b.cit", &error)) << text;
    EXPECT_EQ(error, message);
  }
}

// A header naming every column and one row per frequency whose numbers are
// the matrix at the printed precision.
TEST(TabExport, WritesAHeaderAndOneRowPerFrequency) {
  std::mt19937_64 rng(3);
  auto solution = testing_support::RandomSolution("S", 2, 3, rng);
  const fs::path file = Temp("t.tab");
  ASSERT_TRUE(nd::WriteTabFile(file.string(), *solution, Solved(*solution), nd::kZMatrix, nd::kRealImaginary, 6,
                               false, 50.0));
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "Freq [Hz]\tre(Z(1,1))\tim(Z(1,1))\tre(Z(1,2))\tim(Z(1,2))\tre(Z(2,1))\tim(Z(2,1))\t"
                  "re(Z(2,2))\tim(Z(2,2))");
  int rows = 0;
  for (const auto& [f, p] : solution->GetFrequencyMap()) {
    ASSERT_TRUE(std::getline(in, line));
    std::stringstream cells(line);
    double freq = 0.0;
    cells >> freq;
    EXPECT_EQ(freq, f);
    const TNT::CMatrix& z = *p->GetZMatrix();
    for (int k = 0; k < 4; ++k) {
      double re = 0.0, im = 0.0;
      cells >> re >> im;
      EXPECT_NEAR(re, z.data()[k].re, 1e-5 * abs(z.data()[k]));
      EXPECT_NEAR(im, z.data()[k].im, 1e-5 * abs(z.data()[k]));
    }
    EXPECT_TRUE(cells.eof());
    ++rows;
  }
  EXPECT_FALSE(std::getline(in, line));
  EXPECT_EQ(rows, 3);
  fs::remove(file);
}

}  // namespace
