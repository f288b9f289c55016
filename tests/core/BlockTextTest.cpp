// The text form of block trees: exact round trips, the written layout,
// error positions and texts, robustness against damaged files, file I/O.
#include "core/BlockText.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/AssertCapture.h"

namespace {

using io::CBlock;
using io::CValue;

std::string Write(const CBlock& root) {
  std::string out;
  io::WriteBlockText(root, out);
  return out;
}

// A tree with every kind of item the format can hold.
CBlock EveryKind() {
  CBlock root;
  root.AddInteger("Version", 3);
  root.AddInteger("Min", std::numeric_limits<std::int64_t>::min());
  root.AddInteger("Max", std::numeric_limits<std::int64_t>::max());
  root.AddReal("NegZero", -0.0);
  root.AddReal("Whole", 2.0);
  root.AddReal("Tiny", std::numeric_limits<double>::denorm_min());
  root.AddBoolean("On", true);
  root.AddBoolean("Off", false);
  using namespace std::string_literals;
  root.AddString("Title", "quote \" backslash \\ nl \n tab \t cr \r bell \x07 del \x7f nul \0 end"s);
  root.AddString("Unicode", "Γ = 50 Ω, µm");
  root.AddString("Empty", "");
  root.AddName("Kind", "Scattering");
  const CValue mixed[] = {CValue::Integer(-1), CValue::Real(0.5), CValue::Boolean(false),
                          CValue::String("s,]"), CValue::Name("Modal")};
  root.AddFunction("Mixed", mixed);
  root.AddFunction("None", {});
  root.AddComplex("c", {0.5, -0.25});
  root.AddComplex("c", {1e-300, 1e300});
  root.AddComplex("c", {-1.0, 0.0});
  root.AddInteger("true", 1);     // keywords are fine as item names
  root.AddInteger("", 2);         // so is the empty name, quoted
  root.AddInteger("9lives", 9);   // and one that is no identifier
  CBlock& port = root.AddBlock("Scattered B");
  port.AddReal("z0", 50.0);
  CBlock& inner = port.AddBlock("Inner");
  inner.AddBlock("Deeper").AddString("at", "the bottom");
  port.AddInteger("after", 7);
  root.AddBlock("Empty block");
  root.AddInteger("Version", 4);  // repeated name, order kept
  return root;
}

TEST(BlockText, RoundTripKeepsEveryKindOfItem) {
  const CBlock tree = EveryKind();
  const std::string text = Write(tree);
  CBlock back;
  ASSERT_EQ(io::ParseBlockText(text, "every.sp", back), io::kReadOk) << back.GetReadError();
  EXPECT_TRUE(back == tree) << text;
  // Written again, the text is the same: the format has one spelling per tree.
  EXPECT_EQ(Write(back), text);
}

TEST(BlockText, NamesThatCannotStandBareComeBackAsStrings) {
  CBlock tree;
  tree.AddName("a", "Scattered B");
  tree.AddName("b", "true");
  tree.AddName("c", "Modal");
  const std::string text = Write(tree);
  EXPECT_EQ(text, "a = \"Scattered B\"\nb = \"true\"\nc = Modal\n");
  CBlock back;
  ASSERT_EQ(io::ParseBlockText(text, "n.sp", back), io::kReadOk);
  EXPECT_EQ(back.GetItem(1).GetValueKind(), io::ValueKind::String);
  EXPECT_EQ(back.GetItem(2).GetValueKind(), io::ValueKind::Name);
  // Enumeration readers take both spellings.
  const char* const table[] = {"Modal", "true"};
  int value = -1;
  EXPECT_EQ(back.GetEnum("b", table, value), io::kReadOk);
  EXPECT_EQ(value, 1);
}

TEST(BlockText, EveryDoubleReadsBackBitForBit) {
  std::vector<std::uint64_t> patterns = {
      0x0000000000000000, 0x8000000000000000,  // +-0
      0x0000000000000001, 0x800fffffffffffff,  // subnormals
      0x0010000000000000, 0x7fefffffffffffff,  // smallest normal, largest finite
      0x7ff0000000000000, 0xfff0000000000000,  // +-inf
      0x7ff8000000000000, 0xfff8000000000000,  // canonical quiet NaNs
      0x7ff0000000000001, 0xfff4000000000000,  // signalling NaNs
      0x7ff8000000000001, 0xffffffffffffffff,  // quiet NaNs with payload
      0x4000000000000000, 0x41cdcd6500000000,  // 2.0, 1e9: look like integers
  };
  std::mt19937_64 rng(1234567);
  for (int i = 0; i < 20000; ++i) patterns.push_back(rng());
  // Random bits are mostly huge or tiny; add ordinary magnitudes too.
  std::uniform_real_distribution<double> ordinary(-1e6, 1e6);
  for (int i = 0; i < 5000; ++i) patterns.push_back(std::bit_cast<std::uint64_t>(ordinary(rng)));

  CBlock tree;
  for (std::uint64_t p : patterns) tree.AddReal("x", std::bit_cast<double>(p));
  const std::string text = Write(tree);
  CBlock back;
  ASSERT_EQ(io::ParseBlockText(text, "reals.sp", back), io::kReadOk) << back.GetReadError();
  ASSERT_EQ(back.GetNumItems(), patterns.size());
  int mismatches = 0;
  for (size_t i = 0; i < patterns.size() && mismatches < 10; ++i) {
    ASSERT_EQ(back.GetItem(i).GetValueKind(), io::ValueKind::Real) << "item " << i;
    const auto bits = std::bit_cast<std::uint64_t>(back.GetItem(i).GetRealUnchecked(0));
    if (bits != patterns[i]) {
      ++mismatches;
      ADD_FAILURE() << std::hex << patterns[i] << " came back as " << bits;
    }
  }
}

TEST(BlockText, SmallDocumentHasThisExactLayout) {
  CBlock root;
  root.AddInteger("Version", 1);
  CBlock& s = root.AddBlock("Solution");
  s.AddName("Kind", "Scattering");
  s.AddReal("f", 1e9);
  s.AddReal("step", 0.1);
  s.AddReal("count", 123456789.0);
  s.AddString("Note", "a \"b\"\n\\ \x01");
  CBlock& p = s.AddBlock("Port 1");
  p.AddComplex("c", {2.0, -0.0});
  p.AddFunction("empty", {});
  p.AddBoolean("on", true);
  const double odd[] = {std::numeric_limits<double>::quiet_NaN(),
                        -std::numeric_limits<double>::quiet_NaN(),
                        std::bit_cast<double>(std::uint64_t{0x7ff0000000000001}),
                        std::numeric_limits<double>::infinity(),
                        -std::numeric_limits<double>::infinity(), 5e-324, -1.5e-7};
  root.AddRealFunction("odd", odd);
  EXPECT_EQ(Write(root),
            "Version = 1\n"
            "Solution {\n"
            "  Kind = Scattering\n"
            "  f = 1e+09\n"
            "  step = 0.1\n"
            "  count = 123456789.0\n"
            "  Note = \"a \\\"b\\\"\\n\\\\ \\x01\"\n"
            "  \"Port 1\" {\n"
            "    c = [2.0, -0.0]\n"
            "    empty = []\n"
            "    on = true\n"
            "  } \"Port 1\"\n"
            "} Solution\n"
            "odd = [nan, -nan, nan(0x7ff0000000000001), inf, -inf, 5e-324, -1.5e-07]\n");
}

TEST(BlockText, ReaderAcceptsFreeFormText) {
  // Comments, CRLF, several items per line, signs, both exponent letters.
  const std::string text =
      "# header comment\r\n"
      "a = +1 b { } b\r\n"
      "\"q\" = [ +1.5 ,-2E3,.5, 7., inf ,+inf, -inf ] # trailing\r\n"
      "s = \"tab\there \xCE\xA9\" # raw tab and UTF-8 inside strings\n"
      "\tx = \"\\x41\\x4a\"";
  CBlock root;
  ASSERT_EQ(io::ParseBlockText(text, "free.sp", root), io::kReadOk) << root.GetReadError();
  CBlock expected;
  expected.AddInteger("a", 1);
  expected.AddBlock("b");
  const double list[] = {1.5, -2000.0, 0.5, 7.0, std::numeric_limits<double>::infinity(),
                         std::numeric_limits<double>::infinity(),
                         -std::numeric_limits<double>::infinity()};
  expected.AddRealFunction("q", list);
  expected.AddString("s", "tab\there \xCE\xA9");
  expected.AddString("x", "AJ");
  EXPECT_TRUE(root == expected) << Write(root);
  // Positions are 1-based and count CRLF as one line end.
  EXPECT_EQ(root.GetItem(1).GetLine(), 2);
  EXPECT_EQ(root.GetItem(1).GetColumn(), 8);
  EXPECT_EQ(root.FindBlock("b")->GetLine(), 2);
  EXPECT_EQ(root.GetItem(2).GetLine(), 3);
  EXPECT_EQ(root.GetItem(4).GetLine(), 5);
  EXPECT_EQ(root.GetItem(4).GetColumn(), 2);
}

TEST(BlockText, EmptyAndCommentOnlyDocumentsAreValid) {
  for (const char* text : {"", "   \n\r\n", "# only a comment", "# a\n# b\n"}) {
    CBlock root;
    EXPECT_EQ(io::ParseBlockText(text, "e.sp", root), io::kReadOk) << text;
    EXPECT_TRUE(root.IsEmpty());
    EXPECT_FALSE(root.HasReadError());
  }
}

struct Malformed {
  std::string text;
  const char* message;  // the whole expected message, source name "bad.sp"
};

std::string Nested(int depth, const char* open = "b {\n") {
  std::string s;
  for (int i = 0; i < depth; ++i) s += open;
  for (int i = 0; i < depth; ++i) s += "} b\n";
  return s;
}

TEST(BlockText, MalformedInputNamesLineColumnAndWhatWasExpected) {
  using namespace std::string_literals;
  const Malformed cases[] = {
      {"Frequency", "bad.sp:1:10: expected '=' or '{' after \"Frequency\", found end of file"},
      {"a \"b\"", "bad.sp:1:3: expected '=' or '{' after \"a\", found a string"},
      {"a = ]", "bad.sp:1:5: expected a value or '[' for \"a\", found ']'"},
      {"# c\n\n  a = = 1", "bad.sp:3:7: expected a value or '[' for \"a\", found '='"},
      {"a = 1.2.3", "bad.sp:1:5: expected a number, found \"1.2.3\""},
      {"a = 1e", "bad.sp:1:5: expected a number, found \"1e\""},
      {"a = 1e+ b", "bad.sp:1:5: expected a number, found \"1e+\""},
      {"a = --1", "bad.sp:1:5: expected a number, found \"--1\""},
      {"a = +-1", "bad.sp:1:5: expected a number, found \"+-1\""},
      {"a = .", "bad.sp:1:5: expected a number, found \".\""},
      {"a = -", "bad.sp:1:5: expected a number, found \"-\""},
      {"a = 0x10", "bad.sp:1:5: expected a number, found \"0x10\""},
      {"a = -infinity", "bad.sp:1:5: expected a number, found \"-infinity\""},
      {"a = 9223372036854775808",
       "bad.sp:1:5: expected an integer from -9223372036854775808 to 9223372036854775807, "
       "found \"9223372036854775808\""},
      {"a = -9223372036854775809",
       "bad.sp:1:5: expected an integer from -9223372036854775808 to 9223372036854775807, "
       "found \"-9223372036854775809\""},
      {"a = 1e400", "bad.sp:1:5: expected a real within the range of a double, found \"1e400\""},
      {"a = nan(0x1)",
       "bad.sp:1:5: expected a NaN bit pattern such as nan(0x7ff8000000000001), found \"nan(0x1)\""},
      {"a = nan(0x7ff80000000000001)",
       "bad.sp:1:5: expected a NaN bit pattern such as nan(0x7ff8000000000001), "
       "found \"nan(0x7ff80000000000001)\""},
      {"a = nan(7ff8000000000001)",
       "bad.sp:1:5: expected a NaN bit pattern such as nan(0x7ff8000000000001), "
       "found \"nan(7ff8000000000001)\""},
      {"a = -nan(0x7ff8000000000001)",
       "bad.sp:1:5: expected nan(0x...) without a sign (the pattern holds the sign bit), "
       "found \"-nan(\""},
      {"a = [1 2]", "bad.sp:1:8: expected ',' or ']' in the list \"a\", found \"2\""},
      {"a = [1,]", "bad.sp:1:8: expected a value in the list \"a\", found ']'"},
      {"a = [1, 2", "bad.sp:1:10: expected ',' or ']' in the list \"a\", found end of file"},
      {"a = [[1]]", "bad.sp:1:6: expected a value in the list \"a\", found '['"},
      {"x {\n  a = 1\n} y",
       "bad.sp:3:3: expected \"x\" after '}' to close the block opened at line 1, column 1, "
       "found \"y\""},
      {"\"Port 1\" {\n} \"Port 2\"",
       "bad.sp:2:3: expected \"Port 1\" after '}' to close the block opened at line 1, column 1, "
       "found \"Port 2\""},
      {"x {\r\n  a = 1\r\n} y\r\n",
       "bad.sp:3:3: expected \"x\" after '}' to close the block opened at line 1, column 1, "
       "found \"y\""},
      {"x {\n}", "bad.sp:2:2: expected \"x\" after '}' to close the block opened at line 1, "
                 "column 1, found end of file"},
      {"x {\n  y {\n  } y\n",
       "bad.sp:4:1: expected '}' to close the block \"x\" opened at line 1, column 1, "
       "found end of file"},
      {"x {\n  = 1\n} x", "bad.sp:2:3: expected an item name or '}', found '='"},
      {"}", "bad.sp:1:1: expected an item name or end of file, found '}'"},
      {"a = 1 }", "bad.sp:1:7: expected an item name or end of file, found '}'"},
      {"a = \"abc\nb\"",
       "bad.sp:1:9: expected '\"' to end the string started at line 1, column 5, found end of line"},
      {"a = \"abc",
       "bad.sp:1:9: expected '\"' to end the string started at line 1, column 5, found end of file"},
      {"a = \"\x01\"",
       "bad.sp:1:6: expected '\"' to end the string started at line 1, column 5, found byte 0x01"},
      {"a = \"\\q\"",
       "bad.sp:1:6: expected an escape \\\\, \\\", \\n, \\t, \\r or \\xHH, found '\\q'"},
      {"a = \"\\", "bad.sp:1:6: expected an escape \\\\, \\\", \\n, \\t, \\r or \\xHH, found end of file"},
      {"a = \"\\x4\"", "bad.sp:1:9: expected two hex digits after \\x, found '\"'"},
      {"\xC3\xA9 = 1", "bad.sp:1:1: expected an item name or end of file, found byte 0xC3"},
      {"a = \xC3\xA9", "bad.sp:1:5: expected a value or '[' for \"a\", found byte 0xC3"},
      {"a = 1 @", "bad.sp:1:7: expected an item name or end of file, found '@'"},
      {"\x01", "bad.sp:1:1: expected an item name or end of file, found byte 0x01"},
      {"a = b\0 = 1"s, "bad.sp:1:6: expected an item name or end of file, found byte 0x00"},
      {Nested(201),
       "bad.sp:201:1: expected at most 200 nested blocks, found block \"b\" nested deeper"},
      {Nested(201, "  b\n{\n"),
       "bad.sp:401:3: expected at most 200 nested blocks, found block \"b\" nested deeper"},
  };
  for (const Malformed& m : cases) {
    const std::string& text = m.text;
    const std::string message = m.message;
    CBlock root("keep");
    root.AddInteger("stale", 1);  // a failed parse leaves nothing behind
    EXPECT_EQ(io::ParseBlockText(text, "bad.sp", root), io::kReadSyntax) << text;
    EXPECT_EQ(root.GetReadError(), message) << text;
    EXPECT_TRUE(root.IsEmpty()) << text;
    EXPECT_EQ(root.GetSourceName(), "bad.sp");
  }
}

TEST(BlockText, NestingUpToTheLimitIsAccepted) {
  CBlock root;
  ASSERT_EQ(io::ParseBlockText(Nested(io::kMaxBlockDepth), "deep.sp", root), io::kReadOk)
      << root.GetReadError();
  const CBlock* b = &root;
  int depth = 0;
  while ((b = b->FindBlock("b")) != nullptr) ++depth;
  EXPECT_EQ(depth, io::kMaxBlockDepth);
  // The writer takes the deepest readable tree without complaint.
  testing_support::AssertCapture capture;
  CBlock again;
  EXPECT_EQ(io::ParseBlockText(Write(root), "again.sp", again), io::kReadOk);
  EXPECT_TRUE(again == root);
  EXPECT_TRUE(capture.empty());
}

TEST(BlockText, VeryDeepInputFailsWithoutExhaustingTheStack) {
  std::string text;
  for (int i = 0; i < 200000; ++i) text += "b{";
  CBlock root;
  EXPECT_EQ(io::ParseBlockText(text, "deep.sp", root), io::kReadSyntax);
  EXPECT_TRUE(root.IsEmpty());
}

// The shape of a real project file: many frequencies of complex matrices.
CBlock PointHeavyTree(int frequencies, int ports) {
  CBlock root;
  std::mt19937_64 rng(7);
  std::normal_distribution<double> part;
  for (int f = 0; f < frequencies; ++f) {
    CBlock& point = root.AddBlock("Frequency");
    point.AddReal("f", 1e9 * (f + 1));
    CBlock& s = point.AddBlock("S");
    s.AddInteger("m", ports);
    s.AddInteger("n", ports);
    for (int i = 0; i < ports; ++i) {
      CBlock& row = s.AddBlock("r" + std::to_string(i));
      for (int j = 0; j < ports; ++j) row.AddComplex("c", {part(rng), part(rng)});
    }
  }
  return root;
}

TEST(BlockText, ErrorPlantedInALargeDocumentIsReportedAtItsLine) {
  const std::string text = Write(PointHeavyTree(20, 8));
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_GT(lines.size(), 1500u);
  for (const size_t target : {size_t{0}, size_t{777}, lines.size() / 2, lines.size() - 3}) {
    std::vector<std::string> damaged = lines;
    // The nearest "c" line at or before the target gets its second number broken.
    size_t k = target;
    while (damaged[k].find("c = [") == std::string::npos) k = k ? k - 1 : damaged.size() - 1;
    std::string& line = damaged[k];
    const size_t comma = line.find(", ");
    line.replace(comma + 2, std::string::npos, "1.0.0]");
    std::string broken;
    for (const std::string& l : damaged) broken += l + "\n";
    CBlock root;
    ASSERT_EQ(io::ParseBlockText(broken, "big.sp", root), io::kReadSyntax);
    EXPECT_EQ(root.GetReadError(), "big.sp:" + std::to_string(k + 1) + ":" +
                                       std::to_string(comma + 3) +
                                       ": expected a number, found \"1.0.0\"");
  }
}

// Damaged copies of a valid document must either parse (and then survive a
// write/read round trip unchanged) or fail cleanly with a positioned message.
TEST(BlockText, MutatedAndTruncatedDocumentsParseOrFailCleanly) {
  const std::string original = Write(EveryKind()) + Write(PointHeavyTree(2, 3));
  const std::string interesting = std::string("{}[]=,\"\\#\n\r\t .+-eE0159xnaif_\x7f\x80\xff") +
                                  std::string(1, '\0');
  const std::regex shape(R"(^fuzz\.sp:([0-9]+):([0-9]+): expected .+, found .+$)");
  std::mt19937 rng(20240611);
  int accepted = 0, rejected = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string text = original;
    const int edits = 1 + static_cast<int>(rng() % 4);
    for (int e = 0; e < edits && !text.empty(); ++e) {
      const size_t at = rng() % text.size();
      switch (rng() % 5) {
        case 0:  // flip bits of one byte
          text[at] = static_cast<char>(text[at] ^ static_cast<char>(1u << (rng() % 8)));
          break;
        case 1:  // replace with a byte that matters to the syntax
          text[at] = interesting[rng() % interesting.size()];
          break;
        case 2:  // insert
          text.insert(at, 1, interesting[rng() % interesting.size()]);
          break;
        case 3:  // delete a short range
          text.erase(at, 1 + rng() % 8);
          break;
        case 4:  // truncate
          text.resize(at);
          break;
      }
    }
    CBlock root;
    const io::ReadError r = io::ParseBlockText(text, "fuzz.sp", root);
    if (r == io::kReadOk) {
      ++accepted;
      ASSERT_FALSE(root.HasReadError());
      CBlock again;
      ASSERT_EQ(io::ParseBlockText(Write(root), "again.sp", again), io::kReadOk)
          << again.GetReadError() << "\n--- input ---\n" << text;
      ASSERT_TRUE(again == root) << text;
    } else {
      ++rejected;
      ASSERT_EQ(r, io::kReadSyntax);
      ASSERT_TRUE(root.IsEmpty());
      std::smatch m;
      const std::string message = root.GetReadError();
      ASSERT_TRUE(std::regex_match(message, m, shape)) << message;
      const long lines = std::count(text.begin(), text.end(), '\n') + 1;
      EXPECT_LE(std::stol(m[1]), lines) << message;
      EXPECT_GE(std::stol(m[2]), 1) << message;
    }
  }
  // Both outcomes must occur, or the mutations test nothing.
  EXPECT_GT(accepted, 50);
  EXPECT_GT(rejected, 1000);
}

