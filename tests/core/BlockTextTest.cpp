// The text form of block trees: exact round trips, the written layout,
// error positions and texts, robustness against damaged files, typed
// look-ups on parsed text, and file I/O.
#include "core/BlockText.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numeric>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/AssertCapture.h"

namespace {

using io::CBlock;
using io::CValue;
namespace fs = std::filesystem;

std::string Write(const CBlock& root) {
  std::string out;
  io::WriteBlockText(root, out);
  return out;
}

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A tree with every kind of item the format can hold.
CBlock EveryKind() {
  using namespace std::string_literals;
  CBlock root;
  root.AddInteger("Min", std::numeric_limits<std::int64_t>::min());
  root.AddInteger("Max", std::numeric_limits<std::int64_t>::max());
  root.AddBoolean("On", true);
  root.AddString("Title", "quote \" backslash \\ nl \n tab \t cr \r \x07 del \x7f nul \0 end"s);
  root.AddName("Kind", "Scattering");
  const CValue mixed[] = {CValue::Integer(-1), CValue::Real(0.5), CValue::Boolean(false),
                          CValue::String("s,]"), CValue::Name("Modal")};
  root.AddFunction("Mixed", mixed);
  root.AddFunction("None", {});
  root.AddComplex("c", {1e-300, -1e300});
  root.AddInteger("true", 1);    // keywords are fine as item names
  root.AddInteger("9lives", 9);  // and so is one that is no identifier
  CBlock& port = root.AddBlock("Scattered B");
  port.AddBlock("").AddBlock("Deeper").AddString("at", "");  // the empty name, quoted
  port.AddInteger("after", 7);
  root.AddInteger("Min", 4);  // repeated name, order kept
  return root;
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
  std::uniform_real_distribution<double> ordinary(-1e6, 1e6);  // random bits are rarely ordinary
  for (int i = 0; i < 5000; ++i) patterns.push_back(std::bit_cast<std::uint64_t>(ordinary(rng)));
  CBlock tree;
  for (std::uint64_t p : patterns) tree.AddReal("x", std::bit_cast<double>(p));
  CBlock back;
  ASSERT_EQ(io::ParseBlockText(Write(tree), "reals.sp", back), io::kReadOk) << back.GetReadError();
  ASSERT_EQ(back.GetNumItems(), patterns.size());
  for (size_t i = 0, bad = 0; i < patterns.size() && bad < 10; ++i) {
    ASSERT_EQ(back.GetItem(i).GetValueKind(), io::ValueKind::Real) << "item " << i;
    const auto bits = std::bit_cast<std::uint64_t>(back.GetItem(i).GetRealUnchecked(0));
    if (bits != patterns[i] && ++bad) ADD_FAILURE() << std::hex << patterns[i] << " -> " << bits;
  }
}

TEST(BlockText, SmallDocumentHasThisExactLayout) {
  CBlock root;
  CBlock& s = root.AddBlock("Solution");
  s.AddName("Kind", "Scattered B");  // names that cannot stand bare are quoted
  s.AddName("Keyword", "true");
  s.AddReal("step", 0.1);
  s.AddReal("count", 123456789.0);
  s.AddString("Note", "a \"b\"\n\\ \x01");
  CBlock& p = s.AddBlock("Port 1");
  p.AddComplex("c", {2.0, -0.0});
  p.AddFunction("empty", {});
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double odd[] = {nan, -nan, std::bit_cast<double>(0x7ff0000000000001ull), inf, -inf, 5e-324,
                        -1.5e-7};
  root.AddRealFunction("odd", odd);
  EXPECT_EQ(Write(root),
            "Solution {\n"
            "  Kind = \"Scattered B\"\n"
            "  Keyword = \"true\"\n"
            "  step = 0.1\n"
            "  count = 123456789.0\n"
            "  Note = \"a \\\"b\\\"\\n\\\\ \\x01\"\n"
            "  \"Port 1\" {\n"
            "    c = [2.0, -0.0]\n"
            "    empty = []\n"
            "  } \"Port 1\"\n"
            "} Solution\n"
            "odd = [nan, -nan, nan(0x7ff0000000000001), inf, -inf, 5e-324, -1.5e-07]\n");
}

TEST(BlockText, FreeFormInputReadsAsItsCanonicalForm) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"   \n\r\n# only a comment\n# b", ""},
      {"# header\r\na = +1 b { } b\r\n", "a = 1\nb {\n} b\n"},
      {"\"q\" = [ +1.5 ,-2E3,.5, 7., inf ,+inf, -inf ] # trailing",
       "q = [1.5, -2000.0, 0.5, 7.0, inf, inf, -inf]\n"},
      {"s = \"tab\there \xCE\xA9\"\n\tx = \"\\x41\\x4a\"",
       "s = \"tab\\there \xCE\xA9\"\nx = \"AJ\"\n"},
  };
  for (const auto& [text, canonical] : cases) {
    CBlock root;
    ASSERT_EQ(io::ParseBlockText(text, "free.sp", root), io::kReadOk) << root.GetReadError();
    EXPECT_EQ(Write(root), canonical) << text;
  }
}

