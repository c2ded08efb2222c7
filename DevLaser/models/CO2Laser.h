// CO2 lasers: driven by the controller's outputs, PWM and DA like any hard-wired laser, without the fiber
// laser's diode-current handling.
#pragma once

#include "core/NcLaser.h"

namespace devlaser {

class TCO2Laser : public TNcLaser {
 public:
  using TNcLaser::TNcLaser;
  // A CO2 source gives no laser-on feedback: it is on when it was commanded on.
  bool GetIsLaserOn() override { return GetIsCmdLaserOn(); }
};

}  // namespace devlaser
