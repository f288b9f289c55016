// libFuzzer target for the Citifile reader: any input must read into a sound
// solution or fail cleanly with one message that names the file (see
// FuzzChecks.h).
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FuzzChecks.h"
#include "sparamlib/formats/Citifile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string name = "fuzz.cit";
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string error;
  fuzz::CheckRead(nd::ReadCitifileText(text, name, &error), error, name);
  return 0;
}
