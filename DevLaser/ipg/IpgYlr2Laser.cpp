#include "ipg/IpgYlr2Laser.h"

#include "frame/HostServices.h"

namespace devlaser {

TIPGYLR2Laser::TIPGYLR2Laser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TIPGYLRLaserBase(params, std::move(io)) {}

TIPGYLR2Laser::~TIPGYLR2Laser() { StopPulses(); }

std::unique_ptr<TIPGYLRDriver> TIPGYLR2Laser::CreateDriver() {
  return std::make_unique<TIPGYLR2Driver>(FParams, &Ports());
}

void TIPGYLR2Laser::Create() {
  const auto& ylr = FParams.CfgIPG.YLR;
  // The key switch of a remotely controlled laser is turned by the controller and stays on.
  if (ylr.UseRemoteCtrl) SetOutput(ylr.YLRKeyOnPort, true);
  TIPGYLRLaserBase::Create();
  // Registered after the driver, so stopped before it: a pulse's sequence still sends through the driver.
  Owns("YLR2 pulses", [this] { StopPulses(); });
  if (ylr.UseRemoteCtrl) RemoteStartOn();
}

void TIPGYLR2Laser::BeforeDestruction() {
  // A power-on sequence still running would switch emission back on after it was switched off here.
  StopPulses();
  TIPGYLRLaserBase::BeforeDestruction();
}

std::string TIPGYLR2Laser::GetAlarmIDPrefix() { return "IPGYLR2"; }
std::string TIPGYLR2Laser::DeviceName() { return FParams.Model + "YLR-2019"; }

int32_t TIPGYLR2Laser::ExecuteCmd(int32_t cmd, double param) {
  switch (cmd) {
    case kCmdPulseModelQcw:
      SetPulseModel(true);
      return 0;
    case kCmdPulseModelCw:
      SetPulseModel(false);
      return 0;
    case kCmdLaserKindQuery:
      return 10;
    default:
      return TIPGYLRLaserBase::ExecuteCmd(cmd, param);
  }
}

// ---- emission and the pulse model --------------------------------------------------------------------------------

void TIPGYLR2Laser::EmissionOn() {
  // A laser whose power supply is off is powered on first (the host may ask for that regardless).
  if (OutputUsable(FParams.CfgIPG.PowerCtrlPort) &&
      ((Driver() && Driver()->GetStatusBit(kPowerSupplyOffBit)) || TrustCachedStates()))
    PowerOn();
  TIPGYLRLaserBase::EmissionOn();
}

bool TIPGYLR2Laser::GetPulseModel() { return Driver() && Driver()->GetStatusBit(kPulseModeBit); }

void TIPGYLR2Laser::SetPulseModel(bool qcw) {
  if (!Driver()) return;
  auto& driver = *Driver();
  const char* logText = nullptr;
  SetQCWModel(qcw);
  if (FParams.CfgIPG.YLR.GateMode) {
    if (qcw) {
      // Gate mode changes to QCW while emitting: no emission stop first.
      driver.DisableModulation();
      driver.EnableGateMode();
      driver.DisableEmissionControl();
      driver.EnablePulseMode();
      driver.StartEmission();
      logText = "GateMode: TO QCW";
    } else {
      driver.StopEmission();
      driver.DisablePulseMode();
      driver.DisableGateMode();
      driver.DisableEmissionControl();
      driver.EnableModulation();
      driver.StartEmission();
      logText = "GateMode: TO CW";
    }
  } else {
    driver.StopEmission();
    if (qcw) {
      driver.DisableModulation();
      driver.DisableGateMode();
      driver.EnablePulseMode();
      driver.EnableEmissionControl();
    } else {
      driver.DisablePulseMode();
      driver.DisableGateMode();
      driver.DisableEmissionControl();
      driver.EnableModulation();
      driver.StartEmission();
    }
    // The service log has always named both internal-mode switches so; log readers search for this text.
    logText = "InternalMode: TO QCW";
  }
  LogMsg(logText, nchost::msgtype::kLaserLog);
}

// ---- pulses ------------------------------------------------------------------------------------------------------

void TIPGYLR2Laser::StartPulse(TLaserThread& thread, bool& active, void (TIPGYLR2Laser::*body)(TLaserThread&)) {
  std::lock_guard lock(FPulseLock);
  if (active || FPulsesStopped) return;
  active = true;
  thread.Start([this, body, &active](TLaserThread& self) {
    try {
      (this->*body)(self);
    } catch (...) {
      FinishPulse(active);  // a failed sequence must not block the next request
      throw;
    }
  });
}

void TIPGYLR2Laser::FinishPulse(bool& active) {
  std::lock_guard lock(FPulseLock);
  active = false;
}

void TIPGYLR2Laser::StopPulses() {
  {
    std::lock_guard lock(FPulseLock);
    FPulsesStopped = true;
  }
  // Outside the lock: a thread finishing its sequence takes it to clear its reference.
  FRemoteStartThread.Stop();
  FPowerOnThread.Stop();
}

bool TIPGYLR2Laser::RemoteStartThreadActive() const {
  std::lock_guard lock(FPulseLock);
  return FRemoteStartActive;
}

bool TIPGYLR2Laser::PowerOnThreadActive() const {
  std::lock_guard lock(FPulseLock);
  return FPowerOnActive;
}

void TIPGYLR2Laser::RemoteStartOn() {
  const int32_t port = FParams.CfgIPG.YLR.YLRStartPort;
  if (!OutputUsable(port)) return;
  SetOutput(port, true);
  StartPulse(FRemoteStartThread, FRemoteStartActive, &TIPGYLR2Laser::RemoteStartBody);
}

void TIPGYLR2Laser::RemoteStartBody(TLaserThread& thread) {
  const int32_t port = FParams.CfgIPG.YLR.YLRStartPort;
  // A pulse is never left on: one cut short (the laser is being destroyed) ends with its output off at once, and
  // its reference stays set so that no new pulse starts.
  const bool finished = thread.SleepA(kRemoteStartPulseMs);
  SetOutput(port, false);
  if (finished) FinishPulse(FRemoteStartActive);
}

void TIPGYLR2Laser::PowerOn() {
  TIPGYLRLaserBase::PowerOn();
  const int32_t port = FParams.CfgIPG.PowerCtrlPort;
  if (!OutputUsable(port)) return;
  SetOutput(port, true);
  StartPulse(FPowerOnThread, FPowerOnActive, &TIPGYLR2Laser::PowerOnBody);
}

void TIPGYLR2Laser::PowerOnBody(TLaserThread& thread) {
  const bool finished = thread.SleepA(kPowerCtrlPulseMs);
  SetOutput(FParams.CfgIPG.PowerCtrlPort, false);  // cut short or not, the pulse ends with its output off
  if (!finished) return;
  // The freshly powered laser starts in internal control with emission enabled.
  if (LinkUsable()) {
    auto& driver = *Driver();
    driver.StopEmission();
    driver.DisableExternalAimControl();
    driver.DisableExternalControl();
    driver.StartEmission();
  }
  if (!thread.SleepA(kPowerOnStepMs)) return;
  if (LinkUsable()) Driver()->StartAimingBeam();
  if (!thread.SleepA(kPowerOnStepMs)) return;
  ForceDiodeCurrent(GetDefDiodeCurrent());
  FinishPulse(FPowerOnActive);
}

}  // namespace devlaser
