#include "CommandRunner.h"

#include <map>
#include <nlohmann/json.hpp>

#include <chrono>
#include <exception>
#include <stdexcept>

#include "host/HostDefs.h"
#include "refhost/JsonObject.h"

namespace laserctl {
namespace {

// A command that cannot run at all (as opposed to a laser that refuses quietly, which only the laser knows).
class TCommandFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace

bool TCommandRunner::Run(const TCommand& command) {
  // Commands that print a result are shown by their result; the others are echoed to mark the time line.
  const bool printsResult = command.Kind == TCommandKind::Status || command.Kind == TCommandKind::Alarms ||
                            command.Kind == TCommandKind::Exec || command.Kind == TCommandKind::Watch;
  if (!printsResult) FPrinter.Command(CommandText(command));
  try {
    Execute(command);
    return true;
  } catch (const std::exception& e) {
    return Fail(command, e.what());
  } catch (...) {
    return Fail(command, "an unknown exception");
  }
}

void TCommandRunner::Execute(const TCommand& command) {
  switch (command.Kind) {
    case TCommandKind::PowerOn:
      FLaser.PowerOn();
      return;
    case TCommandKind::PowerOff:
      FLaser.PowerOff();
      return;
    case TCommandKind::LaserOn:
      FLaser.LaserOn();
      return;
    case TCommandKind::LaserOff:
      FLaser.LaserOff();
      return;
    case TCommandKind::EmissionOn:
      FLaser.EmissionOn();
      return;
    case TCommandKind::EmissionOff:
      FLaser.EmissionOff();
      return;
    case TCommandKind::AimingOn:
      FLaser.SetAimingOn(true);
      return;
    case TCommandKind::AimingOff:
      FLaser.SetAimingOn(false);
      return;
    case TCommandKind::Diode:
      FLaser.SetDiodeCurrent(command.Value);
      return;
    case TCommandKind::PwmFreq:
      FLaser.SetPwmFreq(static_cast<int32_t>(command.Number));
      return;
    case TCommandKind::PwmRatio:
      FLaser.SetPwmRatio(command.Value);
      return;
    case TCommandKind::Wait:
      if (FStop.WaitFor(std::chrono::milliseconds(command.Number))) throw TCommandFailure("stopped by a signal");
      return;
    case TCommandKind::Exec: {
      const auto cmd = static_cast<int32_t>(command.Number);
      FPrinter.Exec(cmd, command.Value, FLaser.ExecuteCmd(cmd, command.Value));
      return;
    }
    case TCommandKind::Status:
      if (!Status()) throw TCommandFailure("the plug-in has no information source for this laser");
      return;
    case TCommandKind::Alarms:
      Alarms();
      return;
    case TCommandKind::Watch:
      Watch(command.Number);
      return;
  }
}

bool TCommandRunner::Status() {
  // The source holds the laser; it is dropped at once so that it never outlives the laser's destruction.
  const std::shared_ptr<nchost::TVkInfoSource> source = FApi.CreateLaserInfoSource();
  if (!source) return false;
  const auto object = refhost::CreateJsonObject();
  source->ReadAllData(*object);
  FPrinter.Status("status", object->AsJson());
  return true;
}

void TCommandRunner::Alarms() {
  FLaser.UpdateAlarms(FAlarms);
  std::vector<TAlarmLine> lines;
  for (const auto& alarm : FAlarms.Alarms()) lines.push_back({alarm.Id, alarm.Raised, FLaser.GetAlarmDesc(alarm.Id)});
  FPrinter.Alarms(lines);
}

void TCommandRunner::Watch(int64_t seconds) {
  // The first sample shows the whole state; later ones only what changed, so that a steady laser stays quiet.
  // Samples fall on whole seconds from the start, so that slow samples do not make the watch drift.
  const auto start = std::chrono::steady_clock::now();
  nlohmann::json lastStatus;
  std::map<int32_t, bool> lastRaised;
  for (int64_t second = 0; second <= seconds; ++second) {
    if (second > 0) {
      const auto next = start + std::chrono::seconds(second);
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - std::chrono::steady_clock::now());
      if (FStop.WaitFor(std::max(left, std::chrono::milliseconds::zero())))
        throw TCommandFailure("stopped by a signal");
    }
    const std::shared_ptr<nchost::TVkInfoSource> source = FApi.CreateLaserInfoSource();
    if (!source) throw TCommandFailure("the plug-in has no information source for this laser");
    const auto object = refhost::CreateJsonObject();
    source->ReadAllData(*object);
    const std::string statusText = object->AsJson();
    FLaser.UpdateAlarms(FAlarms);
    if (second == 0) {
      FPrinter.Status("watch", statusText);
      lastStatus = nlohmann::json::parse(statusText, nullptr, false);
      for (const auto& alarm : FAlarms.Alarms()) {
        lastRaised[alarm.Id] = alarm.Raised;
        if (alarm.Raised) FPrinter.AlarmChange({alarm.Id, true, FLaser.GetAlarmDesc(alarm.Id)});
      }
      continue;
    }
    const nlohmann::json status = nlohmann::json::parse(statusText, nullptr, false);
    if (status.is_object() && lastStatus.is_object())
      for (const auto& [key, value] : status.items())
        if (!lastStatus.contains(key) || lastStatus[key] != value)
          FPrinter.StatusChange(key, lastStatus.contains(key) ? lastStatus[key].dump() : "-", value.dump());
    lastStatus = status;
    for (const auto& alarm : FAlarms.Alarms()) {
      auto [known, added] = lastRaised.try_emplace(alarm.Id, false);
      if (known->second == alarm.Raised) continue;
      known->second = alarm.Raised;
      FPrinter.AlarmChange({alarm.Id, alarm.Raised, FLaser.GetAlarmDesc(alarm.Id)});
    }
  }
}

bool TCommandRunner::Fail(const TCommand& command, const std::string& why) {
  FReport(nchost::msgtype::kError, "command word " + std::to_string(command.Position) + " \"" + CommandText(command) +
                                       "\" could not run: " + why);
  return false;
}

}  // namespace laserctl
