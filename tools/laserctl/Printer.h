// What laserctl writes to standard output: readable lines stamped with the time since the commands started, or
// with --json one JSON object per line for programs, each saying when ("t", seconds since the commands started)
// and which command it comes from ("cmd"). Messages and log lines go to standard error instead.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace laserctl {

struct TAlarmLine {
  int32_t Id = 0;
  bool Raised = false;
  std::string Desc;
};

class TPrinter {
 public:
  explicit TPrinter(bool json) : FJson(json) {}

  // Starts the clock that readable lines are stamped with.
  void StartClock() { FStart = std::chrono::steady_clock::now(); }

  // A command about to run (readable output only: in JSON every line is a result).
  void Command(const std::string& text);
  // The information source's object, as compact JSON text, shown by the command `cmd` (status, watch).
  void Status(const char* cmd, const std::string& json);
  // What the alarms command shows: every registered alarm.
  void Alarms(const std::vector<TAlarmLine>& alarms);
  void Exec(int32_t number, double param, int32_t result);
  // What watch saw change: one status value (as JSON texts), or one alarm raised or cleared (or raised when the
  // watch started).
  void StatusChange(const std::string& key, const std::string& before, const std::string& after);
  void AlarmChange(const TAlarmLine& alarm);

 private:
  void Line(const std::string& text);
  std::string Stamp() const;
  double Seconds() const;  // since the clock started, to the millisecond

  const bool FJson;
  std::chrono::steady_clock::time_point FStart = std::chrono::steady_clock::now();
  std::mutex FMutex;
};

}  // namespace laserctl
