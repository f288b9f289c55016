// CNetworkDataSolution: the frequency-indexed data points one solve of one
// design variation produced, with the matrix entries that name their rows
// and columns, optional noise data, and the points interpolated on demand.
// Stored as a block ("SolutionData" in a project).
#pragma once

#include <array>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "core/Block.h"
#include "sparamlib/data/NetworkData.h"
#include "sparamlib/data/NetworkDataOwner.h"
#include "sparamlib/solution/MatrixEntry.h"
#include "sparamlib/solution/NetworkPostprocSetup.h"
#include "sparamlib/solution/NoiseDataSolution.h"

class CInterpolateVisitor;
class InterpolateBRI;

class CNetworkDataSolution : public INetworkDataOwner {
 public:
  enum SolutionType : int {
    None = 0,
    Adaptive = 1,
    DiscreteSweep = 2,
    CircuitData = 3,
    InterpolateNeville = 4,
    FxemFastSweep = 5,
    FxemInterpolatingSweep = 6,
    StateSpaceFit = 7,
    InterpolateBRI = 8,
  };
  static constexpr std::array<const char*, 9> kSolutionTypeNames = {
      "None",          "Adaptive",           "DiscreteSweep",
      "CircuitData",   "InterpolateNeville", "FxemFastSweep",
      "FxemInterpolatingSweep", "StateSpaceFit", "InterpolateBRI"};

  enum ObjectType : int { NoObject = 0, Modal = 1, Terminal = 2, FxemModal = 3, FxemTerminal = 4 };
  static constexpr std::array<const char*, 5> kObjectTypeNames = {"None", "Modal", "Terminal",
                                                                  "FxemModal", "FxemTerminal"};

  using PointMap = std::map<double, std::unique_ptr<CNetworkData>>;

  // Tolerance (Hz) with which writers look frequencies up; the relative
  // floor of GetNetworkData (1e-9 of the frequency) usually dominates.
  static constexpr double kStandardFrequencyTolerance = 1e-6;

  explicit CNetworkDataSolution(const AString& name = AString());
  CNetworkDataSolution(const CNetworkDataSolution& other);  // deep copy
  CNetworkDataSolution& operator=(const CNetworkDataSolution&) = delete;
  virtual ~CNetworkDataSolution();
  virtual std::unique_ptr<CNetworkDataSolution> Clone() const;

  // Which concrete class this is (stored as "ObjectType").
  virtual ObjectType GetObjectType() const { return NoObject; }

  const AString& GetName() const { return m_Name; }
  void SetName(const AString& name) { m_Name = name; }
  SolutionType GetSolutionType() const { return m_SolutionType; }
  void SetSolutionType(SolutionType type) { m_SolutionType = type; }
  int GetAdaptivePass() const { return m_AdaptivePass; }
  void SetAdaptivePass(int pass) { m_AdaptivePass = pass; }
  double GetEnergyError() const { return m_EnergyError; }
  void SetEnergyError(double error) { m_EnergyError = error; }

  // ---- Points ------------------------------------------------------------
  // The point at `frequency`: a solved one, else a kept interpolated one,
  // within max(frequency * 1e-9, tolerance) (tolerance 0: the exact key
  // only); the first key at or above frequency - t wins. With `interpolate`
  // a missing point is interpolated by the visitor the solution type calls
  // for and kept until released. Null when none can be had.
  CNetworkData* GetNetworkData(double frequency, double tolerance, bool interpolate);
  // Takes a solved point. False (and the point is deleted) when a solved
  // point has exactly that frequency. Replaces an interpolated point there.
  bool AddNetworkData(std::unique_ptr<CNetworkData> point);
  // Drops the interpolated point kept at exactly `frequency`, if any.
  void ReleaseNetworkData(double frequency);
  // Deletes every solved point and everything derived from them.
  void Clear();

  const PointMap& GetFrequencyMap() const { return m_FrequencyMap; }
  const PointMap& GetInterpolatedMap() const { return m_InterpolatedMap; }
  int GetNumFrequencies() const { return static_cast<int>(m_FrequencyMap.size()); }
  // A solution that keeps a frequency list of its own (a combined sweep)
  // gives it here; writers then use it in place of the caller's list.
  virtual const std::vector<double>* GetOwnFrequencyList() const { return nullptr; }