// ---- Typed look-ups on parsed text ---------------------------------------

const char kProject[] =
    "Version = 3\n"
    "Title = \"abc\"\n"
    "Kind = Modal\n"
    "Other = Nonsense\n"
    "f = 1.5e9\n"
    "n = 7\n"
    "big = 1099511627776\n"
    "z = [0.5, -0.25]\n"
    "three = [1, 2, 3]\n"
    "words = [1, x]\n"
    "Sub {\n"
    "  x = \"str\"\n"
    "} Sub\n";

class BlockTextLookup : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(io::ParseBlockText(kProject, "p.sp", root), io::kReadOk); }
  CBlock root;
};

TEST_F(BlockTextLookup, WrongKindsNameTheLine) {
  int i = 42;
  EXPECT_EQ(root.GetInteger("f", i), io::kReadWrongType);
  EXPECT_EQ(i, 42);
  EXPECT_EQ(root.GetReadError(), "p.sp:5:1: \"f\": expected an integer, found a real");

  root.ClearReadError();
  double d = 0;
  EXPECT_EQ(root.FindBlock("Sub")->GetReal("x", d), io::kReadWrongType);
  EXPECT_EQ(root.GetReadError(), "p.sp:12:3: in block \"Sub\": \"x\": expected a number, found a string");

  root.ClearReadError();
  bool b = false;
  EXPECT_EQ(root.GetBoolean("z", b), io::kReadWrongType);
  EXPECT_EQ(root.GetReadError(), "p.sp:8:1: \"z\": expected true or false, found a list");

  root.ClearReadError();
  AComplex<double> c;
  EXPECT_EQ(root.GetComplex("words", c), io::kReadWrongType);
  EXPECT_EQ(root.GetReadError(), "p.sp:10:1: \"words\": expected numbers, found a name as value 2");
}

