// Raycus fiber lasers: the serial CW laser, the QCW laser, the single- and multi-module lasers and the RFL
// network laser. They are driven hard-wired, as the common fiber laser, until their protocols are built.
#pragma once

#include "core/FiberLaser.h"
#include "raycus/RayQcwLaser.h"

namespace devlaser {

class TRaycusLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TRaySMLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TRayMMLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

class TRaycusRFL : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
