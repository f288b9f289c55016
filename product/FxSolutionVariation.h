// FxSolutionVariation: one design variation: the values of the design
// variables, the product that produced its data, its solutions and the
// post-processing setup applied to them.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "product/FxSolution.h"
#include "sparamlib/solution/DesignVariation.h"
#include "sparamlib/solution/NetworkPostprocSetup.h"

class FxSolutionVariation : public IDesignVariation {
 public:

  FxSolutionVariation();
  virtual ~FxSolutionVariation();

  const AString& GetProductName() const override { return m_ProductName; }
  const AString& GetProductVersion() const override { return m_ProductVersion; }
  void SetProduct(const AString& name, const AString& version);

  // In the order they were given (writers sort them for display).
  const std::vector<Variable>& GetDesignVariables() const override { return m_Variables; }
  void AddDesignVariable(const AString& name, const AString& value);

  // Takes a solution; its name identifies it within the variation.
  FxSolution& AddSolution(std::unique_ptr<CNetworkDataSolution> solution);
  const std::vector<std::unique_ptr<FxSolution>>& GetSolutions() const { return m_Solutions; }
  // The solution of that name (the first one for an empty name); null when absent.
  const CNetworkDataSolution* GetNetworkDataSolution(const AString& name = AString()) const;
  CNetworkDataSolution* GetWritableSolution(const AString& name = AString());
  // The handle of that solution (the first for an empty name); null when absent.
  FxSolution* FindSolution(const AString& name = AString());

  const CNetworkPostprocSetup* GetPostprocSetup() const { return m_PostprocSetup.get(); }
  void SetPostprocSetup(std::unique_ptr<CNetworkPostprocSetup> setup);

  bool Write(io::CBlock& block) const;
  int Read(const io::CBlock& block);

 private:
  void ShareSetup(FxSolution& solution) const;

  AString m_ProductName;
  AString m_ProductVersion;
  std::vector<Variable> m_Variables;
  std::vector<std::unique_ptr<FxSolution>> m_Solutions;
  std::unique_ptr<CNetworkPostprocSetup> m_PostprocSetup;
};
