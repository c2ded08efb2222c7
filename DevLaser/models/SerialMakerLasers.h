// Fiber lasers of other makers that also have a serial command line. Until their makers' protocols are built,
// they are driven hard-wired, as the common fiber laser.
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TSPILaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TSPI1000Laser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

// Also serves GSI lasers, which share JK's interface.
class TJKLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TNLightLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TCASLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TMarsLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