TEST_F(BlockTextLookup, FirstErrorIsKeptUntilCleared) {
  int i = 0;
  EXPECT_EQ(root.GetInteger("Title", i), io::kReadWrongType);
  EXPECT_EQ(root.GetInteger("f", i), io::kReadWrongType);
  EXPECT_NE(root.GetReadError().find("p.sp:2:1:"), std::string::npos) << root.GetReadError();
  root.ClearReadError();
  EXPECT_FALSE(root.HasReadError());
}

TEST_F(BlockTextLookup, AbsentItemsAreToleratedAndKeepTheOutput) {
  int i = 42;
  double d = 2.5;
  AString s("kept");
  AComplex<double> c(1, 2);
  const char* const table[] = {"Scattering", "Modal"};
  int e = 0;
  EXPECT_EQ(root.GetInteger("Missing", i), io::kReadTolerated);
  EXPECT_EQ(root.GetReal("Missing", d), io::kReadTolerated);
  EXPECT_EQ(root.GetString("Missing", s), io::kReadTolerated);
  EXPECT_EQ(root.GetComplex("Missing", c), io::kReadTolerated);
  EXPECT_EQ(root.GetEnum("Missing", table, e), io::kReadTolerated);
  EXPECT_EQ(i, 42);
  EXPECT_EQ(d, 2.5);
  EXPECT_EQ(s, "kept");
  EXPECT_TRUE(c == AComplex<double>(1, 2));
  EXPECT_EQ(e, 0);
  EXPECT_FALSE(root.HasReadError());
}

