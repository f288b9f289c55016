// INetworkDataOwner: what a data point needs from the solution that holds it.
// A point knows only its matrices; the port count and the layout of older
// files belong to the solution.
#pragma once

#include <memory>

#include "math/matrix/MatrixOps.h"

class INetworkDataOwner {
 public:
  // Size of every matrix of the owner's points (ports, modes or terminals).
  virtual int GetNumPorts() const = 0;
  // Rows of the mode-to-terminal transform.
  virtual int GetNumTerminals() const { return GetNumPorts(); }
  // Entry count of the stored form last read; larger than GetNumPorts() when
  // an older file held entries that the owner has since dropped.
  virtual int GetNumStoredEntries() const { return 0; }
  // Reduces a matrix read at GetNumStoredEntries() to the owner's ports.
  virtual void AdaptStoredMatrix(TNT::CMatrix& matrix) const { (void)matrix; }
  // Called after a point read its S matrix; the owner decides the content of
  // the point's first companion matrix.
  virtual void FillCompanionMatrix(const TNT::CMatrix& s,
                                   std::unique_ptr<TNT::CMatrix>& companion) const {
    (void)s;
    (void)companion;
  }

 protected:
  ~INetworkDataOwner() = default;
};
