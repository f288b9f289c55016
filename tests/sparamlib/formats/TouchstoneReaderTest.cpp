// Touchstone reading: our own files back at the printed precision, the
// syntax of versions 1 and 2 case by case, and one clear error per
// malformed file.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/BlockScan.h"
#include "sparamlib/formats/LineReader.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/formats/TouchstoneReader.h"
#include "support/RandomNetwork.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;
using testing_support::MaxAbs;
using testing_support::MaxAbsDiff;

TNT::CMatrix* Kind(CNetworkData& p, nd::NetworkDataType kind) {
  return kind == nd::kYMatrix ? p.GetYMatrix(true) : kind == nd::kZMatrix ? p.GetZMatrix(true) : p.GetSMatrix(true);
}

// Every file our writer makes, for 1 to 12 ports, S/Y/Z, MA/DB/RI, with and
// without gamma and impedance lines, 8 and 12 digits, reads back to the
// data it was written from at that precision.
TEST(TouchstoneReader, ReadsOurOwnFilesBackAtThePrintedPrecision) {
  std::mt19937_64 rng(7);
  const fs::path dir = fs::temp_directory_path() / ("ts_read_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  int files = 0;
  for (int ports = 1; ports <= 12; ++ports) {
    for (int c = 0; c < 6; ++c) {
      const auto kind = std::array{nd::kSMatrix, nd::kYMatrix, nd::kZMatrix}[static_cast<size_t>(c % 3)];
      const auto format = static_cast<nd::DisplayFormatType>((c + ports) % 3);
      const bool gamma = c < 3;
      const int precision = c % 2 ? 12 : 8;
      auto solution = testing_support::RandomSolution("Sweep", ports, 4, rng);
      if (ports == 2) {
        auto& noise = solution->GetOrCreateNoiseSolution();
        noise.SetNoiseParameters(2e9, 1.25, 0.5, -35.5, 0.3);
        noise.SetNoiseParameters(4e9, 1.5, 0.45, 20.25, 0.35);
      }
      std::vector<double> frequencies;
      for (const auto& [f, p] : solution->GetFrequencyMap()) frequencies.push_back(f);
      const fs::path file = dir / ("case.s" + std::to_string(ports) + "p");
      nd::WriteTouchstoneFile(file.string(), *solution, frequencies, "P", gamma, 50.0, format, kind, precision,
                              false, false, nullptr);
      std::string error;
      nd::TouchstoneHeader header;
      auto read = nd::ReadTouchstoneFile(file, &error, &header);
      const std::string what = file.string() + " kind " + std::to_string(kind) + " format " +
                               std::to_string(format) + " gamma " + std::to_string(gamma);
      ASSERT_TRUE(read) << what << ": " << error;
      ++files;
      ASSERT_EQ(read->GetNumMatrixEntries(), ports) << what;
      EXPECT_EQ(read->GetMatrixEntry(ports - 1)->GetModalEntryName(), "Port" + std::to_string(ports) + ":1");
      ASSERT_EQ(read->GetNumFrequencies(), 4) << what;
      const double digits = std::pow(10.0, 2 - precision);
      auto it = read->GetFrequencyMap().begin();
      for (const auto& [f, original] : solution->GetFrequencyMap()) {
        auto& got = static_cast<CNetworkModalData&>(*it->second);
        auto& want = static_cast<CNetworkModalData&>(*original);
        EXPECT_NEAR(it->first, f, f * digits) << what;
        const TNT::CMatrix& expected = *Kind(want, kind);
        ASSERT_TRUE(Kind(got, kind)) << what;
        EXPECT_LE(MaxAbsDiff(*Kind(got, kind), expected), digits * MaxAbs(expected)) << what;
        ASSERT_TRUE(got.GetPortImpedance());
        for (int k = 0; k < ports; ++k) {
          const C z = gamma ? (*want.GetPortImpedance())[k] : C(50.0);
          EXPECT_LE(abs((*got.GetPortImpedance())[k] - z), digits * abs(z)) << what;
          if (gamma) {
            EXPECT_LE(abs((*got.GetGamma())[k] - (*want.GetGamma())[k]), digits * 30) << what;
          }
        }
        EXPECT_EQ(got.GetGamma() != nullptr, gamma);
        ++it;
      }
      ASSERT_EQ(read->GetNoiseSolution() != nullptr, ports == 2) << what;
      if (ports == 2) {
        const CNoiseData* n = read->GetNoiseSolution()->GetNoiseData(4e9);
        ASSERT_TRUE(n);
        double fmin, mag, ang, rn;
        n->GetNoiseParameters(fmin, mag, ang, rn);
        EXPECT_EQ(fmin, 1.5);
        EXPECT_EQ(mag, 0.45);
        EXPECT_EQ(ang, 20.25);
        EXPECT_EQ(rn, 0.35);
      }
    }
  }
  EXPECT_EQ(files, 72);
  fs::remove_all(dir);
}

// One file in one syntax, and what it must hold: ports, frequencies (Hz),
// one element of the stored matrix and the references.
struct SyntaxCase {
  const char* title;
  const char* name;
  const char* text;
  int ports;
  std::vector<double> frequencies;
  char kind;  // matrix checked: S, Y or Z
  int i, j;   // 0-based element checked at the first frequency
  C value;
  std::vector<double> reference;
};

const SyntaxCase kSyntax[] = {
    {"defaults: GHz S MA R 50", "a.s1p", "#\n1 2 90\n", 1, {1e9}, 'S', 0, 0, {0, 2}, {50}},
    {"any case, any order, R 75", "a.s1p", "! c\n#  ri R 75 S   mhz \n1 0.5 -0.25\n", 1, {1e6}, 'S', 0, 0, {0.5, -0.25},
     {75}},
    {"dB, comments after data, tabs, CRLF", "a.s1p", "# Hz S DB\r\n\t10 -6.020599913279624\t180 ! x\r\n20 0 0\r\n", 1,
     {10, 20}, 'S', 0, 0, {-0.5, 0}, {50}},
    {"-inf dB is an exact zero, as scikit-rf writes it", "a.s1p", "# Hz S DB\n10 -inf 0\n", 1, {10}, 'S', 0, 0, {0, 0},
     {50}},
    {"version 1 two-port order 11 21 12 22", "a.s2p", "# kHz S RI\n1 1 0 2 0 3 0 4 0\n", 2, {1e3}, 'S', 1, 0, {2, 0},
     {50, 50}},
    {"three-port: a row per line", "a.s3p",
     "# GHz S RI\n1 11 0 12 0 13 0\n 21 0 22 0 23 0\n 31 0 32 0 33 0\n2 0 0 0 0 0 0\n0 0 0 0 0 0\n0 0 0 0 0 0\n", 3,
     {1e9, 2e9}, 'S', 2, 1, {32, 0}, {50, 50, 50}},
    {"five-port: rows wrapped after four pairs", "a.s5p",
     "# GHz S RI\n1 1 0 2 0 3 0 4 0\n 5 0\n6 0 7 0 8 0 9 0\n10 0\n0 0 0 0 0 0 0 0\n0 0\n0 0 0 0 0 0 0 0\n0 0\n0 0 0 0 0 0 0 0\n "
     "0 0\n",
     5, {1e9}, 'S', 1, 4, {10, 0}, {50, 50, 50, 50, 50}},
    {"per-port R on the option line", "a.s2p", "# GHz S RI R 50 75\n1 0 0 0 0 0 0 0 0\n", 2, {1e9}, 'S', 0, 0, {0, 0},
     {50, 75}},
    {"version 1 Z is normalised to R", "a.s1p", "# GHz Z RI R 25\n1 2 1\n", 1, {1e9}, 'Z', 0, 0, {50, 25}, {25}},
    {"version 1 Y is normalised to R", "a.s2p", "# GHz Y RI R 50\n1 1 0 2 0 3 0 4 0\n", 2, {1e9}, 'Y', 0, 1,
     {3.0 / 50, 0}, {50, 50}},
    {"version 2: 12_21, Z in ohms, [Reference] over lines, information", "a.ts",
     "[Version] 2.0\n# GHz Z RI R 50\n[Number of Ports] 2\n[Two-Port Data Order] 12_21\n[Number of Frequencies] 2\n"
     "[Reference] 50\n  75 ! per port\n[Begin Information]\n[Manufacturer] us\n[End Information]\n[Network Data]\n"
     "1 1 0 2 0 3 0 4 0\n2 1 0 2 0 3 0 4 0\n[End]\nignored\n",
     2, {1e9, 2e9}, 'Z', 0, 1, {2, 0}, {50, 75}},
    {"version 2: 21_12", "a.s2p",
     "[Version] 2.1\n# GHz S RI\n[Number of Ports] 2\n[Two-Port Data Order] 21_12\n[Number of Frequencies] 1\n"
     "[Network Data]\n1 1 0 2 0 3 0 4 0\n[End]\n",
     2, {1e9}, 'S', 1, 0, {2, 0}, {50, 50}},
    {"version 2: lower triangle", "a.ts",
     "[Version] 2.0\n# GHz S RI\n[Number of Ports] 3\n[Number of Frequencies] 1\n[Matrix Format] Lower\n"
     "[Network Data]\n1 11 0\n 21 0 22 0\n 31 0 32 0 33 0\n[End]\n",
     3, {1e9}, 'S', 0, 2, {31, 0}, {50, 50, 50}},
    {"version 2: upper triangle, mixed-mode order", "a.ts",
     "[Version] 2.0\n# GHz S RI\n[Number of Ports] 3\n[Number of Frequencies] 1\n[Matrix Format] upper\n"
     "[Mixed-Mode Order] D2,3 C2,3 S1\n[Network Data]\n1 11 0 12 0 13 0\n 22 0 23 0\n 33 0\n[End]\n",
     3, {1e9}, 'S', 2, 1, {23, 0}, {50, 50, 50}},
    // H = [[h11, h12], [h21, h22]] of Z = [[3, 1], [2, 4]]: h11 = det Z / z22
    // = 2.5, h12 = z12 / z22 = 0.25, h21 = -z21 / z22 = -0.5, h22 = 1 / z22.
    {"version 2 H becomes Z", "a.ts",
     "[Version] 2.0\n# GHz H RI\n[Number of Ports] 2\n[Two-Port Data Order] 12_21\n[Number of Frequencies] 1\n"
     "[Network Data]\n1 2.5 0 0.25 0 -0.5 0 0.25 0\n[End]\n",
     2, {1e9}, 'Z', 1, 0, {2, 0}, {50, 50}},
    // The same network as version 1 H normalised to 10 ohms: h11 / 10, h22 * 10.
    {"version 1 H becomes Z", "a.s2p", "# GHz H RI R 10\n1 0.25 0 -0.5 0 0.25 0 2.5 0\n", 2, {1e9}, 'Z', 0, 0, {3, 0},
     {10, 10}},
    // G of Y = [[3, 1], [2, 4]] is the same arithmetic.
    {"version 2 G becomes Y", "a.ts",
     "[Version] 2.0\n# GHz G RI\n[Number of Ports] 2\n[Two-Port Data Order] 12_21\n[Number of Frequencies] 1\n"
     "[Network Data]\n1 2.5 0 0.25 0 -0.5 0 0.25 0\n[End]\n",
     2, {1e9}, 'Y', 0, 1, {1, 0}, {50, 50}},
};

TEST(TouchstoneReader, ReadsEachSyntax) {
  for (const SyntaxCase& c : kSyntax) {
    SCOPED_TRACE(c.title);
    std::string error;
    nd::TouchstoneHeader header;
    auto s = nd::ReadTouchstoneText(c.text, c.name, &error, &header);
    ASSERT_TRUE(s) << error;
    ASSERT_EQ(s->GetNumMatrixEntries(), c.ports);
    std::vector<double> f;
    for (const auto& [freq, p] : s->GetFrequencyMap()) f.push_back(freq);
    EXPECT_EQ(f, c.frequencies);
    auto& point = static_cast<CNetworkModalData&>(*s->GetFrequencyMap().begin()->second);
    TNT::CMatrix* m = c.kind == 'S' ? point.GetSMatrix(false) : c.kind == 'Y' ? point.GetYMatrix(false)
                                                                              : point.GetZMatrix(false);
    ASSERT_TRUE(m);
    EXPECT_NEAR((*m)[c.i][c.j].re, c.value.re, 1e-12 * (1 + abs(c.value)));
    EXPECT_NEAR((*m)[c.i][c.j].im, c.value.im, 1e-12 * (1 + abs(c.value)));
    for (int k = 0; k < c.ports; ++k) EXPECT_EQ((*point.GetPortImpedance())[k], C(c.reference[static_cast<size_t>(k)]));
  }
}

TEST(TouchstoneReader, KeepsTheHeaderAndTheNoiseOfBothVersions) {
  std::string error;
  nd::TouchstoneHeader h;
  auto v2 = nd::ReadTouchstoneText(
      "[Version] 2.0\n# MHz S DB R 25\n[Number of Ports] 2\n[Two-Port Data Order] 12_21\n[Number of Frequencies] 2\n"
      "[Number of Noise Frequencies] 1\n[Mixed-Mode Order] D1,2 C1,2\n[Network Data]\n10 0 0 0 0 0 0 0 0\n"
      "20 0 0 0 0 0 0 0 0\n[Noise Data]\n15 2.5 0.5 45 12.5\n[End]\n",
      "v2.s2p", &error, &h);
  ASSERT_TRUE(v2) << error;
  EXPECT_EQ(h.version, 2.0);
  EXPECT_EQ(h.format, nd::kDbAngle);
  EXPECT_EQ(h.mixedModeOrder, "D1,2 C1,2");
  EXPECT_EQ(v2->GetMatrixEntry(1)->GetPortName(), "C1,2");
  double fmin, mag, ang, rn;
  ASSERT_TRUE(v2->GetNoiseSolution() && v2->GetNoiseSolution()->GetNoiseData(15e6));
  v2->GetNoiseSolution()->GetNoiseData(15e6)->GetNoiseParameters(fmin, mag, ang, rn);
  EXPECT_EQ(rn, 0.5);  // 12.5 ohms, kept normalised to the 25-ohm reference as version 1 writes it

  // Version 1: the noise block starts where the frequency goes down.
  auto v1 = nd::ReadTouchstoneText("# GHz S MA\n1 0 0 0 0 0 0 0 0\n2 0 0 0 0 0 0 0 0\n2 1.5 0.5 90 0.25\n3 1.75 0.5 90 0.25\n",
                                   "v1.s2p", &error, &h);
  ASSERT_TRUE(v1) << error;
  EXPECT_EQ(v1->GetNumFrequencies(), 2);
  ASSERT_TRUE(v1->GetNoiseSolution());
  EXPECT_EQ(v1->GetNoiseSolution()->GetPoints().size(), 2u);
}

// A malformed file, and the message it must give (file:line:column: ...).
struct BadCase {
  const char* name;
  const char* text;
  const char* error;
};

const BadCase kBad[] = {
    {"a.s1p", "! no options\n1 0.5 0\n", "a.s1p:2:1: expected the option line (such as \"# GHz S MA R 50\") before the data"},
    {"a.s1p", "", "a.s1p:1:1: expected the option line (such as \"# GHz S MA R 50\"), found none"},
    {"a.s1p", "# GHz S MA\n", "a.s1p:2:1: expected network data, found none"},
    {"a.s1p", "# GHz S MA\n1 0.5 abc\n", "a.s1p:2:7: expected a number, found \"abc\""},
    {"a.s1p", "# GHz S MA\n1 0.5 1e999\n", "a.s1p:2:7: expected a number, found \"1e999\""},
    // nan and inf are numbers to the scanner but not data (-inf dB is an exact 0: see ReadsEachSyntax).
    {"a.s1p", "# Hz S RI R 50\n1e9 nan 0\n2e9 0.5 0\n",
     "a.s1p:2:1: expected finite numbers in the record for frequency 1000000000 (line 2), found nan as its value 2"},
    {"a.s2p", "# Hz S MA R 50\n1e9 0.5 0 0.5 0 0.5 -inf 0.5 0\n",
     "a.s2p:2:1: expected finite numbers in the record for frequency 1000000000 (line 2), found -inf as its value 7"},
    // A port count the file cannot hold fails before anything of its size exists.
    {"x.s99999p", "# Hz S RI R 50\n1e9 0.5 0 0 0 0 0 0.5 0\n",
     "x.s99999p:2:1: expected 9999800001 value pairs per frequency for 99999 ports, but the whole input is 39 bytes"},
    {"a.ts", "[Version] 2.0\n# Hz S RI R 50\n[Number of Ports] 100000\n[Number of Frequencies] 1\n[Network Data]\n1e9 0.5 0\n",
     "a.ts:5:1: expected 10000000000 value pairs per frequency for 100000 ports, but the whole input is 105 bytes"},
    {"a.s2p", "# GHz S MA\n1 0 0 0 0 0 0 0\n",
     "a.s2p:2:16: expected 9 values on the line of a 2-port record (the frequency and 4 pairs), found 8"},
    {"a.s1p", "# GHz S MA\n1 0 0\n1 0 0\n", "a.s1p:3:1: expected frequencies in increasing order, found \"1\" after 1"},
    {"a.s3p", "# GHz S MA\n1 0 0 0 0 0 0 0 0\n",
     "a.s3p:2:15: expected row 1 of the record for frequency 1 (line 2) to end its line after 3 pairs, found more values"},
    {"a.s1p", "# GHz S MA\n1 0 0 0 0\n",
     "a.s1p:2:7: expected 3 values on the line of a 1-port record (the frequency and 1 pair), found more; is the "
     "extension right?"},
    {"a.s3p", "# GHz S MA\n1 0 0 0 0 0 0\n0 0 0 0 0 0\n0 0\n",
     "a.s3p:5:1: the record for frequency 1 that begins at line 2 ends early: expected 9 pairs, found 7"},
    {"a.s2p", "# GHz S MA\n1 0 0 0 0 0 0 0 0\n0.5 1 2 3 4\n0.4 1 2 3 4\n",
     "a.s2p:4:1: expected noise frequencies in increasing order, found \"0.4\" after 0.5"},
    {"a.s1p", "# GHz Q MA\n", "a.s1p:1:7: expected a frequency unit (Hz, kHz, MHz, GHz), a parameter (S, Y, Z, H, "
                             "G), a format (MA, DB, RI) or R and a resistance on the option line, found \"Q\""},
    {"a.s1p", "# GHz MHz\n", "a.s1p:1:7: the option line names this kind of option twice: \"MHz\""},
    {"a.s1p", "# GHz S MA R\n", "a.s1p:1:13: expected a resistance in ohms after R, found the end of the line"},
    {"a.s1p", "# R -5\n", "a.s1p:1:5: expected a reference resistance above 0 ohms, found \"-5\""},
    {"a.s3p", "# GHz H MA\n1 0 0 0 0 0 0\n", "a.s3p:2:1: H-parameters exist for 2-ports only; this file has 3 ports"},
    {"a.ts", "# GHz S MA\n1 0 0\n",
     "a.ts:2:1: cannot tell the port count: name the file .sNp or give [Number of Ports] in a version 2 file"},
    {"a.s1p", "# GHz S MA\n[Number of Ports] 1\n",
     "a.s1p:2:1: found the keyword \"[Number of Ports]\" in a file without [Version] 2.0 in its first line"},
    {"a.s1p", "# GHz S MA\n[Version] 2.0\n", "a.s1p:2:1: expected [Version] as the first line that is not a comment"},
    {"a.ts", "[Version] 3.0\n", "a.ts:1:11: expected [Version] 2.0 or 2.1, found \"3.0\""},
    {"a.s4p", "[Version] 2.0\n# GHz S MA\n[Number of Ports] 3\n",
     "a.s4p:3:19: [Number of Ports] says 3 but the file name says 4 ports"},
    {"a.ts", "[Version] 2.0\n# GHz S MA\n[Number of Ports] 1\n[Network Data]\n",
     "a.ts:4:1: expected [Number of Frequencies] before [Network Data]"},
    {"a.ts", "[Version] 2.0\n# GHz S MA\n[Number of Ports] 2\n[Number of Frequencies] 1\n[Network Data]\n",
     "a.ts:5:1: expected [Two-Port Data Order] (12_21 or 21_12) before the data of a 2-port"},
    {"a.ts", "[Version] 2.0\n# GHz S MA\n[Number of Ports] 1\n[Number of Frequencies] 2\n[Network Data]\n1 0 0\n[End]\n",
     "a.ts:8:1: [Number of Frequencies] says 2 but the file holds 1"},
    {"a.ts", "[Version] 2.0\n# GHz S MA\n[Number of Ports] 1\n[Number of Frequencies] 1\n[Network Data]\n1 0 0\n",
     "a.ts:7:1: expected [End] at the end of a version 2 file"},
    {"a.ts", "[Version] 2.0\n# GHz S MA\n[Number of Ports] 2\n[Reference] 50\n[Number of Frequencies] 1\n",
     "a.ts:5:1: expected 2 reference impedances after [Reference] at line 4, found 1"},
    {"a.ts", "[Version] 2.0\n[Begin Information]\n[Manufacturer] x\n",
     "a.ts:4:1: [Begin Information] at line 2 has no [End Information]"},
    {"a.ts", "[Version] 2.0\n[Frobnicate] 1\n", "a.ts:2:1: expected a Touchstone keyword, found \"[Frobnicate]\""},
    {"a.ts", "[Version] 2.0\n# GHz S MA\n[Number of Ports] 1\n[Number of Frequencies] 1\n1 0 0\n",
     "a.ts:5:1: expected [Network Data] before the data"},
    {"a.s5p", "# GHz S RI\n1 0 0 0 0 0 0 0 0\n0 0\n0 0 0 0 0 0 0 0\n0 0\n0 0 0 0 0 0 0 0\n0 0\n0 0 0 0 0 0 0 0\n0 0\n"
              "0 0 0 0 0 0 0 0\n0 0\n! Gamma 1 2 3 4 5 6 7 8\n2 0 0\n",
     "a.s5p:13:1: expected 5 complex values on the ! Gamma line at line 12, found 8 numbers"},
    {"a.s1p", "# GHz S RI\n1 0 0\n! Port Impedance 50 x\n",
     "a.s1p:3:21: expected a number of the ! Port Impedance line, found \"x\""},
};

TEST(TouchstoneReader, GivesOneClearErrorPerMalformedFile) {
  for (const BadCase& c : kBad) {
    std::string error;
    EXPECT_FALSE(nd::ReadTouchstoneText(c.text, c.name, &error)) << c.text;
    EXPECT_EQ(error, c.error) << c.text;
  }
  std::string error;
  EXPECT_FALSE(nd::ReadTouchstoneFile("/nonexistent/x.s2p", &error));
  EXPECT_EQ(error, "/nonexistent/x.s2p: cannot open the file: No such file or directory");
}

// Block-wise reading must give what reading from memory gives, also for
// lines that straddle a block boundary and a last line without a line end.
TEST(TouchstoneReader, FileAndTextReadTheSame) {
  std::string text = "# GHz S RI\n";
  for (int k = 0; k < 40000; ++k) text += std::to_string(k + 1) + " " + std::to_string(k * 0.001) + " -0.5\n";
  text += "40001 1 2";  // no final line end
  const fs::path file = fs::temp_directory_path() / ("ts_block_" + std::to_string(::getpid()) + ".s1p");
  std::ofstream(file) << text;
  std::string error;
  auto fromFile = nd::ReadTouchstoneFile(file, &error);
  ASSERT_TRUE(fromFile) << error;
  auto fromText = nd::ReadTouchstoneText(text, file.string(), &error);
  ASSERT_TRUE(fromText) << error;
  ASSERT_EQ(fromFile->GetNumFrequencies(), 40001);
  auto a = fromFile->GetFrequencyMap().begin();
  for (const auto& [f, p] : fromText->GetFrequencyMap()) {
    ASSERT_EQ(a->first, f);
    ASSERT_EQ((*a->second->GetSMatrix(false))[0][0], (*p->GetSMatrix(false))[0][0]);
    ++a;
  }
  fs::remove(file);
}

}  // namespace

