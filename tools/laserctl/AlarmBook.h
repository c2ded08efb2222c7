// laserctl's own alarm table and alarm report: what the laser registers once and what it reports at each
// UpdateAlarms, kept so that the `alarms` command can list every alarm with its state.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "host/NcAlarm.h"

namespace laserctl {

class TAlarmBook : public nchost::INcAlarmTable20, public nchost::INcAlarmReport20 {
 public:
  struct TAlarm {
    int32_t Id = 0;
    bool Raised = false;
    bool Registered = false;  // false for an ID the laser reported without registering it
  };

  void RegisterAlarm(int32_t id, const nchost::TNcAlarmDef& def) override;
  void ReportAlarm(int32_t id, bool raised) override;

  // Registered alarms in the order of registration, then any reported without registration, by ID.
  std::vector<TAlarm> Alarms() const;

 private:
  mutable std::mutex FMutex;  // the laser may register or report from its own threads
  std::vector<int32_t> FOrder;
  std::map<int32_t, TAlarm> FAlarms;
};

}  // namespace laserctl
