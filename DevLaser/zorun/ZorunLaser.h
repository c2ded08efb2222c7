// The maker's own networked fiber laser. Driven hard-wired, as the common fiber laser, until its protocol
// driver is built.
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TZorunLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
