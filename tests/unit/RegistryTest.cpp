// The registry of laser classes and the conversion of the settings every laser shares.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

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
