// The IPG YLR laser that the laser configuration gives (sub-types 1 and 2), of the first generation: the shared YLR
// command logic (emission sequences, aiming beam, diode
// current, state queries, alarm reports) on a first-generation driver. It has no start or power-control pulses
// and no pulse-model switch.
#pragma once

#include <memory>
#include <string>

#include "ipg/IpgYlrLaserBase.h"

namespace devlaser {

class TIPG500Laser : public TIPGYLRLaserBase {
 public:
  using TIPGYLRLaserBase::TIPGYLRLaserBase;

  std::string GetAlarmIDPrefix() override;

 protected:
  std::unique_ptr<TIPGYLRDriver> CreateDriver() override;
  // The first generation's masks: bits 6 and 9 warn, and warnings count in QCW operation.
  void ConfigureDriver() override;
};

}  // namespace devlaser
