// The factory through the library's entry points: every model and sub-type rule of the configuration creates the
// class the registry names, with its transport and key parameters; unknown models, bus lasers without a bus and
// lasers that fail to build fall back to the default laser; one laser exists at a time.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <vector>

#include "api/DevLaserApi.h"
#include "core/DefaultLaser.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserError.h"
#include "frame/LaserStrs.h"
#include "ipg/Ipg500Laser.h"
#include "ipg/IpgOtherLasers.h"
#include "models/CO2Laser.h"
#include "models/HardWiredLasers.h"
#include "models/MaxLasers.h"
#include "models/SerialMakerLasers.h"
#include "raycus/RaycusLasers.h"
#include "refhost/IniLocaleResource.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/SimEcatSystem.h"
#include "registry/LaserLib.h"
#include "zorun/ZorunLaser.h"

namespace devlaser {
namespace {

using refhost::TEntryKind;
using refhost::TMessageEntry;

class FactoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetMessages();
    FApp.SetEcatSystem(FEcat);
    ASSERT_TRUE(LoadLaserLibrary(&FApp));
    FSink->Clear();
  }
  void TearDown() override { UnloadLaserLibrary(); }

  // Creates the laser of the configuration as it stands and keeps the parameters it was built from.
  std::shared_ptr<TNcLaser> Create() { return CreateLaser(&FConfig, FIO, &FParams); }

  std::vector<std::string> Errors() const {
    std::vector<std::string> texts;
    for (const auto& e : FSink->Entries(TEntryKind::Message))
      if (e.Type == nchost::msgtype::kError) texts.push_back(e.Text);
    return texts;
  }
  // The log lines of models that their family does not know (drivers log lines of their own beside them).
  std::vector<std::string> UnknownModelLog() const {
    std::vector<std::string> texts;
    for (const auto& e : FSink->Entries(TEntryKind::Log))
      if (e.Type == nchost::msgtype::kLaserLog && e.Text.find(SUnkownLaserType.Text()) != std::string::npos)
        texts.push_back(e.Text);
    return texts;
  }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  std::shared_ptr<refhost::TSimCtrlExtIO> FIO = std::make_shared<refhost::TSimCtrlExtIO>();
  std::shared_ptr<refhost::TSimEcatSystem> FEcat = std::make_shared<refhost::TSimEcatSystem>();
  TLaserConfig FConfig;
  TLaserParams FParams;
};

std::type_index TypeOf(const std::shared_ptr<TNcLaser>& laser) {
  return laser ? std::type_index(typeid(*laser)) : std::type_index(typeid(void));
}

// ---- every configuration rule creates the class the registry names ------------------------------------------------

struct TConfigCase {
  const char* Name;
  std::function<void(TLaserConfig&)> Configure;
  std::type_index Class;
  int32_t SubType;
  TDataTransType Transport;
};

