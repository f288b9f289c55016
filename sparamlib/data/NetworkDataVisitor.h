// CNetworkDataVisitor: double dispatch over the kinds of data point, for
// writers and reports that treat modal points differently.
#pragma once

class CNetworkData;
class CNetworkModalData;

class CNetworkDataVisitor {
 public:
  virtual ~CNetworkDataVisitor() = default;
  virtual void Visit(CNetworkData& point) = 0;
  // Modal points fall back to the generic visit unless a visitor cares.
  virtual void Visit(CNetworkModalData& point);
};
