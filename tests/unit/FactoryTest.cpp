// The factory through the library's entry points: every model and sub-type rule creates its class with its link;
// unknown models, bus lasers without a bus and lasers that fail to build give the default laser. Beneath it, the
// registry's duplicate rule and the settings every laser shares.
#include <gtest/gtest.h>

#include <gmock/gmock.h>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <typeindex>
#include <vector>

#include "api/DevLaserApi.h"
#include "core/DefaultLaser.h"
#include "ecat/IpgEcatLaser.h"
#include "frame/LaserError.h"
#include "frame/LaserStrs.h"
#include "ipg/Ipg500Laser.h"
#include "ipg/IpgOtherLasers.h"
#include "models/CO2Laser.h"
#include "models/HardWiredLasers.h"
#include "models/MaxLasers.h"
#include "models/SerialMakerLasers.h"
#include "raycus/RaycusLasers.h"
#include "refhost/SimEcatSystem.h"
#include "registry/LaserLib.h"
#include "registry/LaserParamsInit.h"
#include "registry/LaserRegistrations.h"
#include "support/LaserHostFixture.h"
#include "support/ScratchDir.h"
#include "support/ZorunDescriptionText.h"
#include "zorun/ZorunLaser.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TEntryKind;
using ::testing::ElementsAre;
using testing::SetKeys;

class FactoryTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    ResetMessages();
    FApp.SetEcatSystem(FEcat);
    // The own-brand laser is described by a file beside the host's executable; its name is its description.
    testsupport::TZorunDescriptionText zorun;
    zorun.Desc = "Zorun";
    FHostDir.Write("ZorunLaser.json", zorun.Text());
    FApp.SetExeDir(FHostDir.Path());
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

  std::shared_ptr<refhost::TSimEcatSystem> FEcat = std::make_shared<refhost::TSimEcatSystem>();
  testsupport::TScratchDir FHostDir;
  TLaserConfig FConfig;
};

std::type_index TypeOf(const std::shared_ptr<TNcLaser>& laser) {
  if (!laser) return std::type_index(typeid(void));
  const TNcLaser& object = *laser;
  return std::type_index(typeid(object));
}

// ---- every configuration rule creates the class the registry names ------------------------------------------------

using TConfigure = std::function<void(TLaserConfig&)>;

struct TConfigCase {
  const char* Name;
  TConfigure Configure;
  std::type_index Class;
  int32_t SubType;
  TDataTransType Transport;
};

TConfigure Ipg(const char* model, std::function<void(TLaserIPGConfig&)> more = nullptr) {
  return [=](TLaserConfig& c) {
    c.SetModel("IPG");
    c.GetIPGConfig().SetModel(model);
    if (more) more(c.GetIPGConfig());
  };
}
TConfigure Raycus(const char* type, bool tcp = false, const char* mode = "CW") {
  return [=](TLaserConfig& c) {
    c.SetModel("Raycus");
    c.GetRaycusConfig().SetType(type);
    c.GetRaycusConfig().SetUseTcp(tcp);
    c.GetRaycusConfig().SetPulseModel(mode);
  };
}
TConfigure Max(const char* model) {
  return [=](TLaserConfig& c) {
    c.SetModel("MaxSZ");
    c.GetMaxSZConfig().SetModel(model);
  };
}
TConfigure Model(const char* model) {
  return [=](TLaserConfig& c) { c.SetModel(model); };
}

