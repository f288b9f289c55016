// Range bookkeeping, the next-frequency choice and the stored form of an
// interpolating sweep.
#include "sparamlib/interp/PartitionedRangeInterpolator.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cerrno>
#include <cstdlib>

#include "core/Assert.h"

namespace {

constexpr double kRelative = 1e-12;
// Frequency tolerances handed to the solver never exceed this (Hz).
constexpr double kToleranceCap = 5e8;

bool Differs(double a, double b) { return std::fabs(a - b) > std::fabs(b) * kRelative; }

// Range basis limits below this cut a range again as soon as its halves
// have refilled: the sweep then cuts ranges until it fails.
constexpr int kSmallestBasisLimit = 8;
constexpr int kLargestBasisLimit = 10000;

}  // namespace

int SubrangeBasisSizeFromEnvironment(int fallback, std::string* warning) {
  const char* text = std::getenv("INTERP_SUBRANGE_BASIS_SIZE");
  if (!text) return fallback;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (end != text && *end == '\0' && errno == 0 && value >= kSmallestBasisLimit && value <= kLargestBasisLimit)
    return static_cast<int>(value);
  if (warning) {
    *warning = AString::Format("INTERP_SUBRANGE_BASIS_SIZE=\"%s\" is not a whole number from %d to %d; using %d",
                               text, kSmallestBasisLimit, kLargestBasisLimit, fallback);
  }
  return fallback;
}

CPartitionedRangeInterpolator::CPartitionedRangeInterpolator(int matSize, int maxSubRangeBasisSize,
                                                             int minNumSubRanges)
    : m_MatSize(matSize),
      m_MaxSubRangeBasisSize(maxSubRangeBasisSize),
      m_MinNumSubRanges(minNumSubRanges) {
  ASSERT(matSize > 0);
  // Lets a user bound the size of every range's fit without rebuilding; a
  // value that cannot work leaves the constructor's (the sweep command says
  // so once).
  m_MaxSubRangeBasisSize = SubrangeBasisSizeFromEnvironment(m_MaxSubRangeBasisSize, nullptr);
  LayOutRanges();
}

CPartitionedRangeInterpolator::CPartitionedRangeInterpolator(const CPartitionedRangeInterpolator& other)
    : m_MatSize(other.m_MatSize),
      m_MaxSubRangeBasisSize(other.m_MaxSubRangeBasisSize),
      m_MinNumSubRanges(other.m_MinNumSubRanges) {
  *this = other;
}

CPartitionedRangeInterpolator::~CPartitionedRangeInterpolator() = default;

CPartitionedRangeInterpolator& CPartitionedRangeInterpolator::operator=(
    const CPartitionedRangeInterpolator& other) {
  if (this == &other) return *this;
  m_MatSize = other.m_MatSize;
  m_ErrorTolerance = other.m_ErrorTolerance;
  m_MaxBasisSize = other.m_MaxBasisSize;
  m_BasisSize = other.m_BasisSize;
  m_LowSampleFreq = other.m_LowSampleFreq;
  m_HighSampleFreq = other.m_HighSampleFreq;
  m_NumSamples = other.m_NumSamples;
  m_MaxSubRangeBasisSize = other.m_MaxSubRangeBasisSize;
  m_MinNumSubRanges = other.m_MinNumSubRanges;
  m_NumRanges = other.m_NumRanges;
  m_Ranges = other.m_Ranges;
  m_FreqSequence = other.m_FreqSequence;
  m_ValueScales = other.m_ValueScales;
  m_SEntries = other.m_SEntries;
  m_MinSolves = other.m_MinSolves;
  m_MaxStep = other.m_MaxStep;
  m_RangeInterpolators.clear();
  m_RangeInterpolators.resize(m_Ranges.size());
  return *this;
}

// ---- Settings and ranges -------------------------------------------------

void CPartitionedRangeInterpolator::SetErrorTolerance(double tolerance) {
  m_ErrorTolerance = tolerance;
  for (Range& r : m_Ranges) r.tolerance = tolerance;
}

