// Raycus fiber lasers: the serial laser (RaycusLaser.h), the QCW laser, the single- and multi-module lasers and
// the RFL network laser. All but the serial laser are driven hard-wired, as the common fiber laser, until their
// protocols are built.
#pragma once

#include "core/FiberLaser.h"
#include "raycus/RaycusLaser.h"

namespace devlaser {

// Not a TRaycusLaser: the QCW laser has a protocol of its own.
class TRayQCWLaser : public TFiberLaser {
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
