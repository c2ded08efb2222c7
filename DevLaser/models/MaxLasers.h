// Max fiber lasers: hard-wired (sub-types 0 and 1), with a serial line (G3) and on the EtherCAT bus. The serial
// and bus variants are driven hard-wired until their protocols are built.
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TMaxLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TMaxG3Laser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TMaxEcatLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
