// The IPG lasers other than YLR and the one on the EtherCAT bus: YLS (binary protocol or hard-wired), the
// 1000-series hard-wired lasers and the YLP pulse laser. Driven hard-wired, as the common fiber laser, until their
// own interfaces are built.
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

}  // namespace devlaser
