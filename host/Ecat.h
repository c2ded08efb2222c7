// The host's EtherCAT real-time system, as far as lasers need it: whether a laser slave is on the bus, its two
// identity words, and the slave's process image.
//
// The process image is reached by index; each index names one 32-bit entry as the host's master maps it. The
// master exchanges the image with the slave every bus cycle: a laser class only reads the outputs the slave last
// sent and writes the inputs the master sends next. The IPG laser slave uses
//   output 0  status word (written by the laser)
//   output 3  alarm dword (alarm bits 16..28)
//   input 0   control word (written by the controller)
//   input 1   power set-point in watts
#pragma once

#include <cstdint>
#include <memory>

#include "HostDefs.h"

namespace nchost {

// The identity of the laser slave on the bus: two words from the slave's description.
struct TEcatLaserIdentity {
  uint32_t Word1 = 0;
  uint32_t Word2 = 0;
};

// One laser slave's process image. Calls may come from any thread and never block on the bus.
class NCHOST_API IEcatLaserSlave {
 public:
  virtual ~IEcatLaserSlave() = default;
  // The output entry `index` (sent by the slave); 0 for an index the slave does not map.
  virtual uint32_t ReadOutput(uint32_t index) = 0;
  // The input entry `index` as last written (sent to the slave); 0 for an index the slave does not map.
  virtual uint32_t ReadInput(uint32_t index) = 0;
  // Sets input entry `index` for the next bus cycle; an index the slave does not map is ignored.
  virtual void WriteInput(uint32_t index, uint32_t value) = 0;
};

class NCHOST_API IEcatSystem {
 public:
  virtual ~IEcatSystem() = default;
  // True when a laser slave is present; then `identity` holds its two identity words.
  virtual bool GetLaserSlave(TEcatLaserIdentity& identity) = 0;
  // The laser slave's process image, or null when no laser slave is present. A laser keeps the reference for
  // its lifetime.
  virtual std::shared_ptr<IEcatLaserSlave> LaserSlaveImage() = 0;
};

}  // namespace nchost
