#include "zorun/ZorunLaser.h"

namespace devlaser {

TZorunLaser::TZorunLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TFiberLaser(params, std::move(io)), FDriver(std::make_unique<TZorunDriver>(FParams, &Ports())) {
  // Shutting down stops the driver after emission has been switched off, so that the switch-off still goes out.
  Owns("Zorun driver", [this] { FDriver->Stop(); });
}

TZorunLaser::~TZorunLaser() {
  // Joined before the members they use go, also for a laser that was never shut down.
  FDriver->Stop();
}

std::string TZorunLaser::GetDeviceDesc() { return FDriver->GetLaserDesc(); }
std::string TZorunLaser::GetAlarmIDPrefix() { return FDriver->GetLaserDesc(); }

void TZorunLaser::RegisterAlarms(nchost::INcAlarmTable20& table) {
  TFiberLaser::RegisterAlarms(table);
  for (int32_t bit : FDriver->AlarmIds()) table.RegisterAlarm(bit + kAlarmIdOffset, LaserAlarmDefinition());
}

std::string TZorunLaser::GetAlarmDesc(int32_t id) {
  TFiberLaser::GetAlarmDesc(id);  // replaced on purpose, even for the base alarms
  return FDriver->GetLaserDesc() + FDriver->GetAlarmDesc(id - kAlarmIdOffset);
}

bool TZorunLaser::UpdateAlarms(nchost::INcAlarmReport20& report) {
  bool raised = TFiberLaser::UpdateAlarms(report);
  for (int32_t bit : FDriver->AlarmIds()) {
    const bool active = FDriver->CheckAlarm(bit);
    report.ReportAlarm(bit + kAlarmIdOffset, active);
    raised = raised || active;
  }
  return raised;
}

double TZorunLaser::GetDiodeCurrent() { return FDriver->GetDiodeCurrent(); }
bool TZorunLaser::GetIsAimingOn() { return FAimingOn.load(); }

void TZorunLaser::EmissionOn() {
  TFiberLaser::EmissionOn();
  FDriver->AddCmd(zorun::ctEmissonOn, 0);
}

void TZorunLaser::EmissionOff() {
  TNcLaser::EmissionOff();
  FDriver->AddCmd(zorun::ctEmissionOff, 0);
}

void TZorunLaser::SetAimingOn(bool on) {
  TFiberLaser::SetAimingOn(on);
  FDriver->AddCmd(on ? zorun::ctAimingOn : zorun::ctAimingOff, 0);
  FAimingOn.store(on);
}

bool TZorunLaser::SetDiodeCustom(double value) {
  FDriver->SetDiodeCurrent(value);
  return true;
}

}  // namespace devlaser
