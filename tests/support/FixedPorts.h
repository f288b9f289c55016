// Test helper: an owner that only knows its port count, for free-standing
// data points.
#pragma once

#include "sparamlib/data/NetworkDataOwner.h"

namespace testing_support {

class FixedPorts : public INetworkDataOwner {
 public:
  explicit FixedPorts(int ports, int stored = 0) : ports_(ports), stored_(stored) {}
  int GetNumPorts() const override { return ports_; }
  int GetNumStoredEntries() const override { return stored_; }
  // Keeps the leading ports of a matrix read at the larger stored size.
  void AdaptStoredMatrix(TNT::CMatrix& m) const override {
    TNT::CMatrix reduced(ports_, ports_);
    for (int i = 0; i < ports_; ++i)
      for (int j = 0; j < ports_; ++j) reduced[i][j] = m[i][j];
    m = reduced;
  }

 private:
  int ports_;
  int stored_;
};

}  // namespace testing_support
