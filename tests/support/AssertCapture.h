// Test helper: captures reported assertions (condition text, file, line)
// while in scope, so tests can check the exact texts.
#pragma once

#include <string>
#include <vector>

#include "core/Assert.h"

namespace testing_support {

struct CapturedAssertion {
  std::string condition;
  std::string file;
  int line;
};

class AssertCapture {
 public:
  AssertCapture() : previous_(core::SetAssertHandler(&Record)) { Captured().clear(); }
  ~AssertCapture() { core::SetAssertHandler(previous_); }
  AssertCapture(const AssertCapture&) = delete;
  AssertCapture& operator=(const AssertCapture&) = delete;

  const std::vector<CapturedAssertion>& all() const { return Captured(); }
  std::vector<std::string> conditions() const {
    std::vector<std::string> out;
    for (const auto& a : Captured()) out.push_back(a.condition);
    return out;
  }
  bool empty() const { return Captured().empty(); }

 private:
  static std::vector<CapturedAssertion>& Captured() {
    static std::vector<CapturedAssertion> captured;
    return captured;
  }
  static void Record(const char* condition, const char* file, int line) {
    Captured().push_back({condition, file, line});
  }
  core::AssertHandler previous_;
};

}  // namespace testing_support
