// The interpolating sweep's driver and samplers: the order in which the
// band is seeded, the range-end and midpoint rules, range lookup, the
// environment settings, the finished state, the stored form, and what the
// solver solution answers once swept.
#include <gtest/gtest.h>

#include <cstdlib>

#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/interp/FxemModalSolution.h"
#include "support/CoupledResonatorFilter.h"

namespace {

using C = AComplex<double>;

// A 1-port whose reflection is linear in f: every model is exact.
std::vector<C> Linear(double f) { return {C(0.1, 0.2) + C(1e-10, -2e-10) * f}; }

CPartitionedRangeInterpolator Driver(int minRanges, double low = 1e9, double high = 5e9) {
  CPartitionedRangeInterpolator d(1, 50, minRanges);
  d.SetValueScales({1.0}, 1);
  d.SetErrorTolerance(1e-6);
  d.SetBand(low, high);
  return d;
}

// Solves what the driver asks for until it has nothing to add (or `limit`).
std::vector<double> Follow(CPartitionedRangeInterpolator& d, int limit) {
  std::vector<double> asked;
  for (int k = 0; k < limit; ++k) {
    int status = 0;
    double tolerance = 0.0;
    const double f = d.GetNextFrequency(status, tolerance);
    if (status != CPartitionedRangeInterpolator::kFrequencyProposed) break;
    asked.push_back(f);
    d.AddBasisFrequency(f, Linear(f));
  }
  return asked;
}

}  // namespace

TEST(PartitionedRange, SeedsEndsAndMidpointsComeFirst) {
  CPartitionedRangeInterpolator d = Driver(4);
  // The top of the band, then the bottom, then the seeds that cut it in 4.
  EXPECT_EQ(Follow(d, 5), (std::vector<double>{5e9, 1e9, 2e9, 3e9, 4e9}));
  EXPECT_EQ(d.GetNumRanges(), 4);
  EXPECT_EQ(d.GetRangeHigh(1), 3e9);
  // Each range has its two ends now; the first with fewer than 3 samples
  // gets its midpoint with an eighth of its width as tolerance.
  int status = 0;
  double tolerance = 0.0;
  EXPECT_EQ(d.GetNextFrequency(status, tolerance), 1.5e9);
  EXPECT_EQ(status, 3);
  EXPECT_EQ(tolerance, 1.25e8);
  // Wide ranges: the tolerance is capped at 5e8.
  CPartitionedRangeInterpolator wide = Driver(1, 0.0, 10e9);
  Follow(wide, 2);
  EXPECT_EQ(wide.GetNextFrequency(status, tolerance), 5e9);
  EXPECT_EQ(tolerance, 5e8);

  // Lookup: a frequency on a range's top (within 1e-12) is that range's,
  // one above the band the last range's.
  EXPECT_EQ(d.GetRangeIndex(2e9 * (1 + 1e-13)), 0);
  EXPECT_EQ(d.GetRangeIndex(2e9 * (1 + 1e-9)), 1);
  EXPECT_EQ(d.GetRangeIndex(9e9), 3);
}

TEST(PartitionedRange, FinishedRangesProposeNothingAndTheEnvironmentCounts) {
  CPartitionedRangeInterpolator d = Driver(1);
  const std::vector<double> asked = Follow(d, 40);
  EXPECT_GE(asked.size(), 4u);
  EXPECT_LT(asked.size(), 10u) << "a linear response needs few samples";
  int status = 0;
  double tolerance = -1.0;
  EXPECT_EQ(d.GetNextFrequency(status, tolerance), 0.0);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(tolerance, 0.0);
  EXPECT_TRUE(d.CheckAllRanges());

  ::setenv("INTERP_SUBRANGE_BASIS_SIZE", "12", 1);
  EXPECT_EQ(CPartitionedRangeInterpolator(2, 50, 1).GetMaxSubRangeBasisSize(), 12);
  // Values that would cut ranges until the sweep fails fall back, with one message.
  for (const char* bad : {"0", "3", "4", "7", "abc", "12x", "", "99999999999"}) {
    ::setenv("INTERP_SUBRANGE_BASIS_SIZE", bad, 1);
    EXPECT_EQ(CPartitionedRangeInterpolator(2, 50, 1).GetMaxSubRangeBasisSize(), 50) << bad;
    std::string warning;
    EXPECT_EQ(SubrangeBasisSizeFromEnvironment(50, &warning), 50);
    EXPECT_EQ(warning, "INTERP_SUBRANGE_BASIS_SIZE=\"" + std::string(bad) +
                           "\" is not a whole number from 8 to 10000; using 50");
  }
  ::unsetenv("INTERP_SUBRANGE_BASIS_SIZE");
  EXPECT_EQ(CPartitionedRangeInterpolator(2, 50, 1).GetMaxSubRangeBasisSize(), 50);

  // The error-measure switch changes nothing.
  CPartitionedRangeInterpolator a = Driver(1), b = Driver(1);
  Follow(a, 4);
  Follow(b, 4);
  ::setenv("USE_MAX_ERROR_FOR_INTERP", "1", 1);
  double ta = 0.0, tb = 0.0;
  int sa = 0, sb = 0;
  const double fa = a.GetNextFrequency(sa, ta);
  ::unsetenv("USE_MAX_ERROR_FOR_INTERP");
  EXPECT_EQ(fa, b.GetNextFrequency(sb, tb));
  EXPECT_EQ(ta, tb);
}

