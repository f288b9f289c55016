// Noise data: ownership on assignment, stored form.
#include <gtest/gtest.h>

#include "core/BlockText.h"
#include "sparamlib/data/NoiseData.h"

TEST(NoiseData, AssignmentKeepsTheTargetsOwnerAndStoresFiveRealsInOrder) {
  auto* ownerA = reinterpret_cast<CNoiseDataSolution*>(0x1000);
  auto* ownerB = reinterpret_cast<CNoiseDataSolution*>(0x2000);
  CNoiseData a(ownerA, 7e9), b(ownerB, 2e9), back;
  a.SetNoiseParameters(0.9, 0.25, -120.0, 0.33);
  b = a;
  EXPECT_EQ(b.GetOwner(), ownerB);
  EXPECT_EQ(CNoiseData(a).GetOwner(), ownerA);
  io::CBlock block, odd;
  ASSERT_TRUE(b.WriteToBlock(block));
  std::string text;
  io::WriteBlockText(block, text);
  EXPECT_EQ(text, "Frequency = 7e+09\nFmin = 0.9\nGoptMag = 0.25\nGoptAng = -120.0\nRn = 0.33\n");

  // Read back; an item of the wrong kind is then ignored and reading succeeds.
  odd.AddString("Fmin", "low");
  EXPECT_EQ(back.ReadFromBlock(block), 0);
  EXPECT_EQ(back.ReadFromBlock(odd), 0);
  std::vector<double> read{back.GetFrequency(), 0, 0, 0, 0};
  back.GetNoiseParameters(read[1], read[2], read[3], read[4]);
  EXPECT_EQ(read, (std::vector<double>{7e9, 0.9, 0.25, -120.0, 0.33}));
}
