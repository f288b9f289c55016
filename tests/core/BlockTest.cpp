// The in-memory block: ownership of the shared error state across copies and
// moves, incremental lists, clearing, and message texts.
#include "core/Block.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/AssertCapture.h"

namespace {

using io::CBlock;
using io::CValue;

CBlock TreeWithChild() {
  CBlock root;
  root.SetSourceName("t.sp");
  CBlock& child = root.AddBlock("Child");
  child.SetSourcePosition(4, 3);
  child.AddInteger("n", 1);
  child.SetLastItemPosition(5, 5);
  return root;
}

TEST(Block, ErrorsOfASubBlockReachTheRootAfterCopyAndMove) {
  CBlock original = TreeWithChild();
  CBlock copy = original;
  copy.FindBlock("Child")->ReportReadError(io::kReadBadValue, 0, "first");
  EXPECT_EQ(copy.GetReadError(), "t.sp:5:5: in block \"Child\": first");
  EXPECT_FALSE(original.HasReadError());  // the copy has a root of its own

  CBlock moved = std::move(original);
  moved.FindBlock("Child")->ReportReadError(io::kReadBadValue, -1, "second");
  EXPECT_EQ(moved.GetReadError(), "t.sp:4:3: in block \"Child\": second");

  CBlock assigned;
  assigned = std::move(moved);
  assigned.ClearReadError();
  assigned.FindBlock("Child")->ReportReadError(io::kReadBadValue, -1, "third");
  EXPECT_EQ(assigned.GetReadError(), "t.sp:4:3: in block \"Child\": third");
}

TEST(Block, CopiedSubBlockKeepsTheSourceName) {
  const CBlock tree = TreeWithChild();
  const CBlock part = *tree.FindBlock("Child");
  part.ReportReadError(io::kReadWrongType, 0, "x");
  EXPECT_EQ(part.GetReadError(), "t.sp:5:5: in block \"Child\": x");
}

TEST(Block, AdoptedBlockReportsToItsNewRoot) {
  CBlock loose("Loose");
  loose.ReportReadError(io::kReadBadValue, -1, "stale");
  CBlock root;
  root.SetSourceName("r.sp");
  const CBlock& adopted = root.AddBlock(std::move(loose));
  EXPECT_FALSE(adopted.HasReadError());
  adopted.ReportReadError(io::kReadBadValue, -1, "fresh");
  EXPECT_EQ(root.GetReadError(), "r.sp: in block \"Loose\": fresh");
}

TEST(Block, RootMessagesDoNotNameTheUnnamedRoot) {
  CBlock root;
  root.AddInteger("n", 1);
  root.SetLastItemPosition(2, 1);
  root.ReportReadError(io::kReadBadValue, 0, "what");
  EXPECT_EQ(root.GetReadError(), "<block>:2:1: what");
}

TEST(Block, ListsGrowValueByValue) {
  CBlock b;
  b.AddFunction("f", {});
  b.AppendRealArgument(1.5);
  b.AppendArgument(CValue::String("s"));
  b.AppendArgument(CValue::Integer(3));
  b.AddInteger("after", 1);
  ASSERT_EQ(b.GetItem(0).GetNumValues(), 3u);
  EXPECT_EQ(b.GetItem(0).GetRealUnchecked(0), 1.5);
  EXPECT_EQ(b.GetItem(0).GetValue(1).GetText(), "s");
  EXPECT_EQ(b.GetItem(0).GetValue(2).GetInteger(), 3);
  EXPECT_EQ(b.GetItem(1).GetValue().GetInteger(), 1);

  CBlock same;
  const CValue args[] = {CValue::Real(1.5), CValue::String("s"), CValue::Integer(3)};
  same.AddFunction("f", args);
  same.AddInteger("after", 1);
  EXPECT_TRUE(b == same);
}

TEST(Block, AppendingToAnythingButTheLastListIsRefused) {
  testing_support::AssertCapture capture;
  CBlock b;
  b.AddInteger("n", 1);
  b.AppendRealArgument(2.0);  // the last item is a value
  b.AddFunction("f", {});
  b.AddBlock("sub");
  b.AppendArgument(CValue::Integer(1));  // the last item is a block
  ASSERT_EQ(capture.all().size(), 2u);
  EXPECT_NE(capture.all()[0].file.find("Block.cpp"), std::string::npos);
  EXPECT_EQ(b.GetItem(0).GetNumValues(), 1u);
  EXPECT_EQ(b.GetItem(1).GetNumValues(), 0u);
}

TEST(Block, ClearRemovesItemsButKeepsIdentity) {
  CBlock b("Name");
  b.SetSourceName("s.sp");
  b.AddString("s", "text");
  b.AddComplex("c", {1, 2});
  b.AddBlock("sub").AddInteger("x", 1);
  b.Clear();
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(b.GetName(), "Name");
  EXPECT_EQ(b.GetSourceName(), "s.sp");
  b.AddString("t", "again");  // text indices start afresh
  AString t;
  EXPECT_EQ(b.GetString("t", t), io::kReadOk);
  EXPECT_EQ(t, "again");
}

TEST(Block, EqualityComparesRealsBitwiseAndIgnoresPositions) {
  CBlock a, b;
  a.AddReal("x", 0.0);
  b.AddReal("x", -0.0);
  EXPECT_FALSE(a == b);  // == on doubles would call them equal
  CBlock n1, n2;
  n1.AddReal("x", std::numeric_limits<double>::quiet_NaN());
  n2.AddReal("x", std::numeric_limits<double>::quiet_NaN());
  n2.SetLastItemPosition(3, 4);
  EXPECT_TRUE(n1 == n2);  // NaN != NaN, but the same bits are the same value
  CBlock i, r;
  i.AddInteger("x", 1);
  r.AddReal("x", 1.0);
  EXPECT_FALSE(i == r);
}

TEST(Block, EnumerationsOutsideTheTableAreNotWritten) {
  const char* const table[] = {"A", "B"};
  CBlock b;
  EXPECT_EQ(b.AddEnum("e", table, 2), io::kReadBadValue);
  EXPECT_EQ(b.AddEnum("e", table, -1), io::kReadBadValue);
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(b.AddEnum("e", table, 1), io::kReadOk);
  int v = 0;
  EXPECT_EQ(b.GetEnum("e", table, v), io::kReadOk);
  EXPECT_EQ(v, 1);
}

}  // namespace
