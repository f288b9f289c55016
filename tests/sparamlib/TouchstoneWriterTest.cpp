// Touchstone and Supercompact files: exact layouts on small solutions, the
// solution left as it was after a renormalised export, and number output
// that matches printf byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <sstream>

#include <unistd.h>

#include "sparamlib/NetworkDataUtilities.h"
#include "sparamlib/NetworkModalData.h"
#include "sparamlib/NetworkModalSolution.h"
#include "sparamlib/NumberFormat.h"
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

// One point per frequency (Hz); `value(i, j, f)` is entry (i, j) of the
// stored matrix, `kind` which matrix is stored. Port k has impedance
// 50 + k - kj and propagation constant (k + 1) / 10 + (21 + k)j.
std::unique_ptr<CNetworkModalSolution> Solution(int n, const std::vector<double>& frequencies,
                                                const std::function<C(int, int, double)>& value,
                                                nd::NetworkDataType kind = nd::kSMatrix) {
  auto s = std::make_unique<CNetworkModalSolution>("Sweep");
  for (int k = 0; k < n; ++k) {
    CMatrixEntry e("P" + std::to_string(k + 1), 1, k);
    if (k != 1) e.SetModalEntryName("P" + std::to_string(k + 1) + ":1");
    s->AddMatrixEntry(e);
  }
  for (double f : frequencies) {
    auto point = s->CreateNetworkData();
    point->SetFrequency(f);
    auto m = std::make_unique<TNT::CMatrix>(n, n);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) (*m)[i][j] = value(i, j, f);
    if (kind == nd::kYMatrix) point->SetYMatrix(std::move(m));
    if (kind == nd::kZMatrix) point->SetZMatrix(std::move(m));
    if (kind == nd::kSMatrix) point->SetSMatrix(std::move(m));
    auto* modal = static_cast<CNetworkModalData*>(point.get());
    auto z = std::make_unique<TNT::CVector>(n);
    auto gamma = std::make_unique<TNT::CVector>(n);
    for (int k = 0; k < n; ++k) {
      (*z)[k] = C(50.0 + k, -k);
      (*gamma)[k] = C((k + 1) / 10.0, 21.0 + k);
    }
    modal->SetPortImpedance(std::move(z));
    modal->SetGamma(std::move(gamma));
    s->AddNetworkData(std::move(point));
  }
  return s;
}

void Renormalised(CNetworkDataSolution& s, std::vector<C> z, bool modal = true) {
  auto setup = std::make_unique<CNetworkPostprocSetup>();
  setup->SetMatrixSize(static_cast<int>(z.size()));
  CNetworkPostprocSetup::CVector impeds(static_cast<int>(z.size()));
  for (size_t k = 0; k < z.size(); ++k) impeds[static_cast<int>(k)] = z[k];
  setup->SetPostprocessing(modal, &impeds, nullptr);
  s.SetPostprocSetup(std::move(setup));
}

// Expected numbers in the value columns: each 16 wide, then one blank.
std::string V(std::initializer_list<const char*> numbers) {
  std::string out;
  for (const char* t : numbers) {
    out += t;
    out.append(17 - std::string(t).size(), ' ');
  }
  return out;
}
const std::string kIndent(16, ' ');

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// Files go to one directory per test process, removed when it ends.
fs::path TempFile(const char* name) {
  static const struct Dir {
    fs::path path = fs::temp_directory_path() / ("sparamlib_ts_" + std::to_string(::getpid()));
    Dir() { fs::create_directories(path); }
    ~Dir() {
      std::error_code ec;
      fs::remove_all(path, ec);
    }
  } dir;
  return dir.path / name;
}

enum Flags { kNone = 0, kGamma = 1, kAtReference = 2 };
struct Options {
  nd::DisplayFormatType format;
  nd::NetworkDataType kind;
  int precision;
  int flags;
};
struct TouchstoneCase {
  const char* name;
  std::function<std::unique_ptr<CNetworkModalSolution>()> make;
  std::vector<double> frequencies;
  Options options;
  const IDesignVariation* variation;
  std::string expected;
};

const std::string kHeader = "! Touchstone file from project Amp\n! Exported from Corvan \n";

