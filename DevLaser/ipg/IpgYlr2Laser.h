// The newer-generation IPG YLR laser (sub-type 3).
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TIPGYLR2Laser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
};

}  // namespace devlaser
