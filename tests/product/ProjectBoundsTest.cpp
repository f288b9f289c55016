// Damaged projects whose stored sizes claim more than the file holds: a
// matrix is checked against its own "m" and "n" and against the solution's
// port count before anything of its size exists, so each case fails with
// one line naming the file and the line, within 100 MB, instead of
// allocating gigabytes or throwing std::bad_alloc.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "product/Project.h"
#include "support/MemoryLimit.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kMiB = size_t{1} << 20;

// A project with one modal solution of `ports` ports and one point at 1 GHz
// holding `point` (its matrices and vectors); `extra` goes into the solution.
std::string ProjectText(int ports, const std::string& point, const std::string& extra = "") {
  std::string text =
      "Project {\n  FormatVersion = 1\n  Variation {\n    SolutionData {\n      ObjectType = Modal\n"
      "      SolutionType = DiscreteSweep\n      Name = \"s\"\n      Ports {\n";
  for (int k = 0; k < ports; ++k) text += "        Port { MatrixIndex = " + std::to_string(k) + " } Port\n";
  text += "      } Ports\n      Frequencies {\n        DataPoint {\n          Frequency = 1e9\n";
  text += point;
  text += "        } DataPoint\n      } Frequencies\n" + extra + "    } SolutionData\n  } Variation\n} Project\n";
  return text;
}

// A stored matrix of `m` x `n` with `rows` row blocks of `cols` "c" items.
std::string Matrix(const char* key, int m, int n, int rows, int cols) {
  std::string text = std::string("          ") + key + " {\n            m = " + std::to_string(m) + "\n            n = " +
                     std::to_string(n) + "\n";
  for (int i = 0; i < rows; ++i) {
    text += "            r" + std::to_string(i) + " {";
    for (int j = 0; j < cols; ++j) text += " c = [0.5, 0.0]";
    text += " } r" + std::to_string(i) + "\n";
  }
  return text + "          } " + key + "\n";
}

// "line:column" of the first occurrence of `what` (the item's name).
std::string At(const std::string& text, const std::string& what) {
  const size_t at = text.find(what);
  const size_t lineStart = text.rfind('\n', at) + 1;
  return std::to_string(1 + std::count(text.begin(), text.begin() + static_cast<long>(at), '\n')) + ":" +
         std::to_string(at - lineStart + 1);
}

class ProjectBounds : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("project_bounds_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

TEST_F(ProjectBounds, StoredSizesAreCheckedBeforeAnythingOfTheirSizeExists) {
  const std::string bri =
      "      BRIInterpolationWeights {\n        n = 1\n        Weights {\n          Weight {\n"
      "            n = 2000000000\n            c = [1.0, 0.0]\n          } Weight\n        } Weights\n"
      "      } BRIInterpolationWeights\n";
  struct Case {
    const char* name;
    std::string text;
    std::string where;     // the item the message names, found in the text
    std::string expected;  // after "file:line:column: "
  } cases[] = {
      // 20000 entries and a 1 x 1 matrix: 6.4 GB per point if believed.
      {"ports.ndp", ProjectText(20000, Matrix("SMatrix", 1, 1, 1, 1)), "SMatrix {",
       "in block \"SMatrix\": expected a 20000 x 20000 matrix, found 1 x 1"},
      // A matrix of the solution's size whose rows hold one element each:
      // 144 MB if allocated before its rows are seen.
      {"rows.ndp", ProjectText(3000, Matrix("SMatrix", 3000, 3000, 3000, 1)), "r0 {",
       "in block \"r0\": expected 3000 \"c\" items, found 1"},
      {"missing_row.ndp", ProjectText(2, Matrix("YMatrix", 2, 2, 1, 2)), "YMatrix {",
       "in block \"YMatrix\": expected the row block \"r1\""},
      {"other_size.ndp", ProjectText(2, Matrix("ZMatrix", 3, 3, 3, 3)), "ZMatrix {",
       "in block \"ZMatrix\": expected a 2 x 2 matrix, found 3 x 3"},
      // A weight vector of 2 * 10^9 elements holding one: 32 GB if believed.
      {"weights.ndp", ProjectText(1, Matrix("SMatrix", 1, 1, 1, 1), bri), "n = 2000000000",
       "in block \"Weight\": expected 2000000000 \"c\" items, found 1"},
      {"impedance.ndp",
       ProjectText(2, Matrix("SMatrix", 2, 2, 2, 2) + "          PortImpedance { n = 2000000000 c = [50.0, 0.0] } "
                                                      "PortImpedance\n"),
       "n = 2000000000", "in block \"PortImpedance\": expected \"n\" = 2, found 2000000000"},
      // Values that are no data, and a point without its frequency.
      {"nan.ndp", ProjectText(1, "          SMatrix { m = 1 n = 1 r0 { c = [nan, 0.0] } r0 } SMatrix\n"),
       "DataPoint {", "in block \"DataPoint\": the data point at 1000000000 Hz holds a value that is not finite"},
  };
  for (const Case& c : cases) {
    const fs::path path = dir / c.name;
    std::ofstream(path, std::ios::binary) << c.text;
    const std::string got = testing_support::RunWithMemoryLimit(100 * kMiB, [&] {
      AString error;
      const auto project = CProject::Load(path, &error);
      return project ? std::string("loaded") : std::string(error);
    });
    EXPECT_EQ(got, path.string() + ":" + At(c.text, c.where) + ": " + c.expected) << c.name;
    fs::remove(path);
  }
}

// Names and values from the file go into messages escaped, so that every
// message stays one line. The first case is what block_text_fuzz found
// (minimised): a line end in an enumeration's string.
TEST_F(ProjectBounds, MessagesQuotingTheFileStayOnOneLine) {
  const std::string kinds =
      "expected None, Adaptive, DiscreteSweep, CircuitData, InterpolateNeville, FxemFastSweep, "
      "FxemInterpolatingSweep, StateSpaceFit or InterpolateBRI";
  const struct {
    std::string text;
    std::string where;
    std::string expected;
  } cases[] = {
      {"Project{FormatVersion=1\nVariation{SolutionData{SolutionType=\"\\n\"}SolutionData}Variation}Project",
       "SolutionType", "in block \"SolutionData\": \"SolutionType\": " + kinds + ", found \"\\n\""},
      {"Project{FormatVersion=1 Variation{SolutionData{SolutionType=\"a\\tb\\x01\\r\"}SolutionData}Variation}Project",
       "SolutionType", "in block \"SolutionData\": \"SolutionType\": " + kinds + ", found \"a\\tb\\x01\\r\""},
      {"Project{FormatVersion=1 Variation{SolutionData{ObjectType=Modal Frequencies{\"a\\nb\"{DataType=ExactPoint}"
       "\"a\\nb\"}Frequencies}SolutionData}Variation}Project",
       "\"a\\nb\"{", "in block \"a\\nb\": a data point needs its \"Frequency\""},
  };
  for (const auto& c : cases) {
    const fs::path path = dir / "one_line.ndp";
    std::ofstream(path, std::ios::binary) << c.text;
    AString error;
    EXPECT_EQ(CProject::Load(path, &error), nullptr) << c.text;
    EXPECT_EQ(std::string(error), path.string() + ":" + At(c.text, c.where) + ": " + c.expected);
  }
}

}  // namespace