std::string Repeat(const char* s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}
std::string Nested(int depth, const char* open = "b {\n") {
  return Repeat(open, depth) + Repeat("} b\n", depth);
}

TEST(BlockText, MalformedInputNamesLineColumnAndWhatWasExpected) {
  using namespace std::string_literals;
  const std::pair<std::string, const char*> cases[] = {
      {"Frequency", "1:10: expected '=' or '{' after \"Frequency\", found end of file"},
      {"# c\n\n  a = = 1", "3:7: expected a value or '[' for \"a\", found '='"},
      {"a = 1e+ b", "1:5: expected a number, found \"1e+\""},
      {"a = +-1", "1:5: expected a number, found \"+-1\""},
      {"a = 0x10", "1:5: expected a number, found \"0x10\""},
      {"a = -infinity", "1:5: expected a number, found \"-infinity\""},
      {"a = 9223372036854775808",
       "1:5: expected an integer from -9223372036854775808 to 9223372036854775807, "
       "found \"9223372036854775808\""},
      {"a = -9223372036854775809",
       "1:5: expected an integer from -9223372036854775808 to 9223372036854775807, "
       "found \"-9223372036854775809\""},
      {"a = 1e400", "1:5: expected a real within the range of a double, found \"1e400\""},
      {"a = nan(0x1)",
       "1:5: expected a NaN bit pattern such as nan(0x7ff8000000000001), found \"nan(0x1)\""},
      {"a = -nan(0x7ff8000000000001)",
       "1:5: expected nan(0x...) without a sign (the pattern holds the sign bit), found \"-nan(\""},
      {"a = [1,]", "1:8: expected a value in the list \"a\", found ']'"},
      {"a = [1, 2", "1:10: expected ',' or ']' in the list \"a\", found end of file"},
      {"a = [[1]]", "1:6: expected a value in the list \"a\", found '['"},
      {"x {\r\n  a = 1\r\n} y\r\n",
       "3:3: expected \"x\" after '}' to close the block opened at line 1, column 1, found \"y\""},
      {"x {\n}",
       "2:2: expected \"x\" after '}' to close the block opened at line 1, column 1, "
       "found end of file"},
      {"x {\n  y {\n  } y\n",
       "4:1: expected '}' to close the block \"x\" opened at line 1, column 1, found end of file"},
      {"x {\n  = 1\n} x", "2:3: expected an item name or '}', found '='"},
      {"a = 1 }", "1:7: expected an item name or end of file, found '}'"},
      {"a = \"abc\nb\"",
       "1:9: expected '\"' to end the string started at line 1, column 5, found end of line"},
      {"a = \"abc",
       "1:9: expected '\"' to end the string started at line 1, column 5, found end of file"},
      {"a = \"\x01\"",
       "1:6: expected '\"' to end the string started at line 1, column 5, found byte 0x01"},
      {"a = \"\\q\"", "1:6: expected an escape \\\\, \\\", \\n, \\t, \\r or \\xHH, found '\\q'"},
      {"a = \"\\", "1:6: expected an escape \\\\, \\\", \\n, \\t, \\r or \\xHH, found end of file"},
      {"a = \"\\x4\"", "1:9: expected two hex digits after \\x, found '\"'"},
      {"\xC3\xA9 = 1", "1:1: expected an item name or end of file, found byte 0xC3"},
      {"a = 1 @", "1:7: expected an item name or end of file, found '@'"},
      {"a = b\0 = 1"s, "1:6: expected an item name or end of file, found byte 0x00"},
      {Nested(201), "201:1: expected at most 200 nested blocks, found block \"b\" nested deeper"},
      {Nested(201, "  b\n{\n"),
       "401:3: expected at most 200 nested blocks, found block \"b\" nested deeper"},
      {Repeat("b{", 100000),  // refused without exhausting the stack
       "1:401: expected at most 200 nested blocks, found block \"b\" nested deeper"},
  };
  for (const auto& [text, message] : cases) {
    CBlock root("keep");
    root.AddInteger("stale", 1);  // a failed parse leaves nothing behind
    EXPECT_EQ(io::ParseBlockText(text, "bad.sp", root), io::kReadSyntax) << text;
    EXPECT_EQ(root.GetReadError(), "bad.sp:" + std::string(message)) << text;
    EXPECT_TRUE(root.IsEmpty()) << text;
  }
}

