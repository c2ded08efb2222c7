#include "core/FiberLaser.h"

#include <chrono>
#include <cmath>
#include <thread>

#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"

namespace devlaser {

namespace {
// A DA output below this voltage is treated as not driven yet.
constexpr double kDAUndrivenVolts = 0.1;
// Rounding noise of the percent values must not push a change of exactly the dead band over it.
constexpr double kDeadBandTolerance = 1e-9;
// A QCW laser needs this long after its enables before the first pulse.
constexpr auto kQcwSettle = std::chrono::milliseconds(20);
}  // namespace

TFiberLaser::TFiberLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TNcLaser(params, std::move(io)),
      FEnablePort1(static_cast<uint8_t>(params.DefParams.PWM.EnablePort1)),
      FEnablePort2(static_cast<uint8_t>(params.DefParams.PWM.EnablePort2)),
      FMutexEmAndAB(params.DefParams.HardWireMutexEmAndAB) {}

void TFiberLaser::AfterConstruction() {
  TNcLaser::AfterConstruction();
  FLastDiodeCurrent.store(0.0);
  ForceDiodeCurrent(GetDefDiodeCurrent());
}

void TFiberLaser::DynamicPower(double value) { SetPwmRatio(value); }
double TFiberLaser::GetDiodeCurrent() { return FDiodeCurrent.load(); }
bool TFiberLaser::GetIsLaserOn() { return GetPwmEn(); }
bool TFiberLaser::GetIsQCW() { return false; }
bool TFiberLaser::GetIsHardWire() { return false; }

bool TFiberLaser::SetDiodeCustom(double value) {
  FDiodeCurrent.store(value);
  return false;
}

double TFiberLaser::GetDefDiodeCurrent() const {
  double configured = FParams.DefParams.PWM.DiodeCurrent;
  if (!(configured >= 10.0)) return 10.0;  // also a NaN from a broken configuration
  return configured > 100.0 ? 100.0 : configured;
}

void TFiberLaser::ForceDiodeCurrent(double value) {
  std::lock_guard lock(FDiodeLock);
  if (GLaserDebugMode())
    ShowMsg(Format(SForceSetDiode.Text(), FDiodeCurrent.load(), value), nchost::msgtype::kInformation);
  FDiodeCurrent.store(value);
  if (value > 0 && !FParams.DefParams.AnalogControl && SetDiodeCustom(value)) {
    FLastDiodeCurrent.store(value);
    return;
  }
  // Zero, analogue control, or a laser that did not take the value: the DA output carries it.
  IO().SetDAValue(GetCurrentDAPort(), CurrentToVoltage(value / 100.0));
  FLastDiodeCurrent.store(value);
}

void TFiberLaser::SetDiodeCurrent(double value) {
  TNcLaser::SetDiodeCurrent(value);
  auto& io = IO();
  uint8_t daPort = GetCurrentDAPort();
  // An undriven DA output gets the value at once, before any dead band applies.
  if (io.GetDAValue(daPort) < kDAUndrivenVolts) io.SetDAValue(daPort, CurrentToVoltage(value / 100.0));
  if (value >= 0 && std::fabs(value - FLastDiodeCurrent.load()) > kDiodeDeadBand + kDeadBandTolerance)
    ForceDiodeCurrent(value);
}

void TFiberLaser::SetDiodeCurrentByDA(double value) {
  std::lock_guard lock(FDiodeLock);
  FDiodeCurrent.store(value);
  FLastDiodeCurrent.store(value);
}

void TFiberLaser::SetDiodeCurrentWaitBusy(double value) {
  // A hard-wired laser has nothing to wait for: the value is applied at once, without the dead band.
  ForceDiodeCurrent(value);
}

void TFiberLaser::SetLaserCtrl(std::shared_ptr<nchost::IPwmCtrlExt> ext, int32_t ms) {
  std::lock_guard lock(FPwmCtrlLock);
  if (!ext || ms < 0) {
    FPwmCtrlExt.reset();
    FTimedEmissionMs = -1;
    return;
  }
  FPwmCtrlExt = std::move(ext);
  FTimedEmissionMs = ms;
}

bool TFiberLaser::TimedEmissionArmed() const {
  std::lock_guard lock(FPwmCtrlLock);
  return FTimedEmissionMs >= 0;
}

std::shared_ptr<nchost::IPwmCtrlExt> TFiberLaser::TakeTimedEmission(int32_t& ms) {
  std::lock_guard lock(FPwmCtrlLock);
  ms = FTimedEmissionMs;
  FTimedEmissionMs = -1;
  return std::move(FPwmCtrlExt);
}

void TFiberLaser::LaserOn() {
  TNcLaser::LaserOn();
  auto& io = IO();
  uint8_t pwmPort = PwmPort();
  io.SetPwmFreq(pwmPort, GetCmdPwmFreq());
  io.SetPwmRatio(pwmPort, GetCmdPwmRatio());
  // A timed emission is switched by the controller's hardware, so the PWM output stays off here.
  if (!IsPreparing() && !TimedEmissionArmed()) io.SetPwmEn(pwmPort, true);
  for (uint8_t port : {FEnablePort1, FEnablePort2})
    if (io.GetOutPortExist(port)) io.SetOutputbit(port, true);
  int32_t ms = -1;
  if (auto ext = TakeTimedEmission(ms)) {
    ext->TimedEmission(pwmPort, ms, 1);
    LogMsg(Format(SControledLaserOn.Text(), ms), nchost::msgtype::kTrace, kLaserCategory);
  }
  if (GetIsQCW()) std::this_thread::sleep_for(kQcwSettle);
}

void TFiberLaser::LaserOff() {
  TNcLaser::LaserOff();
  auto& io = IO();
  io.SetPwmEn(PwmPort(), false);
  for (uint8_t port : {FEnablePort1, FEnablePort2})
    if (io.GetOutPortExist(port)) io.SetOutputbit(port, false);
}

void TFiberLaser::SetAimingOn(bool on) {
  TNcLaser::SetAimingOn(on);
  if (GetIsHardWire()) MutexEmAndAB(on ? kAimingSwitchedOn : kAimingSwitchedOff);
}

void TFiberLaser::MutexEmAndAB(int32_t kind) {
  if (!FMutexEmAndAB) return;
  switch (kind) {
    case kAimingSwitchedOff:
      if (!GetIsEmissionOn()) EmissionOn();
      break;
    case kAimingSwitchedOn:
      if (GetIsEmissionOn()) EmissionOff();
      break;
    case kEmissionSwitchedOff:
      if (!GetIsAimingOn()) SetAimingOn(true);
      break;
    case kEmissionSwitchedOn:
      if (GetIsAimingOn()) SetAimingOn(false);
      break;
    default:
      break;
  }
}

}  // namespace devlaser
