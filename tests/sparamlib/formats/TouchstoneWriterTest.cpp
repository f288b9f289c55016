// Touchstone and Supercompact files: exact layouts on small solutions, the
// solution left as it was after a renormalised export, and number output
// that matches printf byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <random>
#include <sstream>
#include <tuple>

#include <unistd.h>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/formats/NumberFormat.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "support/AssertCapture.h"
#include "support/SampleProject.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;

struct Variation : IDesignVariation {
  Variation(AString p, AString v, std::vector<Variable> vars)
      : product(p), version(v), vars(vars) {}
  const AString& GetProductName() const override { return product; }
  const AString& GetProductVersion() const override { return version; }
  const std::vector<Variable>& GetDesignVariables() const override { return vars; }
  AString product, version;
  std::vector<Variable> vars;
};

// One point per solved frequency (Hz) holding the `kind` matrix value(i, j, f).
// Port k has impedance 50 + k - kj and propagation constant (k + 1) / 10 +
// (21 + k)j; entry P2 has no modal name. A non-empty `renorm` adds a
// post-processing setup (modal or terminal view) renormalising to it.
std::unique_ptr<CNetworkModalSolution> Solution(int n, const std::vector<double>& solved,
                                                const std::function<C(int, int, double)>& value,
                                                nd::NetworkDataType kind = nd::kSMatrix,
                                                std::vector<C> renorm = {}, bool modal = true) {
  auto s = std::make_unique<CNetworkModalSolution>("Sweep");
  for (int k = 0; k < n; ++k) {
    CMatrixEntry e("P" + std::to_string(k + 1), 1, k);
    if (k != 1) e.SetModalEntryName("P" + std::to_string(k + 1) + ":1");
    s->AddMatrixEntry(e);
  }
  for (double f : solved) {
    auto point = std::make_unique<CNetworkModalData>(s.get(), f);
    auto m = std::make_unique<TNT::CMatrix>(n, n);
    auto z = std::make_unique<TNT::CVector>(n), gamma = std::make_unique<TNT::CVector>(n);
    for (int i = 0; i < n; ++i) {
      (*z)[i] = C(50.0 + i, -i);
      (*gamma)[i] = C((i + 1) / 10.0, 21.0 + i);
      for (int j = 0; j < n; ++j) (*m)[i][j] = value(i, j, f);
    }
    if (kind == nd::kYMatrix) point->SetYMatrix(std::move(m));
    if (kind == nd::kZMatrix) point->SetZMatrix(std::move(m));
    if (kind == nd::kSMatrix) point->SetSMatrix(std::move(m));
    point->SetPortImpedance(std::move(z));
    point->SetGamma(std::move(gamma));
    s->AddNetworkData(std::move(point));
  }
  if (!renorm.empty()) {
    auto setup = std::make_unique<CNetworkPostprocSetup>();
    setup->SetMatrixSize(n);
    CNetworkPostprocSetup::CVector impeds(n);
    std::copy(renorm.begin(), renorm.end(), impeds.begin());
    setup->SetPostprocessing(modal, &impeds, nullptr);
    s->SetPostprocSetup(std::move(setup));
  }
  return s;
}

const auto RowColumn = [](int i, int j, double) { return C(i + 1, j + 1); };

// Expected file text. On a line with a '|', the numbers after it are
// left-aligned in columns `width` wide, and a '~' before it stands for the
// (width - 1) blanks that indent continuation lines.
std::string Table(const std::string& text, size_t width = 17) {
  std::istringstream in(text);
  std::string out;
  for (std::string line; std::getline(in, line); out += line + "\n") {
    const size_t bar = line.find('|');
    if (bar == std::string::npos) continue;
    std::istringstream numbers(line.substr(bar + 1));
    line = line[0] == '~' ? std::string(width - 1, ' ') : line.substr(0, bar);
    for (std::string t; numbers >> t;) line += t + std::string(width - t.size(), ' ');
  }
  return out;
}

// What `write` writes to a file name of this test process's own.
std::string Written(const std::function<void(const std::string&)>& write) {
  const fs::path path = fs::temp_directory_path() / ("sparamlib_ts_" + std::to_string(::getpid()));
  write(path.string());
  std::ifstream in(path, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(in), {});
  fs::remove(path);
  return text;
}

const std::string kHeader = "! Touchstone file from project Amp\n! Exported from Corvan \n";
const std::string kNotRenormalised = "!Data is not renormalized\n";

