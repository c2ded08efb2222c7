// The model dictionary, the registry of laser classes with its built-in table, and the conversion of the
// settings every laser shares.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/DefaultLaser.h"
#include "frame/HostServices.h"
#include "frame/LaserError.h"
#include "models/CO2Laser.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "registry/LaserLib.h"
#include "registry/LaserParamsInit.h"
#include "registry/LaserRegistrations.h"

namespace devlaser {
namespace {

using refhost::TEntryKind;

TEST(LaserTypeDicTest, AModelNamesTheFirstKeyThatContainsIt) {
  TLaserTypeDic dic;
  dic.AddLaserType("Raycus", eltRay);
  dic.AddLaserType("SPI", eltSPI);
  dic.AddLaserType("IPG", eltIPG);

  EXPECT_EQ(dic.LaserModelToLaserType("Raycus"), eltRay);
  EXPECT_EQ(dic.LaserModelToLaserType("IPG"), eltIPG);
  EXPECT_EQ(dic.LaserModelToLaserType("PI"), eltSPI);        // the model is looked for inside the keys
  EXPECT_EQ(dic.LaserModelToLaserType("P"), eltSPI);         // several keys hold it: the first added wins
  EXPECT_EQ(dic.LaserModelToLaserType("IPG-YLR"), eltNone);  // a longer model is not inside any key
  EXPECT_EQ(dic.LaserModelToLaserType("ipg"), eltNone);      // case counts
  EXPECT_EQ(dic.LaserModelToLaserType(""), eltNone);
}

TEST(LaserTypeDicTest, AModelThatAlreadyNamesAFamilyIsRefused) {
  TLaserTypeDic dic;
  dic.AddLaserType("MaxSZ", eltMaxSZ);
  try {
    dic.AddLaserType("Max", eltOther);
    FAIL() << "a model inside an existing key was accepted";
  } catch (const ELaserError& e) {
    EXPECT_STREQ(e.what(), "LaserTypeDic AddLaserType duplicate Error");
  }
  ASSERT_EQ(dic.Keys().size(), 1u);
  dic.Clear();
  dic.AddLaserType("Max", eltOther);
  EXPECT_EQ(dic.LaserModelToLaserType("Max"), eltOther);
}

class NcLaserLibTest : public ::testing::Test {
 protected:
  void SetUp() override { SetHost(&FApp); }
  void TearDown() override { SetHost(nullptr); }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  TLaserTypeDic FDic;
  TNcLaserLib FLib;
};

struct TExpectedRow {
  TEnumLaserType Type;
  const char* Key;  // null: no key of its own
  std::vector<int> SubTypes;
  const char* ClassName;
};

TEST_F(NcLaserLibTest, TheBuiltInTableHoldsEveryClassInOrder) {
  RegisterBuiltInLasers(FLib, FDic);
  const std::vector<TExpectedRow> expected = {
      {eltZorun, "Zorun", {0}, "TZorunLaser"},
      {eltCO2, "CO2", {0}, "TCO2Laser"},
      {eltIPG, "IPG", {0, 1, 2}, "TIPG500Laser"},
      {eltIPG, nullptr, {4, 6}, "TIPGYLSLaser"},
      {eltIPG, nullptr, {5, 7}, "TIPG1000Laser"},
      {eltIPG, nullptr, {8}, "TIPGYLPLaser"},
      {eltIPG, nullptr, {3}, "TIPGYLR2Laser"},
      {eltIPG, nullptr, {9}, "TIPGEcatLaser"},
      {eltRay, "Raycus", {0, 1}, "TRaycusLaser"},
      {eltRay, nullptr, {2}, "TRayQCWLaser"},
      {eltRay, nullptr, {3}, "TRaySMLaser"},
      {eltRay, nullptr, {4}, "TRayMMLaser"},
      {eltRay, nullptr, {5}, "TRaycusRFL"},
      {eltTrumpf, "Trumpf", {0}, "TTrumpfLaser"},
      {eltSPI, "SPI", {0, 1}, "TSPILaser"},
      {eltSPI, nullptr, {2}, "TSPI1000Laser"},
      {eltGSI, "GSI", {0}, "TJKLaser"},
      {eltJK, "JK", {0}, "TJKLaser"},
      {eltNLight, "NLight", {0}, "TNLightLaser"},
      {eltMeiMan, "Meiman", {0}, "TMeimanLaser"},
      {eltMaxSZ, "MaxSZ", {0, 1}, "TMaxLaser"},
      {eltMaxSZ, nullptr, {2}, "TMaxG3Laser"},
      {eltMaxSZ, nullptr, {3}, "TMaxEcatLaser"},
      {eltLPing, "LPing", {0}, "TLPINGLaser"},
      {eltRofin, "Rofin", {0}, "TRofinLaser"},
      {eltCAS, "CAS", {0}, "TCASLaser"},
      {eltMars, "Mars", {0}, "TMarsLaser"},
      {eltOVNT, "OVNT", {0}, "TOpticalValleyLaser"},
      {eltOther, "Default", {0}, "TDefaultLaser"},
  };
  const auto& entries = FLib.Entries();
  ASSERT_EQ(entries.size(), expected.size());
  std::vector<std::string> keys;
  for (size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(expected[i].ClassName);
    EXPECT_EQ(entries[i].LaserType, expected[i].Type);
    EXPECT_STREQ(entries[i].LaserClass.Name, expected[i].ClassName);
    std::bitset<256> subTypes;
    for (int s : expected[i].SubTypes) subTypes.set(s);
    EXPECT_EQ(entries[i].SubTypes, subTypes);
    if (expected[i].Key) {
      keys.push_back(expected[i].Key);
      EXPECT_EQ(FDic.LaserModelToLaserType(expected[i].Key), expected[i].Type);
    }
  }
  ASSERT_EQ(FDic.Keys().size(), keys.size());
  for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(FDic.Keys()[i].first, keys[i]);
  EXPECT_TRUE(FSink->Entries().empty()) << "the built-in table registers without complaint";

  // Lookups walk the table: GSI and JK share a class, and eltNone has none.
  EXPECT_STREQ(FLib.GetDefLaserClass(eltGSI, 0)->Name, "TJKLaser");
  EXPECT_STREQ(FLib.GetDefLaserClass(eltIPG, 7)->Name, "TIPG1000Laser");
  EXPECT_EQ(FLib.GetDefLaserClass(eltIPG, 10), nullptr);
  EXPECT_EQ(FLib.GetDefLaserClass(eltNone, 0), nullptr);
}

TEST_F(NcLaserLibTest, ASubTypeAlreadyServedRefusesTheRegistrationWithALogLine) {
  RegisterBuiltInLasers(FLib, FDic);
  const size_t before = FLib.Entries().size();

  FLib.RegisterLaser(eltIPG, {4}, LaserClassOf<TCO2Laser>("TCO2Laser"));
  FLib.RegisterLaser(eltIPG, {10, 256 + 5}, LaserClassOf<TCO2Laser>("TCO2Laser"));  // 261 is taken as the byte 5

  EXPECT_EQ(FLib.Entries().size(), before);
  EXPECT_EQ(FLib.GetDefLaserClass(eltIPG, 10), nullptr) << "a refused registration adds none of its sub-types";
  const auto logs = FSink->Entries(TEntryKind::Log);
  ASSERT_EQ(logs.size(), 2u);
  for (const auto& entry : logs) {
    EXPECT_EQ(entry.Text, "RegisterLaser Error RegisterLaser duplicate Error!");
    EXPECT_EQ(entry.Type, nchost::msgtype::kLaserLog);
  }
}

TEST_F(NcLaserLibTest, AnEmptySubTypeListServesSubTypeZeroAndADuplicateKeyThrows) {
  FLib.RegisterLaser(eltCO2, {}, LaserClassOf<TCO2Laser>("TCO2Laser"), "CO2", FDic);
  ASSERT_NE(FLib.GetDefLaserClass(eltCO2, 0), nullptr);
  EXPECT_EQ(FLib.GetDefLaserClass(eltCO2, 1), nullptr);
  EXPECT_THROW(FLib.RegisterLaser(eltOther, {0}, LaserClassOf<TDefaultLaser>("TDefaultLaser"), "CO2", FDic),
               ELaserError);
  EXPECT_EQ(FLib.Entries().size(), 1u) << "the class of a refused key is not registered";
}

class LaserParamsInitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetHost(&FApp);
    TNcLaserLib lib;
    RegisterBuiltInLasers(lib, FInit.Types());
  }
  void TearDown() override { SetHost(nullptr); }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  TLaserParamsInit FInit;
  TLaserConfig FConfig;
};

