// A differential pair of terminals and its stored "Pair" block.
#include "sparamlib/solution/FxemDifferentialPair.h"

std::unique_ptr<CFxemDifferentialPair> CFxemDifferentialPair::Clone() const {
  return std::make_unique<CFxemDifferentialPair>(*this);
}

bool CFxemDifferentialPair::Write(io::CBlock& block) const {
  block.AddString("CommPortName", m_CommPortName);
  block.AddString("DiffPortName", m_DiffPortName);
  block.AddString("DiffName", m_DiffName);
  block.AddInteger("PosTerminalIndex", m_PosTerminalIndex);
  block.AddString("CommonName", m_CommonName);
  block.AddInteger("NegTerminalIndex", m_NegTerminalIndex);
  block.AddBoolean("UseMatched", m_UseMatched);
  return !block.HasReadError();
}

int CFxemDifferentialPair::Read(const io::CBlock& block) {
  // Older files named one port for both modes; a present "PortName" wins,
  // even when it cannot be read, so the two newer names are not mixed in.
  AString portName;
  const io::ReadError r = block.GetString("PortName", portName);
  if (r == io::kReadOk) {
    m_CommPortName = portName;
    m_DiffPortName = portName;
  } else if (r == io::kReadTolerated) {
    block.GetString("CommPortName", m_CommPortName);
    block.GetString("DiffPortName", m_DiffPortName);
  }
  block.GetString("DiffName", m_DiffName);
  block.GetInteger("PosTerminalIndex", m_PosTerminalIndex);
  block.GetString("CommonName", m_CommonName);
  block.GetInteger("NegTerminalIndex", m_NegTerminalIndex);
  block.GetBoolean("UseMatched", m_UseMatched);
  return block.HasReadError() ? -1 : 0;
}
