// The assertion service: exact condition text, file and line reach the
// installed handler, and execution carries on.
#include "core/Assert.h"

#include <gtest/gtest.h>

#include "support/AssertCapture.h"

namespace {

TEST(Assert, CapturedFailureHasConditionFileAndLine) {
  testing_support::AssertCapture capture;
  int after = 0;
  const int size = 3;
  const int line = __LINE__ + 1;
  ASSERT(size == 4 && "size mismatch");
  after = 1;  // execution continues past a failed assertion
  EXPECT_EQ(after, 1);
  ASSERT_EQ(capture.all().size(), 1u);
  EXPECT_EQ(capture.all()[0].condition, "size == 4 && \"size mismatch\"");
  EXPECT_EQ(capture.all()[0].file, __FILE__);
  EXPECT_EQ(capture.all()[0].line, line);
}

TEST(Assert, ConditionIsEvaluatedOnceAndPassingOnesAreSilent) {
  testing_support::AssertCapture capture;
  int calls = 0;
  ASSERT(++calls == 1);
  EXPECT_EQ(calls, 1);
  ASSERT(++calls == 1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(capture.conditions(), std::vector<std::string>{"++calls == 1"});
}

TEST(Assert, HandlersNestAndRestore) {
  testing_support::AssertCapture outer;
  {
    testing_support::AssertCapture inner;
    ASSERT(false);
    EXPECT_EQ(inner.all().size(), 1u);
  }
  // The inner capture restored the outer handler; both share one record.
  ASSERT(1 == 2);
  EXPECT_EQ(outer.conditions().back(), "1 == 2");
  // A null handler restores the default one and returns the previous.
  const core::AssertHandler mine = core::SetAssertHandler(nullptr);
  EXPECT_NE(mine, nullptr);
  const core::AssertHandler def = core::SetAssertHandler(mine);
  EXPECT_NE(def, nullptr);
  EXPECT_NE(def, mine);
}

}  // namespace
