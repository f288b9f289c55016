// Bad inputs for the Touchstone and Citifile readers: lines past the line
// limit, port and frequency counts the input does not hold (read in a child
// process with a memory limit, from files and from pipes, whose size is not
// known), values that are not finite, and every truncation of valid files.
// Each must give one message naming the file and the place, never a crash,
// an exception or memory the input does not justify.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "sparamlib/formats/Citifile.h"
#include "sparamlib/formats/LineReader.h"
#include "sparamlib/formats/TouchstoneReader.h"
#include "support/MemoryLimit.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kMiB = size_t{1} << 20;

class InputBounds : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("input_bounds_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }

  fs::path Write(const std::string& name, const std::string& text) const {
    const fs::path path = dir / name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  fs::path dir;
};

enum Reader { kTouchstone, kCitifile };

// Reads `path` with the reader; "ok" or the error.
std::string ReadFile(Reader reader, const fs::path& path) {
  std::string error;
  const bool ok = reader == kTouchstone ? nd::ReadTouchstoneFile(path, &error) != nullptr
                                        : nd::ReadCitifile(path, &error) != nullptr;
  return ok ? "ok" : error;
}

std::string ReadText(Reader reader, const std::string& text, const std::string& name) {
  std::string error;
  const bool ok = reader == kTouchstone ? nd::ReadTouchstoneText(text, name, &error) != nullptr
                                        : nd::ReadCitifileText(text, name, &error) != nullptr;
  return ok ? "ok" : error;
}

// `text` through a pipe, as a reader sees standard input or a fifo: the
// file's size is unknown. `link` (named as the file should be) leads to the
// pipe's read end. Runs in the caller's process, which must be a child: the
// pipe is left open.
std::string ReadThroughPipe(Reader reader, const std::string& text, const fs::path& link) {
  int fds[2];
  if (::pipe(fds) != 0) return "pipe failed";
  ::fcntl(fds[1], F_SETPIPE_SZ, 1 << 20);
  if (::write(fds[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) return "pipe too small";
  ::close(fds[1]);
  fs::remove(link);
  fs::create_symlink("/proc/self/fd/" + std::to_string(fds[0]), link);
  return ReadFile(reader, link);
}

// The limit itself: a line of exactly kMaxLineBytes reads, one byte more is
// refused with its line number, from memory and from a file, also as a last
// line without a line end.
TEST_F(InputBounds, LinesLongerThanTheLimitAreRefusedWithTheirNumber) {
  ASSERT_EQ(nd::kMaxLineBytes, 64 * kMiB);
  const std::string longest(nd::kMaxLineBytes, ' ');
  const std::string tooLong(nd::kMaxLineBytes + 1, ' ');
  const std::string ts = "# GHz S RI\n1 0.5 0\n";
  const std::string cit = "CITIFILE A.01.00\nVAR FREQ MAG 1\n";
  const std::string citEnd = "DATA S[1,1] RI\nVAR_LIST_BEGIN\n1e9\nVAR_LIST_END\nBEGIN\n0.5,0\nEND\n";
  const std::string past = ":3:67108865: expected at most 67108864 bytes (64 MiB) on a line, found more";
  struct Case {
    Reader reader;
    const char* name;
    std::string text;
    std::string expected;  // after the name; "ok" for a file that reads
  } cases[] = {
      {kTouchstone, "a.s1p", ts + longest + "\n2 0.5 0\n", "ok"},
      {kTouchstone, "b.s1p", ts + tooLong + "\n2 0.5 0\n", past},
      {kTouchstone, "c.s1p", ts + tooLong, past},
      {kTouchstone, "d.s1p", ts + "2 0.5 0" + tooLong + "\n", past},
      {kCitifile, "a.cit", cit + "!" + longest.substr(1) + "\n" + citEnd, "ok"},
      {kCitifile, "b.cit", cit + "!" + tooLong + "\n" + citEnd, past},
      {kCitifile, "c.cit", cit + tooLong, past},
  };
  for (const Case& c : cases) {
    const std::string expected = c.expected == "ok" ? "ok" : c.name + c.expected;
    EXPECT_EQ(ReadText(c.reader, c.text, c.name), expected) << c.name << " from memory";
    const fs::path file = Write(c.name, c.text);
    const std::string want = c.expected == "ok" ? "ok" : file.string() + c.expected;
    EXPECT_EQ(ReadFile(c.reader, file), want) << c.name << " from a file";
    fs::remove(file);
  }
}

// Input without line ends is not buffered beyond the line limit.
TEST_F(InputBounds, EndlessInputWithoutLineEndsStopsAtTheLineLimit) {
  const std::string expected = "/dev/zero:1:67108865: expected at most 67108864 bytes (64 MiB) on a line, found more";
  for (Reader reader : {kTouchstone, kCitifile}) {
    EXPECT_EQ(testing_support::RunWithMemoryLimit(100 * kMiB, [&] { return ReadFile(reader, "/dev/zero"); }),
              expected);
  }
}

// Counts that ask for far more than the input holds fail without
// allocating for them: within 100 MB, from files and from pipes.
TEST_F(InputBounds, ClaimedCountsCostOnlyWhatTheInputHolds) {
  const std::string ts2 = "# Hz S RI R 50\n1e9 0.5 0 0 0 0 0 0.5 0\n";
  const std::string v2 = "[Version] 2.0\n# Hz S RI R 50\n[Number of Ports] 100000\n[Number of Frequencies] 1\n"
                         "[Network Data]\n1e9 0.5 0\n";
  const std::string v2Fits = "[Version] 2.0\n# Hz S RI R 50\n[Number of Ports] 40000\n[Number of Frequencies] 1\n"
                             "[Network Data]\n1e9 0.5 0\n";
  const std::string citPorts =
      "CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[100000,100000] RI\nVAR_LIST_BEGIN\n1e9\nVAR_LIST_END\nBEGIN\n0.5,0\nEND\n";
  const std::string citSegment =
      "CITIFILE A.01.00\nVAR FREQ MAG 100000000\nDATA S[1,1] RI\nSEG_LIST_BEGIN\nSEG 0 1e9 100000000\nSEG_LIST_END\n"
      "BEGIN\n0.5,0\nEND\n";
  struct Case {
    Reader reader;
    const char* name;
    const std::string& text;
    bool pipe;
    const char* expected;  // after the name
  } cases[] = {
      {kTouchstone, "x.s40000p", ts2, false,
       ":2:1: expected 1600000000 value pairs per frequency for 40000 ports, but the whole input is 39 bytes"},
      {kTouchstone, "x.s40000p", ts2, true,
       ":3:1: the record for frequency 1000000000 that begins at line 2 ends early: expected 1600000000 pairs, "
       "found 4"},
      {kTouchstone, "x.s99999p", ts2, true,
       ":2:1: expected at most 46340 ports, found 99999: a larger square matrix has more elements than the library "
       "can index"},
      {kTouchstone, "a.ts", v2, false,
       ":5:1: expected 10000000000 value pairs per frequency for 100000 ports, but the whole input is 105 bytes"},
      {kTouchstone, "a.ts", v2, true,
       ":5:1: expected at most 46340 ports, found 100000: a larger square matrix has more elements than the library "
       "can index"},
      {kTouchstone, "b.ts", v2Fits, true,
       ":7:1: the record for frequency 1000000000 that begins at line 6 ends early: expected 1600000000 pairs, "
       "found 1"},
      {kCitifile, "a.cit", citPorts, false, ":10:1: expected DATA S[1,1]: every element of the 100000-port matrix"},
      {kCitifile, "a.cit", citPorts, true, ":10:1: expected DATA S[1,1]: every element of the 100000-port matrix"},
      {kCitifile, "b.cit", citSegment, false, ":9:1: expected 100000000 values in the block before END, found 1"},
      {kCitifile, "b.cit", citSegment, true, ":9:1: expected 100000000 values in the block before END, found 1"},
  };
  for (const Case& c : cases) {
    const fs::path path = dir / c.name;
    const std::string got = testing_support::RunWithMemoryLimit(100 * kMiB, [&] {
      if (c.pipe) return ReadThroughPipe(c.reader, c.text, path);
      std::ofstream(path, std::ios::binary) << c.text;
      return ReadFile(c.reader, path);
    });
    EXPECT_EQ(got, path.string() + c.expected) << c.name << (c.pipe ? " through a pipe" : " from a file");
  }
}

// nan and inf parse as numbers, but no reader takes them as data.
TEST_F(InputBounds, NonFiniteValuesAreRefusedWhereTheyStand) {
  const std::string cit = "CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] RI\nVAR_LIST_BEGIN\n1e9\nVAR_LIST_END\nBEGIN\n";
  const std::string mag = "CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] MAG\nVAR_LIST_BEGIN\n1e9\nVAR_LIST_END\nBEGIN\n";
  const std::string z0 = "CITIFILE A.01.00\nVAR FREQ MAG 1\nDATA S[1,1] RI\nDATA Z0[1] RI\nVAR_LIST_BEGIN\n1e9\n"
                         "VAR_LIST_END\nBEGIN\n0.5,0\nEND\nBEGIN\n";
  const std::string seg = "CITIFILE A.01.00\nVAR FREQ MAG 3\nDATA S[1,1] RI\nSEG_LIST_BEGIN\n";
  const std::string ts = "# GHz S RI\n1 0.5 0\n";
  struct Case {
    Reader reader;
    const char* name;
    std::string text;
    const char* expected;
  } cases[] = {
      {kCitifile, "a.cit", cit + "nan,0\nEND\n", "a.cit:8:1: expected a finite number, found \"nan\""},
      {kCitifile, "a.cit", cit + "0.5, -inf\nEND\n", "a.cit:8:6: expected a finite number, found \"-inf\""},
      {kCitifile, "a.cit", cit + "  inf ,0\nEND\n", "a.cit:8:3: expected a finite number, found \"inf\""},
      {kCitifile, "a.cit", mag + "inf\nEND\n", "a.cit:8:1: expected a finite number, found \"inf\""},
      {kCitifile, "a.cit", z0 + "nan,0\nEND\n", "a.cit:12:1: expected a finite number, found \"nan\""},
      {kCitifile, "a.cit", cit.substr(0, cit.find("1e9")) + "inf\n",
       "a.cit:5:1: expected a frequency in Hz or VAR_LIST_END, found \"inf\""},
      {kCitifile, "a.cit", seg + "SEG nan 1e9 3\n",
       "a.cit:5:5: expected SEG start stop count (finite frequencies of 0 Hz or more), found \"nan 1e9 3\""},
      {kCitifile, "a.cit", seg + "SEG 1e9 inf 3\n",
       "a.cit:5:5: expected SEG start stop count (finite frequencies of 0 Hz or more), found \"1e9 inf 3\""},
      {kCitifile, "a.cit", seg + "SEG -1 1e9 3\n",
       "a.cit:5:5: expected SEG start stop count (finite frequencies of 0 Hz or more), found \"-1 1e9 3\""},
      {kTouchstone, "a.s1p", ts + "! Port Impedance nan 0\n",
       "a.s1p:3:18: expected a finite number of the ! Port Impedance line, found \"nan\""},
      {kTouchstone, "a.s1p", ts + "! Gamma 0 inf\n", "a.s1p:3:11: expected a finite number of the ! Gamma line, found \"inf\""},
      {kTouchstone, "a.s2p", "# GHz S MA\n1 0 0 0 0 0 0 0 0\nnan 1.5 0.5 90 0.25\n",
       "a.s2p:3:1: expected a finite number on the noise line, found \"nan\""},
      {kTouchstone, "a.s2p", "# GHz S MA\n1 0 0 0 0 0 0 0 0\n0.5 1.5 0.5 inf 0.25\n",
       "a.s2p:3:13: expected a finite number on the noise line, found \"inf\""},
      // Finite numbers whose value is not: found by touchstone_fuzz (a
      // magnitude of 63.2 million dB), and the conversions that can overflow
      // or divide by zero.
      {kTouchstone, "a.s1p", "! ne pdB\n# Hz S DB R 75\n10e-0 6.5 4\n12e-0 63.200e6  0\n",
       "a.s1p:4:1: expected magnitudes a double can hold in the record for frequency 12 (line 4), found 63200000 dB "
       "as its value 2"},
      {kTouchstone, "a.s2p", "# GHz H RI\n1 1 0 2 0 3 0 0 0\n",
       "a.s2p:2:1: expected H-parameters with finite Z-parameters (H22 other than 0) in the record for frequency 1 "
       "(line 2)"},
      {kTouchstone, "a.s1p", "# GHz Z RI R 1e300\n1 1e300 0\n",
       "a.s1p:2:1: expected Z-parameters with finite values once multiplied by the reference impedances in the "
       "record for frequency 1 (line 2)"},
  };
  for (const Case& c : cases) EXPECT_EQ(ReadText(c.reader, c.text, c.name), c.expected) << c.text;
}

// Every prefix of a valid file, cut at any byte, reads or fails with one
// line naming the file; none throws or leaves anything behind.
TEST_F(InputBounds, EveryTruncationOfAValidFileFailsCleanly) {
  const std::pair<Reader, std::string> files[] = {
      {kTouchstone, "! from a test\n# MHz S DB R 50\n! Port[1] = in\n100 -3.5 45 -20 0 -20 0 -3.5 45\n"
                    "200 -3.6 40 -21 1 -21 1 -3.6 40\n! Gamma 0 1 0 2\n! Port Impedance 50 0 50 0\n"
                    "150 1.5 0.5 90 0.25\n"},
      {kTouchstone, "[Version] 2.0\n# GHz Z RI\n[Number of Ports] 3\n[Number of Frequencies] 2\n[Reference] 50 "
                    "60\n70\n[Matrix Format] Lower\n[Network Data]\n1 1 2\n3 4 5 6\n7 8 9 10 11 12\n2 1 2\n3 4 5 "
                    "6\n7 8 9 10 11 12\n[End]\n"},
      {kCitifile, "CITIFILE A.01.00\nNAME MEM\nVAR FREQ MAG 2\nDATA S[1,1] RI\nDATA Z0[1] RI\nSEG_LIST_BEGIN\n"
                  "SEG 1e9 2e9 2\nSEG_LIST_END\nBEGIN\n0.5,0.25\n-0.5,1e-3\nEND\nBEGIN\n50,0\n50,0\nEND\n"},
  };
  for (const auto& [reader, text] : files) {
    const std::string name = reader == kTouchstone ? (text[0] == '[' ? "t.ts" : "t.s2p") : "t.cit";
    ASSERT_EQ(ReadText(reader, text, name), "ok") << text;
    for (size_t cut = 0; cut < text.size(); ++cut) {
      std::string got;
      try {
        got = ReadText(reader, text.substr(0, cut), name);
      } catch (...) {
        got = "exception";
      }
      if (got == "ok") continue;
      EXPECT_EQ(got.rfind(name + ":", 0), 0u) << got;
      EXPECT_EQ(got.find('\n'), std::string::npos) << got;
    }
  }
}

}  // namespace