TEST_F(FactoryTest, EveryModelAndSubTypeRuleCreatesItsRegisteredClass) {
  auto ipg = [](const char* model, std::function<void(TLaserIPGConfig&)> more = nullptr) {
    return [=](TLaserConfig& c) {
      c.SetModel("IPG");
      c.GetIPGConfig().SetModel(model);
      if (more) more(c.GetIPGConfig());
    };
  };
  auto raycus = [](const char* type, bool tcp, const char* mode = "CW") {
    return [=](TLaserConfig& c) {
      c.SetModel("Raycus");
      c.GetRaycusConfig().SetType(type);
      c.GetRaycusConfig().SetUseTcp(tcp);
      c.GetRaycusConfig().SetPulseModel(mode);
    };
  };
  auto model = [](const char* m) { return [=](TLaserConfig& c) { c.SetModel(m); }; };
  auto max = [](const char* m) {
    return [=](TLaserConfig& c) {
      c.SetModel("MaxSZ");
      c.GetMaxSZConfig().SetModel(m);
    };
  };

  const std::vector<TConfigCase> cases = {
      {"YLR CW on a serial port", ipg("YLR-1000", [](auto& i) { i.SetCommPort(3); }), typeid(TIPG500Laser), 1,
       dttSerial},
      {"YLR QCW over TCP",
       ipg("YLR-150",
           [](auto& i) {
             i.SetPulseModel("qcw");
             i.SetUseTcp(true);
           }),
       typeid(TIPG500Laser), 2, dttNetTcp},
      {"YLR without a link", ipg("YLR-500", [](auto& i) { i.SetCommPort(0); }), typeid(TIPG500Laser), 1, dttNone},
      {"YLS on the network", ipg("YLS-6000", [](auto& i) { i.YLS2000().SetUseNetCtrl(true); }), typeid(TIPGYLSLaser), 4,
       dttNetTcp},
      {"YLS on the network, USA", ipg("YLS-USA", [](auto& i) { i.YLS2000().SetUseNetCtrl(true); }),
       typeid(TIPGYLSLaser), 6, dttNetTcp},
      {"YLS hard-wired", ipg("YLS-2000"), typeid(TIPG1000Laser), 5, dttHardWire},
      {"YLS hard-wired, USA", ipg("YLS-2000-USA"), typeid(TIPG1000Laser), 7, dttHardWire},
      {"YLP", ipg("ylp"), typeid(TIPGYLPLaser), 8, dttHardWire},
      {"Raycus SM", raycus("RFL-C1000-SM", false), typeid(TRaySMLaser), 3, dttSerial},
      {"Raycus MM", raycus("MM-3000", true), typeid(TRayMMLaser), 4, dttNetUDP},
      {"Raycus RFL", raycus("RFL-1500", true), typeid(TRaycusRFL), 5, dttNetUDP},
      {"Raycus QCW", raycus("QCW-150", false), typeid(TRayQCWLaser), 2, dttSerial},
      {"Raycus CW", raycus("CW-2000", false), typeid(TRaycusLaser), 1, dttSerial},
      {"Raycus without a model, QCW mode", raycus("", false, "Qcw"), typeid(TRayQCWLaser), 2, dttSerial},
      {"Raycus without a model, CW mode", raycus("", false), typeid(TRaycusLaser), 1, dttSerial},
      {"SPI", model("SPI"), typeid(TSPILaser), 1, dttSerial},
      {"MaxSZ", max("MaxSZ"), typeid(TMaxLaser), 1, dttSerial},
      {"Max G3", max("MaxG3"), typeid(TMaxG3Laser), 2, dttSerial},
      {"GSI", model("GSI"), typeid(TJKLaser), 0, dttSerial},
      {"JK", model("JK"), typeid(TJKLaser), 0, dttSerial},
      {"NLight", model("NLight"), typeid(TNLightLaser), 0, dttSerial},
      {"CAS", model("CAS"), typeid(TCASLaser), 0, dttSerial},
      {"Mars", model("Mars"), typeid(TMarsLaser), 0, dttSerial},
      {"CO2", model("CO2"), typeid(TCO2Laser), 0, dttNone},
      {"Trumpf", model("Trumpf"), typeid(TTrumpfLaser), 0, dttNone},
      {"Meiman", model("Meiman"), typeid(TMeimanLaser), 0, dttNone},
      {"LPing", model("LPing"), typeid(TLPINGLaser), 0, dttNone},
      {"Rofin", model("Rofin"), typeid(TRofinLaser), 0, dttNone},
      {"Optical Valley", model("OVNT"), typeid(TOpticalValleyLaser), 0, dttNone},
      {"own brand", model("Zorun"), typeid(TZorunLaser), 0, dttNone},
      {"default", model("Default"), typeid(TDefaultLaser), 0, dttNone},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    TLaserConfig config;  // family nodes outlive Initialize, so every case starts afresh
    c.Configure(config);
    FSink->Clear();
    auto laser = CreateLaser(&config, FIO, &FParams);
    ASSERT_NE(laser, nullptr);
    EXPECT_EQ(TypeOf(laser), c.Class) << "created " << TypeOf(laser).name();
    EXPECT_EQ(FParams.LaserSubType, c.SubType);
    EXPECT_EQ(FParams.DefParams.DataTransType, c.Transport);
    EXPECT_EQ(laser->GetDeviceDesc(), config.Model());
    EXPECT_TRUE(Errors().empty()) << Errors().front();
    EXPECT_TRUE(UnknownModelLog().empty()) << UnknownModelLog().front();
  }
}

