// The laser vocabulary: laser families, transports and the flat parameter record every laser is built from.
// Each laser keeps its own copy of the record; copying a TLaserParams copies everything. Header-only: it is part of
// the public header set that hosts build against.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>

namespace devlaser {

enum TEnumLaserType : uint8_t {
  eltNone,
  eltCO2,
  eltIPG,
  eltRay,
  eltTrumpf,
  eltGSI,
  eltJK,
  eltMaxSZ,
  eltMeiMan,
  eltSPI,
  eltRofin,
  eltCAS,
  eltMars,
  eltNLight,
  eltLPing,
  eltOVNT,
  eltOther,
  eltZorun,
};
inline constexpr int kLaserTypeCount = eltZorun + 1;
// "eltIPG" for eltIPG; empty for a value outside the enumeration.
const char* LaserTypeName(TEnumLaserType t);

enum TDataTransType : uint8_t { dttNone, dttHardWire, dttSerial, dttNetTcp, dttNetUDP, dttEthercat };
inline constexpr int kDataTransTypeCount = dttEthercat + 1;
const char* DataTransTypeName(TDataTransType t);

struct TLaserPWM {
  double DiodeCurrent;  // percent
  int32_t EnablePort1;
  int32_t EnablePort2;
  int32_t Frequency;  // Hz
  double MinRatio;    // 0..1
  double Ratio;       // 0..1
  void Initialize();
};

struct TLaserDA {
  int32_t DAPort;
  double MaxVoltage;  // volts meaning full scale at the laser
  double ProofMax;    // full-scale volts of the controller's DA output
  void Initialize();
  // Scales a voltage from the laser's scale to the controller's DA output.
  double GetDARatio(double value) const;
};

struct TLaserConnCheckCfg {
  double ConnCheckTimeIntv;   // seconds
  double ConnCheckTimeStart;  // seconds
  void Initialize();
};

struct TLaserComm {
  int32_t CommPort;
  std::string CommSettings;  // "baud,parity,data bits,stop bits"
  bool IgnoreCommResult;
  int32_t Baudrate;
  void Initialize();
};

struct TLaserNet {
  std::string TcpHost;
  int32_t TcpPort;
  void Initialize();
};

struct TLaserQcwParams {
  int32_t PulseFreq;   // Hz
  int32_t PulseRatio;  // percent
  int32_t PulsePower;  // percent
  void Initialize();
};

struct TLaserParamsDef {
  int32_t CtrlPort;
  int32_t AimingPort;
  bool AimingLowActive;
  bool AnalogControl;
  double Power;  // W
  TLaserPWM PWM;
  TLaserDA DA;
  TDataTransType DataTransType;
  TLaserConnCheckCfg ConnCheck;
  TLaserComm Comm;
  TLaserNet Net;
  bool DebugMode;
  bool IgnoreLaserAlarm;
  bool LaserAlarm2Warning;
  bool IgnoreDiodeReply;
  bool DiodeSetAlarmEn;
  int32_t DiodeSetTimeOut;  // ms
  bool IgnoreCommRes;
  bool HardWireMutexEmAndAB;
  void Initialize();
};

struct TLaserErr {
  void Initialize() {}
};

struct TCO2LaserParam {
  int32_t DynamicDA, LaserMode, ModeSelect0, ModeSelect1, ShutterPort, ShutterStatus, ShutterDelay;
  void Initialize() { *this = {}; }
};

struct TIPGYLRLaserParam {
  bool IgnoreDiodeReply, GateMode, QCWMode, UseOutputLaserOn, UseRemoteCtrl;
  int32_t YLRKeyOnPort, YLRStartPort, YLRLaserPort;
  void Initialize() { *this = {}; }
};

struct TIPGYLSHardWire {
  int32_t EmissionStatusPort;  // input
  int32_t LaserOnPort;         // output
  int32_t LaserRequestPort;    // output
  int32_t ProgramStartPort;    // output
  int32_t LaserRequestDelay;   // ms
  int32_t LaserOnDelay;        // ms
  int32_t LaserOnPulse;        // ms
  int32_t PowerOnStrategy;
  void Initialize();
};

struct TIPGYLSLaserParam {
  TIPGYLSHardWire Wire;
  void Initialize() { Wire.Initialize(); }
};

struct TIPGYLPLaserParam {
  bool YLPIndependentEmsOn;
  int32_t YLPMO;
  bool YLPAlarmIgnore;
  int32_t YLPPower5, YLPPower6, YLPPower7, YLPPower8, YLPPowerDelay1, YLPPowerDelay2, YLPLock, YLPAlarm16, YLPAlarm21;
  void Initialize() { *this = {}; }
};

struct TIPGLaserParams {
  TIPGYLRLaserParam YLR;
  TIPGYLSLaserParam YLS;
  TIPGYLPLaserParam YLP;
  double QCWPWMDelay;
  bool PowerCtrl;
  int32_t PowerCtrlPort;
  double MaxCurrent;
  // Initialises the three sub-records only.
  void Initialize();
};

struct TRaycusLaserParams {
  TLaserQcwParams QCW;
  bool UseOutputLaserOn;
  bool UseRemoteCtrl;
  int32_t RayStartPort;
  int32_t RayLaserPort;
  int32_t CtrlMode;
  bool PulseMode;
  double MaxCurrent;  // percent
  // Sets the QCW defaults only and leaves the other fields as they are.
  void Initialize() { QCW.Initialize(); }
};

struct TGSILaserParam {
  uint8_t Address;
  void Initialize() { Address = 0; }
};

struct TMeimanLaserParam {
  int32_t FreqDAPort, RatioDAPort;
  void Initialize() { *this = {}; }
};

struct TSPILaserParam {
  void Initialize() {}
};

struct TRofinLaserParam {
  int32_t FaultReset, GatePort, LaserOn, MainsOn, StandbyOn, StandbyReady, SystemReady;
  int32_t DelayAfterMainsOn, DelayAfterReset, DelayAfterResetOff, DelayAfterStandby;
  int32_t Warning, Error;
  void Initialize() { *this = {}; }
};

struct TOtherLaserParam {
  int32_t ShutterReadyDelay, ShutterReady;
  void Initialize() { *this = {}; }
};

struct TTrumpfLaserParam {
  int32_t LaserExtActivationPort, LaserExtActivationDelay, LaserExtActivationOkPort, LaserOnPort, LaserRequestPort,
      EmissionStatusPort, LaserOnDelay, LaserOnOkPort, LaserRequestDelay, ProgramStartPort;
  void Initialize() { *this = {}; }
};

struct TQYLaserParam {
  int32_t DAPort;
  void Initialize() { DAPort = 0; }
};

struct TZorunLaserParam {
  int32_t LaserIdx;
  std::string Desc;
  void Initialize() {
    LaserIdx = 0;
    Desc.clear();
  }
};

struct TLaserParams {
  TLaserParamsDef DefParams;
  std::string Model;
  TEnumLaserType LaserMainType;
  int32_t LaserSubType;
  TLaserErr CfgNone;
  TCO2LaserParam CfgCO2;
  TLaserDA CfgDA;
  TIPGLaserParams CfgIPG;
  TRaycusLaserParams CfgRay;
  TGSILaserParam CfgGSI;
  TMeimanLaserParam CfgMeiMan;
  TSPILaserParam CfgSPI;
  TRofinLaserParam CfgRofin;
  TOtherLaserParam CfgOther;
  TTrumpfLaserParam CfgTrumpf;
  TZorunLaserParam CfgZorun;

