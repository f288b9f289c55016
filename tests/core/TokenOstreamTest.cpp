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
  void TearDown() override { std::filesystem::remove(path); }
  std::string Contents() const {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  const std::filesystem::path path = std::filesystem::temp_directory_path() /
                                     ("token_ostream_test." + std::to_string(::getpid()));
};

TEST_F(TokenOstream, StreamThatCannotOpenFailsAndWritesNothing) {
  const auto nowhere = path / "no" / "such" / "file.s2p";
  io::CToken_ostream os(nowhere);
  EXPECT_TRUE(os.fail());
  os << 1.5 << 2 << "text";
  os.Printf("%d", 3);
  os.EndLine();
  EXPECT_FALSE(os.Close());
  EXPECT_FALSE(std::filesystem::exists(nowhere));
}

TEST_F(TokenOstream, PrecisionIsSignificantDigitsAndNeverTruncates) {
  {
    io::CToken_ostream os(path);
    os << 3.14159265358979 << " ";
    os.SetPrecision(3);
    os << 3.14159265358979 << " " << 1234567.0 << " ";
    os.SetPrecision(17);
    os << 0.1 << " ";
    os.SetPrecision(-4);  // clamped to 0, which %g prints as one digit
    os << 2.71828 << " ";
    os.SetPrecision(80);  // longer than any fixed buffer for a number
    os << 1e-300;
    EXPECT_TRUE(os.Close());
    EXPECT_TRUE(os.Close()) << "closing twice keeps the outcome";
  }
  const std::string text = Contents();
  const std::string head = "3.14159 3.14 1.23e+06 0.10000000000000001 3 1.";
  ASSERT_EQ(text.rfind(head, 0), 0u) << text;
  EXPECT_GT(text.size(), head.size() + 64) << text;
  EXPECT_EQ(text.substr(text.size() - 5), "e-300");
}

TEST_F(TokenOstream, NumbersAreSeparatedOnlyWhenFormatting) {
  {
    io::CToken_ostream os(path);
    os << 1.5 << 2 << -2.5;           // touching numbers get a blank
    os << "|" << 3 << AString("|Ω");  // text ends a run of numbers
    os.Format(false);
    os << 1.5 << 2 << -2.5;
    os.Format(true);
    os.EndDataLine();
    const std::string format = "%-" + std::to_string(16) + ".8G ";  // built at run time
    os << 1.0;
    os.Printf(format.c_str(), 1.5e-12);
    os.Printf(format.c_str(), -50.0);
    os << 2.0;  // Printf ended the number run: no extra blank
    os.EndLine();
    os << 8;
  }
  EXPECT_EQ(Contents(), "1.5 2 -2.5|3|Ω1.52-2.5\n1" + std::string("1.5E-12") +
                            std::string(10, ' ') + "-50" + std::string(14, ' ') + "2\n8");
}

}  // namespace