TEST_F(FactoryTest, IpgTransportsAndPortsFollowTheModel) {
  FConfig.SetModel("IPG");
  auto& ipg = FConfig.GetIPGConfig();
  ipg.SetModel("YLR-150");
  ipg.SetUseTcp(true);
  ipg.SetTcpHost("127.0.0.7");
  ipg.SetTcpPort(4000);
  ipg.SetPulseModel("QCW");
  ipg.SetGateMode(true);
  ipg.SetPowerCtrlPort(12);
  ipg.SetMaxCurrent(80.0);
  ipg.SetYLRKeyOnPort(21);
  ipg.SetDebugMode(true);
  Create();
  EXPECT_EQ(FParams.DefParams.Net.TcpHost, "127.0.0.7");
  EXPECT_EQ(FParams.DefParams.Net.TcpPort, 10001) << "a YLR laser listens on its fixed port";
  EXPECT_TRUE(FParams.CfgIPG.YLR.QCWMode);
  EXPECT_TRUE(FParams.CfgIPG.YLR.GateMode);
  EXPECT_EQ(FParams.CfgIPG.YLR.YLRKeyOnPort, 21);
  EXPECT_TRUE(FParams.CfgIPG.PowerCtrl);
  EXPECT_EQ(FParams.CfgIPG.PowerCtrlPort, 12);
  EXPECT_DOUBLE_EQ(FParams.CfgIPG.MaxCurrent, 80.0);
  EXPECT_TRUE(FParams.DefParams.DebugMode) << "the family's debug flag switches debug mode on";

  ipg.SetModel("YLS-USA");
  ipg.SetDebugMode(false);
  auto& yls = ipg.YLS2000();
  yls.SetUseNetCtrl(true);
  yls.SetTcpHost("127.0.0.8");
  yls.SetPowerCtrl(true);
  yls.SetPowerCtrlPort(14);
  Create();
  EXPECT_EQ(FParams.DefParams.Net.TcpHost, "127.0.0.8");
  EXPECT_EQ(FParams.DefParams.Net.TcpPort, 5100);
  EXPECT_TRUE(FParams.CfgIPG.PowerCtrl);
  EXPECT_EQ(FParams.CfgIPG.PowerCtrlPort, 14);

  yls.SetUseNetCtrl(false);
  yls.SetEmissionStatusPort(30);
  yls.SetPowerOnStrategy(2);
  ipg.SetLaserOnPulse(700);
  ipg.SetLaserOnDelay(9000);
  Create();
  const auto& wire = FParams.CfgIPG.YLS.Wire;
  EXPECT_EQ(wire.EmissionStatusPort, 30);
  EXPECT_EQ(wire.LaserOnPort, 6);
  EXPECT_EQ(wire.LaserRequestPort, 7);
  EXPECT_EQ(wire.ProgramStartPort, 8);
  EXPECT_EQ(wire.LaserRequestDelay, 200);
  EXPECT_EQ(wire.LaserOnDelay, 9000);
  EXPECT_EQ(wire.LaserOnPulse, 700);
  EXPECT_EQ(wire.PowerOnStrategy, 2);

  ipg.SetModel("YLP");
  ipg.SetYLPPower5(15);
  ipg.SetYLPAlarm21(16);
  Create();
  EXPECT_EQ(FParams.CfgIPG.YLP.YLPPower5, 15);
  EXPECT_EQ(FParams.CfgIPG.YLP.YLPAlarm21, 16);
}

