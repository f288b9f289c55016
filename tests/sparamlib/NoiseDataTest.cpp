// Noise data: values, ownership on assignment, stored form.
#include <gtest/gtest.h>

#include "sparamlib/NoiseData.h"

TEST(NoiseData, AssignmentKeepsTheTargetsOwner) {
  auto* ownerA = reinterpret_cast<CNoiseDataSolution*>(0x1000);
  auto* ownerB = reinterpret_cast<CNoiseDataSolution*>(0x2000);
  CNoiseData a(ownerA, 1e9);
  a.SetNoiseParameters(1.5, 0.3, 45.0, 12.0);
  CNoiseData b(ownerB, 2e9);
  b = a;
  EXPECT_EQ(b.GetOwner(), ownerB);
  EXPECT_EQ(b.GetFrequency(), 1e9);
  double f, m, ang, rn;
  b.GetNoiseParameters(f, m, ang, rn);
  EXPECT_EQ(f, 1.5);
  EXPECT_EQ(m, 0.3);
  EXPECT_EQ(ang, 45.0);
  EXPECT_EQ(rn, 12.0);
  CNoiseData c(a);
  EXPECT_EQ(c.GetOwner(), ownerA);
}

TEST(NoiseData, StoredFormHasFiveRealsInOrderAndReadsBack) {
  CNoiseData fresh(nullptr, 4e9);
  io::CBlock block("Noise");
  ASSERT_TRUE(fresh.WriteToBlock(block));
  ASSERT_EQ(block.GetNumItems(), 5u);
  const char* keys[] = {"Frequency", "Fmin", "GoptMag", "GoptAng", "Rn"};
  for (size_t k = 0; k < 5; ++k) {
    EXPECT_EQ(block.GetItem(k).GetName(), keys[k]);
    EXPECT_EQ(block.GetItem(k).GetValueKind(), io::ValueKind::Real);
  }
  EXPECT_EQ(block.GetItem(1).GetValue().GetReal(), 0.0);

  CNoiseData noisy(nullptr, 7e9);
  noisy.SetNoiseParameters(0.9, 0.25, -120.0, 0.33);
  io::CBlock stored("Noise");
  noisy.WriteToBlock(stored);
  CNoiseData back;
  EXPECT_EQ(back.ReadFromBlock(stored), 0);
  double f, m, ang, rn;
  back.GetNoiseParameters(f, m, ang, rn);
  EXPECT_EQ(back.GetFrequency(), 7e9);
  EXPECT_EQ(ang, -120.0);
  EXPECT_EQ(rn, 0.33);

  // Items of the wrong kind are ignored; reading still succeeds.
  io::CBlock odd("Noise");
  odd.AddString("Fmin", "low");
  EXPECT_EQ(back.ReadFromBlock(odd), 0);
  back.GetNoiseParameters(f, m, ang, rn);
  EXPECT_EQ(f, 0.9);
}
