#include "ParamFields.h"

#include <algorithm>
#include <array>

namespace laserctl {
namespace {

using devlaser::TLaserParams;

// The path is written once: it is both the field's name in JSON and the member access.
#define LASERCTL_FIELD(path)                                     \
  TParamField {                                                  \
#path, [](TLaserParams & p) -> TFieldRef { return &p.path; } \
  }

const TParamField kFields[] = {
    LASERCTL_FIELD(DefParams.CtrlPort),
    LASERCTL_FIELD(DefParams.AimingPort),
    LASERCTL_FIELD(DefParams.AimingLowActive),
    LASERCTL_FIELD(DefParams.AnalogControl),
    LASERCTL_FIELD(DefParams.Power),
    LASERCTL_FIELD(DefParams.PWM.DiodeCurrent),
    LASERCTL_FIELD(DefParams.PWM.EnablePort1),
    LASERCTL_FIELD(DefParams.PWM.EnablePort2),
    LASERCTL_FIELD(DefParams.PWM.Frequency),
    LASERCTL_FIELD(DefParams.PWM.MinRatio),
    LASERCTL_FIELD(DefParams.PWM.Ratio),
    LASERCTL_FIELD(DefParams.DA.DAPort),
    LASERCTL_FIELD(DefParams.DA.MaxVoltage),
    LASERCTL_FIELD(DefParams.DA.ProofMax),
    LASERCTL_FIELD(DefParams.DataTransType),
    LASERCTL_FIELD(DefParams.ConnCheck.ConnCheckTimeIntv),
    LASERCTL_FIELD(DefParams.ConnCheck.ConnCheckTimeStart),
    LASERCTL_FIELD(DefParams.Comm.CommPort),
    LASERCTL_FIELD(DefParams.Comm.CommSettings),
    LASERCTL_FIELD(DefParams.Comm.IgnoreCommResult),
    LASERCTL_FIELD(DefParams.Comm.Baudrate),
    LASERCTL_FIELD(DefParams.Net.TcpHost),
    LASERCTL_FIELD(DefParams.Net.TcpPort),
    LASERCTL_FIELD(DefParams.DebugMode),
    LASERCTL_FIELD(DefParams.IgnoreLaserAlarm),
    LASERCTL_FIELD(DefParams.LaserAlarm2Warning),
    LASERCTL_FIELD(DefParams.IgnoreDiodeReply),
    LASERCTL_FIELD(DefParams.DiodeSetAlarmEn),
    LASERCTL_FIELD(DefParams.DiodeSetTimeOut),
    LASERCTL_FIELD(DefParams.IgnoreCommRes),
    LASERCTL_FIELD(DefParams.HardWireMutexEmAndAB),
    LASERCTL_FIELD(Model),
    LASERCTL_FIELD(LaserMainType),
    LASERCTL_FIELD(LaserSubType),
    LASERCTL_FIELD(CfgCO2.DynamicDA),
    LASERCTL_FIELD(CfgCO2.LaserMode),
    LASERCTL_FIELD(CfgCO2.ModeSelect0),
    LASERCTL_FIELD(CfgCO2.ModeSelect1),
    LASERCTL_FIELD(CfgCO2.ShutterPort),
    LASERCTL_FIELD(CfgCO2.ShutterStatus),
    LASERCTL_FIELD(CfgCO2.ShutterDelay),
    LASERCTL_FIELD(CfgDA.DAPort),
    LASERCTL_FIELD(CfgDA.MaxVoltage),
    LASERCTL_FIELD(CfgDA.ProofMax),
    LASERCTL_FIELD(CfgIPG.YLR.IgnoreDiodeReply),
    LASERCTL_FIELD(CfgIPG.YLR.GateMode),
    LASERCTL_FIELD(CfgIPG.YLR.QCWMode),
    LASERCTL_FIELD(CfgIPG.YLR.UseOutputLaserOn),
    LASERCTL_FIELD(CfgIPG.YLR.UseRemoteCtrl),
    LASERCTL_FIELD(CfgIPG.YLR.YLRKeyOnPort),
    LASERCTL_FIELD(CfgIPG.YLR.YLRStartPort),
    LASERCTL_FIELD(CfgIPG.YLR.YLRLaserPort),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.EmissionStatusPort),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.LaserOnPort),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.LaserRequestPort),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.ProgramStartPort),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.LaserRequestDelay),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.LaserOnDelay),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.LaserOnPulse),
    LASERCTL_FIELD(CfgIPG.YLS.Wire.PowerOnStrategy),
    LASERCTL_FIELD(CfgIPG.YLP.YLPIndependentEmsOn),
    LASERCTL_FIELD(CfgIPG.YLP.YLPMO),
    LASERCTL_FIELD(CfgIPG.YLP.YLPAlarmIgnore),
    LASERCTL_FIELD(CfgIPG.YLP.YLPPower5),
    LASERCTL_FIELD(CfgIPG.YLP.YLPPower6),
    LASERCTL_FIELD(CfgIPG.YLP.YLPPower7),
    LASERCTL_FIELD(CfgIPG.YLP.YLPPower8),
    LASERCTL_FIELD(CfgIPG.YLP.YLPPowerDelay1),
    LASERCTL_FIELD(CfgIPG.YLP.YLPPowerDelay2),
    LASERCTL_FIELD(CfgIPG.YLP.YLPLock),
    LASERCTL_FIELD(CfgIPG.YLP.YLPAlarm16),
    LASERCTL_FIELD(CfgIPG.YLP.YLPAlarm21),
    LASERCTL_FIELD(CfgIPG.QCWPWMDelay),
    LASERCTL_FIELD(CfgIPG.PowerCtrl),
    LASERCTL_FIELD(CfgIPG.PowerCtrlPort),
    LASERCTL_FIELD(CfgIPG.MaxCurrent),
    LASERCTL_FIELD(CfgRay.QCW.PulseFreq),
    LASERCTL_FIELD(CfgRay.QCW.PulseRatio),
    LASERCTL_FIELD(CfgRay.QCW.PulsePower),
    LASERCTL_FIELD(CfgRay.UseOutputLaserOn),
    LASERCTL_FIELD(CfgRay.UseRemoteCtrl),
    LASERCTL_FIELD(CfgRay.RayStartPort),
    LASERCTL_FIELD(CfgRay.RayLaserPort),
    LASERCTL_FIELD(CfgRay.CtrlMode),
    LASERCTL_FIELD(CfgRay.PulseMode),
    LASERCTL_FIELD(CfgRay.MaxCurrent),
    LASERCTL_FIELD(CfgGSI.Address),
    LASERCTL_FIELD(CfgMeiMan.FreqDAPort),
    LASERCTL_FIELD(CfgMeiMan.RatioDAPort),
    LASERCTL_FIELD(CfgRofin.FaultReset),
    LASERCTL_FIELD(CfgRofin.GatePort),
    LASERCTL_FIELD(CfgRofin.LaserOn),
    LASERCTL_FIELD(CfgRofin.MainsOn),
    LASERCTL_FIELD(CfgRofin.StandbyOn),
    LASERCTL_FIELD(CfgRofin.StandbyReady),
    LASERCTL_FIELD(CfgRofin.SystemReady),
    LASERCTL_FIELD(CfgRofin.DelayAfterMainsOn),
    LASERCTL_FIELD(CfgRofin.DelayAfterReset),
    LASERCTL_FIELD(CfgRofin.DelayAfterResetOff),
    LASERCTL_FIELD(CfgRofin.DelayAfterStandby),
    LASERCTL_FIELD(CfgRofin.Warning),
    LASERCTL_FIELD(CfgRofin.Error),
    LASERCTL_FIELD(CfgOther.ShutterReadyDelay),
    LASERCTL_FIELD(CfgOther.ShutterReady),
    LASERCTL_FIELD(CfgTrumpf.LaserExtActivationPort),
    LASERCTL_FIELD(CfgTrumpf.LaserExtActivationDelay),
    LASERCTL_FIELD(CfgTrumpf.LaserExtActivationOkPort),
    LASERCTL_FIELD(CfgTrumpf.LaserOnPort),
    LASERCTL_FIELD(CfgTrumpf.LaserRequestPort),
    LASERCTL_FIELD(CfgTrumpf.EmissionStatusPort),
    LASERCTL_FIELD(CfgTrumpf.LaserOnDelay),
    LASERCTL_FIELD(CfgTrumpf.LaserOnOkPort),
    LASERCTL_FIELD(CfgTrumpf.LaserRequestDelay),
    LASERCTL_FIELD(CfgTrumpf.ProgramStartPort),
    LASERCTL_FIELD(CfgZorun.LaserIdx),
    LASERCTL_FIELD(CfgZorun.Desc),
};

#undef LASERCTL_FIELD

// Records without fields of their own; they are accepted (as empty objects) like any other record.
constexpr std::array<std::string_view, 2> kEmptyRecords = {"CfgNone", "CfgSPI"};

}  // namespace

std::span<const TParamField> ParamFields() { return kFields; }

const TParamField* FindParamField(std::string_view path) {
  for (const auto& field : kFields)
    if (field.Path == path) return &field;
  return nullptr;
}

bool IsParamRecord(std::string_view path) {
  if (path.empty()) return false;
  if (std::find(kEmptyRecords.begin(), kEmptyRecords.end(), path) != kEmptyRecords.end()) return true;
  return std::any_of(std::begin(kFields), std::end(kFields), [&](const TParamField& field) {
    return field.Path.size() > path.size() && field.Path.starts_with(path) && field.Path[path.size()] == '.';
  });
}

}  // namespace laserctl
