// The export writers' token stream: failure on open, number formatting,
// token separation and run-time printf formats.
#include "core/TokenOstream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

class TokenOstream : public ::testing::Test {
 protected:
  void SetUp() override {
    path = std::filesystem::temp_directory_path() /
           ("token_ostream_test." + std::to_string(::getpid()) + "." +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
  }
  void TearDown() override { std::filesystem::remove(path); }
  std::string Contents() const {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  std::filesystem::path path;
};

TEST_F(TokenOstream, StreamThatCannotOpenFailsAndWritesNothing) {
  const auto nowhere = path / "no" / "such" / "file.s2p";
  io::CToken_ostream os(nowhere);
  EXPECT_TRUE(os.fail());
  os << 1.5 << 2 << "text";
  os.Printf("%d", 3);
  os.EndLine();
  EXPECT_TRUE(os.fail());
  EXPECT_FALSE(os.Close());
  EXPECT_FALSE(std::filesystem::exists(nowhere));
}

TEST_F(TokenOstream, PrecisionIsSignificantDigits) {
  {
    io::CToken_ostream os(path);
    EXPECT_EQ(os.GetPrecision(), 6);
    os << 3.14159265358979 << " ";
    os.SetPrecision(3);
    os << 3.14159265358979 << " " << 1234567.0 << " ";
    os.SetPrecision(17);
    os << 0.1 << " ";
    os.SetPrecision(-4);  // clamped to 0, which %g prints as one digit
    EXPECT_EQ(os.GetPrecision(), 0);
    os << 2.71828;
    EXPECT_TRUE(os.Close());
  }
  EXPECT_EQ(Contents(), "3.14159 3.14 1.23e+06 0.10000000000000001 3");
}

TEST_F(TokenOstream, HighPrecisionNumbersAreNotCutShort) {
  {
    io::CToken_ostream os(path);
    os.SetPrecision(80);
    os << 1e-300;
    EXPECT_TRUE(os.Close());
    EXPECT_TRUE(os.Close()) << "closing twice keeps the outcome";
  }
  const std::string text = Contents();
  EXPECT_GT(text.size(), 64u);
  EXPECT_EQ(text.substr(text.size() - 5), "e-300");
}

TEST_F(TokenOstream, NumbersAreSeparatedOnlyWhenFormatting) {
  {
    io::CToken_ostream os(path);
    os << 1.5 << 2 << -2.5;  // touching numbers get a blank
    os << "|" << 3 << "|";    // text ends a run of numbers
    os.Format(false);
    os << 1.5 << 2 << -2.5;
    os.Format(true);
    os.EndDataLine();
    os << 7;
    os.EndLine();
    os << 8;
  }
  EXPECT_EQ(Contents(), "1.5 2 -2.5|3|1.52-2.5\n7\n8");
}

TEST_F(TokenOstream, PrintfTakesFormatsBuiltAtRunTime) {
  {
    io::CToken_ostream os(path);
    std::string format = "%-";
    format += std::to_string(16);
    format += ".8G ";
    os << 1.0;
    os.Printf(format.c_str(), 1.5e-12);
    os.Printf(format.c_str(), -50.0);
    os << 2.0;  // Printf ended the number run: no extra blank
    os.EndDataLine();
  }
  // Each field is 16 wide plus the blank of the format.
  EXPECT_EQ(Contents(), "1" + std::string("1.5E-12") + std::string(9 + 1, ' ') + "-50" +
                            std::string(13 + 1, ' ') + "2\n");
}

TEST_F(TokenOstream, TextPassesThroughUnchanged) {
  {
    io::CToken_ostream os(path);
    const AString header("! Touchstone-like header with UTF-8: \xCE\xA9");
    os << header;
    os.EndLine();
  }
  EXPECT_EQ(Contents(), "! Touchstone-like header with UTF-8: \xCE\xA9\n");
}

}  // namespace
