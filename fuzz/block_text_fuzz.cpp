// libFuzzer target for project files, through the whole load path: the
// block text must parse or fail cleanly, whatever parses must survive a
// write/read round trip, and the tree is then loaded as a project
// (variations, solutions, points, matrices, stored weights and sweep
// state). A project that loads must save and load again; one that does not
// must say why in one line naming the source.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/BlockText.h"
#include "product/Project.h"

namespace {

std::unique_ptr<CProject> Load(const io::CBlock& root) {
  AString error;
  std::unique_ptr<CProject> project = CProject::FromBlock(root, &error);
  if (!project && (error.empty() || error.rfind(root.GetSourceName(), 0) != 0 || error.find('\n') != std::string::npos))
    std::abort();
  return project;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  io::CBlock root;
  const io::ReadError r = io::ParseBlockText(text, "fuzz", root);
  if (r != io::kReadOk) {
    // A failed read leaves nothing behind and always says where and why.
    if (r != io::kReadSyntax || !root.IsEmpty() || root.GetReadError().rfind("fuzz:", 0) != 0) std::abort();
    return 0;
  }
  std::string written;
  io::WriteBlockText(root, written);
  io::CBlock again;
  if (io::ParseBlockText(written, "again", again) != io::kReadOk || !(again == root)) std::abort();
  std::string rewritten;
  io::WriteBlockText(again, rewritten);
  if (rewritten != written) std::abort();

  const std::unique_ptr<CProject> project = Load(root);
  if (!project) return 0;
  io::CBlock saved;
  if (!project->WriteToBlock(saved)) return 0;  // a project may hold what cannot be stored
  std::string savedText;
  io::WriteBlockText(saved, savedText);
  io::CBlock reread;
  if (io::ParseBlockText(savedText, "saved", reread) != io::kReadOk || !Load(reread)) std::abort();
  return 0;
}
