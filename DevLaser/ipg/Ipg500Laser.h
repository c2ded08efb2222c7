// The IPG YLR laser as configured through the laser configuration (sub-types 1 and 2).
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TIPG500Laser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
