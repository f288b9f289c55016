// CloneOf: the deep copy of an optionally present object held by owning
// pointer (null stays null).
#pragma once

#include <memory>

template <class T>
std::unique_ptr<T> CloneOf(const std::unique_ptr<T>& p) {
  return p ? std::make_unique<T>(*p) : nullptr;
}