void CPartitionedRangeInterpolator::SetBand(double low, double high) {
  m_LowSampleFreq = low;
  m_HighSampleFreq = high;
  LayOutRanges();
}

void CPartitionedRangeInterpolator::SetGuards(int minSolves, double maxStep) {
  m_MinSolves = std::max(0, minSolves);
  m_MaxStep = std::max(0.0, maxStep);
  for (int i = 0; i < m_NumRanges; ++i)
    if (m_RangeInterpolators[static_cast<size_t>(i)]) Configure(i);
}

void CPartitionedRangeInterpolator::Configure(int range) {
  // A range's goal is in S units; its sampler judges errors relative to the
  // range's largest |S_ij|.
  CAdaptiveInterp& sampler = *m_RangeInterpolators[static_cast<size_t>(range)];
  const Range& r = m_Ranges[static_cast<size_t>(range)];
  const double magnitude = sampler.GetNormalizingMagnitude();
  sampler.SetTolerance(std::fabs(magnitude) > 1e-30 ? r.tolerance / magnitude : r.tolerance);
  // The band's minimum of solves, shared by width; a range after the first
  // shares its low end with the one before.
  const double band = m_HighSampleFreq - m_LowSampleFreq;
  int minSamples = 0;
  if (m_MinSolves > 0 && band > 0.0)
    minSamples = static_cast<int>(std::ceil(m_MinSolves * (r.high - r.low) / band - 1e-9)) + (range > 0 ? 1 : 0);
  sampler.SetGuards(minSamples, m_MaxStep);
}

bool CPartitionedRangeInterpolator::AtNoiseFloor() const {
  bool any = false;
  for (int i = 0; i < m_NumRanges; ++i) {
    const CAdaptiveInterp* r = GetRangeInterpolator(i);
    if (r && r->AtNoiseFloor()) {
      any = true;
    } else if (!r || !r->Check()) {
      return false;
    }
  }
  return any;
}

double CPartitionedRangeInterpolator::GetNoiseEstimate() const {
  double largest = 0.0;
  for (int i = 0; i < m_NumRanges; ++i)
    if (const CAdaptiveInterp* r = GetRangeInterpolator(i))
      largest = std::max(largest, r->GetNoiseEstimate() * r->GetNormalizingMagnitude());
  return largest;
}

void CPartitionedRangeInterpolator::SetValueScales(std::vector<double> scales, int sEntries) {
  m_ValueScales = std::move(scales);
  m_SEntries = sEntries;
}

void CPartitionedRangeInterpolator::LayOutRanges() {
  m_Ranges = {Range{m_LowSampleFreq, m_HighSampleFreq, m_ErrorTolerance}};
  m_NumRanges = 1;
  m_RangeInterpolators.clear();
  m_RangeInterpolators.resize(1);
}

void CPartitionedRangeInterpolator::ClearSamples() {
  LayOutRanges();
  m_FreqSequence.clear();
  m_BasisSize = 0;
}

bool CPartitionedRangeInterpolator::CheckRangeIndex(int rangeIndex) const {
  ASSERT((rangeIndex >= 0) && (rangeIndex < m_NumRanges));
  return rangeIndex >= 0 && rangeIndex < m_NumRanges;
}

double CPartitionedRangeInterpolator::GetRangeLow(int range) const {
  ASSERT(CheckRangeIndex(range));
  return CheckRangeIndex(range) ? m_Ranges[static_cast<size_t>(range)].low : 0.0;
}

double CPartitionedRangeInterpolator::GetRangeHigh(int range) const {
  ASSERT(CheckRangeIndex(range));
  return CheckRangeIndex(range) ? m_Ranges[static_cast<size_t>(range)].high : 0.0;
}

double CPartitionedRangeInterpolator::GetRangeTolerance(int range) const {
  ASSERT(CheckRangeIndex(range));
  return CheckRangeIndex(range) ? m_Ranges[static_cast<size_t>(range)].tolerance : 0.0;
}

