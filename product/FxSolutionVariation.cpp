// A design variation and its stored form.
#include "product/FxSolutionVariation.h"

FxSolutionVariation::FxSolutionVariation() = default;
FxSolutionVariation::~FxSolutionVariation() = default;

void FxSolutionVariation::SetProduct(const AString& name, const AString& version) {
  m_ProductName = name;
  m_ProductVersion = version;
}

void FxSolutionVariation::AddDesignVariable(const AString& name, const AString& value) {
  m_Variables.emplace_back(name, value);
}

FxSolution& FxSolutionVariation::AddSolution(std::unique_ptr<CNetworkDataSolution> solution) {
  FxSolution& added = *m_Solutions.emplace_back(std::make_unique<FxSolution>(std::move(solution)));
  ShareSetup(added);
  return added;
}

FxSolution* FxSolutionVariation::FindSolution(const AString& name) {
  for (auto& s : m_Solutions) {
    const CNetworkDataSolution* solution = s->GetNetworkDataSolution();
    if (solution && (name.empty() || solution->GetName() == name)) return s.get();
  }
  return nullptr;
}

CNetworkDataSolution* FxSolutionVariation::GetWritableSolution(const AString& name) {
  FxSolution* s = FindSolution(name);
  return s ? s->GetWritableSolution() : nullptr;
}

const CNetworkDataSolution* FxSolutionVariation::GetNetworkDataSolution(const AString& name) const {
  return const_cast<FxSolutionVariation*>(this)->GetWritableSolution(name);
}

void FxSolutionVariation::SetPostprocSetup(std::unique_ptr<CNetworkPostprocSetup> setup) {
  m_PostprocSetup = std::move(setup);
  for (auto& s : m_Solutions) ShareSetup(*s);
}

// Every solution applies its own copy of the variation's setup.
void FxSolutionVariation::ShareSetup(FxSolution& solution) const {
  if (CNetworkDataSolution* s = solution.GetWritableSolution()) {
    s->SetPostprocSetup(m_PostprocSetup ? std::make_unique<CNetworkPostprocSetup>(*m_PostprocSetup)
                                        : nullptr);
  }
}

bool FxSolutionVariation::Write(io::CBlock& block) const {
  block.AddString("Product", m_ProductName);
  block.AddString("ProductVersion", m_ProductVersion);
  for (const auto& [name, value] : m_Variables) {
    io::CBlock& v = block.AddBlock("Variable");
    v.AddString("Name", name);
    v.AddString("Value", value);
  }
  if (m_PostprocSetup && !m_PostprocSetup->Write(block.AddBlock("PostprocSetup"))) return false;
  for (const auto& s : m_Solutions)
    if (!s->Write(block)) return false;
  return true;
}

int FxSolutionVariation::Read(const io::CBlock& block) {
  int result = io::kReadOk;
  io::KeepFirstError(result, block.GetString("Product", m_ProductName));
  io::KeepFirstError(result, block.GetString("ProductVersion", m_ProductVersion));
  for (const io::CBlock* v : block.FindBlocks("Variable")) {
    Variable variable;
    io::KeepFirstError(result, v->GetString("Name", variable.first));
    io::KeepFirstError(result, v->GetString("Value", variable.second));
    m_Variables.push_back(std::move(variable));
  }
  if (!io::IsReadOk(result)) return result;
  if (const io::CBlock* setup = block.FindBlock("PostprocSetup")) {
    auto read = std::make_unique<CNetworkPostprocSetup>();
    const int r = read->Read(*setup);
    if (!io::IsReadOk(r)) return r;
    m_PostprocSetup = std::move(read);
  }
  for (const io::CBlock* data : block.FindBlocks("SolutionData")) {
    auto solution = std::make_unique<FxSolution>();
    const int r = solution->Read(*data);
    if (!io::IsReadOk(r)) return r;
    ShareSetup(*solution);
    m_Solutions.push_back(std::move(solution));
  }
  return io::kReadOk;
}