TEST_F(BlockTextLookup, ValuesOfTheRightKindAreRead) {
  int i = 0;
  std::int64_t wide = 0;
  double d = 0;
  AString s;
  AComplex<double> c;
  EXPECT_EQ(root.GetInteger("Version", i), io::kReadOk);
  EXPECT_EQ(i, 3);
  EXPECT_EQ(root.GetInteger("big", wide), io::kReadOk);
  EXPECT_EQ(wide, std::int64_t{1} << 40);
  EXPECT_EQ(root.GetReal("n", d), io::kReadOk);  // integers are accepted as reals
  EXPECT_EQ(d, 7.0);
  EXPECT_EQ(root.GetString("Title", s), io::kReadOk);
  EXPECT_EQ(s, "abc");
  EXPECT_EQ(root.GetComplex("z", c), io::kReadOk);
  EXPECT_TRUE(c == AComplex<double>(0.5, -0.25));
  EXPECT_FALSE(root.HasReadError());
}

TEST_F(BlockTextLookup, OutOfRangeAndMisshapenValuesAreBadValues) {
  int i = 5;
  EXPECT_EQ(root.GetInteger("big", i), io::kReadBadValue);
  EXPECT_EQ(i, 5);
  EXPECT_EQ(root.GetReadError(),
            "p.sp:7:1: \"big\": expected a 32-bit integer, found 1099511627776");
  root.ClearReadError();
  AComplex<double> c(9, 9);
  EXPECT_EQ(root.GetComplex("three", c), io::kReadBadValue);
  EXPECT_TRUE(c == AComplex<double>(9, 9));
  EXPECT_EQ(root.GetReadError(),
            "p.sp:9:1: \"three\": expected 2 numbers (real, imaginary), found 3");
}

