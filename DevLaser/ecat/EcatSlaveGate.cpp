#include "ecat/EcatSlaveGate.h"

namespace devlaser {

bool TEcatSlaveGate::WriteInput(uint32_t index, uint32_t value) {
  std::lock_guard lock(FMutex);
  if (FClosed) return false;
  FSlave->WriteInput(index, value);
  return true;
}

bool TEcatSlaveGate::ChangeInput(uint32_t index, uint32_t bits, bool set) {
  std::lock_guard lock(FMutex);
  if (FClosed) return false;
  const uint32_t value = FSlave->ReadInput(index);
  FSlave->WriteInput(index, set ? value | bits : value & ~bits);
  return true;
}

bool TEcatSlaveGate::HoldUntil(Clock::time_point deadline) {
  std::unique_lock lock(FMutex);
  return !FClosedSignal.wait_until(lock, deadline, [this] { return FClosed; });
}

void TEcatSlaveGate::Close(uint32_t index, uint32_t value) {
  std::lock_guard lock(FMutex);
  if (FClosed) return;
  FClosed = true;
  // Holds wake first (they return once the write below is done), even when the host's write throws.
  FClosedSignal.notify_all();
  FSlave->WriteInput(index, value);
}

}  // namespace devlaser