namespace {

// The reader's own fast path for short decimals must give the very double
// from_chars gives, for every way printf writes one.
TEST(TouchstoneReader, ParsesNumbersExactlyAsFromChars) {
  std::mt19937_64 rng(5);
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  std::uniform_int_distribution<int> exponent(-30, 30), digits(1, 17);
  const char* formats[] = {"%.*G", "%.*E", "%.*f", "%+.*e"};
  for (int k = 0; k < 200000; ++k) {
    const double v = mantissa(rng) * std::pow(10.0, exponent(rng));
    char text[64];
    std::snprintf(text, sizeof text, formats[k % 4], digits(rng) % (k % 4 == 2 ? 6 : 18), v);
    const char* first = text + (text[0] == '+');
    double expected = 0.0, got = 0.0;
    std::from_chars(first, first + std::strlen(first), expected);
    ASSERT_TRUE(nd::ParseNumber(text, got)) << text;
    ASSERT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(expected)) << text;
  }
  double v = 0.0;
  for (const char* bad : {"", "-", "+-1", "1e", "1.2.3", "0x10", "1e5x", "--1", "."})
    EXPECT_FALSE(nd::ParseNumber(bad, v)) << bad;
}

// The bulk path's scanner for short decimals on its own. Where it takes a
// token it must give from_chars' double, and it must take no other form:
// the reader trusts its yes. And it must take every plain decimal (a sign,
// at most 8 digits before the point, 16 bytes), or big files silently go
// the slow way, which the reading tests cannot see. Bytes after the token
// are read but must not count.
TEST(TouchstoneReader, ShortDecimalTakesPlainDecimalsExactly) {
  std::mt19937_64 rng(23);
  std::uniform_int_distribution<int> length(1, 18), pick(0, 99);
  const std::string alphabet = "0123456789.-+eE ";
  const auto plain = [](const std::string& t) {
    size_t i = t[0] == '-' || t[0] == '+' ? 1 : 0;
    size_t whole = 0, fraction = 0, points = 0;
    for (; i < t.size(); ++i) {
      if (t[i] == '.') {
        ++points;
      } else if (t[i] >= '0' && t[i] <= '9') {
        ++(points ? fraction : whole);
      } else {
        return false;
      }
    }
    return t.size() <= 16 && points <= 1 && whole <= 8 && whole + fraction > 0;
  };
  char buffer[64];
  size_t taken = 0;
  for (int k = 0; k < 300000; ++k) {
    std::string t;
    const int n = length(rng);
    if (k % 2) {  // any bytes of a number
      for (int j = 0; j < n; ++j) t += alphabet[static_cast<size_t>(pick(rng)) % alphabet.size()];
    } else {  // a decimal as data files write them
      if (pick(rng) < 40) t += pick(rng) < 50 ? '-' : '+';
      const int whole = pick(rng) % 10;
      for (int j = 0; j < whole; ++j) t += static_cast<char>('0' + pick(rng) % 10);
      if (pick(rng) < 85) t += '.';
      while (t.size() < static_cast<size_t>(n)) t += static_cast<char>('0' + pick(rng) % 10);
    }
    // What follows the token: a blank or a line end, then digits.
    for (char& c : buffer) c = static_cast<char>('0' + pick(rng) % 10);
    std::memcpy(buffer, t.data(), t.size());
    buffer[t.size()] = pick(rng) < 50 ? ' ' : '\n';
    double got = 0.0;
    const bool took = nd::ShortDecimal(buffer, static_cast<int>(t.size()), got);
    ASSERT_EQ(took, plain(t)) << '"' << t << '"';
    if (!took) continue;
    ++taken;
    const char* first = t.c_str() + (t[0] == '+');
    double expected = 0.0;
    std::from_chars(first, t.c_str() + t.size(), expected);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(expected)) << t;
  }
  EXPECT_GT(taken, 50000u);  // the generator reaches the taken side, not only the refusals
}

