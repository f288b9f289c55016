// libFuzzer target for the block text reader: any input must parse or fail
// cleanly, and whatever parses must survive a write/read round trip.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/BlockText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  io::CBlock root;
  const io::ReadError r = io::ParseBlockText(text, "fuzz", root);
  if (r != io::kReadOk) {
    // A failed read leaves nothing behind and always says where and why.
    if (r != io::kReadSyntax || !root.IsEmpty() || root.GetReadError().rfind("fuzz:", 0) != 0)
      std::abort();
    return 0;
  }
  std::string written;
  io::WriteBlockText(root, written);
  io::CBlock again;
  if (io::ParseBlockText(written, "again", again) != io::kReadOk || !(again == root)) std::abort();
  std::string rewritten;
  io::WriteBlockText(again, rewritten);
  if (rewritten != written) std::abort();
  return 0;
}
