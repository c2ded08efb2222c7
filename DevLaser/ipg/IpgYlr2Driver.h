// The driver of the newer IPG YLR generation: the same text protocol, a longer connect time-out, and bit tables
// in which several first-generation alarms only warn while the laser runs CW.
#pragma once

#include "ipg/IpgYlrDriver.h"

namespace devlaser {

class TIPGYLR2Driver : public TIPGYLRDriver {
 public:
  explicit TIPGYLR2Driver(const TLaserParams& params, TLaserPorts* ports = nullptr);

  // CW: the short alarm mask with its warnings; QCW: the full alarm mask, warnings left as they are. Unlike the
  // first generation, the QCW flag itself is not stored, so HasWarning stays false.
  void SetQCWMode(bool on) override;
};

}  // namespace devlaser
