// Barycentric interpolation of data as files carry them: Touchstone files
// made from the built-in devices' equations, rounded to 6 or 8 significant
// digits and with added scatter. Every other point is fitted, the points
// left out are the truth: the barycentric interpolant is to be no worse than
// a not-a-knot cubic spline on the same split (beyond the data's precision,
// which bounds both), and a passive device stays passive to within the
// data's own scatter.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "product/Devices.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/formats/TouchstoneReader.h"
#include "sparamlib/interp/BRIInterpolateVisitor.h"
#include "support/CubicSpline.h"

namespace {

using C = AComplex<double>;

// A Touchstone file (RI, Hz) of `device` at `count` uniform frequencies,
// each number with `digits` significant digits, after Gaussian scatter of
// `sigma` on each part.
std::string DeviceFile(const sparam::CDevice& device, int count, int digits, double sigma) {
  const int n = device.GetNumPorts();
  std::string text = "# Hz S RI R 50\n";
  std::mt19937_64 rng(7);
  std::normal_distribution<double> scatter(0.0, sigma > 0.0 ? sigma : 1.0);
  char number[64];
  for (int k = 0; k < count; ++k) {
    const double f = device.GetDefaultStart() + (device.GetDefaultStop() - device.GetDefaultStart()) * k / (count - 1);
    SolvedPoint p;
    std::string why;
    EXPECT_TRUE(device.Evaluate(f, p, &why)) << why;
    std::snprintf(number, sizeof number, "%.17g", f);
    text += number;
    // Two-port files list S11 S21 S12 S22; larger ones row by row, a line each.
    for (int r = 0; r < n; ++r) {
      if (n > 2 && r > 0) text += "\n";
      for (int c = 0; c < n; ++c) {
        const C s = n == 2 ? p.s[c][r] : p.s[r][c];
        for (double part : {s.re, s.im}) {
          std::snprintf(number, sizeof number, " %.*e", digits - 1, part + (sigma > 0.0 ? scatter(rng) : 0.0));
          text += number;
        }
      }
    }
    text += "\n";
  }
  return text;
}

struct Split {
  double bri = 0.0, spline = 0.0;  // worst |S error| at the points left out
  double largestGain = 0.0;        // largest singular value of interpolated S, on a fine grid
  double largestData = 0.0;        // the same over the file's points
};

double LargestSingularValue(const TNT::CMatrix& s) {
  const int n = s.num_rows();
  TNT::CMatrix h(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      for (int k = 0; k < n; ++k) h[i][j] += conj(s[k][i]) * s[k][j];
  TNT::CVector values;
  TNT::CMatrix vectors;
  EXPECT_EQ(TNT::ComputeEigenVectorsAndValues(h, values, vectors), 0);
  double largest = 0.0;
  for (int k = 0; k < n; ++k) largest = std::max(largest, values[k].re);
  return std::sqrt(largest);
}

Split LeaveHalfOut(const std::string& file, const std::string& name) {
  std::string error;
  auto all = nd::ReadTouchstoneText(file, name, &error);
  EXPECT_TRUE(all) << error;
  Split result;
  if (!all) return result;
  const int n = all->GetNumPorts();
  std::vector<double> f;
  std::vector<const TNT::CMatrix*> s;
  for (const auto& [freq, p] : all->GetFrequencyMap()) {
    f.push_back(freq);
    s.push_back(p->GetSMatrix(true));
    result.largestData = std::max(result.largestData, LargestSingularValue(*p->GetSMatrix(true)));
  }
  // Every other point, as a solution interpolated from its own weights.
  auto half = std::make_unique<CNetworkModalSolution>("half");
  for (int k = 0; k < n; ++k) half->AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  for (size_t k = 0; k < f.size(); k += 2) {
    auto point = half->CreateNetworkData();
    point->SetFrequency(f[k]);
    point->SetSMatrix(std::make_unique<TNT::CMatrix>(*s[k]));
    static_cast<CNetworkModalData&>(*point).SetPortImpedance(std::make_unique<TNT::CVector>(n, C(50.0)));
    half->AddNetworkData(std::move(point));
  }
  half->SetSolutionType(CNetworkDataSolution::InterpolateBRI);
  half->SetBRIWeights(nd::ComputeBRIWeights(*half));
  for (size_t k = 1; k + 1 < f.size(); k += 2) {
    CNetworkData* p = half->GetNetworkData(f[k], 0.0, true);
    EXPECT_NE(p, nullptr);
    if (!p) continue;
    for (int e = 0; e < n * n; ++e)
      result.bri = std::max(result.bri, abs(p->GetSMatrix(false)->data()[e] - s[k]->data()[e]));
    half->ReleaseNetworkData(f[k]);
  }
  // Passivity on a grid ten times finer than the fitted points.
  for (size_t k = 0; k + 2 < f.size(); k += 2)
    for (int j = 1; j < 20; ++j) {
      const double at = f[k] + (f[k + 2] - f[k]) * j / 20.0;
      if (CNetworkData* p = half->GetNetworkData(at, 0.0, true)) {
        result.largestGain = std::max(result.largestGain, LargestSingularValue(*p->GetSMatrix(false)));
        half->ReleaseNetworkData(at);
      }
    }
  // The spline through the same points, entry by entry.
  for (int e = 0; e < n * n; ++e) {
    std::vector<C> y;
    for (size_t k = 0; k < f.size(); k += 2) y.push_back(s[k]->data()[e]);
    const testing_support::UniformCubicSpline spline(f.front(), f[2] - f[0], y);
    for (size_t k = 1; k + 1 < f.size(); k += 2)
      result.spline = std::max(result.spline, abs(spline(f[k]) - s[k]->data()[e]));
  }
  return result;
}

}  // namespace

TEST(MeasuredData, BarycentricIsNoWorseThanASplineOnRoundedAndScatteredFiles) {
  struct Case {
    const char* device;
    int digits;
    double sigma;
  };
  for (const Case& c : {Case{"line", 8, 0.0}, Case{"line", 6, 0.0}, Case{"line", 8, 1e-5},
                        Case{"bandpass", 8, 0.0}, Case{"bandpass", 6, 0.0}, Case{"bandpass", 8, 1e-5},
                        Case{"coupler", 6, 0.0}, Case{"coupler", 8, 1e-6}, Case{"resonator", 8, 1e-6},
                        Case{"waveguide", 6, 0.0}}) {
    const sparam::CDevice& device = *sparam::FindDevice(c.device);
    const std::string name = std::string(c.device) + ".s" + std::to_string(device.GetNumPorts()) + "p";
    const Split r = LeaveHalfOut(DeviceFile(device, 201, c.digits, c.sigma), name);
    SCOPED_TRACE(name + " " + std::to_string(c.digits) + " digits, scatter " + std::to_string(c.sigma));
    std::printf("%-12s %d digits scatter %-6g: barycentric %.2g, spline %.2g, largest gain %.6f (data %.6f)\n",
                name.c_str(), c.digits, c.sigma, r.bri, r.spline, r.largestGain, r.largestData);
    // No worse than the spline, beyond the data's own precision: on smooth,
    // densely sampled data both reach the scatter of the samples they are
    // compared with (the largest of a few thousand scattered values is about
    // 4 times their rms), and neither can go below it.
    const double precision = 6.0 * std::max(c.sigma * std::sqrt(2.0), 0.5 * std::pow(10.0, 1 - c.digits));
    EXPECT_LE(r.bri, std::max(r.spline, precision)) << "barycentric " << r.bri << ", spline " << r.spline;
    // Passive data stay passive to within their own scatter (and rounding).
    const double slack = 5.0 * c.sigma + 5.0 * std::pow(10.0, 1 - c.digits);
    EXPECT_LE(r.largestGain, std::max(1.0, r.largestData) + slack) << r.largestGain;
  }
}