TEST(TouchstoneWriter, WritesExactLayouts) {
  const Variation variation("Tool", "2.1", {{"w", "2mm"}, {"a", "1"}, {"w", "3mm"}});
  const Variation unnamed("", "9", {{"b", "x"}});
  struct Case {
    std::unique_ptr<CNetworkModalSolution> s;
    struct {
      std::vector<double> frequencies;
      nd::DisplayFormatType format;
      nd::NetworkDataType kind;
      int precision;
      bool gammaAtReference;  // export gamma and impedances, data already at 75 ohms
      const IDesignVariation* variation;
    } o;
    std::string expected;
  } cases[] = {
      // 1 port, MA: the unsolved frequency is skipped, no blank lines.
      {Solution(1, {1e9, 1.5e9},
                [](int, int, double f) { return f < 1.2e9 ? C(0, 0.5) : C(-0.123456, 0); }),
       {{1e9, 1.5e9, 3e9}, nd::kMagnitudeAngle, nd::kSMatrix, 3, false, nullptr},
       kHeader + kNotRenormalised + "# GHZ S MA\n! Modal data exported\n! Port[1] = P1:1\n" +
           Table("|1 0.5 90\n|1.5 0.123 180\n")},
      // 2 ports, DB: columns S11 S21 S12 S22, the dB floor, variables sorted
      // with the last value kept, R from a real renormalisation, noise data.
      {Solution(2, {1e9},
                [](int i, int j, double) { return i == j ? C(i ? -0.01 : 0.1) : C(0, i > j); },
                nd::kSMatrix, {C(50), C(50)}),
       {{1e9}, nd::kDbAngle, nd::kSMatrix, 7, false, &variation},
       Table("! Touchstone file from project Amp\n! Exported from Tool 2.1\n! Variables:\n"
             "!  a = 1\n!  w = 3mm\n# GHZ S DB R 50.000000\n! Modal data exported\n"
             "! Port[1] = P1:1\n! Port[2] = P2\n|1 -20 0 0 90 -9999.999 0 -40 180\n"
             "! Noise Data\n|1 0.5 0.25 45 10\n|2 0.6 0.3 -45 12\n")},
      // 3 ports, Y: a blank line after each point; 50/75 ohms cannot be
      // stated as R; no noise block; an unnamed product is ours.
      {Solution(3, {1e9}, RowColumn, nd::kYMatrix, {C(50), C(75), C(50)}),
       {{1e9}, nd::kRealImaginary, nd::kYMatrix, 3, false, &unnamed},
       kHeader + "! Variables:\n!  b = x\n" + kNotRenormalised +
           Table("# GHZ Y RI\n! Modal data exported\n! Port[1] = P1:1\n! Port[2] = P2\n"
                 "! Port[3] = P3:1\n|1 1 1 1 2 1 3\n~|2 1 2 2 2 3\n~|3 1 3 2 3 3\n\n")},
      // 4 ports, Z: a complex renormalisation is not stated as R; the
      // terminal view has no port lines.
      {Solution(4, {1e9}, RowColumn, nd::kZMatrix, std::vector<C>(4, C(50, 1)), false),
       {{1e9}, nd::kRealImaginary, nd::kZMatrix, 3, false, nullptr},
       kHeader + kNotRenormalised +
           Table("# GHZ Z RI\n! Terminal data exported\n|1 1 1 1 2 1 3 1 4\n~|2 1 2 2 2 3 2 4\n"
                 "~|3 1 3 2 3 3 3 4\n~|4 1 4 2 4 3 4 4\n\n")},
      // 5 ports, already at the reference: rows, gamma and impedance lines
      // wrap after four entries.
      {Solution(5, {2e9}, RowColumn),
       {{2e9}, nd::kRealImaginary, nd::kSMatrix, 3, true, nullptr},
       kHeader + Table("# GHZ S RI R 75.000000\n! Modal data exported\n! Port[1] = P1:1\n"
                       "! Port[2] = P2\n! Port[3] = P3:1\n! Port[4] = P4:1\n! Port[5] = P5:1\n"
                       "|2 1 1 1 2 1 3 1 4\n~|1 5\n~|2 1 2 2 2 3 2 4\n~|2 5\n~|3 1 3 2 3 3 3 4\n"
                       "~|3 5\n~|4 1 4 2 4 3 4 4\n~|4 5\n~|5 1 5 2 5 3 5 4\n~|5 5\n"
                       "! Gamma  |0.1 21 0.2 22 0.3 23 0.4 24\n!      |0.5 25\n"
                       "! Port Impedance  |50 0 51 -1 52 -2 53 -3\n!      |54 -4\n\n")},
  };
  for (int k : {1, 2}) {
    cases[k].s->GetOrCreateNoiseSolution().SetNoiseParameters(2e9, 0.6, 0.3, -45, 12);
    cases[k].s->GetOrCreateNoiseSolution().SetNoiseParameters(1e9, 0.5, 0.25, 45, 10);
  }
  for (const Case& c : cases) {
    EXPECT_EQ(Written([&](const std::string& path) {
                nd::WriteTouchstoneFile(path, *c.s, c.o.frequencies, "Amp", c.o.gammaAtReference,
                                        75.0, c.o.format, c.o.kind, c.o.precision, false,
                                        c.o.gammaAtReference, c.o.variation);
              }),
              c.expected);
  }
}

