// The assertion service: exact condition text, file and line reach the
// installed handler, and execution carries on.
#include "core/Assert.h"

#include <gtest/gtest.h>

#include "support/AssertCapture.h"

namespace {

TEST(Assert, CapturedFailureHasConditionFileAndLineAndExecutionContinues) {
  testing_support::AssertCapture capture;
  int calls = 0;
  const int size = 3;
  const int line = __LINE__ + 1;
  ASSERT(size == 4 && "size mismatch");
  ASSERT(++calls == 1);  // passes silently; evaluated once
  ASSERT(++calls == 1);
  EXPECT_EQ(calls, 2);
  ASSERT_EQ(capture.all().size(), 2u);
  EXPECT_EQ(capture.all()[0].condition, "size == 4 && \"size mismatch\"");
  EXPECT_EQ(capture.all()[0].file, __FILE__);
  EXPECT_EQ(capture.all()[0].line, line);
  EXPECT_EQ(capture.all()[1].condition, "++calls == 1");
}

TEST(Assert, NullHandlerRestoresTheDefaultAndReturnsThePrevious) {
  testing_support::AssertCapture capture;
  const core::AssertHandler mine = core::SetAssertHandler(nullptr);
  const core::AssertHandler def = core::SetAssertHandler(mine);
  EXPECT_NE(def, nullptr);
  EXPECT_NE(def, mine);
  ASSERT(1 == 2);  // the reinstalled handler gets the report
  EXPECT_EQ(capture.conditions(), std::vector<std::string>{"1 == 2"});
}

}  // namespace