TEST_F(FactoryTest, EveryModelAndSubTypeRuleCreatesItsRegisteredClass) {
  auto ylsNet = [](TLaserIPGConfig& i) { i.YLS2000().SetUseNetCtrl(true); };
  auto qcwTcp = [](TLaserIPGConfig& i) { SetKeys(i, {{"PulseModel", "qcw"}, {"UseTcp", true}}); };
  const std::vector<TConfigCase> cases = {
      {"YLR CW on a serial port", Ipg("YLR-1000", [](auto& i) { i.SetCommPort(3); }), typeid(TIPG500Laser), 1,
       dttSerial},
      {"YLR QCW over TCP", Ipg("YLR-150", qcwTcp), typeid(TIPG500Laser), 2, dttNetTcp},
      {"YLR without a link", Ipg("YLR-500", [](auto& i) { i.SetCommPort(0); }), typeid(TIPG500Laser), 1, dttNone},
      {"YLS on the network", Ipg("YLS-6000", ylsNet), typeid(TIPGYLSLaser), 4, dttNetTcp},
      {"YLS on the network, USA", Ipg("YLS-USA", ylsNet), typeid(TIPGYLSLaser), 6, dttNetTcp},
      {"YLS hard-wired", Ipg("YLS-2000"), typeid(TIPG1000Laser), 5, dttHardWire},
      {"YLS hard-wired, USA", Ipg("YLS-2000-USA"), typeid(TIPG1000Laser), 7, dttHardWire},
      {"YLP", Ipg("ylp"), typeid(TIPGYLPLaser), 8, dttHardWire},
      {"Raycus SM", Raycus("RFL-C1000-SM"), typeid(TRaySMLaser), 3, dttSerial},
      {"Raycus MM", Raycus("MM-3000", true), typeid(TRayMMLaser), 4, dttNetUDP},
      {"Raycus RFL", Raycus("RFL-1500", true), typeid(TRaycusRFL), 5, dttNetUDP},
      {"Raycus QCW", Raycus("QCW-150"), typeid(TRayQCWLaser), 2, dttSerial},
      {"Raycus CW", Raycus("CW-2000"), typeid(TRaycusLaser), 1, dttSerial},
      {"Raycus without a model, QCW mode", Raycus("", false, "Qcw"), typeid(TRayQCWLaser), 2, dttSerial},
      {"Raycus without a model, CW mode", Raycus(""), typeid(TRaycusLaser), 1, dttSerial},
      {"SPI", Model("SPI"), typeid(TSPILaser), 1, dttSerial},
      {"MaxSZ", Max("MaxSZ"), typeid(TMaxLaser), 1, dttSerial},
      {"Max G3", Max("MaxG3"), typeid(TMaxG3Laser), 2, dttSerial},
      {"GSI", Model("GSI"), typeid(TJKLaser), 0, dttSerial},
      {"JK", Model("JK"), typeid(TJKLaser), 0, dttSerial},
      {"NLight", Model("NLight"), typeid(TNLightLaser), 0, dttSerial},
      {"CAS", Model("CAS"), typeid(TCASLaser), 0, dttSerial},
      {"Mars", Model("Mars"), typeid(TMarsLaser), 0, dttSerial},
      {"CO2", Model("CO2"), typeid(TCO2Laser), 0, dttNone},
      {"Trumpf", Model("Trumpf"), typeid(TTrumpfLaser), 0, dttNone},
      {"Meiman", Model("Meiman"), typeid(TMeimanLaser), 0, dttNone},
      {"LPing", Model("LPing"), typeid(TLPINGLaser), 0, dttNone},
      {"Rofin", Model("Rofin"), typeid(TRofinLaser), 0, dttNone},
      {"Optical Valley", Model("OVNT"), typeid(TOpticalValleyLaser), 0, dttNone},
      {"own brand", Model("Zorun"), typeid(TZorunLaser), 0, dttNone},
      {"default", Model("Default"), typeid(TDefaultLaser), 0, dttNone},
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
    // The QCW laser describes itself by the identification the laser reports: none before it answered.
    EXPECT_EQ(laser->GetDeviceDesc(), c.Class == typeid(TRayQCWLaser) ? "" : config.Model());
    EXPECT_TRUE(Errors().empty()) << Errors().front();
    EXPECT_FALSE(FSink->Contains(SUnkownLaserType.Text()));
  }
}

// One family per kind of link: the settings that choose and address it reach the parameter record.
TEST_F(FactoryTest, LinkSettingsReachTheParameters) {
  const auto& def = FParams.DefParams;
  FConfig.SetModel("IPG");  // TCP; a YLR laser listens on its fixed port whatever is configured
  SetKeys(FConfig.GetIPGConfig(),
          {{"Model", "YLR-150"}, {"UseTcp", true}, {"TcpHost", "127.0.0.7"}, {"TcpPort", 4000}, {"PulseModel", "QCW"}});
  Create();
  EXPECT_EQ(std::tuple(def.Net.TcpHost, def.Net.TcpPort, FParams.CfgIPG.YLR.QCWMode),
            std::tuple("127.0.0.7", 10001, true));

  FConfig.SetModel("Raycus");  // serial
  SetKeys(FConfig.GetRaycusConfig(), {{"Type", "SM-1500"}, {"CommSettings", "115200,n,8,1"}});
  Create();
  EXPECT_EQ(def.Comm.Baudrate, 115200);

  // hard-wired
  SetKeys(FConfig, {{"Model", "Default"}, {"ShutterReady", 3}, {"ShutterReadyDelay", 250}});
  auto plain = std::dynamic_pointer_cast<TDefaultLaser>(Create());
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(std::tuple(plain->GetReadyPort(), plain->GetReadyDelay()), std::tuple(3, 250));
  EXPECT_TRUE(Errors().empty());
}