TEST_F(FactoryTest, RaycusNetworkAndModuleSettings) {
  FConfig.SetModel("Raycus");
  auto& ray = FConfig.GetRaycusConfig();
  ray.SetType("RFL-C3000");
  ray.SetUseTcp(true);
  ray.SetTcpHost("127.0.0.5");
  ray.SetCtrlMode(2);
  ray.SetRayStartPort(17);
  ray.SetMaxCurrent(90.0);
  ray.SetIgnoreCommResult(true);
  ray.SetPulseModel("QCW");
  Create();
  EXPECT_EQ(FParams.DefParams.Net.TcpHost, "127.0.0.5");
  EXPECT_EQ(FParams.DefParams.Net.TcpPort, 8099);
  EXPECT_EQ(FParams.CfgRay.CtrlMode, 2);
  EXPECT_EQ(FParams.CfgRay.RayStartPort, 17);
  EXPECT_DOUBLE_EQ(FParams.CfgRay.MaxCurrent, 90.0);
  EXPECT_TRUE(FParams.CfgRay.PulseMode);
  EXPECT_TRUE(FParams.DefParams.IgnoreCommRes);

  ray.SetType("SM-1500");
  ray.SetUseTcp(false);
  ray.SetCommPort(4);
  ray.SetCommSettings("115200,n,8,1");
  Create();
  EXPECT_EQ(FParams.DefParams.Net.TcpPort, 8098);
  EXPECT_EQ(FParams.DefParams.Comm.CommPort, 4);
  EXPECT_EQ(FParams.DefParams.Comm.Baudrate, 115200);
  EXPECT_EQ(FParams.DefParams.Comm.CommSettings, "115200,n,8,1");
}

TEST_F(FactoryTest, FamilySettingsReachTheParameters) {
  FConfig.SetModel("GSI");
  FConfig.GetGSIConfig().SetAddress(7);
  FConfig.GetGSIConfig().SetDebugMode(true);
  Create();
  EXPECT_EQ(FParams.CfgGSI.Address, 7);
  EXPECT_TRUE(FParams.DefParams.DebugMode);

  FConfig.SetModel("SPI");
  Create();
  EXPECT_EQ(FParams.DefParams.Comm.CommSettings, "19200,e,8,1");
  EXPECT_EQ(FParams.DefParams.Comm.Baudrate, 19200);

  FConfig.SetModel("Trumpf");
  FConfig.GetIPGConfig().YLS2000().SetLaserExtActivationPort(11);
  FConfig.GetIPGConfig().YLS2000().SetLaserOnOkPort(13);
  Create();
  EXPECT_EQ(FParams.CfgTrumpf.LaserExtActivationPort, 11);
  EXPECT_EQ(FParams.CfgTrumpf.LaserOnOkPort, 13);
  EXPECT_EQ(FParams.CfgTrumpf.LaserOnPort, 6);

  FConfig.SetModel("Meiman");
  FConfig.GetMeimanConfig().SetFreqDAPort(2);
  FConfig.GetMeimanConfig().SetRatioDAPort(3);
  Create();
  EXPECT_EQ(FParams.CfgMeiMan.FreqDAPort, 2);
  EXPECT_EQ(FParams.CfgMeiMan.RatioDAPort, 3);

  FConfig.SetModel("Rofin");
  FConfig.GetRofinConfig().SetGatePort(5);
  FConfig.GetRofinConfig().SetError(40);
  Create();
  EXPECT_EQ(FParams.CfgRofin.GatePort, 5);
  EXPECT_EQ(FParams.CfgRofin.Error, 40);

  FConfig.SetModel("CO2");
  FConfig.GetCO2Config().SetShutterDelay(300);
  Create();
  EXPECT_EQ(FParams.CfgCO2.ShutterDelay, 300);

  FConfig.SetModel("Default");
  FConfig.SetShutterReady(3);
  FConfig.SetShutterReadyDelay(250);
  auto laser = Create();
  ASSERT_EQ(TypeOf(laser), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(dynamic_cast<TDefaultLaser&>(*laser).GetReadyPort(), 3);
  EXPECT_EQ(dynamic_cast<TDefaultLaser&>(*laser).GetReadyDelay(), 250);

  FConfig.SetModel("Zorun");
  auto& zorun = FConfig.GetZorunConfig();
  zorun.SetCommType(3);
  zorun.SetNetAddress("127.0.0.6");
  zorun.SetNetPort(9000);
  zorun.SetLaserIdx(2);
  Create();
  EXPECT_EQ(FParams.DefParams.DataTransType, dttNetTcp);
  EXPECT_EQ(FParams.DefParams.Net.TcpHost, "127.0.0.6");
  EXPECT_EQ(FParams.DefParams.Net.TcpPort, 9000);
  EXPECT_EQ(FParams.CfgZorun.LaserIdx, 2);
  EXPECT_EQ(FParams.CfgZorun.Desc, zorun.Desc());
  zorun.SetCommType(1);
  zorun.SetCommPort(6);
  Create();
  EXPECT_EQ(FParams.DefParams.DataTransType, dttSerial);
  EXPECT_EQ(FParams.DefParams.Comm.CommPort, 6);
  EXPECT_EQ(FParams.DefParams.Net.TcpHost, "127.0.0.1") << "a serial laser keeps the network defaults";
  EXPECT_TRUE(Errors().empty());
}

// ---- models a family does not know: logged, created all the same -------------------------------------------------

TEST_F(FactoryTest, AnUnknownModelWithinAFamilyIsLoggedOnceAndStillCreated) {
  const std::string unknown = SUnkownLaserType.Text();
  FConfig.SetModel("Raycus");
  FConfig.GetRaycusConfig().SetType("ABC-100");
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TRaycusLaser)));
  EXPECT_EQ(FParams.LaserSubType, 0);
  EXPECT_EQ(UnknownModelLog(), std::vector<std::string>{"Raycus" + unknown});

  FSink->Clear();
  FConfig.SetModel("MaxSZ");
  FConfig.GetMaxSZConfig().SetModel("MaxXY");
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TMaxLaser)));
  EXPECT_EQ(FParams.LaserSubType, 0);
  EXPECT_EQ(UnknownModelLog(), std::vector<std::string>{"Max" + unknown});

  FSink->Clear();
  FConfig.SetModel("IPG");
  FConfig.GetIPGConfig().SetModel("XYZ");
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TIPG500Laser)));
  EXPECT_EQ(UnknownModelLog(), std::vector<std::string>{"IPG" + unknown});

  FSink->Clear();
  FConfig.SetModel("PG");  // names the IPG family without being an IPG model
  FConfig.GetIPGConfig().SetModel("YLR");
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TIPG500Laser)));
  EXPECT_EQ(UnknownModelLog(), std::vector<std::string>{"IPG" + unknown});

  FSink->Clear();
  FConfig.SetModel("orun");  // names the own-brand family without being its model
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TZorunLaser)));
  EXPECT_EQ(UnknownModelLog(), std::vector<std::string>{"Zorun" + unknown});
  for (const auto& e : FSink->Entries(TEntryKind::Log)) EXPECT_EQ(e.Category, "Laser");
  EXPECT_TRUE(Errors().empty());
}