TEST(BlockText, ErrorPlantedInALargeDocumentIsReportedAtItsLine) {
  const std::string shape[] = {"F {", "  c = [0.1, -2.5e-3]", "} F"};  // like a project file
  for (const int k : {0, 777, 3001, 5999}) {
    std::string text;  // line k becomes an item with a bad number, indented by k % 7
    for (int i = 0; i < 6000; ++i)
      text += (i == k ? std::string(k % 7, ' ') + "x = [0.5, 1.0.0]" : shape[i % 3]) + "\r\n";
    CBlock root;
    ASSERT_EQ(io::ParseBlockText(text, "big.sp", root), io::kReadSyntax);
    EXPECT_EQ(root.GetReadError(), "big.sp:" + std::to_string(k + 1) + ":" +
                                       std::to_string(k % 7 + 11) +
                                       ": expected a number, found \"1.0.0\"");
  }
}

// Damaged copies of a valid document must either parse (and then survive a
// write/read round trip unchanged) or fail cleanly with a positioned message.
TEST(BlockText, MutatedAndTruncatedDocumentsParseOrFailCleanly) {
  using namespace std::string_literals;
  const std::string original = Write(EveryKind());
  const std::string interesting = "{}[]=,\"\\#\n\r\t .+-eE0159xnaif_\x7f\x80\xff\0"s;
  const std::regex shape(R"(^fuzz\.sp:([0-9]+):([0-9]+): expected .+, found .+$)");
  std::mt19937 rng(20240611);
  int accepted = 0, rejected = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string text = original;
    for (int e = 1 + static_cast<int>(rng() % 4); e > 0 && !text.empty(); --e) {
      const size_t at = rng() % text.size();
      const char some = interesting[rng() % interesting.size()];
      switch (rng() % 5) {
        case 0: text[at] = static_cast<char>(text[at] ^ (1 << (rng() % 8))); break;
        case 1: text[at] = some; break;
        case 2: text.insert(at, 1, some); break;
        case 3: text.erase(at, 1 + rng() % 8); break;
        case 4: text.resize(at); break;
      }
    }
    CBlock root;
    const io::ReadError r = io::ParseBlockText(text, "fuzz.sp", root);
    if (r == io::kReadOk) {
      ++accepted;
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
      EXPECT_LE(std::stol(m[1]), std::count(text.begin(), text.end(), '\n') + 1) << message;
      EXPECT_GE(std::stol(m[2]), 1) << message;
    }
  }
  EXPECT_GT(accepted, 50);  // both outcomes must occur, or the mutations test nothing
  EXPECT_GT(rejected, 1000);
}

// ---- Typed look-ups on parsed text ---------------------------------------

// One typed look-up of "v"; returns the code and what the output holds
// afterwards. Every output starts out as 7.
std::pair<int, std::string> Look(const CBlock& b, char kind) {
  const char* const table[] = {"Scattering", "Modal", "Terminal"};
  int r = -1, i = 7;
  std::int64_t wide = 7;
  double d = 7;
  bool t = true;
  AString s("7");
  AComplex<double> c(7, 7);
  std::ostringstream out;
  switch (kind) {
    case 'i': r = b.GetInteger("v", i), out << i; break;
    case 'w': r = b.GetInteger("v", wide), out << wide; break;
    case 'd': r = b.GetReal("v", d), out << d; break;
    case 'b': r = b.GetBoolean("v", t), out << t; break;
    case 's': r = b.GetString("v", s), out << s; break;
    case 'c': r = b.GetComplex("v", c), out << c.re << ',' << c.im; break;
    case 'e': r = b.GetEnum("v", table, i), out << i; break;
  }
  return {r, out.str()};
}

