// A not-a-knot cubic spline through complex values at uniform nodes (the
// end condition scipy's CubicSpline and scikit-rf's interpolation default
// to): the peer our rational interpolation is compared with.
#pragma once

#include <algorithm>
#include <vector>

#include "core/AComplex.h"

namespace testing_support {

class UniformCubicSpline {
 public:
  using C = AComplex<double>;
  // Nodes x0 + k h for k < y.size() (at least 4).
  UniformCubicSpline(double x0, double h, std::vector<C> y) : x0_(x0), h_(h), y_(std::move(y)), m_(y_.size()) {
    const size_t n = y_.size();
    // Second derivatives M: M[i-1] + 4 M[i] + M[i+1] = 6 (y[i-1] - 2 y[i] + y[i+1]) / h^2
    // inside; not-a-knot (continuous third derivative at the second and the
    // last but one node) gives M0 = 2 M1 - M2, which turns the first row
    // into 6 M1 = r1, and the same at the other end.
    std::vector<C> r(n);
    for (size_t i = 1; i + 1 < n; ++i) r[i] = (y_[i - 1] - y_[i] * 2.0 + y_[i + 1]) * (6.0 / (h * h));
    std::vector<double> diag(n, 4.0), lower(n, 1.0), upper(n, 1.0);
    diag[1] = diag[n - 2] = 6.0;
    upper[1] = lower[n - 2] = 0.0;
    // Thomas algorithm over rows 1 .. n-2.
    for (size_t i = 2; i + 1 < n; ++i) {
      const double w = lower[i] / diag[i - 1];
      diag[i] -= w * upper[i - 1];
      r[i] -= r[i - 1] * w;
    }
    m_[n - 2] = r[n - 2] * (1.0 / diag[n - 2]);
    for (size_t i = n - 3; i >= 1; --i) m_[i] = (r[i] - m_[i + 1] * upper[i]) * (1.0 / diag[i]);
    m_[0] = m_[1] * 2.0 - m_[2];
    m_[n - 1] = m_[n - 2] * 2.0 - m_[n - 3];
  }

  C operator()(double x) const {
    const int last = static_cast<int>(y_.size()) - 2;
    const int i = std::clamp(static_cast<int>((x - x0_) / h_), 0, last);
    const double t = (x - (x0_ + i * h_)) / h_, u = 1.0 - t;
    const size_t k = static_cast<size_t>(i);
    return y_[k] * u + y_[k + 1] * t + (m_[k] * (u * u * u - u) + m_[k + 1] * (t * t * t - t)) * (h_ * h_ / 6.0);
  }

 private:
  double x0_, h_;
  std::vector<C> y_, m_;
};

}  // namespace testing_support
