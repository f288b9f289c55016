// Stored form of a matrix entry.
#include "sparamlib/solution/MatrixEntry.h"

int CMatrixEntry::ReadFromBlock(const io::CBlock& block) {
  int result = io::kReadOk;
  io::KeepFirstError(result, block.GetString("ModalEntryName", m_ModalEntryName));
  io::KeepFirstError(result, block.GetString("TerminalEntryName", m_TerminalEntryName));
  io::KeepFirstError(result, block.GetString("PortName", m_PortName));
  io::KeepFirstError(result, block.GetInteger("Mode", m_Mode));
  io::KeepFirstError(result, block.GetString("ModeName", m_ModeName));
  io::KeepFirstError(result, block.GetString("TerminalName", m_TerminalName));
  io::KeepFirstError(result, block.GetString("ParameterName", m_ParameterName));
  io::KeepFirstError(result, block.GetInteger("MatrixIndex", m_MatrixIndex));
  return result;
}

bool CMatrixEntry::WriteToBlock(io::CBlock& block) const {
  block.AddString("ModalEntryName", m_ModalEntryName);
  block.AddString("TerminalEntryName", m_TerminalEntryName);
  block.AddString("PortName", m_PortName);
  block.AddInteger("Mode", m_Mode);
  block.AddString("ModeName", m_ModeName);
  block.AddString("TerminalName", m_TerminalName);
  block.AddString("ParameterName", m_ParameterName);
  block.AddInteger("MatrixIndex", m_MatrixIndex);
  return true;
}