TEST(BlockTextLookup, OutcomesCodesKeptOutputsAndMessages) {
  const std::tuple<char, const char*, int, const char*, const char*> cases[] = {
      {'w', "v = 1099511627776", io::kReadOk, "1099511627776", ""},
      {'d', "v = 6", io::kReadOk, "6", ""},  // integers are accepted as reals
      {'s', "v = Modal", io::kReadOk, "Modal", ""},
      {'e', "v = Modal", io::kReadOk, "1", ""},
      {'e', "v = \"Terminal\"", io::kReadOk, "2", ""},  // the quoted spelling is taken too
      {'c', "", io::kReadTolerated, "7,7", ""},
      {'i', "v = 1.5e9", io::kReadWrongType, "7",
       "p.sp:1:1: \"v\": expected an integer, found a real"},
      {'d', "\n  v { } v", io::kReadWrongType, "7",
       "p.sp:2:3: \"v\": expected a number, found a block"},
      {'b', "v = [0.5, -0.25]", io::kReadWrongType, "1",
       "p.sp:1:1: \"v\": expected true or false, found a list"},
      {'c', "v = [1, x]", io::kReadWrongType, "7,7",
       "p.sp:1:1: \"v\": expected numbers, found a name as value 2"},
      {'i', "v = 1099511627776", io::kReadBadValue, "7",
       "p.sp:1:1: \"v\": expected a 32-bit integer, found 1099511627776"},
      {'c', "v = [1, 2, 3]", io::kReadBadValue, "7,7",
       "p.sp:1:1: \"v\": expected 2 numbers (real, imaginary), found 3"},
      {'e', "v = Nonsense", io::kReadUnknownName, "7",
       "p.sp:1:1: \"v\": expected Scattering, Modal or Terminal, found \"Nonsense\""},
  };
  for (const auto& [kind, text, code, value, message] : cases) {
    CBlock root;
    ASSERT_EQ(io::ParseBlockText(text, "p.sp", root), io::kReadOk) << root.GetReadError();
    EXPECT_EQ(Look(root, kind), std::make_pair(int{code}, std::string(value))) << text;
    EXPECT_EQ(root.GetReadError(), message) << kind << " " << text;
  }
  CBlock root;  // the first error is kept
  ASSERT_EQ(io::ParseBlockText("v = x\nv { } v", "p.sp", root), io::kReadOk);
  Look(root, 'i');
  root.FindBlock("v")->ReportReadError(io::kReadBadValue, -1, "later");
  EXPECT_EQ(root.GetReadError(), "p.sp:1:1: \"v\": expected an integer, found a name");
}

// ---- Files -----------------------------------------------------------------

class BlockFile : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(dir); }
  void TearDown() override { fs::remove_all(dir); }
  std::string Entries(const fs::path& in) const {  // sorted, each followed by a blank
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(in)) names.insert(e.path().filename());
    return std::accumulate(names.begin(), names.end(), std::string(),
                           [](const std::string& a, const std::string& n) { return a + n + " "; });
  }
  const fs::path dir = fs::temp_directory_path() / ("block_file_test." + std::to_string(getpid()));
};

TEST_F(BlockFile, SaveReplacesTheFileItsPermissionsAndLinksAndLeavesNoTemporary) {
  const CBlock tree = EveryKind();
  const auto path = dir / "project.sp";
  { std::ofstream(path) << "old = 1\n"; }
  const auto perms = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
  fs::permissions(path, perms);
  AString error;
  ASSERT_TRUE(io::WriteBlockFile(path, tree, &error)) << error;
  EXPECT_EQ(Entries(dir), "project.sp ");
  EXPECT_EQ(fs::status(path).permissions() & fs::perms::mask, perms);
  CBlock back;  // the text round trip keeps every kind of item, with one spelling per tree
  ASSERT_EQ(io::ReadBlockFile(path, back), io::kReadOk) << back.GetReadError();
  EXPECT_TRUE(back == tree) << Write(tree);
  EXPECT_EQ(Slurp(path), Write(back));
  EXPECT_EQ(back.GetSourceName(), path.string());
  // Saving through a symlink updates the linked file and keeps the link.
  fs::create_directory(dir / "sub");
  fs::create_symlink(path, dir / "sub" / "link.sp");
  ASSERT_TRUE(io::WriteBlockFile(dir / "sub" / "link.sp", CBlock()));
  EXPECT_TRUE(fs::is_symlink(dir / "sub" / "link.sp"));
  EXPECT_EQ(Slurp(path), "");
  EXPECT_EQ(Entries(dir), "project.sp sub ");
  EXPECT_EQ(Entries(dir / "sub"), "link.sp ");
}

