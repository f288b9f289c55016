// libFuzzer target for the Touchstone reader: any input must read into a
// sound solution or fail cleanly with one message that names the file (see
// FuzzChecks.h). The first byte picks the file name, so that the port count
// named by the extension and the version 2 path without one are reached.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FuzzChecks.h"
#include "sparamlib/formats/TouchstoneReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const char* const kNames[] = {"fuzz.s1p", "fuzz.s2p", "fuzz.s3p", "fuzz.s5p", "fuzz.ts"};
  const std::string name = kNames[data[0] % 5];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  std::string error;
  fuzz::CheckRead(nd::ReadTouchstoneText(text, name, &error), error, name);
  return 0;
}
