// Whole-object persistence through CStreamio_block_object: a small object
// written to text, a stream and a file and read back, and the errors a
// reader sees when its block is missing or damaged.
#include "core/StreamioBlockObject.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

namespace {

class CPortInfo : public io::CStreamio_block_object {
 public:
  AString m_Name;
  int m_Count = 0;
  double m_Z0 = 50.0;
  AComplex<double> m_Gamma;

  AString GetBlockName() const override { return "PortInfo"; }

  int ReadFromBlock(const io::CBlock& block) override {
    int r;
    if (!io::IsReadOk(r = block.GetString("Name", m_Name))) return r;
    if (!io::IsReadOk(r = block.GetInteger("Count", m_Count))) return r;
    if (!io::IsReadOk(r = block.GetReal("Z0", m_Z0))) return r;
    return block.GetComplex("Gamma", m_Gamma);
  }
  bool WriteToBlock(io::CBlock& block) const override {
    block.AddString("Name", m_Name);
    block.AddInteger("Count", m_Count);
    block.AddReal("Z0", m_Z0);
    block.AddComplex("Gamma", m_Gamma);
    return true;
  }
};

CPortInfo Sample() {
  CPortInfo p;
  p.m_Name = "Port 1";
  p.m_Count = 3;
  p.m_Z0 = 75.0;
  p.m_Gamma = {0.25, -1e-3};
  return p;
}

void ExpectSame(const CPortInfo& a, const CPortInfo& b) {
  EXPECT_EQ(a.m_Name, b.m_Name);
  EXPECT_EQ(a.m_Count, b.m_Count);
  EXPECT_EQ(a.m_Z0, b.m_Z0);
  EXPECT_TRUE(a.m_Gamma == b.m_Gamma);
}

constexpr const char* kText =
    "PortInfo {\n"
    "  Name = \"Port 1\"\n"
    "  Count = 3\n"
    "  Z0 = 75.0\n"
    "  Gamma = [0.25, -0.001]\n"
    "} PortInfo\n";

TEST(StreamioBlockObject, WritesItsBlockAtTheTopLevel) {
  std::ostringstream os;
  ASSERT_TRUE(Sample().WriteToStream(os));
  EXPECT_EQ(os.str(), kText);
  std::istringstream is(os.str());
  CPortInfo back;
  AString error;
  EXPECT_EQ(back.ReadFromStream(is, &error), io::kReadOk) << error;
  ExpectSame(back, Sample());
}

TEST(StreamioBlockObject, FileRoundTrip) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("streamio_test." + std::to_string(::getpid()) + ".sp");
  AString error;
  ASSERT_TRUE(Sample().WriteToFile(path, &error)) << error;
  CPortInfo back;
  EXPECT_EQ(back.ReadFromFile(path, &error), io::kReadOk) << error;
  std::filesystem::remove(path);
  ExpectSame(back, Sample());
  EXPECT_EQ(back.ReadFromFile(path, &error), io::kReadFileError);
  EXPECT_NE(error.find(path.string()), std::string::npos) << error;
}

TEST(StreamioBlockObject, MissingBlockSaysWhatWasExpected) {
  CPortInfo p;
  AString error;
  EXPECT_EQ(p.ReadFromText("Other {\n} Other\n", "x.sp", &error), io::kReadWrongType);
  EXPECT_EQ(error, "x.sp: expected a block \"PortInfo\" at the top level");
  EXPECT_EQ(p.ReadFromText("", "empty.sp", &error), io::kReadWrongType);
  EXPECT_EQ(error, "empty.sp: expected a block \"PortInfo\" at the top level");
}

TEST(StreamioBlockObject, ErrorsInsideTheBlockNameTheLine) {
  CPortInfo p;
  AString error;
  EXPECT_EQ(p.ReadFromText("PortInfo {\n  Name = \"a\"\n  Count = 2.5\n} PortInfo\n", "y.sp",
                           &error),
            io::kReadWrongType);
  EXPECT_EQ(error, "y.sp:3:3: in block \"PortInfo\": \"Count\": expected an integer, found a real");
  EXPECT_EQ(p.ReadFromText("PortInfo {\n  Count = 2\n", "z.sp", &error), io::kReadSyntax);
  EXPECT_EQ(error,
            "z.sp:3:1: expected '}' to close the block \"PortInfo\" opened at line 1, column 1, "
            "found end of file");
}

}  // namespace
