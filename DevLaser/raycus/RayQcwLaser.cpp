#include "raycus/RayQcwLaser.h"

#include <algorithm>
#include <cmath>

#include "frame/LaserStrs.h"

namespace devlaser {

namespace {

constexpr int32_t kAlarmIdOffset = 2;

// A configured value as the byte or word the laser takes, saturating instead of wrapping.
template <class T>
T Saturated(double value) {
  if (!(value > 0)) return 0;  // also NaN
  constexpr double kMax = static_cast<double>(static_cast<T>(~T{0}));
  return static_cast<T>(std::min(std::trunc(value), kMax));
}

}  // namespace

TRayQCWLaser::TRayQCWLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TFiberLaser(params, std::move(io)),
      FSerialPortNo(params.DefParams.Comm.CommPort),
      FGatePort(params.DefParams.CtrlPort),
      FStartPort(params.CfgRay.UseRemoteCtrl ? params.CfgRay.RayStartPort : 0) {}

TRayQCWLaser::~TRayQCWLaser() = default;

void TRayQCWLaser::Create() {
  if (FSerialPortNo > 0 && GetIsQCW()) {
    FDriver = std::make_unique<TRayQCWDriver>(FParams, &Ports());
    Owns("driver", [this] { FDriver->Stop(); });
  }
  TFiberLaser::Create();
}

// ---- outputs -----------------------------------------------------------------------------------------------------

bool TRayQCWLaser::OutputPresent(int32_t port) {
  return port > 0 && port <= 0xFF && IO().GetOutPortExist(static_cast<uint8_t>(port));
}

void TRayQCWLaser::SetOutput(int32_t port, bool on) {
  if (OutputPresent(port)) IO().SetOutputbit(static_cast<uint8_t>(port), on);
}

bool TRayQCWLaser::GetIsHardWire() { return OutputPresent(FGatePort); }

// ---- emission and laser on ---------------------------------------------------------------------------------------

void TRayQCWLaser::InitLaserParam() {
  if (!DriverInUse()) return;
  const auto& qcw = FParams.CfgRay.QCW;
  FDriver->SetLaserParam(Saturated<uint8_t>(qcw.PulsePower), Saturated<uint16_t>(qcw.PulseFreq),
                         Saturated<uint8_t>(qcw.PulseRatio), 1);
  FDriver->EnableModulationCtrl();
}

void TRayQCWLaser::EmissionOn() {
  TFiberLaser::EmissionOn();
  SetOutput(FStartPort, true);
  InitLaserParam();
  FEmissionFlag = true;
  if (GetIsHardWire()) {
    SetOutput(FGatePort, true);
    MutexEmAndAB(kEmissionSwitchedOn);
  }
}

void TRayQCWLaser::EmissionOff() {
  TFiberLaser::EmissionOff();
  SetOutput(FStartPort, false);
  FEmissionFlag = false;
  if (GetIsHardWire()) {
    SetOutput(FGatePort, false);
    MutexEmAndAB(kEmissionSwitchedOff);
  }
}

bool TRayQCWLaser::GetIsEmissionOn() {
  if (GetIsHardWire()) return IO().GetOutputBit(static_cast<uint8_t>(FGatePort));
  return FEmissionFlag.load();
}

void TRayQCWLaser::LaserOn() {
  TFiberLaser::LaserOn();
  if (!DriverInUse()) return;
  InitLaserParam();
  FDriver->LaserOn();
}

void TRayQCWLaser::LaserOff() {
  TFiberLaser::LaserOff();
  if (DriverInUse()) FDriver->LaserOff();
}

bool TRayQCWLaser::GetIsQCW() { return FParams.LaserSubType == kQcwSubType; }

// ---- diode current -----------------------------------------------------------------------------------------------

bool TRayQCWLaser::SetDiodeCustom(double value) {
  if (!DriverInUse()) return false;
  const auto& qcw = FParams.CfgRay.QCW;
  // The laser takes whole percent: the value is cut toward zero, not rounded.
  FDriver->SetLaserParam(Saturated<uint8_t>(value), Saturated<uint16_t>(qcw.PulseFreq),
                         Saturated<uint8_t>(qcw.PulseRatio), 1);
  FDriver->SetLaserData();
  return true;
}

double TRayQCWLaser::GetDiodeCurrent() { return DriverInUse() ? FDriver->GetLaserPower() : 0.0; }

// ---- description and commands ------------------------------------------------------------------------------------

std::string TRayQCWLaser::GetDeviceDesc() { return DriverInUse() ? FDriver->GetLaserID() : std::string(); }

int32_t TRayQCWLaser::ExecuteCmd(int32_t cmd, double param) {
  if (cmd == kQueryCmd) return kQueryCmdResult;
  return TFiberLaser::ExecuteCmd(cmd, param);
}

// ---- alarms ------------------------------------------------------------------------------------------------------

std::string TRayQCWLaser::GetAlarmIDPrefix() { return "RaycusQCW"; }

void TRayQCWLaser::RegisterAlarms(nchost::INcAlarmTable20& table) {
  TFiberLaser::RegisterAlarms(table);
  table.RegisterAlarm(kDiodeSetAlarmId, LaserAlarmDefinition());
  for (int32_t index = 0; index < TRayQCWDriver::kAlarmCount; ++index)
    table.RegisterAlarm(index + kAlarmIdOffset, LaserAlarmDefinition());
}

std::string TRayQCWLaser::GetAlarmDesc(int32_t id) {
  if (id == kLaserAlarmId || id == kDiodeSetAlarmId) return TFiberLaser::GetAlarmDesc(id);
  // IDs past the first module's read as unknown: the host registered only one module's alarms.
  std::string text = TRayQCWDriver::AlarmText(id - kAlarmIdOffset);
  if (text.empty()) text = kUnknownAlarmText;
  return text + SLaserAlarm.Text() + FParams.Model;
}

bool TRayQCWLaser::UpdateAlarms(nchost::INcAlarmReport20& report) {
  if (!DriverInUse()) return false;
  const auto alarms = FDriver->GetAlarmBytes();
  if (alarms.size() < rayqcw::kAlarmBytesPerModule) return false;
  bool raised = false;
  for (size_t i = 0; i < alarms.size(); ++i) {
    report.ReportAlarm(static_cast<int32_t>(i) + kAlarmIdOffset, alarms[i] != 0);
    raised = raised || alarms[i] != 0;
  }
  return raised;
}

}  // namespace devlaser