TEST(TouchstoneWriter, WritesExactLayouts) {
  const Variation variation("Tool", "2.1", {{"w", "2mm"}, {"a", "1"}, {"w", "3mm"}});
  const Variation unnamed("", "9", {{"b", "x"}});
  const std::vector<TouchstoneCase> cases = {
      {"1-port MA, unsolved frequency skipped, no blank lines",
       [] {
         return Solution(1, {1e9, 1.5e9}, [](int, int, double f) {
           return f < 1.2e9 ? C(0, 0.5) : C(-0.123456, 0);
         });
       },
       {1e9, 1.5e9, 3e9},
       {nd::kMagnitudeAngle, nd::kSMatrix, 3, kNone},
       nullptr,
       kHeader +
           "!Data is not renormalized\n# GHZ S MA\n! Modal data exported\n! Port[1] = P1:1\n" +
           V({"1", "0.5", "90"}) + "\n" + V({"1.5", "0.123", "180"}) + "\n"},
      {"2-port DB, column order, dB floor, sorted variables, R from setup, noise",
       [] {
         auto s = Solution(2, {1e9}, [](int i, int j, double) {
           const C m[2][2] = {{C(0.1), C(0.0)}, {C(0, 1), C(-0.01)}};
           return m[i][j];
         });
         Renormalised(*s, {C(50), C(50)});
         s->GetOrCreateNoiseSolution().SetNoiseParameters(2e9, 0.6, 0.3, -45, 12);
         s->GetOrCreateNoiseSolution().SetNoiseParameters(1e9, 0.5, 0.25, 45, 10);
         return s;
       },
       {1e9},
       {nd::kDbAngle, nd::kSMatrix, 8, kNone},
       &variation,
       "! Touchstone file from project Amp\n! Exported from Tool 2.1\n! Variables:\n!  a = 1\n"
       "!  w = 3mm\n# GHZ S DB R 50.000000\n! Modal data exported\n! Port[1] = P1:1\n"
       "! Port[2] = P2\n" +
           V({"1", "-20", "0", "0", "90", "-9999.999", "0", "-40", "180"}) + "\n! Noise Data\n" +
           V({"1", "0.5", "0.25", "45", "10"}) + "\n" + V({"2", "0.6", "0.3", "-45", "12"}) + "\n"},
      {"3-port Y RI, rows on their own lines, 50/75 not stated as R, no noise block",
       [] {
         auto s = Solution(
             3, {1e9, 2e9},
             [](int i, int j, double f) { return C(10 * (i + 1) + j + 1, -f / 1e9); },
             nd::kYMatrix);
         Renormalised(*s, {C(50), C(75), C(50)});
         s->GetOrCreateNoiseSolution().SetNoiseParameters(1e9, 0.5, 0.25, 45, 10);
         return s;
       },
       {1e9, 2e9},
       {nd::kRealImaginary, nd::kYMatrix, 8, kNone},
       &unnamed,
       kHeader +
           "! Variables:\n!  b = x\n!Data is not renormalized\n# GHZ Y RI\n"
           "! Modal data exported\n"
           "! Port[1] = P1:1\n! Port[2] = P2\n! Port[3] = P3:1\n" +
           V({"1", "11", "-1", "12", "-1", "13", "-1"}) + "\n" + kIndent +
           V({"21", "-1", "22", "-1", "23", "-1"}) + "\n" + kIndent +
           V({"31", "-1", "32", "-1", "33", "-1"}) + "\n\n" +
           V({"2", "11", "-2", "12", "-2", "13", "-2"}) + "\n" + kIndent +
           V({"21", "-2", "22", "-2", "23", "-2"}) + "\n" + kIndent +
           V({"31", "-2", "32", "-2", "33", "-2"}) + "\n\n"},
      {"4-port Z RI, complex renormalisation, terminal view: no port lines",
       [] {
         auto s = Solution(
             4, {1e9}, [](int i, int j, double) { return C(i + 1, j + 1); }, nd::kZMatrix);
         Renormalised(*s, {C(50, 1), C(50, 1), C(50, 1), C(50, 1)}, false);
         return s;
       },
       {1e9},
       {nd::kRealImaginary, nd::kZMatrix, 8, kNone},
       nullptr,
       kHeader + "!Data is not renormalized\n# GHZ Z RI\n! Terminal data exported\n" +
           V({"1", "1", "1", "1", "2", "1", "3", "1", "4"}) + "\n" + kIndent +
           V({"2", "1", "2", "2", "2", "3", "2", "4"}) + "\n" + kIndent +
           V({"3", "1", "3", "2", "3", "3", "3", "4"}) + "\n" + kIndent +
           V({"4", "1", "4", "2", "4", "3", "4", "4"}) + "\n\n"},
      {"5-port RI at reference, rows and gamma/impedance lines wrap after four",
       [] { return Solution(5, {2e9}, [](int i, int j, double) { return C(i + 1, j + 1); }); },
       {2e9},
       {nd::kRealImaginary, nd::kSMatrix, 8, kGamma | kAtReference},
       nullptr,
       [] {
         std::string s = kHeader + "# GHZ S RI R 75.000000\n! Modal data exported\n";
         for (const char* p : {"P1:1", "P2", "P3:1", "P4:1", "P5:1"})
           s += "! Port[" + std::to_string(p[1] - '0') + "] = " + p + "\n";
         for (int i = 1; i <= 5; ++i) {
           const std::string r = std::to_string(i);
           s += (i == 1 ? V({"2"}) : kIndent) +
                V({r.c_str(), "1", r.c_str(), "2", r.c_str(), "3", r.c_str(), "4"}) + "\n" +
                kIndent + V({r.c_str(), "5"}) + "\n";
         }
         return s + "! Gamma  " + V({"0.1", "21", "0.2", "22", "0.3", "23", "0.4", "24"}) +
                "\n!      " + V({"0.5", "25"}) + "\n! Port Impedance  " +
                V({"50", "0", "51", "-1", "52", "-2", "53", "-3"}) + "\n!      " + V({"54", "-4"}) +
                "\n\n";
       }()},
  };
  const fs::path path = TempFile("case.snp");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto s = c.make();
    const Options& o = c.options;
    nd::WriteTouchstoneFile(path.string(), *s, c.frequencies, "Amp", o.flags & kGamma, 75.0,
                            o.format, o.kind, o.precision, false, o.flags & kAtReference,
                            c.variation);
    EXPECT_EQ(Slurp(path), c.expected);
  }
}

