// The in-memory block: the shared error state across copies, moves and
// adoption, refused list appends, bitwise equality, unnamed enumerations.
#include "core/Block.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/AssertCapture.h"

namespace {

using io::CBlock;
using io::CValue;

TEST(Block, ErrorsReachTheRootAfterCopyMoveAndAdoption) {
  CBlock original;
  original.SetSourceName("t.sp");
  CBlock& child = original.AddBlock("Child");
  child.SetSourcePosition(4, 3);
  child.AddInteger("n", 1);
  child.SetLastItemPosition(5, 5);
  const CBlock copy = original;
  copy.FindBlock("Child")->ReportReadError(io::kReadBadValue, 0, "first");
  EXPECT_EQ(copy.GetReadError(), "t.sp:5:5: in block \"Child\": first");
  EXPECT_FALSE(original.HasReadError());  // the copy has a root of its own
  const CBlock part = *copy.FindBlock("Child");  // a copied sub-block keeps the source name
  part.ReportReadError(io::kReadWrongType, -1, "x");
  EXPECT_EQ(part.GetReadError(), "t.sp:4:3: in block \"Child\": x");

  CBlock moved(std::move(original)), assigned;
  moved.FindBlock("Child")->ReportReadError(io::kReadBadValue, -1, "second");
  EXPECT_EQ(moved.GetReadError(), "t.sp:4:3: in block \"Child\": second");
  assigned = std::move(moved);
  assigned.ClearReadError();
  assigned.FindBlock("Child")->ReportReadError(io::kReadBadValue, -1, "third");
  EXPECT_EQ(assigned.GetReadError(), "t.sp:4:3: in block \"Child\": third");
  assigned.ClearReadError();
  CBlock loose("Loose");
  loose.ReportReadError(io::kReadBadValue, -1, "stale");
  assigned.AddBlock(std::move(loose)).ReportReadError(io::kReadBadValue, -1, "fresh");
  EXPECT_EQ(assigned.GetReadError(), "t.sp: in block \"Loose\": fresh");
}

TEST(Block, AppendingToAnythingButTheLastListIsRefused) {
  testing_support::AssertCapture capture;
  CBlock b, expected;
  b.AddInteger("n", 1);
  b.AppendRealArgument(2.0);  // the last item is a value
  b.AddBlock("sub");
  b.AppendArgument(CValue::Integer(1));  // the last item is a block
  ASSERT_EQ(capture.all().size(), 2u);
  EXPECT_NE(capture.all()[0].file.find("Block.cpp"), std::string::npos);
  expected.AddInteger("n", 1);
  expected.AddBlock("sub");
  EXPECT_TRUE(b == expected);
}

TEST(Block, EqualityComparesRealsBitwiseAndIgnoresPositions) {
  CBlock zero, negZero, n1, n2, one, oneReal;
  zero.AddReal("x", 0.0);
  negZero.AddReal("x", -0.0);
  EXPECT_FALSE(zero == negZero);  // == on doubles would call them equal
  n1.AddReal("x", std::numeric_limits<double>::quiet_NaN());
  n2.AddReal("x", std::numeric_limits<double>::quiet_NaN());
  n2.SetLastItemPosition(3, 4);
  EXPECT_TRUE(n1 == n2);  // NaN != NaN, but the same bits are the same value
  one.AddInteger("x", 1);
  oneReal.AddReal("x", 1.0);
  EXPECT_FALSE(one == oneReal);
}

TEST(Block, EnumerationOutsideTheTableIsKeptByNumber) {
  const char* const table[] = {"A", "B"};
  CBlock b;
  EXPECT_EQ(b.AddEnum("e", table, 7), io::kReadUnknownName);
  int v = 0;
  EXPECT_EQ(b.GetEnum("e", table, v), io::kReadUnknownName);
  EXPECT_EQ(v, 7);
}

}  // namespace
