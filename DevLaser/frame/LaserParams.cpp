#include "frame/LaserParams.h"

#include <cmath>

namespace devlaser {

const char* LaserTypeName(TEnumLaserType t) {
  static const char* const kNames[kLaserTypeCount] = {
      "eltNone", "eltCO2",   "eltIPG", "eltRay",  "eltTrumpf", "eltGSI",   "eltJK",   "eltMaxSZ", "eltMeiMan",
      "eltSPI",  "eltRofin", "eltCAS", "eltMars", "eltNLight", "eltLPing", "eltOVNT", "eltOther", "eltZorun"};
  return t < kLaserTypeCount ? kNames[t] : "";
}

const char* DataTransTypeName(TDataTransType t) {
  static const char* const kNames[kDataTransTypeCount] = {"dttNone",   "dttHardWire", "dttSerial",
                                                          "dttNetTcp", "dttNetUDP",   "dttEthercat"};
  return t < kDataTransTypeCount ? kNames[t] : "";
}

void TLaserPWM::Initialize() {
  DiodeCurrent = 10.0;
  EnablePort1 = 0;
  EnablePort2 = 0;
  Frequency = 5000;
  MinRatio = 0.01;
  Ratio = 1.0;
}

void TLaserDA::Initialize() {
  DAPort = 0;
  MaxVoltage = 10.0;
  ProofMax = 10.0;
}

double TLaserDA::GetDARatio(double value) const {
  // A proof maximum of 5 V or less means that no scaling is configured: a 5 V board is driven unscaled.
  if (!(ProofMax > 5.0)) return value;
  return MaxVoltage / ProofMax * value;
}

void TLaserConnCheckCfg::Initialize() {
  ConnCheckTimeIntv = 30.0;
  ConnCheckTimeStart = 0.01;
}

void TLaserComm::Initialize() {
  CommPort = 1;
  CommSettings = "9600,n,8,1";
  IgnoreCommResult = true;
  Baudrate = 9600;
}

void TLaserNet::Initialize() {
  TcpHost = "127.0.0.1";
  TcpPort = 8080;
}

void TLaserQcwParams::Initialize() {
  PulseFreq = 5000;
  PulseRatio = 10;
  PulsePower = 100;
}

void TLaserParamsDef::Initialize() {
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

void TIPGYLSHardWire::Initialize() {
  EmissionStatusPort = 0;
  LaserOnPort = 6;
  LaserRequestPort = 7;
  ProgramStartPort = 8;
  LaserRequestDelay = 200;
  LaserOnDelay = 10000;
  LaserOnPulse = 500;
  PowerOnStrategy = 0;
}

void TIPGLaserParams::Initialize() {
  YLR.Initialize();
  YLS.Initialize();
  YLP.Initialize();
}

void TLaserParams::Initialize() {
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
