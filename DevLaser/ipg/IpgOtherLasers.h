// The IPG lasers other than YLR: YLS (binary protocol or hard-wired), the 1000-series hard-wired lasers, the YLP
// pulse laser and the laser on the EtherCAT bus. Driven hard-wired, as the common fiber laser, until their own
// interfaces are built.
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TIPGYLSLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TIPG1000Laser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TIPGYLPLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TIPGEcatLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