// ---- models a family does not know: logged, created all the same -------------------------------------------------

TEST_F(FactoryTest, AnUnknownModelWithinAFamilyIsLoggedOnceAndStillCreated) {
  FConfig.SetModel("Raycus");
  FConfig.GetRaycusConfig().SetType("ABC-100");
  EXPECT_EQ(TypeOf(Create()), typeid(TRaycusLaser));
  FConfig.SetModel("PG");  // names part of a family key without being a model of it
  FConfig.GetIPGConfig().SetModel("YLR");
  EXPECT_EQ(TypeOf(Create()), typeid(TIPG500Laser));
  EXPECT_EQ(FParams.LaserSubType, 1);
  for (std::string family : {"Raycus", "IPG"})
    EXPECT_EQ(FSink->Count(refhost::TRecordingSink::TextContains(family + SUnkownLaserType.Text())), 1u) << family;
  EXPECT_TRUE(Errors().empty());
}

TEST_F(FactoryTest, AnUnknownFamilyOrSubTypeGivesTheDefaultLaserAndTellsTheOperator) {
  FConfig.SetModel("Unknown-9000");
  EXPECT_EQ(TypeOf(Create()), typeid(TDefaultLaser));
  EXPECT_EQ(Errors(), std::vector<std::string>{SUnkownLaserType.Text()});

  FSink->Clear();
  TLaserParams params;
  params.InitLaserType(eltRay, 256 + 1);  // not a byte: no class, rather than the one of sub-type 1
  EXPECT_EQ(TypeOf(CreateLaser(params, FIO)), typeid(TDefaultLaser));
  EXPECT_EQ(Errors().size(), 1u);

  // The parameter form finds the family by the model when none is given, and takes a sub-type as it is.
  params.Initialize();
  params.Model = "SPI";
  params.LaserSubType = 2;
  EXPECT_EQ(TypeOf(CreateLaser(params, FIO)), typeid(TSPI1000Laser));

  // No configuration at all is the default laser's own model: no complaint.
  FSink->Clear();
  EXPECT_EQ(TypeOf(CreateLaser(nullptr, FIO, &FParams)), typeid(TDefaultLaser));
  EXPECT_TRUE(Errors().empty());
}

// ---- the bus lasers ----------------------------------------------------------------------------------------------

TEST_F(FactoryTest, ALaserSlaveOnTheBusDecidesTheClassWhateverIsConfigured) {
  // A configured bus laser without its slave, or without a bus at all.
  FConfig.SetModel("IPG");
  FConfig.GetIPGConfig().SetModel("Ethercat");
  EXPECT_EQ(TypeOf(Create()), typeid(TDefaultLaser));
  FApp.SetEcatSystem(nullptr);
  EXPECT_EQ(TypeOf(Create()), typeid(TDefaultLaser));
  EXPECT_EQ(Errors(), (std::vector<std::string>{SNoneEcatLaser.Text(), SNoneEcatLaser.Text()}));

  FSink->Clear();
  FApp.SetEcatSystem(FEcat);
  FEcat->SetLaserSlave(true, 0xE0000044, 3);
  FConfig.SetModel("Raycus");
  EXPECT_EQ(TypeOf(Create()), typeid(TIPGEcatLaser));
  FEcat->SetLaserSlave(true, 1638, 0);
  EXPECT_EQ(TypeOf(Create()), typeid(TMaxEcatLaser));
  EXPECT_TRUE(Errors().empty());

  FEcat->SetLaserSlave(true, 0xE0000044, 4);  // an identity the library does not know
  EXPECT_EQ(TypeOf(Create()), typeid(TDefaultLaser));
  EXPECT_EQ(Errors(), std::vector<std::string>{SUnkownLaserType.Text()});
}

// ---- one laser at a time -----------------------------------------------------------------------

