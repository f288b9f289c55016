// The assertion service: programming errors (index out of range, size
// mismatch, missing object) are reported with the condition text, source file
// and line through a replaceable handler, and execution then continues.
// Nothing throws and nothing aborts, so release builds go on as designed.
#pragma once

namespace core {

using AssertHandler = void (*)(const char* condition, const char* file, int line);

// Reports a failed condition through the current handler.
void ReportAssertion(const char* condition, const char* file, int line);

// Installs a handler and returns the previous one. A null handler restores the
// default, which prints to stderr in debug builds and is silent in release.
AssertHandler SetAssertHandler(AssertHandler handler);

}  // namespace core

// The condition is always evaluated (it is cheap wherever it is used); only
// the default handler's printing depends on the build type.
#define ASSERT(cond) ((cond) ? static_cast<void>(0) : ::core::ReportAssertion(#cond, __FILE__, __LINE__))
