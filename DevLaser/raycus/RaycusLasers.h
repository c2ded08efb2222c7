// Raycus fiber lasers: the serial laser (RaycusLaser.h), the QCW laser (RayQcwLaser.h), the single- and
// multi-module lasers and the RFL network laser. The last three are driven hard-wired, as the common fiber laser,
// until their protocols are built.
#pragma once

#include "core/FiberLaser.h"
#include "raycus/RayQcwLaser.h"
#include "raycus/RaycusLaser.h"

namespace devlaser {

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
