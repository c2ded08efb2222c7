// Runs laserctl's commands against the laser, one at a time, on the calling thread (the host's control thread).
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "AlarmBook.h"
#include "Commands.h"
#include "Printer.h"
#include "StopSignals.h"
#include "api/DevLaserPlugin.h"

namespace laserctl {

class TCommandRunner {
 public:
  // Receives laserctl's own messages with their host message type.
  using TReport = std::function<void(int msgType, const std::string& text)>;

  TCommandRunner(const devlaser::TDevLaserApi& api, nchost::INcLaser30& laser, TAlarmBook& alarms, TPrinter& printer,
                 TStopSignals& stop, TReport report)
      : FApi(api), FLaser(laser), FAlarms(alarms), FPrinter(printer), FStop(stop), FReport(std::move(report)) {}

  // Runs one command; false (and reported) when it could not run.
  bool Run(const TCommand& command);

 private:
  void Execute(const TCommand& command);
  bool Status();
  void Alarms();
  void Watch(int64_t seconds);
  bool Fail(const TCommand& command, const std::string& why);

  const devlaser::TDevLaserApi& FApi;
  nchost::INcLaser30& FLaser;
  TAlarmBook& FAlarms;
  TPrinter& FPrinter;
  TStopSignals& FStop;
  TReport FReport;
};

}  // namespace laserctl
