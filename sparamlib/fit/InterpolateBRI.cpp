// Copying, layout and stored form of a barycentric weight set.
#include "sparamlib/fit/InterpolateBRI.h"

#include <utility>

#include "core/Assert.h"
#include "sparamlib/data/BlockMatrixIO.h"

InterpolateBRI::InterpolateBRI(int n, int length) : m_N(n) {
  m_Weights.resize(static_cast<size_t>(n) * static_cast<size_t>(n));
  for (auto& w : m_Weights) w = std::make_unique<TNT::CVector>(length);
}

InterpolateBRI::InterpolateBRI(const InterpolateBRI& other) { *this = other; }

InterpolateBRI& InterpolateBRI::operator=(const InterpolateBRI& other) {
  if (this == &other) return *this;
  m_Frequencies = other.m_Frequencies;
  m_SupportFrequencies = other.m_SupportFrequencies;
  m_FitErrors = other.m_FitErrors;
  m_N = other.m_N;
  m_Weights.resize(other.m_Weights.size());
  for (size_t k = 0; k < other.m_Weights.size(); ++k) {
    const TNT::CVector* oldWeight = other.m_Weights[k].get();
    // Every entry of a weight set has its weights; an empty one means the
    // set was built wrongly.
    ASSERT(oldWeight != nullptr);
    if (!oldWeight) {
      m_Weights[k].reset();
      continue;
    }
    ASSERT(oldWeight->size() != 0);
    if (m_Weights[k]) {
      *m_Weights[k] = *oldWeight;
    } else {
      m_Weights[k] = std::make_unique<TNT::CVector>(*oldWeight);
    }
  }
  m_Layout.reset();
  return *this;
}

InterpolateBRI::~InterpolateBRI() = default;

const TNT::CVector* InterpolateBRI::GetWeights(int i, int j) const {
  if (i < 0 || j < 0 || i >= m_N || j >= m_N || Slot(i, j) >= m_Weights.size()) return nullptr;
  return m_Weights[Slot(i, j)].get();
}

TNT::CVector* InterpolateBRI::GetWeights(int i, int j) {
  m_Layout.reset();
  return const_cast<TNT::CVector*>(std::as_const(*this).GetWeights(i, j));
}

void InterpolateBRI::SetWeights(int i, int j, std::unique_ptr<TNT::CVector> weights) {
  ASSERT(i >= 0 && j >= 0 && i < m_N && j < m_N);
  if (i < 0 || j < 0 || i >= m_N || j >= m_N) return;
  m_Weights.resize(static_cast<size_t>(m_N) * static_cast<size_t>(m_N));
  m_Weights[Slot(i, j)] = std::move(weights);
  m_Layout.reset();
}

const InterpolateBRI::Layout* InterpolateBRI::GetLayout() const {
  if (m_Layout) return m_Layout.get();
  const TNT::CVector* first = GetWeights(0, 0);
  if (!first) return nullptr;
  const int length = first->size();
  auto layout = std::make_unique<Layout>();
  layout->byFrequency = TNT::CMatrix(length, m_N * m_N);
  layout->active.assign(static_cast<size_t>(length), false);
  for (int i = 0; i < m_N; ++i) {
    for (int j = 0; j < m_N; ++j) {
      const TNT::CVector* w = GetWeights(i, j);
      if (!w || w->size() != length) return nullptr;
      for (int k = 0; k < length; ++k) {
        const AComplex<double> v = (*w)[k];
        layout->byFrequency[k][i * m_N + j] = v;
        if (v.re != 0.0 || v.im != 0.0) layout->active[static_cast<size_t>(k)] = true;
        if (v.re != (*first)[k].re || v.im != (*first)[k].im) layout->shared = false;
      }
    }
  }
  m_Layout = std::move(layout);
  return m_Layout.get();
}

// ---- Persistence ----------------------------------------------------------

bool InterpolateBRI::WriteToBlock(io::CBlock& block) const {
  block.AddInteger("n", m_N);
  block.AddRealFunction("Frequencies", m_Frequencies);
  block.AddRealFunction("SupportFrequencies", m_SupportFrequencies);
  block.AddRealFunction("FitErrors", m_FitErrors);
  io::CBlock& weights = block.AddBlock("Weights");
  for (const auto& w : m_Weights) {
    if (!w) return false;
    nd::WriteVector(weights, "Weight", *w);
  }
  return true;
}

int InterpolateBRI::ReadFromBlock(const io::CBlock& block) {
  InterpolateBRI read;
  int result = block.GetInteger("n", read.m_N);
  if (result != io::kReadOk) {
    return block.ReportReadError(io::kReadBadValue, block.FindItem("n"),
                                 "expected the port count \"n\" of the weights");
  }
  for (const auto& [key, list] :
       {std::pair{"Frequencies", &read.m_Frequencies},
        std::pair{"SupportFrequencies", &read.m_SupportFrequencies},
        std::pair{"FitErrors", &read.m_FitErrors}}) {
    result = block.GetRealFunction(key, *list);
    if (!io::IsReadOk(result)) return result;
  }
  const io::CBlock* weights = block.FindBlock("Weights");
  const size_t count = static_cast<size_t>(read.m_N) * static_cast<size_t>(read.m_N);
  const std::vector<const io::CBlock*> items =
      weights ? weights->FindBlocks("Weight") : std::vector<const io::CBlock*>();
  if (read.m_N < 1 || items.size() != count) {
    return block.ReportReadError(
        io::kReadBadValue, block.FindItem("Weights"),
        AString::Format("expected %zu weight vectors for %d ports, found %zu", count, read.m_N,
                        items.size()));
  }
  for (const io::CBlock* item : items) {
    int length = 0;
    if (item->GetInteger("n", length) != io::kReadOk || length < 1) {
      return item->ReportReadError(io::kReadBadValue, item->FindItem("n"),
                                   "expected a weight vector length \"n\" of at least 1");
    }
    std::unique_ptr<TNT::CVector> w;  // allocated once its items are seen
    result = nd::ReadVector(*item, length, w);
    if (result != io::kReadOk) return result;
    read.m_Weights.push_back(std::move(w));
  }
  *this = read;
  return io::kReadOk;
}
