// IDesignVariation: what the export writers need to know of the design
// variation whose data they write: the exporting product and the values of
// the design variables.
#pragma once

#include <utility>
#include <vector>

#include "core/AString.h"

class IDesignVariation {
 public:
  using Variable = std::pair<AString, AString>;  // name, value text

  virtual const AString& GetProductName() const = 0;
  virtual const AString& GetProductVersion() const = 0;
  // In the order the user gave them.
  virtual const std::vector<Variable>& GetDesignVariables() const = 0;

 protected:
  ~IDesignVariation() = default;
};