TEST(PartitionedRange, FullRangesAreCutAndTheStoredFormComesBack) {
  ::setenv("INTERP_SUBRANGE_BASIS_SIZE", "8", 1);
  CPartitionedRangeInterpolator d = Driver(1, 1e9, 8e9);
  ::unsetenv("INTERP_SUBRANGE_BASIS_SIZE");
  const std::vector<double> order{1e9, 8e9, 4.5e9, 2e9, 3e9, 4e9, 6e9, 7e9};
  for (double f : order) d.AddBasisFrequency(f, Linear(f));
  ASSERT_EQ(d.GetNumRanges(), 2);
  EXPECT_EQ(d.GetRangeHigh(0), 4.5e9);
  EXPECT_EQ(d.GetRangeInterpolator(0)->GetBasisSize(), 5);
  EXPECT_EQ(d.GetRangeInterpolator(1)->GetBasisSize(), 4);

  io::CBlock block("SweepInterpolator");
  ASSERT_TRUE(d.Write(block));
  EXPECT_TRUE(block.HasItem("LastBasisFreq"));
  CPartitionedRangeInterpolator back(1, 50, 1);
  ASSERT_EQ(back.Read(block), io::kReadOk);
  EXPECT_EQ(back.GetFreqSequence(), order);
  EXPECT_EQ(back.GetNumRanges(), 2);
  EXPECT_EQ(back.GetRangeLow(1), 4.5e9);
  EXPECT_EQ(back.GetMaxSubRangeBasisSize(), 8);
  EXPECT_EQ(back.GetRangeInterpolator(0), nullptr) << "samplers are rebuilt from the points";
}

// A solver solution swept over a filter answers anywhere in its band,
// through its interpolator, also after being stored and read back.
TEST(FxemSweep, SweptSolutionInterpolatesThroughItsRangesAfterReading) {
  const testing_support::CoupledResonatorFilter filter;
  CFxemModalSolution s("Sweep");
  s.SetSolutionType(CNetworkDataSolution::FxemInterpolatingSweep);
  for (int k = 0; k < 2; ++k) s.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  auto interp = std::make_unique<CFxemInterpolator>(2);
  interp->SetBand(9e9, 11e9);
  interp->SetErrorTolerance(1e-4);
  s.SetInterpolator(std::move(interp));
  for (int solves = 0; solves < 60; ++solves) {
    int status = 0;
    double tolerance = 0.0;
    const double f = s.GetInterpolator()->GetNextFrequency(status, tolerance);
    if (status != 3) break;
    auto p = s.CreateNetworkData();
    p->SetFrequency(f);
    p->SetSMatrix(std::make_unique<TNT::CMatrix>(filter.S(f)));
    static_cast<CFxemModalData&>(*p).SetPortImpedance(std::make_unique<TNT::CVector>(2, C(50.0)));
    ASSERT_TRUE(s.AddSweepPoint(std::move(p)));
  }
  ASSERT_TRUE(s.GetInterpolator()->CheckAllRanges());
  EXPECT_LE(s.GetNumFrequencies(), 20) << "a 5-resonator filter needs few solves";

  io::CBlock block("SolutionData");
  ASSERT_TRUE(s.Write(block, false));
  CFxemModalSolution back;
  ASSERT_EQ(back.Read(block), io::kReadOk);
  for (CFxemModalSolution* solution : {&s, &back}) {
    double worst = 0.0;
    for (int k = 0; k <= 400; ++k) {
      const double f = 9e9 + 2e9 * k / 400.0;
      CNetworkData* p = solution->GetNetworkData(f, 0.0, true);
      ASSERT_NE(p, nullptr) << f;
      const TNT::CMatrix truth = filter.S(f);
      for (int e = 0; e < 4; ++e) worst = std::max(worst, abs(p->GetSMatrix(true)->data()[e] - truth.data()[e]));
      ASSERT_NE(static_cast<CFxemModalData*>(p)->GetPortImpedance(), nullptr);
      solution->ReleaseNetworkData(f);
    }
    EXPECT_LT(worst, 1e-4);
    EXPECT_EQ(solution->GetNetworkData(12e9, 0.0, true), nullptr) << "outside the band";
  }
  int sa = 0, sb = 0;
  double ta = 0.0, tb = 0.0;
  EXPECT_EQ(s.GetInterpolator()->GetNextFrequency(sa, ta), back.GetInterpolator()->GetNextFrequency(sb, tb));
}
