// InterpolateBRI: the barycentric weights of one solution. Entry (i, j) of
// the S matrix has its own weight vector, one weight per solved frequency in
// ascending order; the interpolant at f is
//   S_ij(f) = sum_k w_k S_ij(f_k) / (f - f_k)  /  sum_k w_k / (f - f_k).
// Stored as the block "BRIInterpolationWeights" of its solution.
#pragma once

#include <memory>
#include <vector>

#include "core/Block.h"
#include "math/matrix/MatrixOps.h"

class InterpolateBRI {
 public:
  InterpolateBRI() = default;
  // An n-port weight set with every entry's vector allocated at `length`.
  InterpolateBRI(int n, int length);
  InterpolateBRI(const InterpolateBRI& other);
  InterpolateBRI& operator=(const InterpolateBRI& other);
  ~InterpolateBRI();

  int GetNumPorts() const { return m_N; }
  // Weight vector of entry (i, j), 0-based; null when there is none.
  const TNT::CVector* GetWeights(int i, int j) const;
  TNT::CVector* GetWeights(int i, int j);
  // Installs the weight vector of entry (i, j).
  void SetWeights(int i, int j, std::unique_ptr<TNT::CVector> weights);

  // What the weights were computed from: the solved frequencies they belong
  // to, the frequencies the fit chose for its denominator, and the fit's
  // largest relative residual after each step.
  std::vector<double>& GetFrequencies() { return m_Frequencies; }
  const std::vector<double>& GetFrequencies() const { return m_Frequencies; }
  std::vector<double>& GetSupportFrequencies() { return m_SupportFrequencies; }
  const std::vector<double>& GetSupportFrequencies() const { return m_SupportFrequencies; }
  std::vector<double>& GetFitErrors() { return m_FitErrors; }
  const std::vector<double>& GetFitErrors() const { return m_FitErrors; }

  // The weights in the order an evaluation walks them: frequency by
  // frequency, row k holding weight k of every entry (row-major over
  // (i, j)); which rows are not all zero; and whether every entry has the
  // same weights (then one denominator serves them all). Built on first
  // use; null when the entries' vectors are missing or differ in length.
  struct Layout {
    TNT::CMatrix byFrequency;
    std::vector<bool> active;
    bool shared = true;
  };
  const Layout* GetLayout() const;

  bool WriteToBlock(io::CBlock& block) const;
  // io::kReadOk, or an error code with the reason in the block's error state.
  int ReadFromBlock(const io::CBlock& block);

 private:
  size_t Slot(int i, int j) const { return static_cast<size_t>(m_N * j + i); }

  std::vector<double> m_Frequencies;
  std::vector<double> m_SupportFrequencies;
  std::vector<double> m_FitErrors;
  int m_N = 0;
  std::vector<std::unique_ptr<TNT::CVector>> m_Weights;  // entry (i, j) at n * j + i
  mutable std::unique_ptr<Layout> m_Layout;
};
