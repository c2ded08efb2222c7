#include "ipg/IpgYlrLaserBase.h"

#include <cmath>

#include "frame/HostServices.h"
#include "frame/LaserStrs.h"
#include "frame/TextCompare.h"
#include "host/DelayRec.h"
#include "ipg/IpgYlrProtocol.h"

namespace devlaser {

namespace {

// Status bits of the YLR status word that the laser classes read.
constexpr int32_t kEmissionBit = 2;
constexpr int32_t kAimingBit = 8;
constexpr int32_t kStatusBits = 32;
// Alarm IDs of status bits start here: ID 1 is the generic laser alarm.
constexpr int32_t kStatusAlarmIdOffset = 2;

}  // namespace

TIPGYLRLaserBase::TIPGYLRLaserBase(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TFiberLaser(params, std::move(io)), FQcwMode(params.CfgIPG.YLR.QCWMode) {}

TIPGYLRLaserBase::~TIPGYLRLaserBase() = default;

void TIPGYLRLaserBase::Create() {
  TFiberLaser::Create();
  FDriver = CreateDriver();
  Owns("YLR driver", [this] { FDriver->Stop(); });
  FIgnoreCommResult = FParams.DefParams.Comm.IgnoreCommResult;
  FHasComm = FParams.DefParams.DataTransType != dttNone;
  ConfigureDriver();
}

void TIPGYLRLaserBase::ConfigureDriver() { FDriver->SetQCWMode(GetIsQCW()); }

// ---- outputs -----------------------------------------------------------------------------------------------------

bool TIPGYLRLaserBase::OutputUsable(int32_t port) {
  return port > 0 && port <= 0xFF && IO().GetOutPortExist(static_cast<uint8_t>(port));
}

void TIPGYLRLaserBase::SetOutput(int32_t port, bool on) {
  if (OutputUsable(port)) IO().SetOutputbit(static_cast<uint8_t>(port), on);
}

bool TIPGYLRLaserBase::TrustCachedStates() {
  auto* host = Host();
  return host && host->TrustCachedLaserStates();
}

// ---- description and named commands ------------------------------------------------------------------------------

std::string TIPGYLRLaserBase::DeviceName() { return FParams.Model; }

std::string TIPGYLRLaserBase::GetDeviceDesc() {
  std::string desc = DeviceName();
  if (LinkUsable()) {
    std::string serial = FDriver->GetSerialNumber();
    if (!serial.empty()) desc += " SN: " + serial;
  }
  return desc;
}

void TIPGYLRLaserBase::ExecCmd(const std::string& name, double) {
  if (SameText(name, "ResetErrors") && LinkUsable()) FDriver->ResetErrors();
}

// ---- emission, aiming, laser on ----------------------------------------------------------------------------------

bool TIPGYLRLaserBase::SendEmissionSetup() {
  auto& driver = *FDriver;
  if (FParams.Model == kEoYlrModel) {
    driver.DisableEmissionControl();
    driver.EnableModulation();
    driver.DisableGateMode();
    driver.DisableExternalAimControl();
    driver.SetDigitalPowerSelect();
    return true;
  }
  const bool qcw = GetIsQCW();
  driver.SetQCWMode(qcw);
  if (!qcw) {
    driver.DisablePulseMode();
    driver.DisableGateMode();
    driver.DisableEmissionControl();
    driver.EnableModulation();
    return true;
  }
  driver.DisableModulation();
  if (FParams.CfgIPG.YLR.GateMode) {
    driver.EnableGateMode();
    driver.DisableEmissionControl();
    driver.EnablePulseMode();
    return true;
  }
  // Internal QCW: the pulses follow the hardware emission signal, so no emission command is sent.
  driver.DisableGateMode();
  driver.EnablePulseMode();
  driver.EnableEmissionControl();
  return false;
}

void TIPGYLRLaserBase::EmissionOn() {
  if (LinkUsable()) {
    if (FParams.DefParams.AnalogControl)
      FDriver->EnableExternalControl();
    else
      FDriver->DisableExternalControl();
    if (SendEmissionSetup()) FDriver->StartEmission();
  }
  FEmissionCached.store(true);
}

void TIPGYLRLaserBase::EmissionOff() {
  TFiberLaser::EmissionOff();
  if (LinkUsable()) FDriver->StopEmission();
  FEmissionCached.store(false);
}

void TIPGYLRLaserBase::SetAimingOn(bool on) {
  TFiberLaser::SetAimingOn(on);
  if (LinkUsable()) {
    if (on)
      FDriver->StartAimingBeam();
    else
      FDriver->StopAimingBeam();
  }
  FAimingCached.store(on);
}

void TIPGYLRLaserBase::LaserOn() {
  TFiberLaser::LaserOn();
  if (GetIsUseOutputLaserOn()) SetOutput(FParams.DefParams.CtrlPort, true);
}

void TIPGYLRLaserBase::LaserOff() {
  TFiberLaser::LaserOff();
  if (GetIsUseOutputLaserOn()) SetOutput(FParams.DefParams.CtrlPort, false);
}

// ---- state queries: cached values only, never the link -----------------------------------------------------------

bool TIPGYLRLaserBase::GetIsAimingOn() {
  if ((FHasComm && FIgnoreCommResult) || TrustCachedStates()) return FAimingCached.load();
  if (LinkUsable()) return FDriver->GetStatusBit(kAimingBit);
  return TFiberLaser::GetIsAimingOn();
}

bool TIPGYLRLaserBase::GetIsEmissionOn() {
  if (FIgnoreCommResult || TrustCachedStates()) return FEmissionCached.load();
  if (!LinkUsable()) return false;
  return FDriver->GetStatusBit(kEmissionBit);
}

bool TIPGYLRLaserBase::GetIsLaserOn() {
  const int32_t port = FParams.DefParams.CtrlPort;
  if (GetIsUseOutputLaserOn() && OutputUsable(port)) return IO().GetOutputBit(static_cast<uint8_t>(port));
  return TFiberLaser::GetIsLaserOn();
}

bool TIPGYLRLaserBase::GetIsQCW() { return FQcwMode.load(); }

double TIPGYLRLaserBase::GetDiodeCurrent() {
  // The laser's echo once it has answered at all; until then what was commanded.
  if (LinkUsable() && FDriver->IsConnectedOk()) return FDriver->GetDiodeCurrent();
  return TFiberLaser::GetDiodeCurrent();
}

// ---- diode current -----------------------------------------------------------------------------------------------

double TIPGYLRLaserBase::QcwCurrentLimit() const { return std::min(FParams.CfgIPG.MaxCurrent, 100.0); }

bool TIPGYLRLaserBase::SetDiodeCustom(double value) {
  TFiberLaser::SetDiodeCustom(value);
  if (!LinkUsable()) return false;
  FDiodeSetRequested.store(value);
  // A QCW laser's peak current is limited; a larger request is not sent at all.
  if (!GetIsQCW() || value <= QcwCurrentLimit()) FDriver->SetDiodeCurrent(value);
  if (FParams.DefParams.DiodeSetAlarmEn)
    FDiodeSetAlarm.store(!FDriver->GetIgnoreDiodeReply() &&
                         std::fabs(FDriver->GetDiodeCurrent() - value) >= kDiodeSetTolerance);
  // The link carries the diode current, also when it refused the value: the DA output is not a fall-back here.
  return true;
}

void TIPGYLRLaserBase::SetDiodeCurrentWaitBusy(double value) {
  std::lock_guard lock(FDiodeLock);
  FDiodeSetCheckActive.store(true);
  FDiodeSetPending.store(true);
  FDiodeSetStartTick.store(nchost::GetTickCount());
  // Here a QCW request over the limit is clipped to it, not dropped: the caller waits for a value to arrive.
  const double sent = GetIsQCW() && value > QcwCurrentLimit() ? QcwCurrentLimit() : value;
  FDiodeSetRequested.store(sent);
  if (LinkUsable()) FDriver->SetDiodeCurrentAsynchronous(sent);
}

void TIPGYLRLaserBase::CheckSetDidoeAlarm() {
  const double echo = FDriver ? FDriver->GetDiodeCurrent() : 0.0;
  const bool ignoreReply = FDriver && FDriver->GetIgnoreDiodeReply();
  bool pending = FDiodeSetPending.load();
  if (pending) {
    pending = std::fabs(echo - FDiodeSetRequested.load()) > kDiodeSetTolerance && !FDiodeSetAlarm.load();
    FDiodeSetPending.store(pending);
  }
  if (!FDiodeSetCheckActive.load()) return;
  // Tick counts wrap at 32 bits; their distance is taken either way round.
  const auto elapsed = static_cast<int32_t>(nchost::GetTickCount() - FDiodeSetStartTick.load());
  const bool timedOut = std::abs(static_cast<int64_t>(elapsed)) > FParams.DefParams.DiodeSetTimeOut;
  FDiodeSetAlarm.store(pending && !ignoreReply && timedOut);
  FDiodeSetCheckActive.store(pending && !timedOut);
}

// ---- alarms ------------------------------------------------------------------------------------------------------

void TIPGYLRLaserBase::RegisterAlarms(nchost::INcAlarmTable20& table) {
  TFiberLaser::RegisterAlarms(table);
  table.RegisterAlarm(kDiodeSetAlarmId, LaserAlarmDefinition());
  // Only alarm bits get a definition; warning bits are reported but the host shows them without one.
  if (FDriver)
    for (int32_t bit : FDriver->AlarmBits()) table.RegisterAlarm(bit + kStatusAlarmIdOffset, LaserAlarmDefinition());
}

std::string TIPGYLRLaserBase::GetAlarmDesc(int32_t id) {
  if (id >= kDiodeSetAlarmId) return TFiberLaser::GetAlarmDesc(id);
  std::string text = FDriver ? FDriver->AlarmText(id - kStatusAlarmIdOffset) : std::string();
  if (text.empty()) text = kUnknownAlarmText;
  // "YLR-1000 laser alarm: Overheat": the status text follows the alarm's name after a separator.
  return FParams.Model + SLaserAlarm.Text() + ": " + text;
}

bool TIPGYLRLaserBase::UpdateAlarms(nchost::INcAlarmReport20& report) {
  bool raised = TFiberLaser::UpdateAlarms(report);
  // The operator reset the diode-set alarm: forget the set it was about.
  if (TakeAlarmResetRequest()) {
    FDiodeSetAlarm.store(false);
    FDiodeSetPending.store(false);
    FDiodeSetCheckActive.store(false);
  }
  CheckSetDidoeAlarm();
  if (FDiodeSetAcknowledged.load()) FDiodeSetAlarm.store(false);
  const bool diodeAlarm = FParams.DefParams.DiodeSetAlarmEn && FDiodeSetAlarm.load();
  report.ReportAlarm(kDiodeSetAlarmId, diodeAlarm);
  raised = raised || diodeAlarm;

  const uint32_t status = FDriver ? FDriver->GetDeviceStatus() : ipg::kStatusUnknown;
  if (status == ipg::kStatusUnknown) return raised;
  // Every bit is reported, also those that are neither alarm nor warning: the host's table decides what shows.
  for (int32_t bit = 0; bit < kStatusBits; ++bit) {
    const bool set = (status >> bit) & 1u;
    report.ReportAlarm(bit + kStatusAlarmIdOffset, set);
    raised = raised || set;
  }
  return raised;
}

}  // namespace devlaser
