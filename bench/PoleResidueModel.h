// A reciprocal network with shared poles for benchmarks:
//   S(f) = D + sum_p R_p / (s - a_p) + conj(R_p) / (s - conj(a_p)),  s = j f / 1 GHz,
// with symmetric rank-one residues and resonances of Q 8 to 40 in 1.5-9.5 GHz.
#pragma once

#include <random>
#include <vector>

#include "math/matrix/MatrixOps.h"

struct PoleResidueModel {
  using C = AComplex<double>;
  int ports;
  std::vector<C> poles;
  std::vector<TNT::CMatrix> residues;
  TNT::CMatrix direct;

  PoleResidueModel(int n, int resonances, unsigned seed) : ports(n), direct(n, n) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0), w(1.5, 9.5), q(8.0, 40.0);
    for (int i = 0; i < n; ++i)
      for (int j = i; j < n; ++j) direct[i][j] = direct[j][i] = C(0.1 * u(rng), 0.1 * u(rng));
    for (int p = 0; p < resonances; ++p) {
      const double omega = w(rng), sigma = omega / (2.0 * q(rng));
      poles.emplace_back(-sigma, omega);
      std::vector<C> v(static_cast<size_t>(n));
      for (auto& x : v) x = C(u(rng), u(rng));
      TNT::CMatrix r(n, n);
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
          r[i][j] = v[static_cast<size_t>(i)] * v[static_cast<size_t>(j)] * (0.3 * sigma / n);
      residues.push_back(std::move(r));
    }
  }

  TNT::CMatrix S(double f) const {
    TNT::CMatrix m = direct;
    const C s(0.0, f / 1e9);
    for (size_t p = 0; p < poles.size(); ++p) {
      const C a = C(1.0) / (s - poles[p]), b = C(1.0) / (s - conj(poles[p]));
      for (int e = 0; e < m.size(); ++e)
        m.data()[e] += residues[p].data()[e] * a + conj(residues[p].data()[e]) * b;
    }
    return m;
  }
};
