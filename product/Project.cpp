// Saving and loading whole projects.
#include "product/Project.h"

#include <cctype>

#include "core/BlockText.h"

bool IsProjectFile(const std::filesystem::path& path) {
  std::string e = path.extension().string();
  for (char& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return e == ".ndp";
}

FxSolutionVariation& CProject::AddVariation() {
  return *m_Variations.emplace_back(std::make_unique<FxSolutionVariation>());
}

FxSolutionVariation* CProject::GetVariation(size_t index) {
  return index < m_Variations.size() ? m_Variations[index].get() : nullptr;
}

bool CProject::WriteToBlock(io::CBlock& root) const {
  io::CBlock& project = root.AddBlock("Project");
  project.AddInteger("FormatVersion", kFormatVersion);
  project.AddString("Design", m_DesignName);
  for (const auto& v : m_Variations)
    if (!v->Write(project.AddBlock("Variation"))) return false;
  return true;
}

bool CProject::Save(const std::filesystem::path& path, AString* error) const {
  io::CBlock root;
  if (!WriteToBlock(root)) {
    if (error) *error = path.string() + ": the project could not be stored";
    return false;
  }
  return io::WriteBlockFile(path, root, error);
}

std::unique_ptr<CProject> CProject::FromBlock(const io::CBlock& root, AString* error) {
  auto fail = [&](io::ReadError code, const io::CBlock& at, std::string_view what) {
    at.ReportReadError(code, -1, what);
    if (error) *error = root.GetReadError();
    return nullptr;
  };
  const io::CBlock* block = root.FindBlock("Project");
  if (!block) return fail(io::kReadWrongType, root, "expected a sparamlib project (a block \"Project\")");
  int version = 0;
  if (block->GetInteger("FormatVersion", version) != io::kReadOk || version < 1 ||
      version > kFormatVersion) {
    return fail(io::kReadBadValue, *block,
                AString::Format("expected \"FormatVersion\" = 1 to %d", kFormatVersion));
  }
  auto project = std::make_unique<CProject>();
  block->GetString("Design", project->m_DesignName);
  for (const io::CBlock* v : block->FindBlocks("Variation")) {
    const int result = project->AddVariation().Read(*v);
    // Anything the readers noticed, tolerated or not, means the file is
    // damaged: none of it is used.
    if (!io::IsReadOk(result) || root.HasReadError()) {
      if (!root.HasReadError()) v->ReportReadError(static_cast<io::ReadError>(result), -1, "unreadable variation");
      if (error) *error = root.GetReadError();
      return nullptr;
    }
  }
  return project;
}

std::unique_ptr<CProject> CProject::Load(const std::filesystem::path& path, AString* error) {
  io::CBlock root;
  if (io::ReadBlockFile(path, root) != io::kReadOk) {
    if (error) *error = root.GetReadError();
    return nullptr;
  }
  return FromBlock(root, error);
}
