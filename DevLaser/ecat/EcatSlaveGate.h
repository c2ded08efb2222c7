// The laser's door to its slave's process image on the EtherCAT bus. Writes pass until Close(), which writes the
// slave's safe value, refuses every later write and wakes every hold at once: a laser held in a timed sequence
// on the caller's thread gives up without touching the bus again. Reads stay live (they put nothing on the bus;
// the host's master exchanges the image on its own).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "host/Ecat.h"

namespace devlaser {

class TEcatSlaveGate {
 public:
  using Clock = std::chrono::steady_clock;

  explicit TEcatSlaveGate(std::shared_ptr<nchost::IEcatLaserSlave> slave) : FSlave(std::move(slave)) {}

  uint32_t ReadOutput(uint32_t index) { return FSlave->ReadOutput(index); }
  // Sets input `index`; false, writing nothing, once the gate is closed.
  bool WriteInput(uint32_t index, uint32_t value);
  // Sets or clears `bits` of input `index` in one read-modify-write; false once the gate is closed.
  bool ChangeInput(uint32_t index, uint32_t bits, bool set);
  // Waits until `deadline`; false, at once, when the gate is or gets closed.
  bool HoldUntil(Clock::time_point deadline);
  // Writes `value` to input `index` as the last write ever, once; later calls do nothing.
  void Close(uint32_t index, uint32_t value);

 private:
  const std::shared_ptr<nchost::IEcatLaserSlave> FSlave;
  std::mutex FMutex;  // one write at a time, so that Close comes after every write it lets through
  std::condition_variable FClosedSignal;
  bool FClosed = false;
};

}  // namespace devlaser