const CAdaptiveInterp* CPartitionedRangeInterpolator::GetRangeInterpolator(int range) const {
  if (range < 0 || static_cast<size_t>(range) >= m_RangeInterpolators.size()) return nullptr;
  return m_RangeInterpolators[static_cast<size_t>(range)].get();
}

int CPartitionedRangeInterpolator::GetRangeIndex(double frequency) const {
  ASSERT(m_NumRanges > 0);
  for (int i = 0; i < m_NumRanges; ++i) {
    const double h = m_Ranges[static_cast<size_t>(i)].high;
    if (h > frequency || std::fabs(frequency - h) < h * kRelative) return i;
  }
  return m_NumRanges - 1;
}

int CPartitionedRangeInterpolator::BasisOf(int range) const {
  const CAdaptiveInterp* r = GetRangeInterpolator(range);
  return r ? r->GetBasisSize() : 0;
}

// ---- Samples ---------------------------------------------------------------

void CPartitionedRangeInterpolator::AddToRange(int range, double frequency,
                                               const std::vector<Complex>& values) {
  Sampler(range).AddSample(frequency, values);
  Configure(range);
}

CAdaptiveInterp& CPartitionedRangeInterpolator::Sampler(int range) {
  auto& interp = m_RangeInterpolators[static_cast<size_t>(range)];
  const Range& r = m_Ranges[static_cast<size_t>(range)];
  if (!interp) interp = std::make_unique<CAdaptiveInterp>(r.low, r.high, m_ValueScales, m_SEntries);
  return *interp;
}

void CPartitionedRangeInterpolator::AddBasisFrequency(double frequency, const std::vector<Complex>& values) {
  m_FreqSequence.push_back(frequency);
  m_BasisSize = static_cast<int>(m_FreqSequence.size());
  ASSERT(m_BasisSize == static_cast<int>(m_FreqSequence.size()));
  // A frequency on a cut belongs to both ranges around it.
  const int range = GetRangeIndex(frequency);
  AddToRange(range, frequency, values);
  if (range + 1 < m_NumRanges && !Differs(frequency, m_Ranges[static_cast<size_t>(range)].high))
    AddToRange(range + 1, frequency, values);

  // Seeds cut the band until it has its minimum number of ranges.
  if (m_NumRanges < m_MinNumSubRanges) {
    const double step = (m_HighSampleFreq - m_LowSampleFreq) / m_MinNumSubRanges;
    for (int i = 1; i < m_MinNumSubRanges; ++i) {
      const double seed = m_LowSampleFreq + i * step;
      if (!Differs(frequency, seed)) {
        const int at = GetRangeIndex(seed);
        if (Differs(seed, m_Ranges[static_cast<size_t>(at)].high)) Split(at, seed);
      }
    }
  }
  // A full range is cut at its middle sample.
  const int full = GetRangeIndex(frequency);
  const CAdaptiveInterp* interp = GetRangeInterpolator(full);
  if (interp && interp->GetBasisSize() >= m_MaxSubRangeBasisSize && interp->GetBasisSize() >= 3)
    Split(full, interp->GetFrequencies()[interp->GetFrequencies().size() / 2]);
}

void CPartitionedRangeInterpolator::Split(int range, double at) {
  const Range old = m_Ranges[static_cast<size_t>(range)];
  std::unique_ptr<CAdaptiveInterp> parent = std::move(m_RangeInterpolators[static_cast<size_t>(range)]);
  m_Ranges[static_cast<size_t>(range)] = Range{old.low, at, old.tolerance};
  m_Ranges.insert(m_Ranges.begin() + range + 1, Range{at, old.high, old.tolerance});
  m_RangeInterpolators.insert(m_RangeInterpolators.begin() + range + 1, nullptr);
  m_NumRanges = static_cast<int>(m_Ranges.size());
  if (!parent) return;
  // Each half is fitted again from the parent's samples.
  for (int half : {range, range + 1}) {
    const Range& r = m_Ranges[static_cast<size_t>(half)];
    std::vector<std::pair<double, std::vector<Complex>>> samples;
    for (int k = 0; k < parent->GetBasisSize(); ++k) {
      const double f = parent->GetFrequencies()[static_cast<size_t>(k)];
      if ((f >= r.low || !Differs(f, r.low)) && (f <= r.high || !Differs(f, r.high)))
        samples.emplace_back(f, parent->GetSampleValues(k));
    }
    Sampler(half).AddSamples(std::move(samples));
    Configure(half);
  }
}

