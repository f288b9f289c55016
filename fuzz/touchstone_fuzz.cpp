// libFuzzer target for the Touchstone and Citifile readers: any input must
// read or fail cleanly with one message that names the file, and nothing of
// a failed read may be left behind. The first byte picks the file name, so
// the port count named by the extension and the Citifile reader are both
// reached.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sparamlib/formats/Citifile.h"
#include "sparamlib/formats/TouchstoneReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const char* const kNames[] = {"fuzz.s1p", "fuzz.s2p", "fuzz.s3p", "fuzz.s5p", "fuzz.ts", "fuzz.cit"};
  const std::string name = kNames[data[0] % 6];
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  std::string error;
  const bool citifile = name == "fuzz.cit";
  const bool ok = citifile ? nd::ReadCitifileText(text, name, &error) != nullptr
                           : nd::ReadTouchstoneText(text, name, &error) != nullptr;
  if (ok != error.empty() || (!ok && error.rfind(name + ":", 0) != 0)) std::abort();
  return 0;
}