TEST(TouchstoneWriter, RenormalisedExportRestoresTheSolution) {
  std::mt19937_64 rng(7);
  auto s = testing_support::RandomSolution("Sweep", 3, 4, rng);
  const auto copy = s->Clone();
  std::vector<double> frequencies;
  for (const auto& [f, p] : s->GetFrequencyMap()) frequencies.push_back(f);
  const fs::path path = TempFile("renorm.s3p");
  nd::WriteTouchstoneFile(path.string(), *s, frequencies, "Amp", true, 50.0, nd::kRealImaginary,
                          nd::kSMatrix, 17, true, false, nullptr);
  const std::string text = Slurp(path);
  EXPECT_NE(text.find("# GHZ S RI R 50.000000\n"), std::string::npos);
  EXPECT_NE(text.find("! Port Impedance  " + V({"50", "0", "50", "0", "50", "0"})),
            std::string::npos);

  for (const auto& [f, p] : s->GetFrequencyMap()) {
    auto* now = static_cast<CNetworkModalData*>(p.get());
    auto* was = static_cast<CNetworkModalData*>(copy->GetFrequencyMap().at(f).get());
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ((*now->GetPortImpedance())[i], (*was->GetPortImpedance())[i]);
      for (int j = 0; j < 3; ++j) {
        const C d = (*now->GetSMatrix())[i][j] - (*was->GetSMatrix())[i][j];
        EXPECT_LT(::abs(d), 1e-12);
      }
    }
  }
}