TEST(TouchstoneWriter, RenormalisedExportLeavesTheSolutionBitForBit) {
  auto s = Solution(3, {1e9, 2e9}, RowColumn);
  const auto copy = s->Clone();
  // All of S, gamma and the impedances at 17 digits: the same text means the same bits.
  auto full = [&](CNetworkDataSolution& x, bool renormalise) {
    return Written([&](const std::string& path) {
      nd::WriteTouchstoneFile(path, x, {1e9, 2e9}, "Amp", true, 50.0, nd::kRealImaginary,
                              nd::kSMatrix, 17, renormalise, false, nullptr);
    });
  };
  const std::string renormalised = full(*s, true);
  EXPECT_NE(renormalised.find("# GHZ S RI R 50.000000\n"), std::string::npos);
  EXPECT_NE(renormalised.find(Table("! Port Impedance  |50 0 50 0 50 0\n")), std::string::npos);
  EXPECT_EQ(full(*s, false), full(*copy, false));
}

TEST(TouchstoneWriter, UnopenableFileWritesNothingAndLeavesNoFile) {
  auto s = Solution(1, {1e9}, RowColumn);
  const fs::path file = fs::temp_directory_path() / "sparamlib_no_such_dir" / "x.s1p";
  nd::WriteTouchstoneFile(file.string(), *s, {1e9}, "Amp", false, 50, nd::kMagnitudeAngle,
                          nd::kSMatrix, 8, false, false, nullptr);
  nd::WriteSupercompactFile(file.string(), *s, {1e9}, "Amp", 50, nd::kSMatrix, nd::kMagnitudeAngle,
                            false);
  EXPECT_FALSE(fs::exists(file.parent_path()));
}

// Supercompact: rows whole even for two ports, 15-blank continuation lines,
// one code for kind and format.
TEST(SupercompactWriter, WritesExactLayouts) {
  const std::string data = "Supercompact file from Magnar project Amp\n1.000000E+00GHZ |";
  const std::string oneAt45 = " 50 1\n" + data + "1.414214E+00 4.500000E+01\n";
  // Port count, kind and format asked for, the file behind "Amp 1GHz 2.5GHz <n>".
  const std::tuple<int, nd::NetworkDataType, nd::DisplayFormatType, std::string> cases[] = {
      {1, nd::kSMatrix, nd::kMagnitudeAngle, oneAt45},
      {2, nd::kYMatrix, nd::kRealImaginary,
       " 50 2\n" + data +
           "1.000000E+00 1.000000E+00 1.000000E+00 2.000000E+00 2.000000E+00 1.000000E+00 "
           "2.000000E+00 2.000000E+00\n"},
      {3, nd::kZMatrix, nd::kRealImaginary,
       " 50 3\n" + data +
           "1.000000E+00 1.000000E+00 1.000000E+00 2.000000E+00 1.000000E+00 3.000000E+00\n"
           "~|2.000000E+00 1.000000E+00 2.000000E+00 2.000000E+00 2.000000E+00 3.000000E+00\n"
           "~|3.000000E+00 1.000000E+00 3.000000E+00 2.000000E+00 3.000000E+00 3.000000E+00\n"},
      // A combination the format has no code for is written as S, MA.
      {1, nd::kZMatrix, nd::kDbAngle, oneAt45},
      {1, nd::kSMatrix, nd::kDbAngle, " 50 31\n" + data + "3.010300E+00 4.500000E+01\n"},
      {1, nd::kSMatrix, nd::kRealImaginary, " 50 -1\n" + data + "1.000000E+00 1.000000E+00\n"},
  };
  for (const auto& [n, kind, format, expected] : cases) {
    auto s = Solution(n, {1e9}, RowColumn, n == 1 ? nd::kSMatrix : kind);
    EXPECT_EQ(Written([&](const std::string& path) {
                nd::WriteSupercompactFile(path, *s, {1e9, 2.5e9}, "Amp", 50, kind, format, false);
              }),
              Table("Amp 1GHz 2.5GHz " + std::to_string(n) + expected, 16));
  }
}

