// The host's EtherCAT real-time system, as far as lasers need it.
#pragma once

#include <cstdint>

#include "HostDefs.h"

namespace nchost {

// The identity of the laser slave on the bus: two words from the slave's description.
struct TEcatLaserIdentity {
  uint32_t Word1 = 0;
  uint32_t Word2 = 0;
};

class NCHOST_API IEcatSystem {
 public:
  virtual ~IEcatSystem() = default;
  // True when a laser slave is present; then `identity` holds its two identity words.
  virtual bool GetLaserSlave(TEcatLaserIdentity& identity) = 0;
};

}  // namespace nchost