TEST_F(FactoryTest, AnUnknownFamilyOrSubTypeGivesTheDefaultLaserAndTellsTheOperator) {
  FConfig.SetModel("Unknown-9000");
  auto laser = Create();
  EXPECT_EQ(TypeOf(laser), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(FParams.LaserMainType, eltNone);
  EXPECT_EQ(Errors(), std::vector<std::string>{SUnkownLaserType.Text()});
  EXPECT_EQ(laser->GetDeviceDesc(), "Unknown-9000");

  FSink->Clear();
  TLaserParams params;
  params.InitLaserType(eltRay, 7);
  EXPECT_EQ(TypeOf(CreateLaser(params, FIO)), std::type_index(typeid(TDefaultLaser)));
  params.InitLaserType(eltRay, 256 + 1);  // not a byte: no class, rather than the one of sub-type 1
  EXPECT_EQ(TypeOf(CreateLaser(params, FIO)), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(Errors().size(), 2u);

  // The parameter form finds the family by the model when none is given, and takes a sub-type as it is.
  params.Initialize();
  params.Model = "SPI";
  params.LaserSubType = 2;
  EXPECT_EQ(TypeOf(CreateLaser(params, FIO)), std::type_index(typeid(TSPI1000Laser)));
}

TEST_F(FactoryTest, ANullConfigurationGivesTheDefaultLaser) {
  auto laser = CreateLaser(nullptr, FIO, &FParams);
  EXPECT_EQ(TypeOf(laser), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(FParams.Model, "Default");
  EXPECT_EQ(FParams.LaserMainType, eltNone);
  EXPECT_EQ(laser->GetDeviceDesc(), "Default");
  EXPECT_TRUE(Errors().empty()) << "the model names the default laser's family";
  EXPECT_EQ(TypeOf(CreateLaser(nullptr, FIO)), std::type_index(typeid(TDefaultLaser)));
}

// ---- the bus lasers
// --------------------------------------------------------------------------------------------------

TEST_F(FactoryTest, AnEthercatLaserNeedsItsSlaveOnTheBus) {
  FConfig.SetModel("IPG");
  FConfig.GetIPGConfig().SetModel("Ethercat");
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(FParams.DefParams.DataTransType, dttEthercat);
  EXPECT_EQ(Errors(), std::vector<std::string>{SNoneEcatLaser.Text()});

  FSink->Clear();
  FApp.SetEcatSystem(nullptr);
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(Errors(), std::vector<std::string>{SNoneEcatLaser.Text()});

  FSink->Clear();
  FApp.SetEcatSystem(FEcat);
  FEcat->SetLaserSlave(true, 0xE0000044, 3);
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TIPGEcatLaser)));
  EXPECT_TRUE(Errors().empty());
}

