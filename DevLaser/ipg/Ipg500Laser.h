// The IPG YLR laser as configured through the laser configuration (sub-types 1 and 2).
#pragma once

#include "core/FiberLaser.h"

namespace devlaser {

class TIPGYLRDriver;

class TIPG500Laser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;

  // The laser's YLR driver, whose cached status words the information pages show; null while it has none.
  virtual const TIPGYLRDriver* YlrDriver() const { return nullptr; }
};

}  // namespace devlaser
