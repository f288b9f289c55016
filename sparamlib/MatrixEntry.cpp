// Stored form of a matrix entry.
#include "sparamlib/MatrixEntry.h"

namespace {

// Keeps the first hard error of a sequence of reads.
void Keep(int& worst, int result) {
  if (io::IsReadOk(worst) && !io::IsReadOk(result)) worst = result;
}

}  // namespace

int CMatrixEntry::ReadFromBlock(const io::CBlock& block) {
  int result = io::kReadOk;
  Keep(result, block.GetString("ModalEntryName", m_ModalEntryName));
  Keep(result, block.GetString("TerminalEntryName", m_TerminalEntryName));
  Keep(result, block.GetString("PortName", m_PortName));
  Keep(result, block.GetInteger("Mode", m_Mode));
  Keep(result, block.GetString("ModeName", m_ModeName));
  Keep(result, block.GetString("TerminalName", m_TerminalName));
  Keep(result, block.GetString("ParameterName", m_ParameterName));
  Keep(result, block.GetInteger("MatrixIndex", m_MatrixIndex));
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
