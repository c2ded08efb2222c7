#include "core/NcLaser.h"

#include <cmath>
#include <exception>
#include <limits>

#include "core/LaserLifetime.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"

namespace devlaser {

int32_t RoundHalfEven(double value) {
  if (std::isnan(value)) return 0;
  if (value >= static_cast<double>(std::numeric_limits<int32_t>::max())) return std::numeric_limits<int32_t>::max();
  if (value <= static_cast<double>(std::numeric_limits<int32_t>::min())) return std::numeric_limits<int32_t>::min();
  double lower = std::floor(value);
  double fraction = value - lower;
  double rounded = lower;
  if (fraction > 0.5 || (fraction == 0.5 && std::fmod(lower, 2.0) != 0.0)) rounded = lower + 1.0;
  return static_cast<int32_t>(rounded);
}

namespace {
// A step of the ratio (commands 12, 13) or diode-current (22, 23) nudges: the parameter, or the smallest step.
double StepOrMinimum(double param, double minimum) { return param < minimum ? minimum : param; }
}  // namespace

TNcLaser::TNcLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : FParams(params), FIO(std::make_shared<TLaserIOGate>(io)), FHasGivenIO(io != nullptr) {}

TNcLaser::~TNcLaser() = default;

// ---- construction and destruction ------------------------------------------------------------------------------

void TNcLaser::Create() {
  FAlarmResetRequest.store(false);
  if (FHasGivenIO) FPwmPort = FindPwmPort();
  FLaserOn.store(false);
}

uint8_t TNcLaser::FindPwmPort() {
  // The host numbers its PWM devices; the laser takes the first one that the IO extension really has.
  auto* host = Host();
  if (!host) return 1;
  for (int32_t k = 0; k < 32; ++k) {
    uint8_t port = host->DeviceToPort(k, 1);
    if (FIO->GetPwmPortExist(port)) return port;
  }
  return 1;
}

void TNcLaser::AfterConstruction() {
  TNcDevice::AfterConstruction();
  SetPwmEn(false);
  SetPwmFreq(FParams.DefParams.PWM.Frequency);
  SetPwmRatio(FParams.DefParams.PWM.Ratio);
}

void TNcLaser::BeforeDestruction() {
  // Each step is tried on its own: a laser whose emission cannot be switched off must still lose its enable.
  GuardStep("EmissionOff", [this] { EmissionOff(); });
  GuardStep("LaserOff", [this] { LaserOff(); });
  TNcDevice::BeforeDestruction();
}

void TNcLaser::GuardStep(const char* step, const std::function<void()>& action) noexcept {
  try {
    action();
  } catch (const std::exception& e) {
    ReportLaserFailure(step, e.what());
  } catch (...) {
    ReportLaserFailure(step, "unknown exception");
  }
}

void TNcLaser::Shutdown() noexcept {
  if (FShutDown.exchange(true)) return;
  GuardStep("BeforeDestruction", [this] { BeforeDestruction(); });
  GuardStep("StopThreads", [this] { StopThreads(); });
  std::vector<TOwnedPart> parts;
  {
    std::lock_guard lock(FPartsLock);
    parts.swap(FParts);
    FPartsStopped = true;
  }
  for (auto it = parts.rbegin(); it != parts.rend(); ++it) GuardStep(it->Name.c_str(), it->Stop);
  FPorts.CloseAll();
  FIO->Detach();
}

void TNcLaser::Owns(std::string name, std::function<void()> stop) {
  {
    std::lock_guard lock(FPartsLock);
    if (!FPartsStopped) {
      FParts.push_back({std::move(name), std::move(stop)});
      return;
    }
  }
  // A part that a shut-down laser still created is stopped at once rather than left running.
  GuardStep(name.c_str(), stop);
}

void TNcLaser::Owns(TLaserThread& thread) {
  Owns(thread.Name(), [&thread] { thread.Close(); });
}

// ---- IO extension ----------------------------------------------------------------------------------------------

bool TNcLaser::GetPwmEn() { return IO().GetPwmEn(FPwmPort); }
void TNcLaser::SetPwmEn(bool on) { IO().SetPwmEn(FPwmPort, on); }

uint8_t TNcLaser::GetCurrentDAPort() const { return static_cast<uint8_t>(FParams.DefParams.DA.DAPort & 0xFF); }

double TNcLaser::CurrentToVoltage(double fraction) const {
  double maxVoltage = FParams.DefParams.DA.MaxVoltage;
  double v = fraction * maxVoltage;
  if (v < 0) return 0;
  if (v > maxVoltage) return maxVoltage;
  return v;
}

// ---- operations ------------------------------------------------------------------------------------------------

std::string TNcLaser::GetDeviceDesc() { return FParams.Model; }
bool TNcLaser::GetIsBusy() { return FBusy.load(); }
void TNcLaser::ExecCmd(const std::string& name, double value) { TNcDevice::ExecCmd(name, value); }

int32_t TNcLaser::ExecuteCmd(int32_t cmd, double param) {
  // Every command goes through the virtual operations, so a model changes a command by overriding the operation.
  switch (cmd) {
    case 0:
      LaserOff();
      break;
    case 1:
      LaserOn();
      break;
    case 2:
      SetAimingOn(false);
      break;
    case 3:
      SetAimingOn(true);
      break;
    case 4:
      EmissionOff();
      break;
    case 5:
      EmissionOn();
      break;
    case 6:
      if (GetIsEmissionOn())
        EmissionOff();
      else
        EmissionOn();
      break;
    case 11:
      SetPwmRatio(param);
      break;
    case 12:
      SetPwmRatio(GetPwmRatio() - StepOrMinimum(param, 0.01));
      break;
    case 13:
      SetPwmRatio(GetPwmRatio() + StepOrMinimum(param, 0.01));
      break;
    case 14:
      SetPwmFreq(RoundHalfEven(param));
      break;
    case 17:
      SetLaserMode(RoundHalfEven(param));
      break;
    case 18:
      return RoundHalfEven(GetCmdPwmRatio() * param);
    case 20:
      SetDiodeCurrent(param * 100.0);
      break;
    case 21:
      SetDiodeCurrent(param);
      break;
    // The diode-current nudges start from the diode current but move the PWM ratio: operators' panels rely on it.
    case 22:
      SetPwmRatio(GetDiodeCurrent() - StepOrMinimum(param, 1.0));
      break;
    case 23:
      SetPwmRatio(GetDiodeCurrent() + StepOrMinimum(param, 1.0));
      break;
    case 25:
      PowerOn();
      break;
    case 26:
      LaserOnPrepare();
      break;
    case 2101:
      return 1;
    case 2102:
      return 100;
    default:
      break;
  }
  return 0;
}

void TNcLaser::Stop(int32_t mode) {
  TNcDevice::Stop(mode);
  LaserOff();
}

std::string TNcLaser::GetAlarmIDPrefix() { return "LaserAlarmDef"; }

void TNcLaser::ResetAlarm(int32_t id) {
  if (id == kDiodeSetAlarmId) FAlarmResetRequest.store(true);
}

void TNcLaser::RegisterAlarms(nchost::INcAlarmTable20& table) {
  table.RegisterAlarm(kLaserAlarmId, LaserAlarmDefinition());
}

std::string TNcLaser::GetAlarmDesc(int32_t id) {
  if (id == kLaserAlarmId) return FParams.Model + SLaserAlarm.Text();
  if (id == kDiodeSetAlarmId) return FParams.Model + SLaserDiodeSetErr.Text();
  return {};
}

bool TNcLaser::UpdateAlarms(nchost::INcAlarmReport20&) { return false; }
double TNcLaser::GetDiodeCurrent() { return 100.0; }
int32_t TNcLaser::GetLaserMode() { return 0; }

bool TNcLaser::GetIsAimingOn() {
  bool level = IO().GetOutputBit(static_cast<uint8_t>(FParams.DefParams.AimingPort));
  return level != FParams.DefParams.AimingLowActive;
}

bool TNcLaser::GetIsEmissionOn() { return FEmissionOn.load(); }
bool TNcLaser::GetIsCmdLaserOn() { return FLaserOn.load(); }
int32_t TNcLaser::GetPwmFreq() { return RoundHalfEven(IO().GetPwmFreq(FPwmPort)); }
double TNcLaser::GetPwmRatio() { return IO().GetPwmRatio(FPwmPort); }
void TNcLaser::DynamicPower(double) {}
void TNcLaser::EmissionOn() { FEmissionOn.store(true); }
void TNcLaser::EmissionOff() { FEmissionOn.store(false); }
void TNcLaser::LaserOn() { FLaserOn.store(true); }

void TNcLaser::LaserOnPrepare() {
  // Models skip their output switching while preparing: the laser is readied without emitting.
  FPreparing.store(true);
  LaserOn();
  FPreparing.store(false);
}

void TNcLaser::LaserOff() { FLaserOn.store(false); }
void TNcLaser::PowerOn() {}
void TNcLaser::PowerOff() {}

void TNcLaser::SetAimingOn(bool on) {
  IO().SetOutputbit(static_cast<uint8_t>(FParams.DefParams.AimingPort), on != FParams.DefParams.AimingLowActive);
}

void TNcLaser::SetDiodeCurrent(double value) { FCmdDiodeCurrent.store(value); }
void TNcLaser::SetLaserMode(int32_t) {}

void TNcLaser::SetPwmFreq(int32_t hz) {
  FPwmFreq.store(hz);
  IO().SetPwmFreq(FPwmPort, hz);
}

void TNcLaser::SetPwmRatio(double ratio) {
  FPwmRatio.store(ratio);
  IO().SetPwmRatio(FPwmPort, ratio);
}

void TNcLaser::SetDiodeCurrentByDA(double) {}
std::vector<uint8_t> TNcLaser::GetLaserRtData(int32_t) { return {}; }
int32_t TNcLaser::ExecuteDebugCmd(int32_t, double) { return -1; }
bool TNcLaser::UpdateLaserParams(const nchost::ISuperObject&) { return false; }
void TNcLaser::SetDiodeCurrentWaitBusy(double) {}

}  // namespace devlaser
