// The model dictionary, the registry of laser classes with its built-in table, and the conversion of the
// settings every laser shares.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "core/DefaultLaser.h"
#include "frame/LaserError.h"
#include "models/CO2Laser.h"
#include "registry/LaserLib.h"
#include "registry/LaserParamsInit.h"
#include "registry/LaserRegistrations.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using refhost::TEntryKind;
using ::testing::ElementsAre;
using testing::SetKeys;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

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
  EXPECT_THAT([&] { dic.AddLaserType("Max", eltOther); },
              ThrowsMessage<ELaserError>(StrEq("LaserTypeDic AddLaserType duplicate Error")));
  ASSERT_EQ(dic.Keys().size(), 1u);
  dic.Clear();
  dic.AddLaserType("Max", eltOther);
  EXPECT_EQ(dic.LaserModelToLaserType("Max"), eltOther);
}

class NcLaserLibTest : public testing::TLaserHostFixture {
 protected:
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
  std::vector<std::pair<std::string, TEnumLaserType>> keys;
  for (size_t i = 0; i < expected.size(); ++i) {
    const auto& [type, key, subTypeList, name] = expected[i];
    SCOPED_TRACE(name);
    std::bitset<256> subTypes;
    for (int s : subTypeList) subTypes.set(s);
    EXPECT_EQ(std::tuple(entries[i].LaserType, std::string(entries[i].LaserClass.Name), entries[i].SubTypes),
              std::tuple(type, name, subTypes));
    if (key) keys.emplace_back(key, type);
  }
  EXPECT_EQ(FDic.Keys(), keys);
  for (const auto& [key, type] : keys) EXPECT_EQ(FDic.LaserModelToLaserType(key), type) << key;
  EXPECT_TRUE(FSink->Entries().empty()) << "the built-in table registers without complaint";
}

TEST_F(NcLaserLibTest, ASubTypeAlreadyServedRefusesTheRegistrationWithALogLine) {
  RegisterBuiltInLasers(FLib, FDic);
  const size_t before = FLib.Entries().size();

  FLib.RegisterLaser(eltIPG, {4}, LaserClassOf<TCO2Laser>("TCO2Laser"));
  FLib.RegisterLaser(eltIPG, {10, 256 + 5}, LaserClassOf<TCO2Laser>("TCO2Laser"));  // 261 is taken as the byte 5

  EXPECT_EQ(FLib.Entries().size(), before);
  EXPECT_EQ(FLib.GetDefLaserClass(eltIPG, 10), nullptr) << "a refused registration adds none of its sub-types";
  const std::string refused = "RegisterLaser Error RegisterLaser duplicate Error!";
  EXPECT_THAT(FSink->Texts(TEntryKind::Log), ElementsAre(refused, refused));
  EXPECT_EQ(FSink->Count(refhost::TRecordingSink::OfKind(TEntryKind::Log, nchost::msgtype::kLaserLog)), 2u);
}

TEST_F(NcLaserLibTest, AnEmptySubTypeListServesSubTypeZeroAndADuplicateKeyThrows) {
  FLib.RegisterLaser(eltCO2, {}, LaserClassOf<TCO2Laser>("TCO2Laser"), "CO2", FDic);
  ASSERT_NE(FLib.GetDefLaserClass(eltCO2, 0), nullptr);
  EXPECT_EQ(FLib.GetDefLaserClass(eltCO2, 1), nullptr);
  EXPECT_THROW(FLib.RegisterLaser(eltOther, {0}, LaserClassOf<TDefaultLaser>("TDefaultLaser"), "CO2", FDic),
               ELaserError);
  EXPECT_EQ(FLib.Entries().size(), 1u) << "the class of a refused key is not registered";
}

class LaserParamsInitTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    TNcLaserLib lib;
    RegisterBuiltInLasers(lib, FInit.Types());
  }
  TLaserParamsInit FInit;
  TLaserConfig FConfig;
};

TEST_F(LaserParamsInitTest, TheSharedSettingsComeFromTheRootAndItsOutputNodes) {
  SetKeys(FConfig, {{"Model", "LPing"},
                    {"CtrlPort", 4},
                    {"AimingPort", 9},
                    {"AimingLowActive", true},
                    {"AnalogControl", true},
                    {"Power", 3000.0},
                    {"IgnoreLaserAlarm", true},
                    {"LaserAlarm2Warning", true},
                    {"IgnoreDiodeReply", true},
                    {"DiodeSetAlarmEn", true},
                    {"DiodeSetTimeOut", 2500},
                    {"HardWireMutexEmAndAB", true}});
  SetKeys(FConfig.Pwm(), {{"DiodeCurrent", 55.0},
                          {"EnablePort1", 11},
                          {"EnablePort2", 12},
                          {"Frequency", 20000},
                          {"MinRatio", 0.05},
                          {"Ratio", 0.75}});
  SetKeys(FConfig.DA(), {{"DAPort", 2}, {"MaxVoltage", 5.0}, {"ProofMax", 5.0}});

  TLaserParams params;
  FInit.LaserConfigToParams(FConfig, params);

  const auto& def = params.DefParams;
  EXPECT_EQ(std::tuple(params.Model, params.LaserMainType, params.LaserSubType), std::tuple("LPing", eltLPing, 0));
  EXPECT_EQ(std::tuple(def.CtrlPort, def.AimingPort, def.AimingLowActive, def.AnalogControl, def.Power),
            std::tuple(4, 9, true, true, 3000.0));
  EXPECT_EQ(std::tuple(def.IgnoreLaserAlarm, def.LaserAlarm2Warning, def.IgnoreDiodeReply, def.DiodeSetAlarmEn,
                       def.DiodeSetTimeOut, def.HardWireMutexEmAndAB, def.DebugMode),
            std::tuple(true, true, true, true, 2500, true, false));
  EXPECT_EQ(std::tuple(def.PWM.DiodeCurrent, def.PWM.EnablePort1, def.PWM.EnablePort2, def.PWM.Frequency),
            std::tuple(55.0, 11, 12, 20000));
  EXPECT_EQ(std::tuple(def.PWM.MinRatio, def.PWM.Ratio, def.DA.DAPort, def.DA.MaxVoltage),
            std::tuple(0.05, 0.75, 2, 5.0));
  EXPECT_DOUBLE_EQ(def.DA.ProofMax, 10.0) << "the controller's full scale is not taken from the configuration";
  // A family without settings of its own leaves the transport and the serial defaults alone.
  EXPECT_EQ(std::tuple(def.DataTransType, def.Comm.CommSettings, def.Net.TcpPort),
            std::tuple(dttNone, "9600,n,8,1", 8080));
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