// ---- The next frequency ------------------------------------------------------

double CPartitionedRangeInterpolator::GetNextFrequency(int& status, double& tolerance) {
  status = kNothingToAdd;
  tolerance = 0.0;
  auto pick = [&](double f, double t) {
    status = kFrequencyProposed;
    tolerance = t;
    return f;
  };
  ASSERT(m_NumRanges > 0);
  if (m_NumRanges <= 0) return 0.0;

  // A. Seeding.
  if (m_NumRanges < m_MinNumSubRanges) {
    if (BasisOf(m_NumRanges - 1) == 0) return pick(m_HighSampleFreq, m_HighSampleFreq * kRelative);
    for (int i = 0; i < m_MinNumSubRanges; ++i) {
      if (i >= m_NumRanges) {
        const double f = m_LowSampleFreq + i * (m_HighSampleFreq - m_LowSampleFreq) / m_MinNumSubRanges;
        return pick(f, f * kRelative);
      }
      const double low = m_Ranges[static_cast<size_t>(i)].low;
      const CAdaptiveInterp* r = GetRangeInterpolator(i);
      if (!r || r->GetBasisSize() == 0 || Differs(r->GetFrequencies().front(), low))
        return pick(low, low * kRelative);
    }
  }
  // B. Both ends of every range.
  for (int i = 0; i < m_NumRanges; ++i) {
    const Range& range = m_Ranges[static_cast<size_t>(i)];
    const CAdaptiveInterp* r = GetRangeInterpolator(i);
    if (!r || r->GetBasisSize() == 0 || Differs(r->GetFrequencies().back(), range.high))
      return pick(range.high, range.high * kRelative);
    if (Differs(r->GetFrequencies().front(), range.low)) return pick(range.low, range.low * kRelative);
  }
  // C. At least three samples per range.
  for (int i = 0; i < m_NumRanges; ++i) {
    if (BasisOf(i) < 3) {
      const Range& range = m_Ranges[static_cast<size_t>(i)];
      return pick((range.low + range.high) * 0.5, std::min((range.high - range.low) * 0.125, kToleranceCap));
    }
  }
  // D. Where the estimated error is largest. Whether the largest or another
  // error measure is asked for, the choice is the same.
  (void)std::getenv("USE_MAX_ERROR_FOR_INTERP");
  double best = -DBL_MAX, chosen = 0.0;
  for (int i = 0; i < m_NumRanges; ++i) {
    CAdaptiveInterp* r = m_RangeInterpolators[static_cast<size_t>(i)].get();
    if (!r) continue;
    double f = 0.0, t = 0.0;
    const int s = r->ProposeNext(f, t);
    Configure(i);
    if ((s == kFrequencyProposed || r->WantsSamples()) && r->GetErrorEstimate() > best) {
      best = r->GetErrorEstimate();
      chosen = f;
      tolerance = t;
      status = s;
      if (s != kNothingToAdd) {
        const std::vector<double>& x = r->GetFrequencies();
        for (size_t k = 0; k + 1 < x.size(); ++k) {
          if (x[k + 1] > f) {
            tolerance = 0.25 * (x[k + 1] - x[k]);
            break;
          }
        }
      }
    }
  }
  tolerance = std::min(tolerance, kToleranceCap);
  if (chosen == 0.0) tolerance = 0.0;
  return chosen;
}

bool CPartitionedRangeInterpolator::CheckAllRanges() const {
  for (int i = 0; i < m_NumRanges; ++i) {
    const CAdaptiveInterp* r = GetRangeInterpolator(i);
    if (!r || !r->Check()) return false;
  }
  return true;
}

