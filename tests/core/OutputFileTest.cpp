// Output files are complete or absent: full disks, links, devices, killed
// writers and leftover temporaries.
#include "core/OutputFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "core/BlockText.h"
#include "core/TokenOstream.h"
#include "support/FileSizeLimit.h"

namespace {

namespace fs = std::filesystem;

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

class OutputFile : public testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  // The directory's entries, sorted, each followed by a blank.
  std::string Entries() const {
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(dir)) names.insert(e.path().filename().string());
    std::string all;
    for (const auto& n : names) all += n + " ";
    return all;
  }
  bool Save(const fs::path& path, const std::string& text, std::string* why = nullptr) {
    io::COutputFile out;
    return out.Open(path, why) && out.Write(text.data(), text.size()) && out.Commit(why);
  }
  const fs::path dir = fs::temp_directory_path() / ("output_file_test." + std::to_string(getpid()));
};

TEST_F(OutputFile, ReplacesOnlyAtCommitKeepingPermissionsAndLinks) {
  const fs::path file = dir / "data.s2p";
  { std::ofstream(file) << "old\n"; }
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
  {
    io::COutputFile out;
    std::string why;
    ASSERT_TRUE(out.Open(file, &why)) << why;
    ASSERT_TRUE(out.Write("new\n", 4));
    EXPECT_EQ(Slurp(file), "old\n");  // nothing shows before the commit
    EXPECT_EQ(Entries(), "data.s2p ");
    ASSERT_TRUE(out.Commit(&why)) << why;
  }
  EXPECT_EQ(Slurp(file), "new\n");
  EXPECT_EQ(fs::status(file).permissions() & fs::perms::mask,
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
  // An output abandoned (or whose process is killed) leaves the old file.
  {
    io::COutputFile out;
    ASSERT_TRUE(out.Open(file, nullptr));
    out.Write("partial", 7);
  }
  EXPECT_EQ(Slurp(file), "new\n");
  // Relative and chained links are followed; a dangling one creates its target.
  fs::create_directory(dir / "sub");
  fs::create_symlink("../data.s2p", dir / "sub" / "hop");
  fs::create_symlink("sub/hop", dir / "link.s2p");
  fs::create_symlink("later.s2p", dir / "dangling.s2p");
  ASSERT_TRUE(Save(dir / "link.s2p", "via link\n"));
  ASSERT_TRUE(Save(dir / "dangling.s2p", "made\n"));
  EXPECT_TRUE(fs::is_symlink(dir / "link.s2p"));
  EXPECT_TRUE(fs::is_symlink(dir / "dangling.s2p"));
  EXPECT_EQ(Slurp(file), "via link\n");
  EXPECT_EQ(Slurp(dir / "later.s2p"), "made\n");
  EXPECT_EQ(Entries(), "dangling.s2p data.s2p later.s2p link.s2p sub ");
}

TEST_F(OutputFile, FullDiskFailsWithTheReasonAndLeavesTheOldFile) {
  const fs::path file = dir / "big.txt";
  { std::ofstream(file) << "precious\n"; }
  const std::string result = testing_support::RunWithFileSizeLimit(1000, [&] {
    io::COutputFile out;
    std::string why;
    if (!out.Open(file, &why)) return "open: " + why;
    const std::string chunk(300, 'x');
    for (int i = 0; i < 10; ++i) out.Write(chunk.data(), chunk.size());
    return out.Commit(&why) ? std::string("committed") : why;
  });
  EXPECT_EQ(result, "write failed: File too large");
  EXPECT_EQ(Slurp(file), "precious\n");
  EXPECT_EQ(Entries(), "big.txt ");
  // The token stream reports the same reason, and a project save too.
  const std::string stream = testing_support::RunWithFileSizeLimit(1000, [&] {
    io::COutputFile out;
    if (!out.Open(file, nullptr)) return std::string("open failed");
    io::CToken_ostream tokens(out);
    for (int i = 0; i < 2000; ++i) tokens << 1.25;
    const bool closed = tokens.Close();
    return (closed ? "closed " : "failed ") + tokens.FailureReason();
  });
  EXPECT_EQ(stream, "failed File too large");
  const std::string save = testing_support::RunWithFileSizeLimit(100, [&] {
    io::CBlock root;
    root.AddString("Name", std::string(500, 'a'));
    AString error;
    return io::WriteBlockFile(file, root, &error) ? std::string("saved") : std::string(error);
  });
  EXPECT_EQ(save, "cannot save \"" + file.string() + "\": write failed: File too large");
  EXPECT_EQ(Slurp(file), "precious\n");
  EXPECT_EQ(Entries(), "big.txt ");
}

TEST_F(OutputFile, DevicesFifosAndStandardOutputAreWrittenInPlace) {
  // A fifo: the reader sees the data and the fifo stays a fifo.
  const fs::path fifo = dir / "pipe";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const pid_t reader = ::fork();
  if (reader == 0) {
    const std::string got = Slurp(fifo);
    ::_exit(got == "through the fifo\n" ? 0 : 1);
  }
  EXPECT_TRUE(Save(fifo, "through the fifo\n"));
  int status = 0;
  ::waitpid(reader, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_TRUE(fs::is_fifo(fifo));
  // A character device, and a link to it.
  fs::create_symlink("/dev/null", dir / "null");
  EXPECT_TRUE(Save(dir / "null", "discarded"));
  EXPECT_TRUE(fs::is_symlink(dir / "null"));
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
  // "-" is standard output, unless the caller does not allow it.
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const int saved = ::dup(STDOUT_FILENO);
  ::dup2(fds[1], STDOUT_FILENO);
  const bool written = Save("-", "to stdout\n");
  ::dup2(saved, STDOUT_FILENO);
  ::close(saved);
  ::close(fds[1]);
  char buf[64] = {};
  EXPECT_EQ(::read(fds[0], buf, sizeof buf), 10);
  ::close(fds[0]);
  EXPECT_TRUE(written);
  EXPECT_STREQ(buf, "to stdout\n");
  // A directory is never renamed over.
  fs::create_directory(dir / "taken");
  std::string why;
  EXPECT_FALSE(Save(dir / "taken", "x", &why));
  EXPECT_EQ(why, "cannot replace the file: Is a directory");
  EXPECT_EQ(Entries(), "null pipe taken ");
}

TEST_F(OutputFile, TemporariesOfDeadWritersAreRemovedAndLiveOnesKept) {
  const fs::path file = dir / "p.ndp";
  pid_t dead = ::fork();
  if (dead == 0) ::_exit(0);
  ::waitpid(dead, nullptr, 0);
  const std::string stale = "p.ndp.tmp" + std::to_string(dead) + ".4";
  const std::string live = "p.ndp.tmp" + std::to_string(::getppid()) + ".0";
  for (const std::string& name : {stale, live, std::string("p.ndp.tmp.x"), std::string("q.ndp.tmp1.1")})
    std::ofstream(dir / name) << "left";
  ASSERT_TRUE(Save(file, "saved"));
  EXPECT_EQ(Entries(), "p.ndp p.ndp.tmp.x " + live + " q.ndp.tmp1.1 ");
}

}  // namespace