// ---- Number output -------------------------------------------------------

std::string Printf(const char* format, double v) {
  char buf[512];
  std::snprintf(buf, sizeof buf, format, v);
  return buf;
}

TEST(NumberFormat, MatchesPrintfByteForByte) {
  std::mt19937_64 rng(20261121);
  // Values printf is most likely to be matched badly on: signed zeros,
  // subnormals, extremes, non-finite values, decimal ties and their binary
  // neighbours at every digit count, and then any bit pattern at all.
  const double inf = std::numeric_limits<double>::infinity();
  // clang-format off
  std::vector<double> v = {0.0, -0.0, 4.9406564584124654e-324, 2.2250738585072009e-308,
      2.2250738585072014e-308, 1.7976931348623157e308, inf, -inf, std::nan(""), -std::nan(""),
      9.9999999995, 0.00009999995, 99999.5, 0.5, 1.5, 2.5, 1e-5, 1e-4, 1e15, 1e16, 1e17,
      123456789012345678.0, -9999.999, 0.125, 1e-320, 1e300, 1e-300};
  // clang-format on
  std::uniform_int_distribution<int> digits(1, 17), exp10(-30, 30), wide(-320, 308);
  for (int k = 0; k < 4000; ++k) {
    const int p = digits(rng);
    // (m + 0.5) * 10^e with m a p-digit integer: a tie at precision p.
    const double m =
        std::floor(std::pow(10.0, p - 1) * (1.0 + 9.0 * std::generate_canonical<double, 53>(rng)));
    const double tie = (m + 0.5) * std::pow(10.0, exp10(rng) - p);
    for (double t : {tie, std::nextafter(tie, 0.0), std::nextafter(tie, inf), m + 0.5, -(m + 0.5)})
      v.push_back(t);
  }
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  while (v.size() < 750000) {
    const uint64_t bits = rng();
    v.push_back(std::bit_cast<double>(bits));  // NaN payloads, subnormals, extremes
    v.push_back(mantissa(rng) * std::pow(10.0, wide(rng) % 40));
  }
  // Formats with fixed text around the conversion, taken by the fast path,
  // and others handed to printf; then, for each value at one precision
  // (cycling through 1..17), the writers' "%-16.<p>G ", plain "%.<p>g" and
  // "%<w>.<p-1>E" with a width from 0 to 23.
  std::vector<std::string> texts = {"%-.6EGHZ ", "%-16.6lE", "x%%%.3g%%", "%G",       "%.45E",
                                    "%+.3G",     "%010.3e",  "%.4f",      "%-70.50G|"};
  for (int p = 1; p <= 17; ++p) {
    texts.push_back("%-16." + std::to_string(p) + "G ");
    texts.push_back("%." + std::to_string(p) + "g");
    for (int w = 0; w < 24; ++w)
      texts.push_back("%" + std::to_string(w) + "." + std::to_string(p - 1) + "E");
  }
  std::vector<nd::CNumberFormat> formats(texts.begin(), texts.end());
  for (size_t f = 0; f < 9; ++f) EXPECT_EQ(formats[f].IsFast(), f < 4) << texts[f];
  int failures = 0;
  std::string ours;
  for (size_t k = 0; k < v.size() && failures < 10; ++k) {
    const size_t base = 9 + (k % 17) * 26;
    for (size_t f : {k % 9, base, base + 1, base + 2 + k % 24}) {
      ours.clear();
      formats[f].Append(ours, v[k]);
      const std::string theirs = Printf(texts[f].c_str(), v[k]);
      if (ours != theirs) {
        ADD_FAILURE() << texts[f] << " of " << Printf("%.17g", v[k]) << ": '" << ours << "' vs '"
                      << theirs << "'";
        ++failures;
      }
    }
  }
}

TEST(NumberFormat, RejectsFormatsThatAreNotOneDoubleConversion) {
  for (const char* bad : {"%d", "%s", "%.3G %.3G", "no conversion", "%*.3G", "%LG"}) {
    testing_support::AssertCapture capture;
    nd::CNumberFormat format(bad);
    std::string out;
    format.Append(out, 1.0);
    EXPECT_TRUE(out.empty() && !format.IsValid() && !capture.empty()) << bad;
  }
}

}  // namespace
