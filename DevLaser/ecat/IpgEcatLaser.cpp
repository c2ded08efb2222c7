#include "ecat/IpgEcatLaser.h"

#include <algorithm>
#include <vector>

#include "ecat/IpgEcatImage.h"
#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserError.h"

namespace devlaser {

using namespace ipgecat;
using namespace std::chrono_literals;

namespace {

constexpr nchost::TEcatLaserIdentity kIpgIdentity{0xE0000044, 3};
// Below this rated power the set-point would always be 0 W; the laser is taken as a 1 W laser instead.
constexpr double kMinRatedPower = 0.01;
// Added to the first word of the common laser alarm definition for this laser's alarms (the word is the host's).
constexpr int32_t kEcatAlarmKind = 128;

std::shared_ptr<nchost::IEcatLaserSlave> BusLaserSlave() {
  nchost::IEcatSystem* ecat = Host() != nullptr ? Host()->EcatSystem() : nullptr;
  nchost::TEcatLaserIdentity identity;
  std::shared_ptr<nchost::IEcatLaserSlave> slave;
  if (ecat != nullptr && ecat->GetLaserSlave(identity)) slave = ecat->LaserSlaveImage();
  if (!slave) throw ELaserError(TIPGEcatLaser::kNoBusLaserError);
  // Control bits of an IPG laser mean something else to another laser.
  if (identity.Word1 != kIpgIdentity.Word1 || identity.Word2 != kIpgIdentity.Word2)
    throw ELaserError(Format("Ecat Laser Error: the laser slave (identity 0x%08X, %u) is no IPG laser", identity.Word1,
                             identity.Word2));
  return slave;
}

bool BitSet(uint32_t value, uint32_t bit) { return ((value >> bit) & 1u) != 0; }

}  // namespace

const TIPGEcatLaser::TStartStep TIPGEcatLaser::kStartSequence[5] = {
    {kCtrlEmission, false, 100ms}, {kCtrlStart, false, 100ms}, {kCtrlEnable, false, 100ms},
    {kCtrlEnable, true, 50ms},     {kCtrlStart, true, 300ms},
};

TIPGEcatLaser::TIPGEcatLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TFiberLaser(params, std::move(io)), FBus(BusLaserSlave()) {}

void TIPGEcatLaser::Create() {
  TFiberLaser::Create();
  FBus.WriteInput(kControlWord, kCtrlEnable);
}

void TIPGEcatLaser::BeforeDestruction() {
  // Everything off in one write, first: the laser is safe before anything else is switched, and whatever the host
  // still calls on this laser afterwards cannot reach the bus.
  FBus.Close(kControlWord, 0);
  TFiberLaser::BeforeDestruction();
}

// ---- the process image ---------------------------------------------------------------------------------------------

uint32_t TIPGEcatLaser::Status() { return FBus.ReadOutput(kStatusWord); }

bool TIPGEcatLaser::ChangeAndHold(uint32_t bit, bool set, std::chrono::milliseconds hold) {
  if (!FBus.ChangeInput(kControlWord, bit, set)) return false;
  return FBus.HoldUntil(TEcatSlaveGate::Clock::now() + hold);
}

// ---- operations --------------------------------------------------------------------------------------------------

std::string TIPGEcatLaser::GetDeviceDesc() { return "IPG_Ecat"; }
std::string TIPGEcatLaser::GetAlarmIDPrefix() { return "IPGEcat"; }

void TIPGEcatLaser::PowerOn() {
  TFiberLaser::PowerOn();
  FBus.ChangeInput(kControlWord, kCtrlEnable, true);
}

void TIPGEcatLaser::EmissionOn() {
  TFiberLaser::EmissionOn();
  // A laser that is not started is restarted from scratch: emission, start and enable dropped, then enable and
  // start raised in order, each held until the laser has taken it.
  if ((Status() & kStatStarted) != kStatStarted) {
    for (const TStartStep& step : kStartSequence)
      if (!ChangeAndHold(step.Bit, step.Set, step.Hold)) return;
  }
  FBus.ChangeInput(kControlWord, kCtrlEmission, true);
}

void TIPGEcatLaser::EmissionOff() {
  TFiberLaser::EmissionOff();
  FBus.ChangeInput(kControlWord, kCtrlEmission, false);
}

void TIPGEcatLaser::SetAimingOn(bool on) {
  // The laser switches its own aiming beam: no IO output, no exclusion with emission.
  FBus.ChangeInput(kControlWord, kCtrlAiming, on);
}

void TIPGEcatLaser::ResetAlarm(int32_t id) {
  TFiberLaser::ResetAlarm(id);
  // The reset bit alone: the laser drops enable, aiming and emission with the pulse and must be started again.
  if (!FBus.WriteInput(kControlWord, kCtrlReset)) return;
  if (!FBus.HoldUntil(TEcatSlaveGate::Clock::now() + kResetPulse)) return;
  FBus.WriteInput(kControlWord, 0);
}

bool TIPGEcatLaser::SetDiodeCustom(double value) {
  std::lock_guard lock(FDiodeLock);
  FDiodeCurrent.store(value);
  if (FParams.DefParams.Power < kMinRatedPower) {
    ShowMsg("FLaserParams.DefParams.Power := 1", 0);
    FParams.DefParams.Power = 1.0;
  }
  const int32_t watts = RoundHalfEven(FParams.DefParams.Power * value / 100.0);
  FBus.WriteInput(kPowerWatts, static_cast<uint32_t>(std::max(watts, 0)));
  return true;
}

bool TIPGEcatLaser::GetIsAimingOn() { return (Status() & kStatAiming) != 0; }
bool TIPGEcatLaser::GetIsEmissionOn() { return (Status() & kStatEmission) == kStatEmission; }
bool TIPGEcatLaser::GetIsLaserOn() { return (Status() & kStatLaserOn) != 0; }

// ---- alarms ------------------------------------------------------------------------------------------------------

void TIPGEcatLaser::RegisterAlarms(nchost::INcAlarmTable20& table) {
  TFiberLaser::RegisterAlarms(table);
  nchost::TNcAlarmDef def = LaserAlarmDefinition();
  def.Words[0] |= kEcatAlarmKind;
  std::vector<int32_t> ids;
  for (const auto& alarm : kAlarms) ids.push_back(alarm.Id);
  std::sort(ids.begin(), ids.end());
  for (int32_t id : ids) table.RegisterAlarm(id, def);
}

std::string TIPGEcatLaser::GetAlarmDesc(int32_t id) {
  if (const char* text = AlarmText(id)) return text;
  return TFiberLaser::GetAlarmDesc(id);
}

bool TIPGEcatLaser::UpdateAlarms(nchost::INcAlarmReport20& report) {
  bool raised = TFiberLaser::UpdateAlarms(report);
  const uint32_t status = Status();
  const uint32_t alarms = FBus.ReadOutput(kAlarmDword);
  FLastStatus.store(status);
  FLastAlarms.store(alarms);
  const bool valid = (status & kStatAlarmsValid) != 0;
  const bool debug = GLaserDebugMode();
  for (const auto& alarm : kAlarms) {
    if (!valid) {
      report.ReportAlarm(alarm.Id, false);
      continue;
    }
    if (alarm.DebugOnly && !debug) continue;
    const bool on = BitSet(alarm.Source == TAlarmSource::StatusWord ? status : alarms, alarm.Bit);
    report.ReportAlarm(alarm.Id, on);
    raised = raised || on;
  }
  return raised;
}

}  // namespace devlaser
