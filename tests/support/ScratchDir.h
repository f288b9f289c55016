// A fresh directory for one test: the prefix, the process id and the test's
// name, so that tests running side by side never share one.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace testing_support {

inline std::filesystem::path ScratchDirectory(const std::string& prefix) {
  const auto dir = std::filesystem::temp_directory_path() /
                   (prefix + "." + std::to_string(::getpid()) + "." +
                    ::testing::UnitTest::GetInstance()->current_test_info()->name());
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

}  // namespace testing_support
