// TNT::Matrix: a dense, 0-based, row-major matrix. One contiguous block holds
// the elements and an array of row pointers gives constant-time row access;
// element (i, j) is A[i][j]. Copies are deep; the default matrix is 0 x 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <utility>

#include "core/Assert.h"

namespace TNT {

template <class T>
class Matrix {
 public:
  typedef T value_type;

  Matrix() = default;
  Matrix(int m, int n, const T& value = T()) { initialize(m, n, value); }
  // Row-major values; their count must be m * n.
  Matrix(int m, int n, std::span<const T> values) {
    initialize(m, n, T());
    const size_t count = values.size();
    mn_ = static_cast<int>(count);
    ASSERT(mn_ == m_ * n_);
    mn_ = m_ * n_;
    std::copy_n(values.begin(), std::min(count, static_cast<size_t>(mn_)), v_.get());
  }
  Matrix(const Matrix& other) {
    initialize(other.m_, other.n_, T());
    std::copy_n(other.v_.get(), mn_, v_.get());
  }
  Matrix(Matrix&& other) noexcept { swap(other); }
  Matrix& operator=(const Matrix& other) {
    if (this != &other) {
      if (m_ != other.m_ || n_ != other.n_) newsize(other.m_, other.n_);
      std::copy_n(other.v_.get(), mn_, v_.get());
    }
    return *this;
  }
  Matrix& operator=(Matrix&& other) noexcept {
    Matrix tmp(std::move(other));
    swap(tmp);
    return *this;
  }
  ~Matrix() = default;

  int num_rows() const { return m_; }
  int num_cols() const { return n_; }
  int size() const { return mn_; }

  T* operator[](int i) { return row_[static_cast<size_t>(i)]; }
  const T* operator[](int i) const { return row_[static_cast<size_t>(i)]; }

  T* data() { return v_.get(); }
  const T* data() const { return v_.get(); }

  // Reallocates to m x n, every element set to `value`.
  void newsize(int m, int n, const T& value = T()) {
    v_.reset();
    row_.reset();
    initialize(m, n, value);
  }

  void swap(Matrix& other) noexcept {
    std::swap(m_, other.m_);
    std::swap(n_, other.n_);
    std::swap(mn_, other.mn_);
    std::swap(v_, other.v_);
    std::swap(row_, other.row_);
  }

 private:
  void initialize(int m, int n, const T& value) {
    m_ = m > 0 && n > 0 ? m : 0;
    n_ = m > 0 && n > 0 ? n : 0;
    mn_ = m_ * n_;
    ASSERT(mn_ == m_ * n_);
    if (mn_ == 0) return;
    v_ = std::make_unique<T[]>(static_cast<size_t>(mn_));
    row_ = std::make_unique<T*[]>(static_cast<size_t>(m_));
    ASSERT(v_ != 0);
    ASSERT(row_ != 0);
    // The allocation has already value-initialised every element.
    if (!(value == T())) std::fill_n(v_.get(), mn_, value);
    for (int i = 0; i < m_; ++i) row_[static_cast<size_t>(i)] = v_.get() + static_cast<size_t>(i) * n_;
  }

  int m_ = 0;
  int n_ = 0;
  int mn_ = 0;
  std::unique_ptr<T[]> v_;
  std::unique_ptr<T*[]> row_;
};

}  // namespace TNT