// Data lines are parsed in place from the read buffer, by their own scanner
// for short decimals: every number must come out as the double from_chars
// gives, whatever its form, blanks and line ends, in memory and from a file
// (where numbers also straddle the blocks the file is read in), and an error
// deep in the data must still name its line and column.
TEST(TouchstoneReader, ReadsDataNumbersExactlyAsFromChars) {
  std::mt19937_64 rng(11);
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  std::uniform_int_distribution<int> exponent(-12, 12), digits(0, 17), pick(0, 7);
  const char* fixed[] = {"-.5",         "+.25",          "5.",           "0",
                         "-0",          "0.000000000000000012345678", "12345678.12345678",
                         "99999999.99999999", "123456789.5", "-1234567.1234567", "9007199254740993",
                         "1.00000000000000011", "+7",  "0000000000000000000001.5", "1E5", "-2.5e-3"};
  const char* blanks[] = {" ", "  ", "\t", " \t  ", "                "};
  std::string text = "# Hz S RI\n";
  std::vector<std::string> written;
  const int lines = 150000;
  for (int k = 0; k < lines; ++k) {
    text += std::to_string(k + 1);
    for (int j = 0; j < 2; ++j) {
      char number[64];
      const int form = pick(rng);
      if (form == 7) {
        std::snprintf(number, sizeof number, "%s", fixed[static_cast<size_t>(k) % std::size(fixed)]);
      } else {
        const char* formats[] = {"%.*g", "%.*G", "%.*e", "%+.*e", "%.*f", "%+.*f", "%.*g"};
        const double v = mantissa(rng) * std::pow(10.0, form >= 4 && form <= 5 ? exponent(rng) / 3 : exponent(rng));
        std::snprintf(number, sizeof number, formats[form], digits(rng), v);
      }
      text += blanks[static_cast<size_t>(k + j) % std::size(blanks)];
      text += number;
      written.emplace_back(number);
    }
    text += k % 3 ? "\n" : " \r\n";
  }
  const fs::path file = fs::temp_directory_path() / ("ts_numbers_" + std::to_string(::getpid()) + ".s1p");
  std::ofstream(file, std::ios::binary) << text;
  std::string error;
  for (const bool fromFile : {false, true}) {
    SCOPED_TRACE(fromFile ? "file" : "memory");
    auto read = fromFile ? nd::ReadTouchstoneFile(file, &error) : nd::ReadTouchstoneText(text, file.string(), &error);
    ASSERT_TRUE(read) << error;
    ASSERT_EQ(read->GetNumFrequencies(), lines);
    size_t n = 0;
    for (const auto& [f, p] : read->GetFrequencyMap()) {
      const C z = (*p->GetSMatrix(false))[0][0];
      for (const double got : {z.re, z.im}) {
        const std::string& token = written[n++];
        const char* first = token.c_str() + (token[0] == '+');
        double expected = 0.0;
        std::from_chars(first, token.c_str() + token.size(), expected);
        ASSERT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(expected)) << token;
      }
    }
  }
  // A bad number far into the data: its line and column as the line-by-line
  // path gives them.
  const size_t line = 123457;  // line 1 is the option line
  size_t at = 0;
  for (size_t k = 1; k < line; ++k) at = text.find('\n', at) + 1;
  const size_t token = text.find_first_not_of(" \t", text.find_first_of(" \t", at));
  const std::string found = "x" + text.substr(token, text.find_first_of(" \t\r\n", token) - token);
  text.insert(token, "x");
  std::ofstream(file, std::ios::binary) << text;
  EXPECT_FALSE(nd::ReadTouchstoneFile(file, &error));
  EXPECT_EQ(error, file.string() + ":" + std::to_string(line) + ":" + std::to_string(token - at + 1) +
                       ": expected a number, found \"" + found + "\"");
  fs::remove(file);
}

