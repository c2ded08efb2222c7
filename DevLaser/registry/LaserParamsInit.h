// Turns the persisted laser configuration into the parameter record a laser is built from: the common part for
// every laser, then one procedure per laser family that fills the family's record, transport and sub-type.
#pragma once

#include <functional>
#include <map>

#include "frame/LaserConfig.h"
#include "frame/LaserParams.h"
#include "registry/LaserTypeDic.h"

namespace devlaser {

class TLaserParamsInit {
 public:
  // Reads the configuration (family nodes are created on first access, hence not const) into the record.
  using TParamsProc = std::function<void(TLaserConfig& config, TLaserParams& params)>;

  // Registers the procedure of every family.
  TLaserParamsInit();

  void LaserConfigToParams(TLaserConfig& config, TLaserParams& params) const;

  TLaserTypeDic& Types() { return FTypes; }
  const TLaserTypeDic& Types() const { return FTypes; }

 private:
  std::map<TEnumLaserType, TParamsProc> FProcs;
  TLaserTypeDic FTypes;
};

// The procedures, one per family (a family without one keeps only the common part).
namespace paramsinit {
void CO2(TLaserConfig& config, TLaserParams& params);
void IPG(TLaserConfig& config, TLaserParams& params);
void Raycus(TLaserConfig& config, TLaserParams& params);
void Trumpf(TLaserConfig& config, TLaserParams& params);
void GSI(TLaserConfig& config, TLaserParams& params);
void MaxSZ(TLaserConfig& config, TLaserParams& params);
void Meiman(TLaserConfig& config, TLaserParams& params);
void SPI(TLaserConfig& config, TLaserParams& params);
void Rofin(TLaserConfig& config, TLaserParams& params);
void Other(TLaserConfig& config, TLaserParams& params);
void Zorun(TLaserConfig& config, TLaserParams& params);
// The serial settings of a family's communication node; the laser then talks over that serial line.
void SerialRule(const TLaserCommConfig& comm, TLaserParams& params);
// The log line of a model that its family does not know, e.g. "Max" followed by SUnkownLaserType.
void LogUnknownModel(const char* family);
}  // namespace paramsinit

}  // namespace devlaser
