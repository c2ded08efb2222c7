// Information sources: what the host's status pages show of the current laser. Each class writes its ancestors'
// keys first, then its own; reading never changes the laser.
#pragma once

#include <memory>

#include "host/InfoSource.h"
#include "host/NcLaser30.h"

namespace devlaser {

class TNcLaserInfo : public nchost::TVkInfoSource {
 public:
  explicit TNcLaserInfo(std::shared_ptr<nchost::INcLaser30> laser) : FLaser(std::move(laser)) {}
  void ReadAllData(nchost::ISuperObject& obj) override;

 protected:
  std::shared_ptr<nchost::INcLaser30> FLaser;
};

class TFiberLaserInfo : public TNcLaserInfo {
 public:
  using TNcLaserInfo::TNcLaserInfo;
  void ReadAllData(nchost::ISuperObject& obj) override;
};

class TIPG500LaserInfo : public TFiberLaserInfo {
 public:
  using TFiberLaserInfo::TFiberLaserInfo;
  void ReadAllData(nchost::ISuperObject& obj) override;
};

class TIPGYLSLaserInfo : public TFiberLaserInfo {
 public:
  using TFiberLaserInfo::TFiberLaserInfo;
  void ReadAllData(nchost::ISuperObject& obj) override;
};

class TRaycusLaserInfo : public TFiberLaserInfo {
 public:
  using TFiberLaserInfo::TFiberLaserInfo;
  void ReadAllData(nchost::ISuperObject& obj) override;
};

// Never chosen by CreateLaserInfo (the QCW laser is no TRaycusLaser); for callers that create it directly.
class TRaycusQCWInfo : public TFiberLaserInfo {
 public:
  using TFiberLaserInfo::TFiberLaserInfo;
  void ReadAllData(nchost::ISuperObject& obj) override;
};

// The source that fits the laser's class; null for a null laser.
std::shared_ptr<nchost::TVkInfoSource> CreateLaserInfo(std::shared_ptr<nchost::INcLaser30> laser);

}  // namespace devlaser
