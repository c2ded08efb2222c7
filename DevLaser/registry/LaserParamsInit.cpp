#include "registry/LaserParamsInit.h"

#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserStrs.h"
#include "frame/TextCompare.h"

namespace devlaser {
namespace {

// DA outputs are numbered from 1200 in the configuration and from 0 at the IO extension.
constexpr int32_t kDAPortBase = 1200;

void ReadCommon(TLaserConfig& config, TLaserParams& params) {
  TLaserParamsDef def{};
  def.Initialize();
  def.CtrlPort = config.CtrlPort();
  def.AimingPort = config.AimingPort();
  def.AimingLowActive = config.AimingLowActive();
  def.Power = config.Power();
  def.AnalogControl = config.AnalogControl();
  def.DebugMode = config.DebugMode();
  def.IgnoreLaserAlarm = config.IgnoreLaserAlarm();
  def.LaserAlarm2Warning = config.LaserAlarm2Warning();
  def.IgnoreDiodeReply = config.IgnoreDiodeReply();
  def.DiodeSetAlarmEn = config.DiodeSetAlarmEn();
  def.DiodeSetTimeOut = config.DiodeSetTimeOut();
  def.HardWireMutexEmAndAB = config.HardWireMutexEmAndAB();

  const TLaserPwmConfig& pwm = config.Pwm();
  def.PWM.Initialize();
  def.PWM.DiodeCurrent = pwm.DiodeCurrent();
  def.PWM.EnablePort1 = pwm.EnablePort1();
  def.PWM.EnablePort2 = pwm.EnablePort2();
  def.PWM.Frequency = pwm.Frequency();
  def.PWM.MinRatio = pwm.MinRatio();
  def.PWM.Ratio = pwm.Ratio();

  TLaserDAConfig& da = config.DA();
  def.DA.Initialize();  // the proof maximum keeps its default
  if (da.DAPort() >= kDAPortBase) da.SetDAPort(da.DAPort() - kDAPortBase);
  def.DA.DAPort = da.DAPort();
  def.DA.MaxVoltage = da.MaxVoltage();
  params.DefParams = def;
}

}  // namespace

TLaserParamsInit::TLaserParamsInit() {
  using namespace paramsinit;
  FProcs[eltCO2] = CO2;
  FProcs[eltIPG] = IPG;
  FProcs[eltRay] = Raycus;
  FProcs[eltTrumpf] = Trumpf;
  FProcs[eltGSI] = GSI;
  FProcs[eltJK] = GSI;
  FProcs[eltMaxSZ] = MaxSZ;
  FProcs[eltMeiMan] = Meiman;
  FProcs[eltSPI] = SPI;
  FProcs[eltRofin] = Rofin;
  FProcs[eltCAS] = [](TLaserConfig& c, TLaserParams& p) { SerialRule(c.GetCASConfig(), p); };
  FProcs[eltMars] = [](TLaserConfig& c, TLaserParams& p) { SerialRule(c.GetMarsConfig(), p); };
  FProcs[eltNLight] = [](TLaserConfig& c, TLaserParams& p) { SerialRule(c.GetNLightConfig(), p); };
  FProcs[eltLPing] = nullptr;  // registered, but nothing beyond the common part
  FProcs[eltOVNT] = nullptr;
  FProcs[eltOther] = Other;
  FProcs[eltZorun] = Zorun;
}

void TLaserParamsInit::LaserConfigToParams(TLaserConfig& config, TLaserParams& params) const {
  params.Initialize();
  ReadCommon(config, params);
  params.LaserMainType = FTypes.LaserModelToLaserType(config.Model());
  params.LaserSubType = 0;
  params.Model = config.Model();
  auto proc = FProcs.find(params.LaserMainType);
  if (proc != FProcs.end() && proc->second) proc->second(config, params);
}

namespace paramsinit {

void LogUnknownModel(const char* family) {
  LogMsg(std::string(family) + SUnkownLaserType.Text(), nchost::msgtype::kLaserLog);
}

void SerialRule(const TLaserCommConfig& comm, TLaserParams& params) {
  params.DefParams.Comm.CommPort = comm.CommPort();
  params.DefParams.Comm.Baudrate = comm.GetBaudrate();
  params.DefParams.Comm.IgnoreCommResult = comm.IgnoreCommResult();
  params.DefParams.Comm.CommSettings = comm.CommSettings();
  params.DefParams.DebugMode = params.DefParams.DebugMode || comm.DebugMode();
  params.DefParams.DataTransType = dttSerial;
}

void CO2(TLaserConfig& config, TLaserParams& params) {
  const TCO2LaserConfig& co2 = config.GetCO2Config();
  params.CfgCO2.DynamicDA = co2.DynamicDA();
  params.CfgCO2.LaserMode = co2.LaserMode();
  params.CfgCO2.ModeSelect0 = co2.ModeSelect0();
  params.CfgCO2.ModeSelect1 = co2.ModeSelect1();
  params.CfgCO2.ShutterPort = co2.ShutterPort();
  params.CfgCO2.ShutterStatus = co2.ShutterStatus();
  params.CfgCO2.ShutterDelay = co2.ShutterDelay();
}

namespace {

void IpgYlr(TLaserIPGConfig& ipg, TLaserParams& params) {
  TIPGLaserParams& cfg = params.CfgIPG;
  const bool qcw = SameText(ipg.PulseModel(), "QCW");
  cfg.PowerCtrlPort = ipg.PowerCtrlPort();
  cfg.PowerCtrl = cfg.PowerCtrlPort != 0;
  params.DefParams.Comm.IgnoreCommResult = ipg.IgnoreCommResult();
  params.LaserSubType = qcw ? 2 : 1;
  params.DefParams.DebugMode = params.DefParams.DebugMode || ipg.DebugMode();
  cfg.YLR.IgnoreDiodeReply = ipg.IgnoreDiodeReply();
  cfg.YLR.GateMode = ipg.GateMode();
  cfg.YLR.QCWMode = qcw;
  cfg.YLR.UseOutputLaserOn = ipg.UseOutputLaserOn();
  cfg.YLR.UseRemoteCtrl = ipg.UseRemoteCtrl();
  cfg.YLR.YLRKeyOnPort = ipg.YLRKeyOnPort();
  cfg.YLR.YLRStartPort = ipg.YLRStartPort();
  cfg.YLR.YLRLaserPort = ipg.YLRLaserPort();
  if (ipg.UseTcp()) {
    params.DefParams.Net.TcpHost = ipg.TcpHost();
    params.DefParams.Net.TcpPort = 10001;
    params.DefParams.DataTransType = dttNetTcp;
  } else if (ipg.CommPort() >= 1) {
    SerialRule(ipg, params);
  } else {
    params.DefParams.DataTransType = dttNone;
  }
}

void IpgYls(TLaserIPGConfig& ipg, TLaserParams& params) {
  TIPGYLS2000Config& yls = ipg.YLS2000();
  const bool usa = ContainsText(ipg.Model(), "USA");
  params.DefParams.DebugMode = params.DefParams.DebugMode || yls.DebugMode();
  if (yls.UseNetCtrl()) {
    params.DefParams.Net.TcpHost = yls.TcpHost();
    params.DefParams.Net.TcpPort = 5100;
    params.DefParams.DataTransType = dttNetTcp;
    params.LaserSubType = usa ? 6 : 4;
    if (usa) {
      params.CfgIPG.PowerCtrlPort = yls.PowerCtrlPort();
      params.CfgIPG.PowerCtrl = yls.PowerCtrl();
    }
    return;
  }
  TIPGYLSHardWire& wire = params.CfgIPG.YLS.Wire;
  wire.EmissionStatusPort = yls.EmissionStatusPort();
  wire.LaserOnPort = yls.LaserOnPort();
  wire.LaserRequestPort = yls.LaserRequestPort();
  wire.ProgramStartPort = yls.ProgramStartPort();
  wire.LaserRequestDelay = ipg.LaserRequestDelay();
  wire.LaserOnDelay = ipg.LaserOnDelay();
  wire.LaserOnPulse = ipg.LaserOnPulse();
  wire.PowerOnStrategy = yls.PowerOnStrategy();
  params.LaserSubType = usa ? 7 : 5;
  params.DefParams.DataTransType = dttHardWire;
}

void IpgYlp(const TLaserIPGConfig& ipg, TLaserParams& params) {
  TIPGYLPLaserParam& ylp = params.CfgIPG.YLP;
  ylp.YLPIndependentEmsOn = ipg.YLPIndependentEmsOn();
  ylp.YLPMO = ipg.YLPMO();
  ylp.YLPAlarmIgnore = ipg.YLPAlarmIgnore();
  ylp.YLPPower5 = ipg.YLPPower5();
  ylp.YLPPower6 = ipg.YLPPower6();
  ylp.YLPPower7 = ipg.YLPPower7();
  ylp.YLPPower8 = ipg.YLPPower8();
  ylp.YLPPowerDelay1 = ipg.YLPPowerDelay1();
  ylp.YLPPowerDelay2 = ipg.YLPPowerDelay2();
  ylp.YLPLock = ipg.YLPLock();
  ylp.YLPAlarm16 = ipg.YLPAlarm16();
  ylp.YLPAlarm21 = ipg.YLPAlarm21();
  params.LaserSubType = 8;
  params.DefParams.DataTransType = dttHardWire;
}

}  // namespace

void IPG(TLaserConfig& config, TLaserParams& params) {
  if (!config.IsIPG()) LogUnknownModel("IPG");
  TLaserIPGConfig& ipg = config.GetIPGConfig();
  params.CfgIPG.MaxCurrent = ipg.MaxCurrent();
  if (ipg.IsYLR())
    IpgYlr(ipg, params);
  else if (ipg.IsYLS())
    IpgYls(ipg, params);
  else if (SameText(ipg.Model(), "YLP"))
    IpgYlp(ipg, params);
  else if (ContainsText(ipg.Model(), "Ethercat"))
    params.DefParams.DataTransType = dttEthercat;  // the factory makes this sub-type 9
  else
    LogUnknownModel("IPG");
}

void Raycus(TLaserConfig& config, TLaserParams& params) {
  TRaycusLaserConfig& ray = config.GetRaycusConfig();
  if (!ray.UseTcp()) {
    SerialRule(ray, params);
  } else {
    params.DefParams.DataTransType = dttNetUDP;
    params.DefParams.Net.TcpHost = ray.TcpHost();
  }
  TRaycusLaserParams& cfg = params.CfgRay;
  cfg.UseOutputLaserOn = ray.UseOutputLaserOn();
  cfg.UseRemoteCtrl = ray.UseRemoteCtrl();
  cfg.RayStartPort = ray.RayStartPort();
  cfg.RayLaserPort = ray.RayLaserPort();
  cfg.CtrlMode = ray.CtrlMode();
  cfg.PulseMode = SameText(ray.PulseModel(), "QCW");
  cfg.MaxCurrent = ray.MaxCurrent();
  params.DefParams.DebugMode = params.DefParams.DebugMode || ray.DebugMode();
  params.DefParams.IgnoreCommRes = ray.IgnoreCommResult();
  params.DefParams.IgnoreDiodeReply = ray.IgnoreDiodeReply();

  const std::string model = ray.Type();
  if (model.empty()) {
    params.LaserSubType = cfg.PulseMode ? 2 : 1;
  } else if (ContainsText(model, "SM")) {
    params.DefParams.Net.TcpPort = 8098;
    params.LaserSubType = 3;
  } else if (ContainsText(model, "MM")) {
    params.DefParams.Net.TcpPort = 8098;
    params.LaserSubType = 4;
  } else if (ContainsText(model, "RFL")) {
    params.DefParams.Net.TcpPort = 8099;
    params.LaserSubType = 5;
  } else if (!ContainsText(model, "QCW") && !ContainsText(model, "CW")) {
    params.LaserSubType = 0;
    LogUnknownModel("Raycus");
  } else {
    params.LaserSubType = ContainsText(model, "QCW") ? 2 : 1;
  }
}

void Trumpf(TLaserConfig& config, TLaserParams& params) {
  const TIPGYLS2000Config& yls = config.GetIPGConfig().YLS2000();
  TTrumpfLaserParam& t = params.CfgTrumpf;
  t.LaserExtActivationPort = yls.LaserExtActivationPort();
  t.LaserExtActivationDelay = yls.LaserExtActivationDelay();
  t.LaserExtActivationOkPort = yls.LaserExtActivationOkPort();
  t.LaserOnPort = yls.LaserOnPort();
  t.LaserRequestPort = yls.LaserRequestPort();
  t.EmissionStatusPort = yls.EmissionStatusPort();
  t.LaserOnDelay = yls.LaserOnDelay();
  t.LaserOnOkPort = yls.LaserOnOkPort();
  t.LaserRequestDelay = yls.LaserRequestDelay();
  t.ProgramStartPort = yls.ProgramStartPort();
}

void GSI(TLaserConfig& config, TLaserParams& params) {
  const TGSILaserConfig& gsi = config.GetGSIConfig();
  SerialRule(gsi, params);
  params.CfgGSI.Address = gsi.Address();
}

void MaxSZ(TLaserConfig& config, TLaserParams& params) {
  const TMaxLaserConfig& max = config.GetMaxSZConfig();
  SerialRule(max, params);
  if (max.Model() == "MaxSZ") {
    params.LaserSubType = 1;
  } else if (max.Model() == "MaxG3") {
    params.LaserSubType = 2;
  } else {
    params.LaserSubType = 0;
    LogUnknownModel("Max");
  }
}

void Meiman(TLaserConfig& config, TLaserParams& params) {
  const TMeimanLaserConfig& meiman = config.GetMeimanConfig();
  params.CfgMeiMan.FreqDAPort = meiman.FreqDAPort();
  params.CfgMeiMan.RatioDAPort = meiman.RatioDAPort();
}

void SPI(TLaserConfig& config, TLaserParams& params) {
  SerialRule(config.GetSPIConfig(), params);
  const std::string model = config.Model();
  params.LaserSubType = ContainsText(model, "OEM") || model == "SPI1000" ? 2 : 1;
}

void Rofin(TLaserConfig& config, TLaserParams& params) {
  const TRofinLaserConfig& r = config.GetRofinConfig();
  TRofinLaserParam& p = params.CfgRofin;
  p.FaultReset = r.FaultReset();
  p.GatePort = r.GatePort();
  p.LaserOn = r.LaserOn();
  p.MainsOn = r.MainsOn();
  p.StandbyOn = r.StandbyOn();
  p.StandbyReady = r.StandbyReady();
  p.SystemReady = r.SystemReady();
  p.DelayAfterMainsOn = r.DelayAfterMainsOn();
  p.DelayAfterReset = r.DelayAfterReset();
  p.DelayAfterResetOff = r.DelayAfterResetOff();
  p.DelayAfterStandby = r.DelayAfterStandby();
  p.Warning = r.Warning();
  p.Error = r.Error();
}

void Other(TLaserConfig& config, TLaserParams& params) {
  params.CfgOther.ShutterReadyDelay = config.ShutterReadyDelay();
  params.CfgOther.ShutterReady = config.ShutterReady();
}

void Zorun(TLaserConfig& config, TLaserParams& params) {
  if (!SameText(config.Model(), "Zorun")) LogUnknownModel("Zorun");
  const TZorunLaserConfig& z = config.GetZorunConfig();
  switch (z.CommType()) {
    case 1:
      params.DefParams.DataTransType = dttSerial;
      params.DefParams.Comm.CommPort = z.CommPort();
      break;
    case 2:
      params.DefParams.DataTransType = dttNetUDP;
      break;
    case 3:
      params.DefParams.DataTransType = dttNetTcp;
      break;
    case 0:
      params.DefParams.DataTransType = dttNone;
      break;
    default:
      // Not a transport: the laser stays without a link rather than on a guessed one, and the log says why.
      params.DefParams.DataTransType = dttNone;
      LogMsg(Format("Zorun CommType %d is not a transport (0 none, 1 serial, 2 UDP, 3 TCP)", z.CommType()),
             nchost::msgtype::kLaserLog);
      break;
  }
  if (params.DefParams.DataTransType == dttNetUDP || params.DefParams.DataTransType == dttNetTcp) {
    params.DefParams.Net.TcpPort = z.NetPort();
    params.DefParams.Net.TcpHost = z.NetAddress();
  }
  params.CfgZorun.LaserIdx = z.LaserIdx();
  params.CfgZorun.Desc = z.Desc();
}

}  // namespace paramsinit
}  // namespace devlaser
