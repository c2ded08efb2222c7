// The built-in laser classes, registered in this order when the library loads.
#pragma once

#include "registry/LaserLib.h"
#include "registry/LaserTypeDic.h"

namespace devlaser {

void RegisterBuiltInLasers(TNcLaserLib& lib, TLaserTypeDic& types);

}  // namespace devlaser