  // Makes an empty point of the class that suits the solution, owned by it.
  virtual std::unique_ptr<CNetworkData> CreateNetworkData();
  // Builds a point at `frequency` with `visitor`; kept in the interpolated
  // map on success. Null when the visitor cannot interpolate.
  CNetworkData* Interpolate(CInterpolateVisitor& visitor, double frequency);
  // Whether a discrete sweep may be interpolated.
  virtual bool CanInterpolateDiscrete() const { return false; }

  // ---- Matrix entries ----------------------------------------------------
  int GetNumMatrixEntries() const { return static_cast<int>(m_MatrixEntries.size()); }
  const CMatrixEntry* GetMatrixEntry(int matrixIndex) const;
  CMatrixEntry* GetMatrixEntry(int matrixIndex) {
    return const_cast<CMatrixEntry*>(std::as_const(*this).GetMatrixEntry(matrixIndex));
  }
  // Appends an entry; its matrix index becomes its position.
  CMatrixEntry& AddMatrixEntry(const CMatrixEntry& entry);
  // True when the matrix-index map is empty or holds the index.
  bool IsValidMatrixIndex(int matrixIndex) const;
  // The entry position mapped to a matrix index; -1 when unmapped.
  int GetEntryPosition(int matrixIndex) const;
  void SetMatrixIndexMap(std::map<int, int> map) { m_MatrixIndexMap = std::move(map); }
  // Number of "Port" items the last read found.
  int GetEntryCount() const { return m_EntryCount; }

  // ---- Noise -------------------------------------------------------------
  const CNoiseDataSolution* GetNoiseSolution() const { return m_NoiseSolution.get(); }
  CNoiseDataSolution& GetOrCreateNoiseSolution();

  // ---- Barycentric interpolation weights ---------------------------------
  // Used by solutions of type InterpolateBRI; null when none are kept.
  // (Inside this class the bare name is the solution type, hence ::.)
  const ::InterpolateBRI* GetBRIWeights() const { return m_BRIWeights.get(); }
  void SetBRIWeights(std::unique_ptr<::InterpolateBRI> weights);

  // ---- Post-processing ---------------------------------------------------
  // The setup applied to this solution's data (a copy of its variation's);
  // null when none is.
  const CNetworkPostprocSetup* GetPostprocSetup() const { return m_PostprocSetup.get(); }
  void SetPostprocSetup(std::unique_ptr<CNetworkPostprocSetup> setup) {
    m_PostprocSetup = std::move(setup);
  }

  // ---- Persistence -------------------------------------------------------
  virtual bool Write(io::CBlock& block, bool withInterpolated) const;
  virtual int Read(const io::CBlock& block);

  // ---- What points ask of their owner ------------------------------------
  int GetNumPorts() const override { return GetNumMatrixEntries(); }
  int GetNumStoredEntries() const override { return m_EntryCount; }
  void AdaptStoredMatrix(TNT::CMatrix& matrix) const override;

  size_t GetMemorySize() const;

 protected:
  // The visit of `visitor` that matches this solution's kind.
  virtual bool Accept(CInterpolateVisitor& visitor, CNetworkData& target);
  // The interpolation visitor this solution's type calls for; null when the
  // type is not interpolated (or its method is not available).
  virtual std::unique_ptr<CInterpolateVisitor> MakeInterpolateVisitor() const;

 private:
  // The solved point nearest to `frequency`; null when none is solved.
  CNetworkData* NearestSolved(double frequency) const;
  int ReadPoints(const io::CBlock& block, bool interpolated);
  int ReadEntries(const io::CBlock& ports);
  // Error estimates of interpolated points; entries that match no point are
  // ignored.
  void ReadInterpolationErrors(const io::CBlock& errors);

  AString m_Name;
  PointMap m_FrequencyMap;
  PointMap m_InterpolatedMap;
  std::vector<std::unique_ptr<CMatrixEntry>> m_MatrixEntries;
  SolutionType m_SolutionType = None;
  int m_AdaptivePass = -1;
  double m_EnergyError = 0.0;
  std::unique_ptr<CNoiseDataSolution> m_NoiseSolution;
  std::unique_ptr<CNetworkPostprocSetup> m_PostprocSetup;
  std::unique_ptr<::InterpolateBRI> m_BRIWeights;
  std::map<int, int> m_MatrixIndexMap;
  int m_EntryCount = 0;
};