TEST_F(BlockFile, FailedSaveLeavesTheTargetAndNoTemporary) {
  // The target is a directory: the rename fails after the data was written.
  const auto target = dir / "taken";
  fs::create_directory(target);
  { std::ofstream(target / "inside") << "x"; }
  AString error;
  EXPECT_FALSE(io::WriteBlockFile(target, EveryKind(), &error));
  EXPECT_EQ(error.rfind("cannot save \"" + target.string() + "\": cannot replace the file: ", 0),
            0u) << error;
  EXPECT_EQ(Entries(dir), "taken ");
  EXPECT_EQ(Entries(target), "inside ");
  // No directory to put the temporary into.
  const auto nowhere = dir / "missing" / "project.sp";
  EXPECT_FALSE(io::WriteBlockFile(nowhere, EveryKind(), &error));
  EXPECT_EQ(error, "cannot save \"" + nowhere.string() +
                       "\": cannot create a temporary file: No such file or directory");
  EXPECT_FALSE(io::WriteBlockFile(nowhere, EveryKind()));  // no error text wanted
  // The deepest readable tree is saved and read back; one level more is refused.
  CBlock deep, back;
  CBlock* b = &deep;
  for (int i = 0; i < io::kMaxBlockDepth; ++i) b = &b->AddBlock("b");
  testing_support::AssertCapture capture;
  ASSERT_TRUE(io::WriteBlockFile(dir / "deep.sp", deep));
  ASSERT_EQ(io::ReadBlockFile(dir / "deep.sp", back), io::kReadOk) << back.GetReadError();
  EXPECT_TRUE(back == deep);
  b->AddBlock("b");
  EXPECT_FALSE(io::WriteBlockFile(dir / "deep.sp", deep, &error));
  EXPECT_EQ(error, "cannot save \"" + (dir / "deep.sp").string() +
                       "\": blocks are nested 201 deep, more than the 200 a project file may hold");
  EXPECT_EQ(Slurp(dir / "deep.sp"), Write(back));  // the earlier save is untouched
  EXPECT_EQ(Entries(dir), "deep.sp taken ");
  EXPECT_TRUE(capture.empty());  // writing its text is a programming error
  Write(deep);
  EXPECT_EQ(capture.conditions(),
            std::vector<std::string>{"deepest <= static_cast<size_t>(kMaxBlockDepth)"});
}

TEST_F(BlockFile, ReadErrorsNameThePath) {
  CBlock root;
  root.AddInteger("stale", 1);
  EXPECT_EQ(io::ReadBlockFile(dir / "none.sp", root), io::kReadFileError);
  EXPECT_EQ(root.GetReadError(),
            (dir / "none.sp").string() + ": cannot read the file: No such file or directory");
  EXPECT_TRUE(root.IsEmpty());
  EXPECT_EQ(io::ReadBlockFile(dir, root), io::kReadFileError);
  EXPECT_EQ(root.GetReadError(), dir.string() + ": cannot read the file: is a directory");
  const auto path = dir / "empty.sp";
  { std::ofstream{path}; }  // an empty file is an empty document
  EXPECT_EQ(io::ReadBlockFile(path, root), io::kReadOk);
  EXPECT_TRUE(root.IsEmpty());
}

// The first example of the user documentation is what the writer produces
// (after its leading comment line), so the page cannot drift from the code.
TEST(BlockText, DocumentedExampleIsWhatTheWriterProduces) {
  const std::string page = Slurp(fs::path(SPARAMLIB_SOURCE_DIR) / "docs" / "project-file.md");
  const size_t open = page.find("```\n");
  ASSERT_NE(open, std::string::npos) << "docs/project-file.md not found or has no example";
  const size_t close = page.find("```\n", open + 4);
  ASSERT_NE(close, std::string::npos);
  const std::string example = page.substr(open + 4, close - open - 4);
  CBlock root;
  ASSERT_EQ(io::ParseBlockText(example, "docs", root), io::kReadOk) << root.GetReadError();
  EXPECT_EQ(Write(root), example.substr(example.find('\n') + 1));
}

}  // namespace
