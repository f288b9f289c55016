// The project-file reader's line limit: a line longer than kMaxLineBytes is
// refused with its number, from text in memory and from files, and a file
// that never ends a line (a device, a sparse file claiming terabytes) is
// not buffered beyond the limit.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/BlockText.h"
#include "support/MemoryLimit.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kMiB = size_t{1} << 20;

std::string TooLongAt(const std::string& source, int line) {
  return source + ":" + std::to_string(line) +
         ":67108865: expected at most 67108864 bytes (64 MiB) on a line, found more";
}

// "ok" or the reader's message; a failed read must leave nothing behind.
std::string Outcome(io::ReadError r, const io::CBlock& root) {
  if (r == io::kReadOk) return "ok";
  if (!root.IsEmpty()) return "items left behind";
  return std::string(root.GetReadError());
}

class BlockTextLimits : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("block_text_limits_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

TEST_F(BlockTextLimits, LinesPastTheLimitAreRefusedWithTheirNumber) {
  ASSERT_EQ(io::kMaxLineBytes, 64 * kMiB);
  const std::string blanks(io::kMaxLineBytes - 5, ' ');  // "a = 1" and these fill a line exactly
  struct Case {
    const char* name;
    std::string text;
    int line;  // of the line too long; 0 for text that reads
  } cases[] = {
      {"exact.ndp", "x = 0\na = 1" + blanks + "\nb = 2\n", 0},
      {"comment.ndp", "x = 0\n#" + std::string(io::kMaxLineBytes - 1, 'c') + "\nb = 2\n", 0},
      {"blanks.ndp", "x = 0\na = 1" + blanks + " \nb = 2\n", 2},
      {"in_block.ndp", "x {\n  a = 1\n  y = [1," + blanks + "2]\n} x\n", 3},
      {"long_comment.ndp", "x = 0\n\n#" + std::string(io::kMaxLineBytes, 'c') + "\n", 3},
      {"last_line.ndp", "x = 0\na = 1" + blanks + " ", 2},
  };
  for (const Case& c : cases) {
    io::CBlock root;
    EXPECT_EQ(Outcome(io::ParseBlockText(c.text, c.name, root), root), c.line ? TooLongAt(c.name, c.line) : "ok")
        << c.name << " in memory";
    const fs::path file = dir / c.name;
    std::ofstream(file, std::ios::binary) << c.text;
    io::CBlock fromFile;
    EXPECT_EQ(Outcome(io::ReadBlockFile(file, fromFile), fromFile),
              c.line ? TooLongAt(file.string(), c.line) : "ok")
        << c.name << " from a file";
    if (!c.line) {
      EXPECT_TRUE(fromFile == root) << c.name;
    }
    fs::remove(file);
  }
}

// Without line ends the reader stops at the limit: /dev/zero, which has no
// size, and a sparse file whose size claims a terabyte of zero bytes.
TEST_F(BlockTextLimits, InputWithoutLineEndsIsNotBufferedPastTheLimit) {
  const fs::path sparse = dir / "sparse.ndp";
  {
    std::ofstream(sparse, std::ios::binary) << "Project {\n";
    const int fd = ::open(sparse.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    const bool grown = ::ftruncate(fd, off_t{1} << 40) == 0;
    ::close(fd);
    if (!grown) GTEST_SKIP() << "this file system holds no sparse terabyte";
  }
  const std::pair<fs::path, int> inputs[] = {{"/dev/zero", 1}, {sparse, 2}};
  for (const auto& [path, line] : inputs) {
    const std::string got = testing_support::RunWithMemoryLimit(100 * kMiB, [&] {
      io::CBlock root;
      const io::ReadError r = io::ReadBlockFile(path, root);
      return (r == io::kReadSyntax ? "" : "[not a syntax error] ") + Outcome(r, root);
    });
    EXPECT_EQ(got, TooLongAt(path.string(), line));
  }
}

}  // namespace