TEST_F(BlockTextLookup, EnumerationsByName) {
  const char* const table[] = {"Scattering", "Modal", "Terminal"};
  int value = 0;
  EXPECT_EQ(root.GetEnum("Kind", table, value), io::kReadOk);
  EXPECT_EQ(value, 1);
  value = 2;
  EXPECT_EQ(root.GetEnum("Other", table, value), io::kReadUnknownName);
  EXPECT_EQ(value, 2);
  EXPECT_EQ(root.GetReadError(),
            "p.sp:4:1: \"Other\": expected Scattering, Modal or Terminal, found \"Nonsense\"");
}

// ---- Files -----------------------------------------------------------------

class BlockFile : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = std::filesystem::temp_directory_path() /
          ("block_text_test." + std::to_string(::getpid()) + "." +
           ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
  }
  void TearDown() override { std::filesystem::remove_all(dir); }

  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir))
      names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  static std::string Slurp(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  std::filesystem::path dir;
};

TEST_F(BlockFile, SavedFileReadsBackAndLeavesNoTemporary) {
  const CBlock tree = EveryKind();
  const auto path = dir / "project.sp";
  AString error;
  ASSERT_TRUE(io::WriteBlockFile(path, tree, &error)) << error;
  // A second save replaces the first.
  ASSERT_TRUE(io::WriteBlockFile(path, tree, &error)) << error;
  EXPECT_EQ(Entries(), std::vector<std::string>{"project.sp"});
  EXPECT_EQ(Slurp(path), Write(tree));
  CBlock back;
  ASSERT_EQ(io::ReadBlockFile(path, back), io::kReadOk) << back.GetReadError();
  EXPECT_TRUE(back == tree);
  EXPECT_EQ(back.GetSourceName(), path.string());
}