TEST(TouchstoneWriter, UnopenableFileWritesNothingAndLeavesNoFile) {
  auto s = Solution(1, {1e9}, [](int, int, double) { return C(0.5); });
  const fs::path dir = TempFile("missing_dir") / "x.s1p";
  nd::WriteTouchstoneFile(dir.string(), *s, {1e9}, "Amp", false, 50, nd::kMagnitudeAngle,
                          nd::kSMatrix, 8, false, false, nullptr);
  nd::WriteSupercompactFile(dir.string(), *s, {1e9}, "Amp", 50, nd::kSMatrix, nd::kMagnitudeAngle,
                            false);
  EXPECT_FALSE(fs::exists(dir.parent_path()));
}

// Supercompact: row order even for two ports, 15-blank continuation lines.
TEST(SupercompactWriter, WritesExactLayouts) {
  auto E = [](std::initializer_list<const char*> numbers) {
    std::string out;
    for (const char* t : numbers)
      out += std::string(t) + std::string(16 - std::string(t).size(), ' ');
    return out;
  };
  struct Case {
    int n;
    nd::NetworkDataType kind;
    nd::DisplayFormatType format;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {1, nd::kSMatrix, nd::kMagnitudeAngle,
       "Amp 1GHz 2.5GHz 1 50 1\n1.000000E+00GHZ " + E({"5.000000E-01", "9.000000E+01"}) + "\n"},
      {2, nd::kYMatrix, nd::kRealImaginary,
       "Amp 1GHz 2.5GHz 2 50 2\n1.000000E+00GHZ " +
           E({"1.000000E+00", "1.000000E+00", "1.000000E+00", "2.000000E+00", "2.000000E+00",
              "1.000000E+00", "2.000000E+00", "2.000000E+00"}) +
           "\n"},
      {3, nd::kZMatrix, nd::kRealImaginary,
       [&] {
         std::string s = "Amp 1GHz 2.5GHz 3 50 3\n1.000000E+00GHZ ";
         for (const char* r : {"1.000000E+00", "2.000000E+00", "3.000000E+00"})
           s += (r[0] == '1' ? "" : std::string(15, ' ')) +
                E({r, "1.000000E+00", r, "2.000000E+00", r, "3.000000E+00"}) + "\n";
         return s;
       }()},
      // Combinations the format has no code for are written as S, MA.
      {1, nd::kZMatrix, nd::kDbAngle,
       "Amp 1GHz 2.5GHz 1 50 1\n1.000000E+00GHZ " + E({"5.000000E-01", "9.000000E+01"}) + "\n"},
      {1, nd::kSMatrix, nd::kDbAngle,
       "Amp 1GHz 2.5GHz 1 50 31\n1.000000E+00GHZ " + E({"-6.020600E+00", "9.000000E+01"}) + "\n"},
      {1, nd::kSMatrix, nd::kRealImaginary,
       "Amp 1GHz 2.5GHz 1 50 -1\n1.000000E+00GHZ " + E({"0.000000E+00", "5.000000E-01"}) + "\n"},
  };
  const fs::path path = TempFile("case.sc");
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.n) + " ports, kind " + std::to_string(c.kind));
    auto s = Solution(
        c.n, {1e9}, [&](int i, int j, double) { return c.n == 1 ? C(0, 0.5) : C(i + 1, j + 1); },
        c.kind == nd::kSMatrix || c.n == 1 ? nd::kSMatrix : c.kind);
    nd::WriteSupercompactFile(path.string(), *s, {1e9, 2.5e9}, "Amp", 50, c.kind, c.format, false);
    const std::string header = "Supercompact file from Magnar project Amp\n";
    std::string expected = c.expected;
    expected.insert(expected.find('\n') + 1, header);
    EXPECT_EQ(Slurp(path), expected);
    EXPECT_TRUE(s->GetInterpolatedMap().empty());
  }
}

// ---- Number output -------------------------------------------------------

std::string Printf(const char* format, double v) {
  char buf[512];
  std::snprintf(buf, sizeof buf, format, v);
  return buf;
}

