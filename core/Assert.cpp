// Default and replaceable assertion handler.
#include "core/Assert.h"

#include <atomic>
#include <cstdio>

namespace core {
namespace {

void DefaultHandler(const char* condition, const char* file, int line) {
#ifndef NDEBUG
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, condition);
#else
  (void)condition;
  (void)file;
  (void)line;
#endif
}

std::atomic<AssertHandler> g_handler{&DefaultHandler};

}  // namespace

void ReportAssertion(const char* condition, const char* file, int line) {
  g_handler.load()(condition, file, line);
}

AssertHandler SetAssertHandler(AssertHandler handler) {
  return g_handler.exchange(handler ? handler : &DefaultHandler);
}

}  // namespace core