TEST_F(BlockFile, ReplacedFileKeepsItsPermissions) {
  const auto path = dir / "project.sp";
  { std::ofstream(path) << "old = 1\n"; }
  std::filesystem::permissions(path, std::filesystem::perms::owner_read |
                                         std::filesystem::perms::owner_write |
                                         std::filesystem::perms::group_read);
  ASSERT_TRUE(io::WriteBlockFile(path, EveryKind()));
  EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::mask,
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write |
                std::filesystem::perms::group_read);
}

TEST_F(BlockFile, SavingThroughASymlinkUpdatesItsTarget) {
  std::filesystem::create_directory(dir / "real");
  const auto real = dir / "real" / "project.sp";
  { std::ofstream(real) << "old = 1\n"; }
  const auto link = dir / "link.sp";
  std::filesystem::create_symlink(real, link);
  ASSERT_TRUE(io::WriteBlockFile(link, EveryKind()));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(Slurp(real), Write(EveryKind()));
  EXPECT_EQ(Entries(), (std::vector<std::string>{"link.sp", "real"}));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "real"),
                          std::filesystem::directory_iterator()),
            1);  // no temporary left beside the real file
}

TEST_F(BlockFile, FailedSaveLeavesTheTargetAndNoTemporary) {
  // The target is a directory: the rename fails after the data was written.
  const auto target = dir / "taken";
  std::filesystem::create_directory(target);
  { std::ofstream(target / "inside") << "x"; }
  AString error;
  EXPECT_FALSE(io::WriteBlockFile(target, EveryKind(), &error));
  EXPECT_EQ(error.rfind("cannot save \"" + target.string() + "\": cannot replace the file: ", 0), 0u)
      << error;
  EXPECT_EQ(Entries(), std::vector<std::string>{"taken"});
  EXPECT_TRUE(std::filesystem::exists(target / "inside"));

  // No directory to put the temporary into.
  const auto nowhere = dir / "missing" / "project.sp";
  EXPECT_FALSE(io::WriteBlockFile(nowhere, EveryKind(), &error));
  EXPECT_EQ(error, "cannot save \"" + nowhere.string() +
                       "\": cannot create a temporary file: No such file or directory");
  EXPECT_FALSE(io::WriteBlockFile(nowhere, EveryKind()));  // no error text wanted
}

