#include "frame/LaserConfig.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace devlaser {
namespace {

// "Name:type=value" per key, one line each, attributes marked with '@': the persisted face of a node.
std::string DumpKeys(const nchost::TXmlSubConfig& node) {
  std::ostringstream out;
  for (const auto& p : node.Properties()) {
    out << (p.XmlAttribute ? "@" : "") << p.Name << ":";
    std::visit(
        [&](const auto& v) {
          using V = std::decay_t<decltype(v)>;
          if constexpr (std::is_same_v<V, bool>)
            out << "bool=" << (v ? "true" : "false");
          else if constexpr (std::is_same_v<V, int32_t>)
            out << "int=" << v;
          else if constexpr (std::is_same_v<V, double>)
            out << "double=" << v;
          else
            out << "string=" << v;
        },
        p.Value);
    out << "\n";
  }
  return out.str();
}

std::string SubNodeNames(const nchost::TXmlSubConfig& node) {
  std::string names;
  for (const auto& n : node.SubConfigs()) names += (names.empty() ? "" : ",") + n->NodeName();
  return names;
}

constexpr const char* kCommKeys =
    "CheckAlarm:bool=false\n"
    "CommPort:int=1\n";
constexpr const char* kCommTail =
    "DebugMode:bool=false\n"
    "IgnoreCommResult:bool=true\n";

std::string CommKeys(const std::string& settings) {
  return std::string(kCommKeys) + "CommSettings:string=" + settings + "\n" + kCommTail;
}

TEST(LaserConfig, FreshRootHasItsDefaultsAndOnlyTheDAAndPWMNodes) {
  TLaserConfig cfg;
  EXPECT_EQ(DumpKeys(cfg),
            "CtrlPort:int=0\n"
            "AimingPort:int=0\n"
            "AimingLowActive:bool=false\n"
            "AnalogControl:bool=false\n"
            "Model:string=Raycus\n"
            "Brand:string=\n"
            "Power:double=1000\n"
            "DebugMode:bool=false\n"
            "ShutterReadyDelay:int=100\n"
            "ShutterReady:int=0\n"
            "LaserPeriod:int=100\n"
            "IgnoreLaserAlarm:bool=false\n"
            "LaserAlarm2Warning:bool=false\n"
            "IgnoreDiodeReply:bool=false\n"
            "DiodeSetAlarmEn:bool=false\n"
            "DiodeSetTimeOut:int=1000\n"
            "HardWireMutexEmAndAB:bool=false\n");
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM");
  EXPECT_EQ(&cfg.DA(), cfg.FindSubConfig("DA"));
  EXPECT_EQ(&cfg.Pwm(), cfg.FindSubConfig("PWM"));
  EXPECT_EQ(cfg.DA().Parent(), &cfg);

  EXPECT_EQ(DumpKeys(cfg.DA()), "DAPort:int=0\nMaxVoltage:double=10\nProofMax:double=10\n");
  EXPECT_EQ(DumpKeys(cfg.Pwm()),
            "@DynamicPwm:bool=false\n"
            "EnablePort1:int=0\n"
            "EnablePort2:int=0\n"
            "MinRatio:double=0.01\n"
            "DiodeCurrent:double=10\n"
            "Frequency:int=5000\n"
            "Ratio:double=1\n");

  // The typed accessors read the same storage.
  EXPECT_EQ(cfg.Model(), "Raycus");
  EXPECT_DOUBLE_EQ(cfg.Power(), 1000.0);
  EXPECT_EQ(cfg.DiodeSetTimeOut(), 1000);
  EXPECT_EQ(cfg.Pwm().Frequency(), 5000);
  EXPECT_DOUBLE_EQ(cfg.DA().MaxVoltage(), 10.0);
}

TEST(LaserConfig, AccessorsAndStoredKeysAreOneAndTheSame) {
  TLaserConfig cfg;
  cfg.SetCtrlPort(7);
  cfg.SetModel("IPG");
  cfg.SetPower(1500.5);
  cfg.SetHardWireMutexEmAndAB(true);
  cfg.DA().SetDAPort(1203);
  cfg.Pwm().SetDynamicPwm(true);
  EXPECT_EQ(cfg.GetInteger("CtrlPort"), 7);
  EXPECT_EQ(cfg.GetString("Model"), "IPG");
  EXPECT_DOUBLE_EQ(cfg.GetDouble("Power"), 1500.5);
  EXPECT_TRUE(cfg.GetBool("HardWireMutexEmAndAB"));
  EXPECT_EQ(cfg.DA().GetInteger("DAPort"), 1203);
  EXPECT_TRUE(cfg.Pwm().GetBool("DynamicPwm"));

  // What the host's persistence writes by name, the accessors read.
  ASSERT_TRUE(cfg.SetProperty("AimingPort", int32_t{4}));
  ASSERT_TRUE(cfg.GetRaycusConfig().SetProperty("Type", std::string("RFL-C3000")));
  EXPECT_EQ(cfg.AimingPort(), 4);
  EXPECT_EQ(cfg.GetRaycusConfig().Type(), "RFL-C3000");
  // A value of the wrong type is refused and the key keeps its value.
  EXPECT_FALSE(cfg.SetProperty("CtrlPort", std::string("5")));
  EXPECT_EQ(cfg.CtrlPort(), 7);
}

TEST(LaserConfig, InitializeRestoresDefaultsAndKeepsFamilyNodes) {
  TLaserConfig cfg;
  cfg.SetModel("CO2");
  cfg.SetDiodeSetTimeOut(5);
  cfg.Pwm().SetFrequency(20000);
  cfg.DA().SetProofMax(5.0);
  cfg.GetCO2Config().SetShutterPort(3);
  cfg.Initialize();
  EXPECT_EQ(cfg.Model(), "Raycus");
  EXPECT_EQ(cfg.DiodeSetTimeOut(), 1000);
  EXPECT_EQ(cfg.Pwm().Frequency(), 5000);
  EXPECT_DOUBLE_EQ(cfg.DA().ProofMax(), 10.0);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,CO2");
  EXPECT_EQ(cfg.GetCO2Config().ShutterPort(), 3);
  EXPECT_EQ(cfg.Properties().size(), 17u);  // no key declared twice
}

TEST(LaserConfig, FamilyNodesAreCreatedOnFirstAccessAndThenReused) {
  TLaserConfig cfg;
  TRaycusLaserConfig& first = cfg.GetRaycusConfig();
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,Raycus");
  EXPECT_EQ(first.Parent(), &cfg);
  EXPECT_EQ(&cfg.GetRaycusConfig(), &first);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,Raycus");

  cfg.GetCO2Config();
  cfg.GetIPGConfig();
  cfg.GetGSIConfig();
  cfg.GetMaxSZConfig();
  cfg.GetMeimanConfig();
  cfg.GetQingHuaConfig();
  cfg.GetQYZConfig();
  cfg.GetRofinConfig();
  cfg.GetSPIConfig();
  cfg.GetCASConfig();
  cfg.GetMarsConfig();
  cfg.GetNLightConfig();
  cfg.GetZorunConfig();
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,Raycus,CO2,IPG,GSI,MaxSZ,Meiman,Qinghua,QYZ,Rofin,SPI,CAS,MARS,NLight,Zorun");
  EXPECT_EQ(&cfg.GetIPGConfig(), cfg.FindSubConfig("IPG"));
  EXPECT_EQ(&cfg.GetMarsConfig(), cfg.FindSubConfig("MARS"));
  EXPECT_EQ(SubNodeNames(cfg.GetIPGConfig()), "YLS2000");

  // A name that already belongs to a node of another class is not handed out as the wrong class.
  EXPECT_EQ(cfg.GetLaserConfig<TCO2LaserConfig>("IPG"), nullptr);
  EXPECT_EQ(cfg.GetLaserConfig<TLaserIPGConfig>("IPG"), &cfg.GetIPGConfig());
}

TEST(LaserConfig, LoadingCreatesTheFamilyNodeAFileNames) {
  TLaserConfig cfg;
  nchost::TXmlSubConfig* ipg = cfg.SubConfigForLoad("IPG");
  ASSERT_NE(ipg, nullptr);
  EXPECT_EQ(ipg, &cfg.GetIPGConfig());
  EXPECT_EQ(cfg.SubConfigForLoad("IPG"), ipg);
  EXPECT_EQ(cfg.SubConfigForLoad("DA"), &cfg.DA());
  EXPECT_EQ(cfg.SubConfigForLoad("MARS"), &cfg.GetMarsConfig());
  EXPECT_EQ(cfg.SubConfigForLoad("Zorun"), &cfg.GetZorunConfig());
  // Unknown nodes (and the published property spelling "Mars") create nothing.
  EXPECT_EQ(cfg.SubConfigForLoad("Trumpf"), nullptr);
  EXPECT_EQ(cfg.SubConfigForLoad("Mars"), nullptr);
  EXPECT_EQ(cfg.SubConfigForLoad(""), nullptr);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,IPG,MARS,Zorun");
  // The IPG node in turn knows its YLS2000 node.
  EXPECT_EQ(ipg->SubConfigForLoad("YLS2000"), &cfg.GetIPGConfig().YLS2000());
}

TEST(LaserConfig, FamilyNodeKeysAndDefaults) {
  TLaserConfig cfg;
  EXPECT_EQ(DumpKeys(cfg.GetRaycusConfig()), CommKeys("9600,n,8,1") +
                                                 "@Type:string=\n"
                                                 "PulseModel:string=CW\n"
                                                 "TcpHost:string=192.168.0.100\n"
                                                 "UseTcp:bool=false\n"
                                                 "UseOutputLaserOn:bool=false\n"
                                                 "UseRemoteCtrl:bool=false\n"
                                                 "RayStartPort:int=0\n"
                                                 "RayLaserPort:int=0\n"
                                                 "IgnoreDiodeReply:bool=false\n"
                                                 "CtrlMode:int=0\n"
                                                 "MaxCurrent:double=100\n");
  EXPECT_EQ(DumpKeys(cfg.GetSPIConfig()), CommKeys("19200,e,8,1") + "Model:string=\n");
  EXPECT_EQ(DumpKeys(cfg.GetMaxSZConfig()), CommKeys("115200,n,8,1") + "Model:string=\n");
  EXPECT_EQ(DumpKeys(cfg.GetGSIConfig()), CommKeys("9600,n,8,1") + "Address:int=0\n");
  EXPECT_EQ(DumpKeys(cfg.GetQYZConfig()), CommKeys("38400,n,8,1") + "DAPort:int=0\n");
  EXPECT_EQ(DumpKeys(cfg.GetQingHuaConfig()), CommKeys("57600,n,8,1") + "DAPort:int=0\n");
  EXPECT_EQ(DumpKeys(cfg.GetMarsConfig()), CommKeys("9600,n,8,1"));
  EXPECT_EQ(DumpKeys(cfg.GetNLightConfig()), CommKeys("9600,n,8,1"));
  EXPECT_EQ(DumpKeys(cfg.GetCASConfig()), CommKeys("9600,n,8,1"));

  EXPECT_EQ(DumpKeys(cfg.GetIPGConfig()), CommKeys("57600,n,8,1") +
                                              "Model:string=\n"
                                              "PowerCtrlPort:int=0\n"
                                              "TcpHost:string=192.168.1.10\n"
                                              "TcpPort:int=8080\n"
                                              "UseTcp:bool=false\n"
                                              "MaxCurrent:double=100\n"
                                              "PulseModel:string=CW\n"
                                              "PulseWidth:double=0\n"
                                              "RepRate:int=0\n"
                                              "IPGType:int=0\n"
                                              "CtrlModel:int=0\n"
                                              "LaserRequestDelay:int=200\n"
                                              "LaserOnDelay:int=10000\n"
                                              "LaserOnPulse:int=500\n"
                                              "IgnoreDiodeReply:bool=false\n"
                                              "GateMode:bool=false\n"
                                              "UseOutputLaserOn:bool=false\n"
                                              "UseRemoteCtrl:bool=false\n"
                                              "YLRKeyOnPort:int=0\n"
                                              "YLRStartPort:int=0\n"
                                              "YLRLaserPort:int=0\n"
                                              "PulseMode:int=0\n"
                                              "YLPIndependentEmsOn:bool=false\n"
                                              "YLPMO:int=0\n"
                                              "YLPAlarmIgnore:bool=false\n"
                                              "YLPPower5:int=0\n"
                                              "YLPPower6:int=0\n"
                                              "YLPPower7:int=0\n"
                                              "YLPPower8:int=0\n"
                                              "YLPPowerDelay1:int=0\n"
                                              "YLPPowerDelay2:int=0\n"
                                              "YLPLock:int=0\n"
                                              "YLPAlarm16:int=0\n"
                                              "YLPAlarm21:int=0\n");
  EXPECT_EQ(DumpKeys(cfg.GetIPGConfig().YLS2000()),
            "EmissionStatusPort:int=0\n"
            "LaserOnPort:int=6\n"
            "LaserRequestPort:int=7\n"
            "ProgramStartPort:int=8\n"
            "UseNetCtrl:bool=false\n"
            "TcpHost:string=192.168.100.1\n"
            "TcpPort:int=8080\n"
            "DebugMode:bool=false\n"
            "PowerCtrl:bool=false\n"
            "PowerCtrlPort:int=0\n"
            "LaserExtActivationDelay:int=0\n"
            "LaserExtActivationOkPort:int=0\n"
            "LaserOnDelay:int=10000\n"
            "LaserOnOkPort:int=0\n"
            "LaserRequestDelay:int=200\n"
            "LaserExtActivationPort:int=0\n"
            "PowerOnStrategy:int=0\n");

  EXPECT_EQ(DumpKeys(cfg.GetRofinConfig()),
            "FaultReset:int=0\nGatePort:int=0\nLaserOn:int=0\nMainsOn:int=0\nStandbyOn:int=0\nStandbyReady:int=0\n"
            "SystemReady:int=0\nDelayAfterMainsOn:int=0\nDelayAfterReset:int=0\nDelayAfterResetOff:int=0\n"
            "DelayAfterStandby:int=0\nWarning:int=0\nError:int=0\n");
  EXPECT_EQ(DumpKeys(cfg.GetCO2Config()),
            "DynamicDA:int=0\nLaserMode:int=0\nModeSelect0:int=0\nModeSelect1:int=0\nShutterPort:int=0\n"
            "ShutterStatus:int=0\nShutterDelay:int=0\n");
  EXPECT_EQ(DumpKeys(cfg.GetMeimanConfig()), "FreqDAPort:int=0\nRatioDAPort:int=0\n");
  EXPECT_EQ(DumpKeys(cfg.GetZorunConfig()),
            "LaserIdx:int=0\n"
            "CommType:int=0\n"
            "CommPort:int=1\n"
            "NetPort:int=10001\n"
            "NetAddress:string=127.0.0.1\n"
            "Desc:string=无激光器文件\n");
}

TEST(LaserConfig, ModelTests) {
  TLaserConfig cfg;
  EXPECT_FALSE(cfg.IsCO2());
  EXPECT_FALSE(cfg.IsIPG());
  EXPECT_FALSE(cfg.IsYAG());
  cfg.SetModel("CO2-Rofin");
  EXPECT_TRUE(cfg.IsCO2());
  cfg.SetModel("co2");  // the family tests are case-sensitive
  EXPECT_FALSE(cfg.IsCO2());
  cfg.SetModel("IPG-YLR");
  EXPECT_TRUE(cfg.IsIPG());
  cfg.SetModel("yag");
  EXPECT_TRUE(cfg.IsYAG());
  cfg.SetModel("YAG-1");  // YAG is the whole model, not a part of it
  EXPECT_FALSE(cfg.IsYAG());
}

TEST(LaserConfig, BrandFollowsTheModelUnlessTheModelIsGenericOrNamesTheBrand) {
  TLaserConfig cfg;
  cfg.SetBrand("IPG");
  cfg.SetModel("Raycus");
  EXPECT_EQ(cfg.GetBrand(), "Raycus");
  cfg.SetModel("IPG-YLS");
  EXPECT_EQ(cfg.GetBrand(), "IPG");
  cfg.SetModel("default");
  EXPECT_EQ(cfg.GetBrand(), "IPG");
  cfg.SetModel("");
  EXPECT_EQ(cfg.GetBrand(), "UnkownBrand");
  cfg.SetBrand("");
  cfg.SetModel("Default");
  EXPECT_EQ(cfg.GetBrand(), "Default");
  cfg.SetModel("");
  EXPECT_EQ(cfg.GetBrand(), "UnkownBrand");
}

TEST(LaserConfig, BaudRateIsTheFirstFieldOfTheSerialSettings) {
  TLaserConfig cfg;
  EXPECT_EQ(cfg.GetRaycusConfig().GetBaudrate(), 9600);
  EXPECT_EQ(cfg.GetIPGConfig().GetBaudrate(), 57600);
  EXPECT_EQ(cfg.GetSPIConfig().GetBaudrate(), 19200);
  EXPECT_EQ(cfg.GetQYZConfig().GetBaudrate(), 38400);
  EXPECT_EQ(cfg.GetMaxSZConfig().GetBaudrate(), 115200);

  TSPILaserConfig& spi = cfg.GetSPIConfig();
  spi.SetBaudrate(115200);
  EXPECT_EQ(spi.CommSettings(), "115200,e,8,1");  // parity, data and stop bits kept
  EXPECT_EQ(spi.GetBaudrate(), 115200);

  spi.SetCommSettings(" 4800 ,o,7,2");
  EXPECT_EQ(spi.GetBaudrate(), 4800);
  spi.SetCommSettings("fast,n,8,1");
  EXPECT_EQ(spi.GetBaudrate(), 0);
  spi.SetCommSettings("96OO,n,8,1");
  EXPECT_EQ(spi.GetBaudrate(), 0);
  spi.SetBaudrate(9600);
  EXPECT_EQ(spi.CommSettings(), "9600,n,8,1");

  spi.SetCommSettings("");
  EXPECT_EQ(spi.GetBaudrate(), 0);
  spi.SetBaudrate(38400);
  EXPECT_EQ(spi.CommSettings(), "38400");
  EXPECT_EQ(spi.GetBaudrate(), 38400);
}

TEST(LaserConfig, IPGModelAndLinkTests) {
  TLaserConfig cfg;
  TLaserIPGConfig& ipg = cfg.GetIPGConfig();
  ipg.SetModel("YLR-3000");
  EXPECT_TRUE(ipg.IsYLR());
  EXPECT_FALSE(ipg.IsYLS());
  EXPECT_TRUE(ipg.UseComm());  // serial port 1 by default

  ipg.SetCommPort(0);
  EXPECT_FALSE(ipg.UseComm());  // neither TCP nor a serial port
  ipg.SetUseTcp(true);
  EXPECT_TRUE(ipg.UseComm());

  ipg.SetModel("YLS-6000-USA");
  EXPECT_TRUE(ipg.IsYLS());
  EXPECT_FALSE(ipg.IsYLR());
  EXPECT_FALSE(ipg.UseComm());  // only YLR lasers are driven over the text link
}

TEST(LaserConfig, GSIAddressIsAByte) {
  TLaserConfig cfg;
  TGSILaserConfig& gsi = cfg.GetGSIConfig();
  EXPECT_EQ(gsi.Address(), 0);
  gsi.SetAddress(17);
  EXPECT_EQ(gsi.Address(), 17);
  gsi.SetAddress(255);
  EXPECT_EQ(gsi.Address(), 255);
  gsi.SetAddress(300);
  EXPECT_EQ(gsi.Address(), 255);
  EXPECT_EQ(gsi.GetInteger("Address"), 300);  // stored as written; only the reading is clamped
  gsi.SetAddress(-5);
  EXPECT_EQ(gsi.Address(), 0);
}

}  // namespace
}  // namespace devlaser
