// Every operator-visible text of the library: one message per variable, with its Simplified Chinese default.
// The texts are replaced by those of the user's language from the host's locale resource (section "Device_Strs",
// key = the variable's name). Code refers to the variables, never to literals, so that a language switch changes
// every text at once. Reading is safe from every thread while the texts are being reloaded.
#pragma once

#include <string>

#include "host/Locale.h"

namespace devlaser {

enum class EMsg : int {
  SLaser,
  SLaserType1,
  SLaserType2,
  SLaserType3,
  SLaserAlarm,
  SLaserDiodeSetErr,
  SLaserConnectedOk,
  SLaserConnectedFail,
  SSetDiodeParamsInValid,
  SSetDiodeParamsFaild,
  SForceSetDiode,
  SNoneEcatLaser,
  SUnkownLaserType,
  SWarning,
  SControledLaserOn,
  SIPGCommCommunicationException,
  SIPGCommBUfferOverload,
  SIPGOverheat,
  SIPGHighBackReflectionLevel,
  SIPGPulseTooLong,
  SIPGModuleDisconnected,
  SIPGPulseTooShort,
  SIPGPowerSupplyOff,
  SIPGModulationDisabled,
  SIPGModulationEnable,
  SIPGGateModeEnabled,
  SIPGHighPulseEnergy,
  SIPGPowerSupplyFailure,
  SIPGHighDutyCycle,
  SIPGLowTemperature,
  SIPGPowerSupplyFailure2,
  SIPGCriticalError,
  SIPGOpticalInterlockactive,
  SIPGAveragePowertooHigh,
  SYLSPowerSupplyOn,
  SYLSLaserNotReady,
  SYLSLaserNotInExternCtrl,
  SYLSLaserInRobotMode,
  SSetAccessLevel,
  SAccessLevelResponse,
  SYLSAnalyzeResponseErr,
  SYLSCmdErr,
  STemperature1Err,
  STemperature2Err,
  STemperature3Err,
  STemperature4Err,
  SLaserOnStatus1Err,
  SLaserOnStatus2Err,
  SPowerStatus1Err,
  SPowerStatus2Err,
  SPowerPanelStatusErr,
  SCurrentPanelStatusErr,
  SLaserOnBtnStatusErr,
  SInterLockStatusErr,
  SPulseWidthStatusErr,
  SReadParams,
  SSystemInfo,
  SInternalPWM,
  SEmissionOpen,
  SEmissionClose,
  SReadErrLog,
  SClearException,
  SFrontPanelBtn,
  SONREMState,
  SACDC1State,
  SACDC2State,
  SALARMState,
  SCurrentDriverState,
  SRelayOutputState,
  SBackPanelLaserBtn,
  SAD232Mode,
  SLaserLock,
  SModSignal,
  SReadyOutput,
  SLaerOnState,
  SInterLockError,
  SACDC1Error,
  SACDC2Error,
  SCurrentDriverError,
  SLaserOnProtectMonitor1Error,
  SPowerMonitor1Error,
  SLaserOnProtectMonitor2Error,
  SPowerMonitor2Error,
  ST1Error,
  ST2Error,
  ST3Error,
  ST4Error,
  SMCUVoltageError,
  SLaserBtnPressedError,
  SEnvirTempError,
  SEnvirHumidityError,
  SWaterflowError,
  SSlaveDeviceError,
  SSalveDevCommError,
  SGetLaserRunTimeState,
  SEmissionOn,
  SEmissionOff,
  SLaserErrorReset,
  SSetPowerFreqRatio,
  SFormatError,
  SLengthError,
  SGetErrorRecord,
  SGetLaserInfo,
  SSysPowerSupply,
  SMcuTemp,
  SAnalogVoltValue,
  SLaserPowerPerValue,
  SLaserOutPowerValue,
  SAnaloyTemp1,
  SAnaloyTemp2,
  SMachineTemp,
  SMachineHumidity,
  SDewPoint,
  SPowerOnTm,
  SLaserOnTm,
  SMonitorBoardTempHigh,
  SMonitorBoardLowTemp,
  SACDC1Err,
  SACDC2Err,
  SMachineTempErr,
  SRayNotREM,
  SRayLowFlow,
  SPowerSupplyNumError,
  SPowerNumError,
  SLaserOutNumError,
  SBoardTempError,
  SRFLCommBuffSpill,
  SRFLOverTemperature,
  SRFLHighBackReflectionLevel,
  SRFLPulseWidthTooLong,
  SRFLPulseWidthTooShort,
  SRFLOverPulseEnergy,
  SRFLModulePowerFault,
  SRFLDutyCycleTooLong,
  SRFLLowTemperature,
  SRFLPowerFault,
  SRFLAimingError,
  SRFLFatalError,
  SRFLOpticalInterLockActive,
  SRFLAveragePowertooHigh,
  SDebugLogStart,
  SErrCtrlModelDebug,
  SErrCtrlModelInner,
  SErrCtrlModelGate,
  SExtAimingCtrl,
  SV101CurrentErr,
  SV101PanelDisConnectErr,
  SV101InterLockErr,
  SV101Err,
  SV101Warning,
  SV101ServerTimeOut,
  SV102BreakLineErr,
  SV102CondensationErr,
  SV102InterLockErr,
  SV102Err,
  SV102Warning,
  SV102ServerTimeOut,
  SInternalControlState,
  SLaserLightOutState,
  SLaserMainPowerStartState,
  SFrontPanelStartState,
  SLaserHasAlarmState,
  SContinuousFLightLockedState,
  SExtLineENConnectedAlarm,
  SExtLineModulateConnectedAlarm,
  SExtLineVoltageConnectedAlarm,
  SExtLineControlConnectedAlarm,
  SAimingOnState,
  SEmissionOnState,
  SOverVoltageAlarm,
  SUnderVoltageAlarm,
  SWaterFlowAlarm,
  SScramAlarm,
  SQBHInstallAlarm,
  SQBHTemperatureAlarm,
  SEWCBTemperaAlarm,
  SOWCBTemperaAlarm,
  SPumpSourCurrentAlarm,
  SPumpSourTemperaAlarm,
  SForwardLightAlarm,
  SBackLightAlarm,
  SOpticalModuleTempAlarm,
  SOpticalModuleHumidityAlarm,
  SAimingCurrentAlarm,
  SMaxGetLaserParams,
  SMaxEmissionOn,
  SMaxEmissionOff,
  SMaxIntControlMode,
  SMaxExtControlMode,
  SMaxStartButtonOn,
  SMaxStartButtonOff,
  SMaxAimingOn,
  SMaxAimingOff,
  SMaxSetLaserParams,
  SDataTransTypeNone,
  SParamInvaild,
  Count
};

// A message variable: converts to its current text.
struct TMessage {
  EMsg Id;
  std::string Text() const;
  operator std::string() const { return Text(); }
  const char* Name() const;
};

inline constexpr TMessage SLaser{EMsg::SLaser};
inline constexpr TMessage SLaserType1{EMsg::SLaserType1};
inline constexpr TMessage SLaserType2{EMsg::SLaserType2};
inline constexpr TMessage SLaserType3{EMsg::SLaserType3};
inline constexpr TMessage SLaserAlarm{EMsg::SLaserAlarm};
inline constexpr TMessage SLaserDiodeSetErr{EMsg::SLaserDiodeSetErr};
inline constexpr TMessage SLaserConnectedOk{EMsg::SLaserConnectedOk};
inline constexpr TMessage SLaserConnectedFail{EMsg::SLaserConnectedFail};
inline constexpr TMessage SSetDiodeParamsInValid{EMsg::SSetDiodeParamsInValid};
inline constexpr TMessage SSetDiodeParamsFaild{EMsg::SSetDiodeParamsFaild};
inline constexpr TMessage SForceSetDiode{EMsg::SForceSetDiode};
inline constexpr TMessage SNoneEcatLaser{EMsg::SNoneEcatLaser};
inline constexpr TMessage SUnkownLaserType{EMsg::SUnkownLaserType};
inline constexpr TMessage SWarning{EMsg::SWarning};
inline constexpr TMessage SControledLaserOn{EMsg::SControledLaserOn};
inline constexpr TMessage SIPGCommCommunicationException{EMsg::SIPGCommCommunicationException};
inline constexpr TMessage SIPGCommBUfferOverload{EMsg::SIPGCommBUfferOverload};
inline constexpr TMessage SIPGOverheat{EMsg::SIPGOverheat};
inline constexpr TMessage SIPGHighBackReflectionLevel{EMsg::SIPGHighBackReflectionLevel};
inline constexpr TMessage SIPGPulseTooLong{EMsg::SIPGPulseTooLong};
inline constexpr TMessage SIPGModuleDisconnected{EMsg::SIPGModuleDisconnected};
inline constexpr TMessage SIPGPulseTooShort{EMsg::SIPGPulseTooShort};
inline constexpr TMessage SIPGPowerSupplyOff{EMsg::SIPGPowerSupplyOff};
inline constexpr TMessage SIPGModulationDisabled{EMsg::SIPGModulationDisabled};
inline constexpr TMessage SIPGModulationEnable{EMsg::SIPGModulationEnable};
inline constexpr TMessage SIPGGateModeEnabled{EMsg::SIPGGateModeEnabled};
inline constexpr TMessage SIPGHighPulseEnergy{EMsg::SIPGHighPulseEnergy};
inline constexpr TMessage SIPGPowerSupplyFailure{EMsg::SIPGPowerSupplyFailure};
inline constexpr TMessage SIPGHighDutyCycle{EMsg::SIPGHighDutyCycle};
inline constexpr TMessage SIPGLowTemperature{EMsg::SIPGLowTemperature};
inline constexpr TMessage SIPGPowerSupplyFailure2{EMsg::SIPGPowerSupplyFailure2};
inline constexpr TMessage SIPGCriticalError{EMsg::SIPGCriticalError};
inline constexpr TMessage SIPGOpticalInterlockactive{EMsg::SIPGOpticalInterlockactive};
inline constexpr TMessage SIPGAveragePowertooHigh{EMsg::SIPGAveragePowertooHigh};
inline constexpr TMessage SYLSPowerSupplyOn{EMsg::SYLSPowerSupplyOn};
inline constexpr TMessage SYLSLaserNotReady{EMsg::SYLSLaserNotReady};
inline constexpr TMessage SYLSLaserNotInExternCtrl{EMsg::SYLSLaserNotInExternCtrl};
inline constexpr TMessage SYLSLaserInRobotMode{EMsg::SYLSLaserInRobotMode};
inline constexpr TMessage SSetAccessLevel{EMsg::SSetAccessLevel};
inline constexpr TMessage SAccessLevelResponse{EMsg::SAccessLevelResponse};
inline constexpr TMessage SYLSAnalyzeResponseErr{EMsg::SYLSAnalyzeResponseErr};
inline constexpr TMessage SYLSCmdErr{EMsg::SYLSCmdErr};
inline constexpr TMessage STemperature1Err{EMsg::STemperature1Err};
inline constexpr TMessage STemperature2Err{EMsg::STemperature2Err};
inline constexpr TMessage STemperature3Err{EMsg::STemperature3Err};
inline constexpr TMessage STemperature4Err{EMsg::STemperature4Err};
inline constexpr TMessage SLaserOnStatus1Err{EMsg::SLaserOnStatus1Err};
inline constexpr TMessage SLaserOnStatus2Err{EMsg::SLaserOnStatus2Err};
inline constexpr TMessage SPowerStatus1Err{EMsg::SPowerStatus1Err};
inline constexpr TMessage SPowerStatus2Err{EMsg::SPowerStatus2Err};
inline constexpr TMessage SPowerPanelStatusErr{EMsg::SPowerPanelStatusErr};
inline constexpr TMessage SCurrentPanelStatusErr{EMsg::SCurrentPanelStatusErr};
inline constexpr TMessage SLaserOnBtnStatusErr{EMsg::SLaserOnBtnStatusErr};
inline constexpr TMessage SInterLockStatusErr{EMsg::SInterLockStatusErr};
inline constexpr TMessage SPulseWidthStatusErr{EMsg::SPulseWidthStatusErr};
inline constexpr TMessage SReadParams{EMsg::SReadParams};
inline constexpr TMessage SSystemInfo{EMsg::SSystemInfo};
inline constexpr TMessage SInternalPWM{EMsg::SInternalPWM};
inline constexpr TMessage SEmissionOpen{EMsg::SEmissionOpen};
inline constexpr TMessage SEmissionClose{EMsg::SEmissionClose};
inline constexpr TMessage SReadErrLog{EMsg::SReadErrLog};
inline constexpr TMessage SClearException{EMsg::SClearException};
inline constexpr TMessage SFrontPanelBtn{EMsg::SFrontPanelBtn};
inline constexpr TMessage SONREMState{EMsg::SONREMState};
inline constexpr TMessage SACDC1State{EMsg::SACDC1State};
inline constexpr TMessage SACDC2State{EMsg::SACDC2State};
inline constexpr TMessage SALARMState{EMsg::SALARMState};
inline constexpr TMessage SCurrentDriverState{EMsg::SCurrentDriverState};
inline constexpr TMessage SRelayOutputState{EMsg::SRelayOutputState};
inline constexpr TMessage SBackPanelLaserBtn{EMsg::SBackPanelLaserBtn};
inline constexpr TMessage SAD232Mode{EMsg::SAD232Mode};
inline constexpr TMessage SLaserLock{EMsg::SLaserLock};
inline constexpr TMessage SModSignal{EMsg::SModSignal};
inline constexpr TMessage SReadyOutput{EMsg::SReadyOutput};
inline constexpr TMessage SLaerOnState{EMsg::SLaerOnState};
inline constexpr TMessage SInterLockError{EMsg::SInterLockError};
inline constexpr TMessage SACDC1Error{EMsg::SACDC1Error};
inline constexpr TMessage SACDC2Error{EMsg::SACDC2Error};
inline constexpr TMessage SCurrentDriverError{EMsg::SCurrentDriverError};
inline constexpr TMessage SLaserOnProtectMonitor1Error{EMsg::SLaserOnProtectMonitor1Error};
inline constexpr TMessage SPowerMonitor1Error{EMsg::SPowerMonitor1Error};
inline constexpr TMessage SLaserOnProtectMonitor2Error{EMsg::SLaserOnProtectMonitor2Error};
inline constexpr TMessage SPowerMonitor2Error{EMsg::SPowerMonitor2Error};
inline constexpr TMessage ST1Error{EMsg::ST1Error};
inline constexpr TMessage ST2Error{EMsg::ST2Error};
inline constexpr TMessage ST3Error{EMsg::ST3Error};
inline constexpr TMessage ST4Error{EMsg::ST4Error};
inline constexpr TMessage SMCUVoltageError{EMsg::SMCUVoltageError};
inline constexpr TMessage SLaserBtnPressedError{EMsg::SLaserBtnPressedError};
inline constexpr TMessage SEnvirTempError{EMsg::SEnvirTempError};
inline constexpr TMessage SEnvirHumidityError{EMsg::SEnvirHumidityError};
inline constexpr TMessage SWaterflowError{EMsg::SWaterflowError};
inline constexpr TMessage SSlaveDeviceError{EMsg::SSlaveDeviceError};
inline constexpr TMessage SSalveDevCommError{EMsg::SSalveDevCommError};
inline constexpr TMessage SGetLaserRunTimeState{EMsg::SGetLaserRunTimeState};
inline constexpr TMessage SEmissionOn{EMsg::SEmissionOn};
inline constexpr TMessage SEmissionOff{EMsg::SEmissionOff};
inline constexpr TMessage SLaserErrorReset{EMsg::SLaserErrorReset};
inline constexpr TMessage SSetPowerFreqRatio{EMsg::SSetPowerFreqRatio};
inline constexpr TMessage SFormatError{EMsg::SFormatError};
inline constexpr TMessage SLengthError{EMsg::SLengthError};
inline constexpr TMessage SGetErrorRecord{EMsg::SGetErrorRecord};
inline constexpr TMessage SGetLaserInfo{EMsg::SGetLaserInfo};
inline constexpr TMessage SSysPowerSupply{EMsg::SSysPowerSupply};
inline constexpr TMessage SMcuTemp{EMsg::SMcuTemp};
inline constexpr TMessage SAnalogVoltValue{EMsg::SAnalogVoltValue};
inline constexpr TMessage SLaserPowerPerValue{EMsg::SLaserPowerPerValue};
inline constexpr TMessage SLaserOutPowerValue{EMsg::SLaserOutPowerValue};
inline constexpr TMessage SAnaloyTemp1{EMsg::SAnaloyTemp1};
inline constexpr TMessage SAnaloyTemp2{EMsg::SAnaloyTemp2};
inline constexpr TMessage SMachineTemp{EMsg::SMachineTemp};
inline constexpr TMessage SMachineHumidity{EMsg::SMachineHumidity};
inline constexpr TMessage SDewPoint{EMsg::SDewPoint};
inline constexpr TMessage SPowerOnTm{EMsg::SPowerOnTm};
inline constexpr TMessage SLaserOnTm{EMsg::SLaserOnTm};
inline constexpr TMessage SMonitorBoardTempHigh{EMsg::SMonitorBoardTempHigh};
inline constexpr TMessage SMonitorBoardLowTemp{EMsg::SMonitorBoardLowTemp};
inline constexpr TMessage SACDC1Err{EMsg::SACDC1Err};
inline constexpr TMessage SACDC2Err{EMsg::SACDC2Err};
inline constexpr TMessage SMachineTempErr{EMsg::SMachineTempErr};
inline constexpr TMessage SRayNotREM{EMsg::SRayNotREM};
inline constexpr TMessage SRayLowFlow{EMsg::SRayLowFlow};
inline constexpr TMessage SPowerSupplyNumError{EMsg::SPowerSupplyNumError};
inline constexpr TMessage SPowerNumError{EMsg::SPowerNumError};
inline constexpr TMessage SLaserOutNumError{EMsg::SLaserOutNumError};
inline constexpr TMessage SBoardTempError{EMsg::SBoardTempError};
inline constexpr TMessage SRFLCommBuffSpill{EMsg::SRFLCommBuffSpill};
inline constexpr TMessage SRFLOverTemperature{EMsg::SRFLOverTemperature};
inline constexpr TMessage SRFLHighBackReflectionLevel{EMsg::SRFLHighBackReflectionLevel};
inline constexpr TMessage SRFLPulseWidthTooLong{EMsg::SRFLPulseWidthTooLong};
inline constexpr TMessage SRFLPulseWidthTooShort{EMsg::SRFLPulseWidthTooShort};
inline constexpr TMessage SRFLOverPulseEnergy{EMsg::SRFLOverPulseEnergy};
inline constexpr TMessage SRFLModulePowerFault{EMsg::SRFLModulePowerFault};
inline constexpr TMessage SRFLDutyCycleTooLong{EMsg::SRFLDutyCycleTooLong};
inline constexpr TMessage SRFLLowTemperature{EMsg::SRFLLowTemperature};
inline constexpr TMessage SRFLPowerFault{EMsg::SRFLPowerFault};
inline constexpr TMessage SRFLAimingError{EMsg::SRFLAimingError};
inline constexpr TMessage SRFLFatalError{EMsg::SRFLFatalError};
inline constexpr TMessage SRFLOpticalInterLockActive{EMsg::SRFLOpticalInterLockActive};
inline constexpr TMessage SRFLAveragePowertooHigh{EMsg::SRFLAveragePowertooHigh};
inline constexpr TMessage SDebugLogStart{EMsg::SDebugLogStart};
inline constexpr TMessage SErrCtrlModelDebug{EMsg::SErrCtrlModelDebug};
inline constexpr TMessage SErrCtrlModelInner{EMsg::SErrCtrlModelInner};
inline constexpr TMessage SErrCtrlModelGate{EMsg::SErrCtrlModelGate};
inline constexpr TMessage SExtAimingCtrl{EMsg::SExtAimingCtrl};
inline constexpr TMessage SV101CurrentErr{EMsg::SV101CurrentErr};
inline constexpr TMessage SV101PanelDisConnectErr{EMsg::SV101PanelDisConnectErr};
inline constexpr TMessage SV101InterLockErr{EMsg::SV101InterLockErr};
inline constexpr TMessage SV101Err{EMsg::SV101Err};
inline constexpr TMessage SV101Warning{EMsg::SV101Warning};
inline constexpr TMessage SV101ServerTimeOut{EMsg::SV101ServerTimeOut};
inline constexpr TMessage SV102BreakLineErr{EMsg::SV102BreakLineErr};
inline constexpr TMessage SV102CondensationErr{EMsg::SV102CondensationErr};
inline constexpr TMessage SV102InterLockErr{EMsg::SV102InterLockErr};
inline constexpr TMessage SV102Err{EMsg::SV102Err};
inline constexpr TMessage SV102Warning{EMsg::SV102Warning};
inline constexpr TMessage SV102ServerTimeOut{EMsg::SV102ServerTimeOut};
inline constexpr TMessage SInternalControlState{EMsg::SInternalControlState};
inline constexpr TMessage SLaserLightOutState{EMsg::SLaserLightOutState};
inline constexpr TMessage SLaserMainPowerStartState{EMsg::SLaserMainPowerStartState};
inline constexpr TMessage SFrontPanelStartState{EMsg::SFrontPanelStartState};
inline constexpr TMessage SLaserHasAlarmState{EMsg::SLaserHasAlarmState};
inline constexpr TMessage SContinuousFLightLockedState{EMsg::SContinuousFLightLockedState};
inline constexpr TMessage SExtLineENConnectedAlarm{EMsg::SExtLineENConnectedAlarm};
inline constexpr TMessage SExtLineModulateConnectedAlarm{EMsg::SExtLineModulateConnectedAlarm};
inline constexpr TMessage SExtLineVoltageConnectedAlarm{EMsg::SExtLineVoltageConnectedAlarm};
inline constexpr TMessage SExtLineControlConnectedAlarm{EMsg::SExtLineControlConnectedAlarm};
inline constexpr TMessage SAimingOnState{EMsg::SAimingOnState};
inline constexpr TMessage SEmissionOnState{EMsg::SEmissionOnState};
inline constexpr TMessage SOverVoltageAlarm{EMsg::SOverVoltageAlarm};
inline constexpr TMessage SUnderVoltageAlarm{EMsg::SUnderVoltageAlarm};
inline constexpr TMessage SWaterFlowAlarm{EMsg::SWaterFlowAlarm};
inline constexpr TMessage SScramAlarm{EMsg::SScramAlarm};
inline constexpr TMessage SQBHInstallAlarm{EMsg::SQBHInstallAlarm};
inline constexpr TMessage SQBHTemperatureAlarm{EMsg::SQBHTemperatureAlarm};
inline constexpr TMessage SEWCBTemperaAlarm{EMsg::SEWCBTemperaAlarm};
inline constexpr TMessage SOWCBTemperaAlarm{EMsg::SOWCBTemperaAlarm};
inline constexpr TMessage SPumpSourCurrentAlarm{EMsg::SPumpSourCurrentAlarm};
inline constexpr TMessage SPumpSourTemperaAlarm{EMsg::SPumpSourTemperaAlarm};
inline constexpr TMessage SForwardLightAlarm{EMsg::SForwardLightAlarm};
inline constexpr TMessage SBackLightAlarm{EMsg::SBackLightAlarm};
inline constexpr TMessage SOpticalModuleTempAlarm{EMsg::SOpticalModuleTempAlarm};
inline constexpr TMessage SOpticalModuleHumidityAlarm{EMsg::SOpticalModuleHumidityAlarm};
inline constexpr TMessage SAimingCurrentAlarm{EMsg::SAimingCurrentAlarm};
inline constexpr TMessage SMaxGetLaserParams{EMsg::SMaxGetLaserParams};
inline constexpr TMessage SMaxEmissionOn{EMsg::SMaxEmissionOn};
inline constexpr TMessage SMaxEmissionOff{EMsg::SMaxEmissionOff};
inline constexpr TMessage SMaxIntControlMode{EMsg::SMaxIntControlMode};
inline constexpr TMessage SMaxExtControlMode{EMsg::SMaxExtControlMode};
inline constexpr TMessage SMaxStartButtonOn{EMsg::SMaxStartButtonOn};
inline constexpr TMessage SMaxStartButtonOff{EMsg::SMaxStartButtonOff};
inline constexpr TMessage SMaxAimingOn{EMsg::SMaxAimingOn};
inline constexpr TMessage SMaxAimingOff{EMsg::SMaxAimingOff};
inline constexpr TMessage SMaxSetLaserParams{EMsg::SMaxSetLaserParams};
inline constexpr TMessage SDataTransTypeNone{EMsg::SDataTransTypeNone};
inline constexpr TMessage SParamInvaild{EMsg::SParamInvaild};

inline constexpr int kMessageCount = static_cast<int>(EMsg::Count);
// The compiled-in default of a message.
const char* MessageDefault(EMsg id);
// Reloads every message, in table order, from `locale` (section "Device_Strs"); a key the resource lacks keeps
// its current text. Does nothing when the resource is not loaded.
void ReloadMessages(const nchost::TVqLocaleResource& locale);
// Puts every message back to its default.
void ResetMessages();
// The locale procedure registered with the host when the library loads: reloads from the host's resource.
void MessagesLocaleProc();

}  // namespace devlaser