TEST_F(FactoryTest, ANewLaserFirstSwitchesOffAndDropsThePreviousOne) {
  FConfig.SetModel("Default");
  FConfig.SetCtrlPort(6);
  auto first = Create();
  first->EmissionOn();
  ASSERT_TRUE(FIO->WaitUntil([](const refhost::TSimIOState& s) { return s.Outputs.test(6); }, 10s));
  std::weak_ptr<TNcLaser> firstWeak = first;

  auto second = Create();
  EXPECT_FALSE(FIO->State().Outputs.test(6)) << "the previous laser's emission gate is closed";
  EXPECT_TRUE(first->IsShutDown());
  first->EmissionOn();  // a laser the host still holds stays usable but starts nothing any more
  EXPECT_FALSE(FIO->State().Outputs.test(6));
  first.reset();
  EXPECT_TRUE(firstWeak.expired()) << "the library keeps no reference to a replaced laser";

  DestroyLaser();
  EXPECT_TRUE(second->IsShutDown());
  EXPECT_EQ(CurrentLaser(), nullptr);
  UnloadLaserLibrary();
  EXPECT_EQ(FApp.LocaleProcCount(), 0u) << "an unloaded library leaves no locale procedure behind";
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
  EXPECT_EQ(TypeOf(laser), typeid(TDefaultLaser));
  EXPECT_EQ(Errors(), std::vector<std::string>{"TRefusingLaser: serial port 7 cannot be opened"});
  EXPECT_EQ(CurrentLaser(), laser);
}

// ---- the registry of laser classes and the settings every laser shares -------------------------------------------

// The built-in classes registered, as a loaded library has them.
class RegistryTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    RegisterBuiltInLasers(FLib, FInit.Types());
  }
  TLaserParamsInit FInit;
  TNcLaserLib FLib;
  TLaserConfig FConfig;
};

TEST_F(RegistryTest, ASubTypeAlreadyServedRefusesTheRegistrationWithALogLine) {
  const size_t before = FLib.Entries().size();

  FLib.RegisterLaser(eltIPG, {4}, LaserClassOf<TCO2Laser>("TCO2Laser"));
  FLib.RegisterLaser(eltIPG, {10, 256 + 5}, LaserClassOf<TCO2Laser>("TCO2Laser"));  // 261 is taken as the byte 5

  EXPECT_EQ(FLib.Entries().size(), before);
  EXPECT_EQ(FLib.GetDefLaserClass(eltIPG, 10), nullptr) << "a refused registration adds none of its sub-types";
  const std::string refused = "RegisterLaser Error RegisterLaser duplicate Error!";
  EXPECT_THAT(FSink->Texts(TEntryKind::Log), ElementsAre(refused, refused));
}

TEST_F(RegistryTest, TheSharedSettingsComeFromTheRootAndItsOutputNodes) {
  // One key of the root and of each output node: a node that stops being read loses all of its keys.
  SetKeys(FConfig, {{"Model", "LPing"}, {"AimingPort", 9}, {"DiodeSetTimeOut", 2500}, {"HardWireMutexEmAndAB", true}});
  SetKeys(FConfig.Pwm(), {{"EnablePort2", 12}, {"Ratio", 0.75}});
  SetKeys(FConfig.DA(), {{"DAPort", 1203}, {"MaxVoltage", 5.0}, {"ProofMax", 5.0}});

  TLaserParams params;
  FInit.LaserConfigToParams(FConfig, params);

  const auto& def = params.DefParams;
  EXPECT_EQ(
      std::tuple(params.Model, params.LaserMainType, def.AimingPort, def.DiodeSetTimeOut, def.HardWireMutexEmAndAB),
      std::tuple("LPing", eltLPing, 9, 2500, true));
  EXPECT_EQ(std::tuple(def.PWM.EnablePort2, def.PWM.Ratio, def.DA.MaxVoltage), std::tuple(12, 0.75, 5.0));
  EXPECT_DOUBLE_EQ(def.DA.ProofMax, 10.0) << "the controller's full scale is not taken from the configuration";
  EXPECT_EQ(def.DA.DAPort, 3);
  EXPECT_EQ(FConfig.DA().DAPort(), 3) << "a DA port numbered from 1200 is reduced and written back";
  EXPECT_TRUE(FSink->Entries().empty());
}

}  // namespace
}  // namespace devlaser
