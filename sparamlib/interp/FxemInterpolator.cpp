// Samples of solver points and their interpolation.
#include "sparamlib/interp/FxemInterpolator.h"

#include <algorithm>
#include <cmath>

#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/interp/FxemModalSolution.h"

CFxemInterpolator::CFxemInterpolator(int ports, int maxSubRangeBasisSize, int minNumSubRanges)
    : CPartitionedRangeInterpolator(ports, maxSubRangeBasisSize, minNumSubRanges) {}

CFxemInterpolator::~CFxemInterpolator() = default;

void CFxemInterpolator::AddPoint(CNetworkData& point) {
  const int n = GetMatrixSize();
  const TNT::CMatrix* s = point.GetSMatrix(false);
  if (!s || s->num_rows() != n || s->num_cols() != n) return;
  const TNT::CVector* z = point.GetPortVector(nd::kPortImpedances);
  const TNT::CVector* g = point.GetPortVector(nd::kPropagationConstants);
  if (GetBasisSize() == 0) {
    // Port vectors are judged relative to their size at the first point, S
    // as it is (its entries are at most about 1).
    m_HasImpedances = z && z->size() == n;
    m_HasGamma = g && g->size() == n;
    std::vector<double> scales(static_cast<size_t>(n) * static_cast<size_t>(n), 1.0);
    for (const auto& [has, vector] : {std::pair{m_HasImpedances, z}, std::pair{m_HasGamma, g}}) {
      if (!has) continue;
      double largest = 0.0;
      for (int k = 0; k < n; ++k) largest = std::max(largest, abs((*vector)[k]));
      scales.insert(scales.end(), static_cast<size_t>(n), largest > 0.0 ? 1.0 / largest : 1.0);
    }
    SetValueScales(std::move(scales), n * n);
  }
  if ((m_HasImpedances && (!z || z->size() != n)) || (m_HasGamma && (!g || g->size() != n))) return;
  std::vector<Complex> values(s->data(), s->data() + s->size());
  if (m_HasImpedances) values.insert(values.end(), z->data(), z->data() + n);
  if (m_HasGamma) values.insert(values.end(), g->data(), g->data() + n);
  AddBasisFrequency(point.GetFrequency(), values);
}

void CFxemInterpolator::Rebuild(const CFxemModalSolution& solution) {
  const std::vector<double> sequence = GetFreqSequence();
  ClearSamples();
  const auto& map = solution.GetFrequencyMap();
  std::vector<double> order;
  for (double f : sequence)
    if (map.count(f) && std::find(order.begin(), order.end(), f) == order.end()) order.push_back(f);
  for (const auto& [f, point] : map)
    if (std::find(order.begin(), order.end(), f) == order.end()) order.push_back(f);
  for (double f : order) AddPoint(*map.at(f));
}

bool CFxemInterpolator::Interpolate(const CFxemModalSolution&, CFxemModalData& target) const {
  const int n = GetMatrixSize();
  std::vector<Complex> values;
  if (!CPartitionedRangeInterpolator::Interpolate(target.GetFrequency(), values)) return false;
  const size_t nn = static_cast<size_t>(n) * static_cast<size_t>(n);
  auto vector = [&](size_t from) {
    auto v = std::make_unique<TNT::CVector>(n);
    std::copy_n(values.data() + from, n, v->data());
    return v;
  };
  if (m_HasImpedances) target.SetPortImpedance(vector(nn));
  if (m_HasGamma) target.SetGamma(vector(nn + (m_HasImpedances ? static_cast<size_t>(n) : 0)));
  target.SetSMatrix(std::make_unique<TNT::CMatrix>(n, n, std::span<const Complex>(values.data(), nn)));
  return true;
}