// Data lines go through the buffer in bulk until a line needs a closer look
// (a comment, a blank line, a trailing comment), which the line-by-line
// path takes, mid-record too: the same data read either way, in any mix.
TEST(TouchstoneReader, CommentsAndBlankLinesAnywhereChangeNothing) {
  std::mt19937_64 rng(17);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  std::uniform_int_distribution<int> pick(0, 9);
  std::string plain = "# GHz S MA\n", mixed = plain;
  for (int f = 1; f <= 300; ++f) {
    for (int row = 0; row < 5; ++row) {
      for (int part = 0; part < 2; ++part) {  // rows wrapped after four pairs
        std::string line = row == 0 && part == 0 ? std::to_string(f) : " ";
        for (int pair = 0; pair < (part == 0 ? 4 : 1); ++pair) {
          char number[64];
          std::snprintf(number, sizeof number, " %.9g %.6f", std::fabs(value(rng)), 180.0 * value(rng));
          line += number;
        }
        plain += line + "\n";
        switch (pick(rng)) {
          case 0: mixed += "! a comment line\n"; break;
          case 1: mixed += "\n"; break;
          case 2: mixed += " \t \r\n"; break;
          default: break;
        }
        mixed += line + (pick(rng) == 0 ? " ! trailing\n" : "\n");
      }
    }
  }
  std::string error;
  auto a = nd::ReadTouchstoneText(plain, "a.s5p", &error);
  ASSERT_TRUE(a) << error;
  auto b = nd::ReadTouchstoneText(mixed, "a.s5p", &error);
  ASSERT_TRUE(b) << error;
  ASSERT_EQ(a->GetNumFrequencies(), 300);
  ASSERT_EQ(b->GetNumFrequencies(), 300);
  auto it = b->GetFrequencyMap().begin();
  for (const auto& [f, p] : a->GetFrequencyMap()) {
    ASSERT_EQ(it->first, f);
    const TNT::CMatrix& x = *p->GetSMatrix(false);
    const TNT::CMatrix& y = *it++->second->GetSMatrix(false);
    for (int i = 0; i < 5; ++i)
      for (int j = 0; j < 5; ++j) ASSERT_TRUE(x[i][j] == y[i][j]) << f << " " << i << " " << j;
  }
}

