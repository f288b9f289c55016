// Whole-object persistence through CStreamio_block_object: a small object
// written to a stream and a file and read back, and the errors a reader sees
// when its block is missing or damaged.
#include "core/StreamioBlockObject.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

class CPortInfo : public io::CStreamio_block_object {
 public:
  int m_Count = 0;
  AComplex<double> m_Gamma;

  AString GetBlockName() const override { return "PortInfo"; }
  int ReadFromBlock(const io::CBlock& block) override {
    const int r = block.GetInteger("Count", m_Count);
    return io::IsReadOk(r) ? block.GetComplex("Gamma", m_Gamma) : r;
  }
  bool WriteToBlock(io::CBlock& block) const override {
    block.AddInteger("Count", m_Count);
    block.AddComplex("Gamma", m_Gamma);
    return true;
  }
  bool operator==(const CPortInfo& o) const { return m_Count == o.m_Count && m_Gamma == o.m_Gamma; }
};

TEST(StreamioBlockObject, StreamAndFileRoundTrip) {
  CPortInfo p, fromStream, fromFile;
  p.m_Count = 3;
  p.m_Gamma = {0.25, -1e-3};
  std::ostringstream os;
  ASSERT_TRUE(p.WriteToStream(os));
  // The block stands at the top level.
  EXPECT_EQ(os.str(), "PortInfo {\n  Count = 3\n  Gamma = [0.25, -0.001]\n} PortInfo\n");
  const auto path = std::filesystem::temp_directory_path() /
                    ("streamio_test." + std::to_string(::getpid()) + ".sp");
  AString error;
  ASSERT_TRUE(p.WriteToFile(path, &error)) << error;
  std::ifstream in(path);
  EXPECT_EQ(fromStream.ReadFromStream(in, &error), io::kReadOk) << error;
  EXPECT_EQ(fromFile.ReadFromFile(path, &error), io::kReadOk) << error;
  EXPECT_TRUE(fromStream == p && fromFile == p);
  std::filesystem::remove(path);
  EXPECT_EQ(fromFile.ReadFromFile(path, &error), io::kReadFileError);
  EXPECT_NE(error.find(path.string()), std::string::npos) << error;
}

TEST(StreamioBlockObject, MissingOrDamagedBlockSaysWhereAndWhat) {
  const std::tuple<const char*, int, const char*> cases[] = {
      {"Other {\n} Other\n", io::kReadWrongType,
       "x.sp: expected a block \"PortInfo\" at the top level"},
      {"PortInfo {\n  Count = 2.5\n} PortInfo\n", io::kReadWrongType,
       "x.sp:2:3: in block \"PortInfo\": \"Count\": expected an integer, found a real"},
      {"PortInfo {\n  Count = 2\n", io::kReadSyntax,
       "x.sp:3:1: expected '}' to close the block \"PortInfo\" opened at line 1, column 1, "
       "found end of file"},
  };
  for (const auto& [text, code, message] : cases) {
    CPortInfo p;
    AString error;
    EXPECT_EQ(p.ReadFromText(text, "x.sp", &error), code) << text;
    EXPECT_EQ(error, message) << text;
  }
}

}  // namespace
