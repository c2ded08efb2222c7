// Fiber lasers of several makers that the controller drives only through its outputs, PWM and the analogue
// diode-current output: they behave as the common fiber laser.
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TTrumpfLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TRofinLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TMeimanLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TLPINGLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TOpticalValleyLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