// MA and DB angles: sine and cosine within 2 ulp of the exact values (the
// reference reduces the angle exactly too, then works in long double), and
// exact where they are 0 or 1.
TEST(TouchstoneReader, SinCosDegreesIsWithinTwoUlp) {
  if (std::numeric_limits<long double>::digits < 64) GTEST_SKIP() << "no extended long double";
  std::mt19937_64 rng(3);
  std::uniform_real_distribution<double> angle(-720.0, 720.0);
  std::vector<double> x;
  for (int k = 0; k < 400000; ++k) x.push_back(angle(rng));
  for (int k = -48; k <= 48; ++k) x.push_back(15.0 * k);
  for (double a : {1e-300, -4.9e-324, 44.999999999999993, 45.0, 45.000000000000007, 135.0, 1e15 + 0.5, 1e20, -3e300})
    x.push_back(a);
  std::vector<double> s(x.size()), c(x.size());
  nd::SinCosDegrees(x.data(), x.size(), s.data(), c.data());
  const long double pi = 3.14159265358979323846264338327950288L;
  const auto ulps = [](double got, long double want) {
    const double w = std::fabs(static_cast<double>(want));
    const double ulp = w == 0.0 ? 4.9e-324 : std::nextafter(w, INFINITY) - w;
    return static_cast<double>(std::fabs(static_cast<long double>(got) - want) / ulp);
  };
  for (size_t k = 0; k < x.size(); ++k) {
    const double reduced = std::fmod(x[k], 360.0);  // exact
    const double quarter = std::nearbyint(reduced / 90.0);
    const long double r = static_cast<long double>(reduced - 90.0 * quarter) * pi / 180.0L;  // exact remainder
    const long double sr = std::sin(r), cr = std::cos(r);
    const int q = (static_cast<int>(quarter) % 4 + 4) % 4;
    const long double want_s = q == 0 ? sr : q == 1 ? cr : q == 2 ? -sr : -cr;
    const long double want_c = q == 0 ? cr : q == 1 ? -sr : q == 2 ? -cr : sr;
    ASSERT_LE(ulps(s[k], want_s), 2.0) << x[k];
    ASSERT_LE(ulps(c[k], want_c), 2.0) << x[k];
    if (std::fmod(x[k], 90.0) == 0.0) {
      EXPECT_EQ(s[k], static_cast<double>(want_s)) << x[k];
      EXPECT_EQ(c[k], static_cast<double>(want_c)) << x[k];
    }
    // One angle alone takes another path (no wide registers): the same bits.
    if (k % 97 == 0 || k + 200 > x.size()) {
      double one_s, one_c;
      nd::SinCosDegrees(&x[k], 1, &one_s, &one_c);
      ASSERT_EQ(std::bit_cast<std::uint64_t>(one_s), std::bit_cast<std::uint64_t>(s[k])) << x[k];
      ASSERT_EQ(std::bit_cast<std::uint64_t>(one_c), std::bit_cast<std::uint64_t>(c[k])) << x[k];
    }
  }
  double one[3] = {NAN, INFINITY, -0.0}, sine[3], cosine[3];
  nd::SinCosDegrees(one, 3, sine, cosine);
  EXPECT_TRUE(std::isnan(sine[0]) && std::isnan(cosine[0]) && std::isnan(sine[1]) && std::isnan(cosine[1]));
  EXPECT_TRUE(sine[2] == 0.0 && std::signbit(sine[2]) && cosine[2] == 1.0);
}

}  // namespace