// Values printf is most likely to be matched badly on: signed zeros,
// subnormals, extremes, non-finite values, and decimal ties and their binary
// neighbours at every digit count.
std::vector<double> HardValues(std::mt19937_64& rng) {
  const double inf = std::numeric_limits<double>::infinity();
  // clang-format off
  std::vector<double> v = {0.0, -0.0, 4.9406564584124654e-324, 2.2250738585072009e-308,
      2.2250738585072014e-308, 1.7976931348623157e308, inf, -inf, std::nan(""), -std::nan(""),
      9.9999999995, 0.00009999995, 99999.5, 0.5, 1.5, 2.5, 1e-5, 1e-4, 1e15, 1e16, 1e17,
      123456789012345678.0, -9999.999, 0.125, 1e-320, 1e300, 1e-300};
  // clang-format on
  std::uniform_int_distribution<int> digits(1, 17), exp10(-30, 30);
  for (int k = 0; k < 4000; ++k) {
    const int p = digits(rng);
    // (m + 0.5) * 10^e with m a p-digit integer: a tie at precision p.
    const double m =
        std::floor(std::pow(10.0, p - 1) * (1.0 + 9.0 * std::generate_canonical<double, 53>(rng)));
    const double tie = (m + 0.5) * std::pow(10.0, exp10(rng) - p);
    for (double t : {tie, std::nextafter(tie, 0.0), std::nextafter(tie, inf), m + 0.5, -(m + 0.5)})
      v.push_back(t);
  }
  return v;
}

TEST(NumberFormat, MatchesPrintfByteForByte) {
  std::mt19937_64 rng(20261121);
  std::vector<double> values = HardValues(rng);
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  std::uniform_int_distribution<int> exp10(-320, 308);
  while (values.size() < 1000000) {
    uint64_t bits = rng();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    values.push_back(d);  // any bit pattern: NaN payloads, subnormals, extremes
    values.push_back(mantissa(rng) * std::pow(10.0, exp10(rng) % 40));
  }
  // Each value at one precision (cycling through 1..17) in three formats:
  // the writers' "%-16.<p>G ", plain "%.<p>g" and "%<w>.<p-1>E" with a
  // width from 0 to 23.
  std::vector<std::string> texts;
  std::vector<nd::CNumberFormat> formats;
  for (int p = 1; p <= 17; ++p) {
    texts.push_back("%-16." + std::to_string(p) + "G ");
    texts.push_back("%." + std::to_string(p) + "g");
    for (int w = 0; w < 24; ++w)
      texts.push_back("%" + std::to_string(w) + "." + std::to_string(p - 1) + "E");
  }
  for (const auto& t : texts) formats.emplace_back(t);
  int failures = 0;
  std::string ours;
  for (size_t k = 0; k < values.size() && failures < 10; ++k) {
    const double v = values[k];
    const size_t base = (k % 17) * 26;
    for (size_t f : {base, base + 1, base + 2 + k % 24}) {
      ours.clear();
      formats[f].Append(ours, v);
      const std::string theirs = Printf(texts[f].c_str(), v);
      if (ours != theirs) {
        ADD_FAILURE() << texts[f] << " of " << Printf("%.17g", v) << ": '" << ours << "' vs '"
                      << theirs << "'";
        ++failures;
      }
    }
  }
}

TEST(NumberFormat, ParsesFixedTextAndHandsOtherConversionsToPrintf) {
  struct Case {
    const char* format;
    double value;
    bool fast;
  };
  for (const Case& c :
       {Case{"%-.6EGHZ ", 2.5, true}, Case{"%-16.6lE", -1e-7, true},
        Case{"x%%%.3g%%", 0.0001234, true}, Case{"%G", 1e-5, true}, Case{"%.45E", 0.1, false},
        Case{"%+.3G", 5.0, false}, Case{"%010.3e", -5.0, false}, Case{"%.4f", -1.7e308, false},
        Case{"%-70.50G|", 1e-300, false}}) {
    nd::CNumberFormat format(c.format);
    EXPECT_EQ(format.IsFast(), c.fast) << c.format;
    std::string out = "<";
    format.Append(out, c.value);
    EXPECT_EQ(out, "<" + Printf(c.format, c.value)) << c.format;
  }
  for (const char* bad : {"%d", "%s", "%.3G %.3G", "no conversion", "%*.3G", "%LG"}) {
    testing_support::AssertCapture capture;
    nd::CNumberFormat format(bad);
    std::string out;
    format.Append(out, 1.0);
    EXPECT_TRUE(out.empty() && !format.IsValid() && !capture.empty()) << bad;
  }
}

}  // namespace
