// CMatrixEntry: one row/column of every matrix of a solution: which port,
// mode or terminal it is, under which names it is shown, and its 0-based
// index in the matrices. Stored as a "Port" block.
#pragma once

#include "core/AString.h"
#include "core/Block.h"

class CMatrixEntry {
 public:
  CMatrixEntry() = default;
  CMatrixEntry(AString portName, int mode, int matrixIndex)
      : m_PortName(std::move(portName)), m_Mode(mode), m_MatrixIndex(matrixIndex) {}

  const AString& GetModalEntryName() const { return m_ModalEntryName; }
  const AString& GetTerminalEntryName() const { return m_TerminalEntryName; }
  const AString& GetPortName() const { return m_PortName; }
  int GetMode() const { return m_Mode; }
  const AString& GetModeName() const { return m_ModeName; }
  const AString& GetTerminalName() const { return m_TerminalName; }
  const AString& GetParameterName() const { return m_ParameterName; }
  int GetMatrixIndex() const { return m_MatrixIndex; }

  void SetModalEntryName(const AString& name) { m_ModalEntryName = name; }
  void SetTerminalEntryName(const AString& name) { m_TerminalEntryName = name; }
  void SetPortName(const AString& name) { m_PortName = name; }
  void SetMode(int mode) { m_Mode = mode; }
  void SetModeName(const AString& name) { m_ModeName = name; }
  void SetTerminalName(const AString& name) { m_TerminalName = name; }
  void SetParameterName(const AString& name) { m_ParameterName = name; }
  void SetMatrixIndex(int index) { m_MatrixIndex = index; }

  // Absent keys keep their values; a key holding the wrong kind of value is
  // a hard error (its io::ReadError code), reported in the block.
  int ReadFromBlock(const io::CBlock& block);
  bool WriteToBlock(io::CBlock& block) const;

  friend bool operator==(const CMatrixEntry&, const CMatrixEntry&) = default;

 private:
  AString m_ModalEntryName;
  AString m_TerminalEntryName;
  AString m_PortName;
  int m_Mode = 0;
  AString m_ModeName;
  AString m_TerminalName;
  AString m_ParameterName;
  int m_MatrixIndex = 0;
};