TEST_F(BlockFile, TreesTooDeepToReadBackAreNotSaved) {
  CBlock root;
  CBlock* b = &root;
  for (int i = 0; i <= io::kMaxBlockDepth; ++i) b = &b->AddBlock("b");
  const auto path = dir / "deep.sp";
  AString error;
  EXPECT_FALSE(io::WriteBlockFile(path, root, &error));
  EXPECT_EQ(error, "cannot save \"" + path.string() +
                       "\": blocks are nested 201 deep, more than the 200 a project file may hold");
  EXPECT_TRUE(Entries().empty());
  // Writing the text is a programming error the assertion service reports.
  testing_support::AssertCapture capture;
  std::string text;
  io::WriteBlockText(root, text);
  EXPECT_EQ(capture.conditions(),
            std::vector<std::string>{"deepest <= static_cast<size_t>(kMaxBlockDepth)"});
}

TEST_F(BlockFile, UnreadableFilesAreFileErrorsNamingThePath) {
  CBlock root;
  root.AddInteger("stale", 1);
  const auto missing = dir / "none.sp";
  EXPECT_EQ(io::ReadBlockFile(missing, root), io::kReadFileError);
  EXPECT_EQ(root.GetReadError(), missing.string() + ": cannot read the file: No such file or directory");
  EXPECT_TRUE(root.IsEmpty());
  CBlock other;
  EXPECT_EQ(io::ReadBlockFile(dir, other), io::kReadFileError);
  EXPECT_EQ(other.GetReadError(), dir.string() + ": cannot read the file: is a directory");
}