  // A fresh record is initialised: model "Error", no type, common defaults, family records zero.
  TLaserParams() { Initialize(); }
  void Initialize();
  void InitLaserType(TEnumLaserType mainType, int32_t subType) {
    LaserMainType = mainType;
    LaserSubType = subType;
  }
};

// True when bit `bit` (taken modulo 32) of a laser status word is set.
inline bool LaserDevStatusBit(uint32_t status, uint16_t bit) { return (status >> (bit % 32)) & 1u; }

// ---- defaults --------------------------------------------------------------------------------------------------
inline const char* LaserTypeName(TEnumLaserType t) {
  static const char* const kNames[kLaserTypeCount] = {
      "eltNone", "eltCO2",   "eltIPG", "eltRay",  "eltTrumpf", "eltGSI",   "eltJK",   "eltMaxSZ", "eltMeiMan",
      "eltSPI",  "eltRofin", "eltCAS", "eltMars", "eltNLight", "eltLPing", "eltOVNT", "eltOther", "eltZorun"};
  return t < kLaserTypeCount ? kNames[t] : "";
}

inline const char* DataTransTypeName(TDataTransType t) {
  static const char* const kNames[kDataTransTypeCount] = {"dttNone",   "dttHardWire", "dttSerial",
                                                          "dttNetTcp", "dttNetUDP",   "dttEthercat"};
  return t < kDataTransTypeCount ? kNames[t] : "";
}

inline void TLaserPWM::Initialize() {
  DiodeCurrent = 10.0;
  EnablePort1 = 0;
  EnablePort2 = 0;
  Frequency = 5000;
  MinRatio = 0.01;
  Ratio = 1.0;
}

inline void TLaserDA::Initialize() {
  DAPort = 0;
  MaxVoltage = 10.0;
  ProofMax = 10.0;
}

inline double TLaserDA::GetDARatio(double value) const {
  // A proof maximum of 5 V or less means that no scaling is configured: a 5 V board is driven unscaled.
  if (!(ProofMax > 5.0)) return value;
  return MaxVoltage / ProofMax * value;
}

inline void TLaserConnCheckCfg::Initialize() {
  ConnCheckTimeIntv = 30.0;
  ConnCheckTimeStart = 0.01;
}

inline void TLaserComm::Initialize() {
  CommPort = 1;
  CommSettings = "9600,n,8,1";
  IgnoreCommResult = true;
  Baudrate = 9600;
}

inline void TLaserNet::Initialize() {
  TcpHost = "127.0.0.1";
  TcpPort = 8080;
}

inline void TLaserQcwParams::Initialize() {
  PulseFreq = 5000;
  PulseRatio = 10;
  PulsePower = 100;
}

inline void TLaserParamsDef::Initialize() {
  CtrlPort = 0;
  AimingPort = 0;
  AimingLowActive = false;
  Power = 0;
  LaserAlarm2Warning = false;
  DiodeSetAlarmEn = false;
  HardWireMutexEmAndAB = false;
  DiodeSetTimeOut = 1000;
  PWM.Initialize();
  DA.Initialize();
  ConnCheck.Initialize();
  Comm.Initialize();
  Net.Initialize();
}

inline void TIPGYLSHardWire::Initialize() {
  EmissionStatusPort = 0;
  LaserOnPort = 6;
  LaserRequestPort = 7;
  ProgramStartPort = 8;
  LaserRequestDelay = 200;
  LaserOnDelay = 10000;
  LaserOnPulse = 500;
  PowerOnStrategy = 0;
}

inline void TIPGLaserParams::Initialize() {
  YLR.Initialize();
  YLS.Initialize();
  YLP.Initialize();
}

inline void TLaserParams::Initialize() {
  // Zero-fill everything, then set the common defaults; the family records stay zero until the parameter
  // initialiser fills the one the laser type needs.
  DefParams = TLaserParamsDef{};
  Model.clear();
  CfgNone = {};
  CfgCO2 = {};
  CfgDA = {};
  CfgIPG = {};
  CfgRay = {};
  CfgGSI = {};
  CfgMeiMan = {};
  CfgSPI = {};
  CfgRofin = {};
  CfgOther = {};
  CfgTrumpf = {};
  CfgZorun = {};
  DefParams.Initialize();
  Model = "Error";
  LaserMainType = eltNone;
  LaserSubType = 0;
}

}  // namespace devlaser