TEST_F(LaserParamsInitTest, TheSharedSettingsComeFromTheRootAndItsOutputNodes) {
  FConfig.SetModel("LPing");
  FConfig.SetCtrlPort(4);
  FConfig.SetAimingPort(9);
  FConfig.SetAimingLowActive(true);
  FConfig.SetAnalogControl(true);
  FConfig.SetPower(3000.0);
  FConfig.SetIgnoreLaserAlarm(true);
  FConfig.SetLaserAlarm2Warning(true);
  FConfig.SetIgnoreDiodeReply(true);
  FConfig.SetDiodeSetAlarmEn(true);
  FConfig.SetDiodeSetTimeOut(2500);
  FConfig.SetHardWireMutexEmAndAB(true);
  FConfig.Pwm().SetDiodeCurrent(55.0);
  FConfig.Pwm().SetEnablePort1(11);
  FConfig.Pwm().SetEnablePort2(12);
  FConfig.Pwm().SetFrequency(20000);
  FConfig.Pwm().SetMinRatio(0.05);
  FConfig.Pwm().SetRatio(0.75);
  FConfig.DA().SetDAPort(2);
  FConfig.DA().SetMaxVoltage(5.0);
  FConfig.DA().SetProofMax(5.0);

  TLaserParams params;
  FInit.LaserConfigToParams(FConfig, params);

  const auto& def = params.DefParams;
  EXPECT_EQ(params.Model, "LPing");
  EXPECT_EQ(params.LaserMainType, eltLPing);
  EXPECT_EQ(params.LaserSubType, 0);
  EXPECT_EQ(def.CtrlPort, 4);
  EXPECT_EQ(def.AimingPort, 9);
  EXPECT_TRUE(def.AimingLowActive);
  EXPECT_TRUE(def.AnalogControl);
  EXPECT_DOUBLE_EQ(def.Power, 3000.0);
  EXPECT_TRUE(def.IgnoreLaserAlarm);
  EXPECT_TRUE(def.LaserAlarm2Warning);
  EXPECT_TRUE(def.IgnoreDiodeReply);
  EXPECT_TRUE(def.DiodeSetAlarmEn);
  EXPECT_EQ(def.DiodeSetTimeOut, 2500);
  EXPECT_TRUE(def.HardWireMutexEmAndAB);
  EXPECT_FALSE(def.DebugMode);
  EXPECT_DOUBLE_EQ(def.PWM.DiodeCurrent, 55.0);
  EXPECT_EQ(def.PWM.EnablePort1, 11);
  EXPECT_EQ(def.PWM.EnablePort2, 12);
  EXPECT_EQ(def.PWM.Frequency, 20000);
  EXPECT_DOUBLE_EQ(def.PWM.MinRatio, 0.05);
  EXPECT_DOUBLE_EQ(def.PWM.Ratio, 0.75);
  EXPECT_EQ(def.DA.DAPort, 2);
  EXPECT_DOUBLE_EQ(def.DA.MaxVoltage, 5.0);
  EXPECT_DOUBLE_EQ(def.DA.ProofMax, 10.0) << "the controller's full scale is not taken from the configuration";
  // A family without settings of its own leaves the transport and the serial defaults alone.
  EXPECT_EQ(def.DataTransType, dttNone);
  EXPECT_EQ(def.Comm.CommSettings, "9600,n,8,1");
  EXPECT_EQ(def.Net.TcpPort, 8080);
  EXPECT_TRUE(FSink->Entries().empty());
}

TEST_F(LaserParamsInitTest, ADAPortNumberedFrom1200IsReducedAndWrittenBack) {
  FConfig.DA().SetDAPort(1203);
  TLaserParams params;
  FInit.LaserConfigToParams(FConfig, params);
  EXPECT_EQ(params.DefParams.DA.DAPort, 3);
  EXPECT_EQ(FConfig.DA().DAPort(), 3);

  FInit.LaserConfigToParams(FConfig, params);  // converting again changes nothing more
  EXPECT_EQ(params.DefParams.DA.DAPort, 3);
}

}  // namespace
}  // namespace devlaser
