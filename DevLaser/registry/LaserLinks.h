// The links a laser class talks over. A class that speaks its own protocol says which with a static member
// `kProtocolLinks`; a class without one is a hard-wired laser on the controller's IO.
#pragma once

#include <cstdint>

namespace devlaser {

enum TLaserLink : uint8_t { llIO = 1, llSerial = 2, llTcp = 4, llUdp = 8, llEthercat = 16 };

}  // namespace devlaser
