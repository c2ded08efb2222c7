#include "AlarmBook.h"

namespace laserctl {

void TAlarmBook::RegisterAlarm(int32_t id, const nchost::TNcAlarmDef& def) {
  (void)def;  // the definition words are the host's display settings; laserctl shows the laser's own text
  std::lock_guard lock(FMutex);
  TAlarm& alarm = FAlarms[id];
  alarm.Id = id;
  if (!alarm.Registered) {
    alarm.Registered = true;
    FOrder.push_back(id);
  }
}

void TAlarmBook::ReportAlarm(int32_t id, bool raised) {
  std::lock_guard lock(FMutex);
  TAlarm& alarm = FAlarms[id];
  alarm.Id = id;
  alarm.Raised = raised;
}

std::vector<TAlarmBook::TAlarm> TAlarmBook::Alarms() const {
  std::lock_guard lock(FMutex);
  std::vector<TAlarm> result;
  result.reserve(FAlarms.size());
  for (int32_t id : FOrder) result.push_back(FAlarms.at(id));
  for (const auto& [id, alarm] : FAlarms)
    if (!alarm.Registered) result.push_back(alarm);
  return result;
}

}  // namespace laserctl