// ---- Interpolation -----------------------------------------------------------

bool CPartitionedRangeInterpolator::Query(double frequency) const {
  if (m_RangeInterpolators.empty()) return false;
  const CAdaptiveInterp* r = GetRangeInterpolator(GetRangeIndex(frequency));
  return r && r->Query(frequency);
}

bool CPartitionedRangeInterpolator::Interpolate(double frequency, std::vector<Complex>& values) const {
  ASSERT((m_NumRanges > 0) && (m_RangeInterpolators[0] != 0));
  if (m_RangeInterpolators.empty()) return false;
  const CAdaptiveInterp* r = GetRangeInterpolator(GetRangeIndex(frequency));
  return r && r->Interpolate(frequency, values);
}

// ---- Persistence -------------------------------------------------------------

bool CPartitionedRangeInterpolator::Write(io::CBlock& block) const {
  block.AddReal("ErrorTolerance", m_ErrorTolerance);
  block.AddInteger("MaxBasisSize", m_MaxBasisSize);
  block.AddInteger("BasisSize", m_BasisSize);
  block.AddReal("LowSampleFreq", m_LowSampleFreq);
  block.AddReal("HighSampleFreq", m_HighSampleFreq);
  block.AddInteger("NumSamples", m_NumSamples);
  block.AddInteger("MaxSubRangeBasisSize", m_MaxSubRangeBasisSize);
  block.AddInteger("MinNumSubRanges", m_MinNumSubRanges);
  if (!m_FreqSequence.empty()) block.AddReal("LastBasisFreq", m_FreqSequence.back());
  if (m_NumRanges > 0) {
    block.AddInteger("NumRanges", m_NumRanges);
    std::vector<double> triples;
    for (const Range& r : m_Ranges) triples.insert(triples.end(), {r.low, r.high, r.tolerance});
    block.AddRealFunction("Ranges", triples);
    block.AddRealFunction("FreqSequence", m_FreqSequence);
  }
  return true;
}

int CPartitionedRangeInterpolator::Read(const io::CBlock& block) {
  for (const auto& [key, value] : {std::pair{"ErrorTolerance", &m_ErrorTolerance},
                                   std::pair{"LowSampleFreq", &m_LowSampleFreq},
                                   std::pair{"HighSampleFreq", &m_HighSampleFreq}}) {
    const int result = block.GetReal(key, *value);
    if (!io::IsReadOk(result)) return result;
  }
  for (const auto& [key, value] : {std::pair{"MaxBasisSize", &m_MaxBasisSize},
                                   std::pair{"BasisSize", &m_BasisSize},
                                   std::pair{"NumSamples", &m_NumSamples},
                                   std::pair{"MaxSubRangeBasisSize", &m_MaxSubRangeBasisSize},
                                   std::pair{"MinNumSubRanges", &m_MinNumSubRanges}}) {
    const int result = block.GetInteger(key, *value);
    if (!io::IsReadOk(result)) return result;
  }
  LayOutRanges();
  int count = 1;
  if (block.GetInteger("NumRanges", count) == io::kReadOk) {
    std::vector<double> triples;
    block.GetRealFunction("Ranges", triples);
    if (count < 1 || triples.size() != 3 * static_cast<size_t>(count)) {
      return block.ReportReadError(io::kReadBadValue, block.FindItem("Ranges"),
                                   AString::Format("expected %d ranges of low, high and tolerance", count));
    }
    m_Ranges.clear();
    for (size_t k = 0; k < triples.size(); k += 3) m_Ranges.push_back({triples[k], triples[k + 1], triples[k + 2]});
    m_NumRanges = count;
    m_RangeInterpolators.clear();
    m_RangeInterpolators.resize(m_Ranges.size());
  }
  m_FreqSequence.clear();
  block.GetRealFunction("FreqSequence", m_FreqSequence);
  ASSERT(m_BasisSize == static_cast<int>(m_FreqSequence.size()));
  m_BasisSize = static_cast<int>(m_FreqSequence.size());
  return io::kReadOk;
}