TEST_F(FactoryTest, ALaserSlaveOnTheBusDecidesTheClassWhateverIsConfigured) {
  FConfig.SetModel("Raycus");
  FEcat->SetLaserSlave(true, 1638, 0);
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TMaxEcatLaser)));
  FEcat->SetLaserSlave(true, 0xE0000044, 3);
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TIPGEcatLaser)));
  EXPECT_TRUE(Errors().empty());

  FEcat->SetLaserSlave(true, 0xE0000044, 4);  // an identity the library does not know
  EXPECT_EQ(TypeOf(Create()), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(Errors(), std::vector<std::string>{SUnkownLaserType.Text()});
}

// ---- IO, debug traces, one laser at a time
// ---------------------------------------------------------------------------

TEST_F(FactoryTest, AnIOObjectWithoutTheExtensionInterfaceGivesASimulatedBoard) {
  FConfig.SetModel("CO2");
  FConfig.SetAimingPort(5);
  auto laser = CreateLaser(&FConfig, std::make_shared<nchost::IInterface>());
  ASSERT_NE(laser, nullptr);
  auto comm = FSink->Find([](const TMessageEntry& e) {
    return e.Kind == TEntryKind::Log && e.Text == "CreateLaser not Support uLaserSupportIntf.ICtrlExtIO";
  });
  ASSERT_TRUE(comm.has_value());
  EXPECT_EQ(comm->Type, nchost::msgtype::kCommLog);
  EXPECT_TRUE(laser->GetIsAimingOn()) << "the simulated board reads every valid output as set";

  FSink->Clear();
  laser = CreateLaser(&FConfig, nullptr);
  EXPECT_TRUE(FSink->Contains("CreateLaser not Support uLaserSupportIntf.ICtrlExtIO"));

  // With the controller's IO the laser drives it.
  laser = CreateLaser(&FConfig, FIO);
  laser->SetAimingOn(true);
  EXPECT_TRUE(FIO->State().Outputs.test(5));
}

TEST_F(FactoryTest, DebugModeTracesTheClassAndDestroyingIsLogged) {
  FApp.HostLogger().SetEnabled(true);
  UnloadLaserLibrary();
  ASSERT_TRUE(LoadLaserLibrary(&FApp));  // the library logger follows the host logger when it loads
  FSink->Clear();
  FConfig.SetModel("CO2");
  FConfig.SetDebugMode(true);
  Create();
  EXPECT_TRUE(FSink
                  ->Find([](const TMessageEntry& e) {
                    return e.Kind == TEntryKind::Logger && e.Text == "CreateLaser ClassType TCO2Laser";
                  })
                  .has_value());
  DestroyLaser();
  std::vector<std::string> lifecycle;
  for (const auto& e : FSink->Entries(TEntryKind::Logger))
    if (e.Text.rfind("DestoyLaser", 0) == 0) lifecycle.push_back(e.Text);
  EXPECT_EQ(lifecycle, (std::vector<std::string>{"DestoyLaser Begin", "DestoyLaser End"}));

  FSink->Clear();
  FConfig.SetDebugMode(false);
  Create();
  EXPECT_FALSE(FSink->Contains("CreateLaser ClassType"));
}

