// CNetworkData: the network description of a device at one frequency. Holds
// S and, as needed, Y and Z, how the point came to be, the per-port
// "Scattered B" vector and two companion matrices the owning solution
// attaches. Stores itself as a "DataPoint" block.
#pragma once

#include <array>
#include <memory>

#include "core/StreamioBlockObject.h"
#include "math/matrix/MatrixOps.h"
#include "sparamlib/data/NetworkDataOwner.h"
#include "sparamlib/data/NetworkDataTypes.h"

class CNetworkDataVisitor;

class CNetworkData : public io::CStreamio_block_object {
 public:
  using CMatrix = TNT::CMatrix;
  using CVector = TNT::CVector;
  using Complex = AComplex<double>;

  enum DataPointType : int { None = 0, Interpolated = 1, Extrapolated = 2, ExactPoint = 3 };
  static constexpr std::array<const char*, 4> kDataPointTypeNames = {"None", "Interpolated",
                                                                     "Extrapolated", "ExactPoint"};

  explicit CNetworkData(INetworkDataOwner* owner = nullptr, double frequency = 0.0,
                        DataPointType type = None);
  CNetworkData(const CNetworkData& other);  // deep copy; same owner
  CNetworkData& operator=(const CNetworkData& other);
  CNetworkData(CNetworkData&&) noexcept = default;
  CNetworkData& operator=(CNetworkData&&) noexcept = default;
  ~CNetworkData() override;
  virtual std::unique_ptr<CNetworkData> Clone() const;

  // Persistence.
  AString GetBlockName() const override { return "DataPoint"; }
  int ReadFromBlock(const io::CBlock& block) override;
  bool WriteToBlock(io::CBlock& block) const override;

  INetworkDataOwner* GetOwner() const { return m_Owner; }
  void SetOwner(INetworkDataOwner* owner) { m_Owner = owner; }
  // Matrix size: the owner's port count, 0 without owner.
  virtual int GetNumPorts() const;

  double GetFrequency() const { return m_Frequency; }
  void SetFrequency(double frequency) { m_Frequency = frequency; }
  DataPointType GetDataType() const { return m_DataType; }
  void SetDataType(DataPointType type) { m_DataType = type; }

  // The matrices; derived classes compute an absent one when `compute` is
  // true. Pointers stay valid until the point changes or dies.
  virtual CMatrix* GetSMatrix(bool compute = true);
  virtual CMatrix* GetYMatrix(bool compute = true);
  virtual CMatrix* GetZMatrix(bool compute = true);
  // Install a stored (not derived) matrix; a null pointer removes it.
  void SetSMatrix(std::unique_ptr<CMatrix> s);
  void SetYMatrix(std::unique_ptr<CMatrix> y);
  void SetZMatrix(std::unique_ptr<CMatrix> z);
  // Forgets every matrix computed from another one (after a stored matrix
  // or the reference impedances changed).
  void DropDerivedMatrices();
  bool IsSDerived() const { return m_SIsDerived; }
  bool IsYDerived() const { return m_YIsDerived; }
  bool IsZDerived() const { return m_ZIsDerived; }

  CVector* GetScatteredB() { return m_ScatteredB.get(); }
  void SetScatteredB(std::unique_ptr<CVector> b) { m_ScatteredB = std::move(b); }
  CMatrix* GetCompanionMatrix1() { return m_CompanionMatrix1.get(); }
  CMatrix* GetCompanionMatrix2() { return m_CompanionMatrix2.get(); }
  void SetCompanionMatrix1(std::unique_ptr<CMatrix> m) { m_CompanionMatrix1 = std::move(m); }
  void SetCompanionMatrix2(std::unique_ptr<CMatrix> m) { m_CompanionMatrix2 = std::move(m); }

  // Per-port vector of a kind (nd::kPortImpedances, nd::kPropagationConstants);
  // null when the point has none.
  virtual const CVector* GetPortVector(int kind) const;
  // Vector quantities exist only on derived points; the base reports misuse.
  virtual const CVector* GetVectorQuantity(int kind) const;
  virtual Complex GetVectorValue(int kind, int i) const;

  // Value of a quantity code (nd::NetworkQuantity) at (i, j); 0 when the
  // point cannot give it.
  virtual Complex GetValue(int quantity, int i, int j);

  // Capabilities.
  virtual bool IsModal() const { return false; }
  virtual bool IsTerminal() const { return false; }
  virtual bool HasPortImpedances() const { return false; }
  virtual bool HasMatrixQuantities() const { return true; }

  virtual void Accept(CNetworkDataVisitor& visitor);

  // A free per-point real (the interpolation visitors keep their error here).
  double GetValue() const { return m_Value; }
  void SetValue(double value) { m_Value = value; }

  // The point that carries the network data (derived points may stand in
  // for another one).
  virtual CNetworkData* GetNetworkData() { return this; }

  // Bytes held by the matrices.
  virtual size_t GetMemorySize() const;

 protected:
  // The shared conversions. `z` are the reference impedances (null or too
  // short when unknown). Each returns the new matrix or null when it cannot
  // be formed.
  CMatrix* ComputeYMatrix(const CVector* z);
  CMatrix* ComputeZMatrix(const CVector* z);
  CMatrix* ComputeSMatrix(const CVector* z);

 private:
  io::ReadError ReadStoredMatrix(const io::CBlock& block, const char* key,
                                 std::unique_ptr<CMatrix>& matrix, int n);

  INetworkDataOwner* m_Owner = nullptr;
  std::unique_ptr<CMatrix> m_SMatrix;
  std::unique_ptr<CMatrix> m_YMatrix;
  std::unique_ptr<CMatrix> m_ZMatrix;
  std::unique_ptr<CMatrix> m_CompanionMatrix1;
  std::unique_ptr<CMatrix> m_CompanionMatrix2;
  std::unique_ptr<CVector> m_ScatteredB;
  bool m_SIsDerived = false;
  bool m_YIsDerived = false;
  bool m_ZIsDerived = false;
  double m_Frequency = 0.0;
  DataPointType m_DataType = None;
  double m_Value = 0.0;
};
