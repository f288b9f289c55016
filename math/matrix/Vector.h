// TNT::Vector: a dense, 0-based vector that owns its elements; copies are deep.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <utility>

#include "core/Assert.h"

namespace TNT {

template <class T>
class Vector {
 public:
  typedef T value_type;

  Vector() = default;
  explicit Vector(int n, const T& value = T()) { initialize(n, value); }
  Vector(const Vector& other) {
    initialize(other.n_, T());
    std::copy(other.begin(), other.end(), begin());
  }
  Vector(Vector&& other) noexcept : v_(std::move(other.v_)), n_(std::exchange(other.n_, 0)) {}
  Vector& operator=(const Vector& other) {
    if (this != &other) {
      if (n_ != other.n_) {
        v_.reset();
        initialize(other.n_, T());
      }
      std::copy(other.begin(), other.end(), begin());
    }
    return *this;
  }
  Vector& operator=(Vector&& other) noexcept {
    v_ = std::move(other.v_);
    n_ = std::exchange(other.n_, 0);
    return *this;
  }
  virtual ~Vector() = default;

  int dim() const { return n_; }
  int size() const { return n_; }

  // An index out of range is reported and then answered with a scratch
  // element holding T(): execution continues (see core/Assert.h), so it must
  // not read or write outside the block.
  T& operator[](int i) {
    ASSERT(0<=i);
    ASSERT(i < n_);
    if (i < 0 || i >= n_) return Scratch();
    return v_[static_cast<size_t>(i)];
  }
  const T& operator[](int i) const {
    ASSERT(0<=i);
    ASSERT(i < n_);
    if (i < 0 || i >= n_) return Scratch();
    return v_[static_cast<size_t>(i)];
  }

  T* begin() { return v_.get(); }
  T* end() { return v_.get() + n_; }
  const T* begin() const { return v_.get(); }
  const T* end() const { return v_.get() + n_; }
  T* data() { return v_.get(); }
  const T* data() const { return v_.get(); }

  // Reallocates to n elements, all set to `value`.
  void newsize(int n, const T& value = T()) {
    v_.reset();
    initialize(n, value);
  }

 private:
  void initialize(int n, const T& value) {
    ASSERT(v_ == NULL);
    n_ = n > 0 ? n : 0;
    if (n_ == 0) return;
    v_ = std::make_unique<T[]>(static_cast<size_t>(n_));
    ASSERT(v_ != NULL);
    std::fill(begin(), end(), value);
  }

  static T& Scratch() {
    thread_local T scratch;
    scratch = T();
    return scratch;
  }

  std::unique_ptr<T[]> v_;
  int n_ = 0;
};

template <class T>
Vector<T> operator+(const Vector<T>& A, const Vector<T>& B) {
  const int N = A.dim();
  ASSERT(N==B.dim());
  Vector<T> r(N);
  if (N != B.dim()) return r;
  for (int i = 0; i < N; ++i) r[i] = A[i] + B[i];
  return r;
}

template <class T>
Vector<T> operator-(const Vector<T>& A, const Vector<T>& B) {
  const int N = A.dim();
  ASSERT(N==B.dim());
  Vector<T> r(N);
  if (N != B.dim()) return r;
  for (int i = 0; i < N; ++i) r[i] = A[i] - B[i];
  return r;
}

}  // namespace TNT