TEST_F(FactoryTest, ANewLaserFirstSwitchesOffAndDropsThePreviousOne) {
  FConfig.SetModel("Default");
  FConfig.SetCtrlPort(6);
  auto first = Create();
  first->EmissionOn();
  ASSERT_TRUE(
      FIO->WaitUntil([](const refhost::TSimIOState& s) { return s.Outputs.test(6); }, std::chrono::seconds(10)));
  std::weak_ptr<TNcLaser> firstWeak = first;

  auto second = Create();
  EXPECT_NE(second, first);
  EXPECT_FALSE(FIO->State().Outputs.test(6)) << "the previous laser's emission gate is closed";
  EXPECT_TRUE(first->IsShutDown());
  first->EmissionOn();  // a laser the host still holds stays usable but starts nothing any more
  EXPECT_FALSE(FIO->State().Outputs.test(6));
  first.reset();
  EXPECT_TRUE(firstWeak.expired()) << "the library keeps no reference to a replaced laser";

  DestroyLaser();
  EXPECT_TRUE(second->IsShutDown());
  EXPECT_EQ(CreateLaserInfoSource(), nullptr);
  DestroyLaser();  // nothing to destroy
}

TEST_F(FactoryTest, WithoutTheRegistryOnlyTheDefaultLaserIsCreatedAndUnloadingStillFreesIt) {
  UnloadLaserLibrary();
  FConfig.SetModel("CO2");
  auto laser = CreateLaser(&FConfig, FIO, &FParams);
  EXPECT_EQ(TypeOf(laser), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(FParams.LaserMainType, eltNone) << "no model keys without the registry";
  EXPECT_EQ(CurrentLaser(), laser);
  UnloadLaserLibrary();
  EXPECT_EQ(CurrentLaser(), nullptr);
  EXPECT_TRUE(laser->IsShutDown());
}

TEST_F(FactoryTest, LoadingRegistersTheMessageLocaleAndAppliesALanguageAlreadySet) {
  UnloadLaserLibrary();
  auto english = std::make_shared<refhost::TIniLocaleResource>();
  std::string error;
  ASSERT_TRUE(english->LoadText("[Device_Strs]\nSUnkownLaserType=Unknown laser type\n", "en.ini", error)) << error;
  FApp.SetLocale(english);
  ASSERT_TRUE(LoadLaserLibrary(&FApp));
  ASSERT_TRUE(LoadLaserLibrary(&FApp));  // a second load changes nothing
  EXPECT_EQ(FApp.LocaleProcCount(), 1u);
  FSink->Clear();

  FConfig.SetModel("Unknown-9000");
  Create();
  EXPECT_EQ(Errors(), std::vector<std::string>{"Unknown laser type"});

  UnloadLaserLibrary();
  EXPECT_EQ(FApp.LocaleProcCount(), 0u) << "an unloaded library leaves no procedure behind";
  ResetMessages();
}

// ---- a laser that refuses to be built ----------------------------------------------------------------------------

// Stands for a driver that refuses its transport while the laser is built.
class TRefusingLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
  void Create() override {
    TFiberLaser::Create();
    throw ELaserError("serial port 7 cannot be opened");
  }
};

TEST_F(FactoryTest, ALaserThatFailsToBuildIsReplacedByTheDefaultLaserAndTheOperatorLearnsWhy) {
  LaserLib()->RegisterLaser(eltNone, {0}, LaserClassOf<TRefusingLaser>("TRefusingLaser"));
  FSink->Clear();

  TLaserParams params;
  params.Model = "";
  auto laser = CreateLaser(params, FIO);
  ASSERT_NE(laser, nullptr);
  EXPECT_EQ(TypeOf(laser), std::type_index(typeid(TDefaultLaser)));
  EXPECT_EQ(Errors(), std::vector<std::string>{"TRefusingLaser: serial port 7 cannot be opened"});
  EXPECT_EQ(CurrentLaser(), laser);
}

}  // namespace
}  // namespace devlaser