TEST_F(BlockFile, SyntaxErrorsInFilesNameThePath) {
  const auto path = dir / "broken.sp";
  { std::ofstream(path, std::ios::binary) << "a = 1\r\nb {\r\n  c = [1, 2\r\n} b\r\n"; }
  CBlock root;
  EXPECT_EQ(io::ReadBlockFile(path, root), io::kReadSyntax);
  EXPECT_EQ(root.GetReadError(),
            path.string() + ":4:1: expected ',' or ']' in the list \"c\", found '}'");
}

TEST_F(BlockFile, EmptyFileIsAnEmptyDocument) {
  const auto path = dir / "empty.sp";
  { std::ofstream{path}; }
  CBlock root;
  EXPECT_EQ(io::ReadBlockFile(path, root), io::kReadOk);
  EXPECT_TRUE(root.IsEmpty());
}

}  // namespace

namespace {

// The first example of the user documentation is what the writer produces
// (after its leading comment line), so the page cannot drift from the code.
TEST(BlockText, DocumentedExampleIsWhatTheWriterProduces) {
  std::ifstream in(std::filesystem::path(SPARAMLIB_SOURCE_DIR) / "docs" / "project-file.md");
  ASSERT_TRUE(in) << "docs/project-file.md not found";
  const std::string page{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const size_t open = page.find("```\n");
  ASSERT_NE(open, std::string::npos);
  const size_t close = page.find("```\n", open + 4);
  ASSERT_NE(close, std::string::npos);
  const std::string example = page.substr(open + 4, close - open - 4);
  CBlock root;
  ASSERT_EQ(io::ParseBlockText(example, "docs", root), io::kReadOk) << root.GetReadError();
  EXPECT_EQ(Write(root), example.substr(example.find('\n') + 1));
}

}  // namespace
