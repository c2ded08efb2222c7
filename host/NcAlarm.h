// Alarm registration and reporting: a device registers its alarm IDs once, then reports their state each cycle.
#pragma once

#include <array>
#include <cstdint>

#include "HostDefs.h"

namespace nchost {

// An alarm definition as the host stores it: eight 32-bit words whose meaning is the host's.
struct TNcAlarmDef {
  std::array<int32_t, 8> Words{};
};

class NCHOST_API INcAlarmTable20 {
 public:
  virtual ~INcAlarmTable20() = default;
  virtual void RegisterAlarm(int32_t id, const TNcAlarmDef& def) = 0;
};

class NCHOST_API INcAlarmReport20 {
 public:
  virtual ~INcAlarmReport20() = default;
  // Reports whether alarm `id` is currently raised.
  virtual void ReportAlarm(int32_t id, bool raised) = 0;
};

}  // namespace nchost
