#include "core/NcLaser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "core/LaserLifetime.h"
#include "frame/LaserComm.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The base with its one abstract query answered, and a record of the operations the command table reached.
class TRecordingLaser : public TNcLaser {
 public:
  using TNcLaser::Owns;
  using TNcLaser::TNcLaser;
  std::shared_ptr<std::vector<std::string>> Calls = std::make_shared<std::vector<std::string>>();
  bool ThrowOnEmissionOff = false;

  bool GetIsLaserOn() override { return false; }
  void PowerOn() override { Calls->push_back("PowerOn"); }
  void SetLaserMode(int32_t mode) override { Calls->push_back("SetLaserMode " + std::to_string(mode)); }
  void LaserOn() override {
    Calls->push_back(IsPreparing() ? "LaserOn preparing" : "LaserOn");
    TNcLaser::LaserOn();
  }
  void LaserOff() override {
    Calls->push_back("LaserOff");
    TNcLaser::LaserOff();
  }
  void EmissionOff() override {
    Calls->push_back("EmissionOff");
    if (ThrowOnEmissionOff) throw std::runtime_error("gate output stuck");
    TNcLaser::EmissionOff();
  }
};

class TNcLaserTest : public testing::TLaserHostFixture {
 protected:
  std::shared_ptr<TRecordingLaser> Make() { return MakeLaser<TRecordingLaser>(FParams, FIO); }
};

TEST(RoundHalfEven, HalvesGoToTheEvenNeighbour) {
  EXPECT_EQ(RoundHalfEven(-2.5), -2);
  EXPECT_EQ(RoundHalfEven(std::nan("")), 0);
  EXPECT_EQ(RoundHalfEven(1e12), std::numeric_limits<int32_t>::max());
  EXPECT_EQ(RoundHalfEven(-1e12), std::numeric_limits<int32_t>::min());
}

TEST_F(TNcLaserTest, StepCommandsUseTheParameterOrTheSmallestStep) {
  auto laser = Make();
  laser->SetPwmRatio(0.5);
  laser->ExecuteCmd(12, 0.001);
  EXPECT_NEAR(laser->GetPwmRatio(), 0.49, 1e-9);
  laser->ExecuteCmd(13, 0.05);
  EXPECT_NEAR(laser->GetPwmRatio(), 0.54, 1e-9);

  // The diode-current nudges start from the diode current (100 in the base) but set the PWM ratio.
  laser->SetDiodeCurrent(40);
  laser->ExecuteCmd(22, 0.5);
  EXPECT_DOUBLE_EQ(laser->GetCmdPwmRatio(), 99.0);
  EXPECT_DOUBLE_EQ(laser->GetCmdDiodeCurrent(), 40.0);
  laser->ExecuteCmd(20, 0.35);  // a fraction of full current
  EXPECT_DOUBLE_EQ(laser->GetCmdDiodeCurrent(), 35.0);
}

TEST_F(TNcLaserTest, RoundedCommandsRoundHalvesToEvenAndOthersChangeNothing) {
  auto laser = Make();
  laser->SetPwmRatio(0.5);
  EXPECT_EQ(laser->ExecuteCmd(18, 85), 42);
  laser->ExecuteCmd(14, 2500.5);
  EXPECT_EQ(laser->GetPwmFreq(), 2500);
  laser->ExecuteCmd(17, 2.5);
  laser->ExecuteCmd(17, 3.5);
  EXPECT_THAT(*laser->Calls, ElementsAre("SetLaserMode 2", "SetLaserMode 4"));

  FIO->ClearWrites();
  laser->Calls->clear();
  for (int32_t cmd : {7, 15, 19, 24, 99, -1}) EXPECT_EQ(laser->ExecuteCmd(cmd, 1.0), 0) << cmd;
  EXPECT_THAT(FIO->Writes(), IsEmpty());
  EXPECT_THAT(*laser->Calls, IsEmpty());
}

TEST_F(TNcLaserTest, SwitchingCommandsReachTheOperations) {
  auto laser = Make();
  laser->ExecuteCmd(6, 0);  // toggles on
  EXPECT_TRUE(laser->GetIsEmissionOn());
  laser->ExecuteCmd(6, 0);
  EXPECT_FALSE(laser->GetIsEmissionOn());
  laser->Calls->clear();
  for (int32_t cmd : {1, 0, 25, 26}) laser->ExecuteCmd(cmd, 0);
  EXPECT_THAT(*laser->Calls, ElementsAre("LaserOn", "LaserOff", "PowerOn", "LaserOn preparing"));
  EXPECT_TRUE(laser->GetIsCmdLaserOn());
}

TEST_F(TNcLaserTest, AimingCommandsFollowThePolarityOfTheOutput) {
  FParams.DefParams.AimingPort = 5;
  for (bool lowActive : {true, false}) {
    FParams.DefParams.AimingLowActive = lowActive;
    auto laser = Make();
    laser->ExecuteCmd(3, 0);
    EXPECT_EQ(std::tuple(FIO->GetOutputBit(5), laser->GetIsAimingOn()), std::tuple(!lowActive, true)) << lowActive;
    laser->ExecuteCmd(2, 0);
    EXPECT_EQ(std::tuple(FIO->GetOutputBit(5), laser->GetIsAimingOn()), std::tuple(lowActive, false)) << lowActive;
  }
}

TEST_F(TNcLaserTest, CurrentToVoltageClampsToTheDaRange) {
  FParams.DefParams.DA.MaxVoltage = 10.0;
  FParams.DefParams.DA.DAPort = 259;  // only the low byte reaches the IO extension
  auto laser = Make();
  EXPECT_DOUBLE_EQ(laser->CurrentToVoltage(1.2), 10.0);
  EXPECT_DOUBLE_EQ(laser->CurrentToVoltage(-0.1), 0.0);
  EXPECT_EQ(laser->GetCurrentDAPort(), 3);
}

TEST_F(TNcLaserTest, StartsWithPwmDisabledAtTheConfiguredFrequencyAndRatio) {
  FParams.DefParams.PWM.Frequency = 2000;
  FParams.DefParams.PWM.Ratio = 0.25;
  Make();
  EXPECT_THAT(WriteLines(), ElementsAre("SetPwmEn: 1, False", "SetPwmFreq: 1, 2000.000", "SetPwmRatio: 1, 0.250"));
}

TEST_F(TNcLaserTest, WithoutIoASimulatedBoardIsCreatedOnceWhoeverAsksFirst) {
  auto laser = MakeLaser<TRecordingLaser>(FParams, nullptr);
  ASSERT_TRUE(laser);
  std::shared_ptr<nchost::ICtrlExtIO> seen[2];
  auto target = [&] { return std::static_pointer_cast<TLaserIOGate>(laser->GetCtrlExtIO())->Target(); };
  std::thread other([&] { seen[0] = target(); });
  seen[1] = target();
  other.join();
  EXPECT_EQ(seen[0], seen[1]);
  EXPECT_NE(dynamic_cast<TSimIOExtBoard*>(seen[1].get()), nullptr);
  EXPECT_FALSE(laser->GetIsAimingOn());  // the board reads zeros
}

// Shutting down stops the owned parts after switching off, the last registered first, then detaches the IO: the
// held laser answers from what it last wrote, writes reach nothing, and nothing it owns can start again. Freeing it
// afterwards switches nothing off a second time.
TEST_F(TNcLaserTest, ShutdownStopsOwnedPartsInReverseAndLeavesTheLaserDetached) {
  auto laser = Make();
  auto calls = laser->Calls;
  laser->Owns("driver", [calls] { calls->push_back("stop driver"); });
  laser->Owns("sequence", [calls] { calls->push_back("stop sequence"); });
  TLaserThread thread("owned");
  laser->Owns(thread);
  laser->SetAimingOn(true);
  laser->SetPwmFreq(2500);
  calls->clear();
  const size_t writes = FIO->Writes().size();

  laser->Shutdown();
  EXPECT_THAT(*calls, ElementsAre("EmissionOff", "LaserOff", "stop sequence", "stop driver"));
  laser->SetAimingOn(false);
  laser->SetPwmRatio(0.7);
  EXPECT_EQ(FIO->Writes().size(), writes);
  EXPECT_TRUE(laser->GetIsAimingOn());  // as last written before the shutdown: the later write reached nothing
  EXPECT_EQ(laser->GetPwmFreq(), 2500);
  thread.Start([calls](TLaserThread&) { calls->push_back("ran"); });
  laser->Owns("late", [calls] { calls->push_back("stop late"); });  // stopped at once
  thread.Join();
  EXPECT_EQ(calls->back(), "stop late");
  EXPECT_EQ(std::count(calls->begin(), calls->end(), "ran"), 0);
  calls->clear();
  laser.reset();
  EXPECT_THAT(*calls, IsEmpty());
}

// Freeing a laser the library never shut down switches it off all the same, even when switching fails.
TEST_F(TNcLaserTest, AFailingSwitchOffIsReportedNotThrown) {
  auto laser = Make();
  laser->ThrowOnEmissionOff = true;
  auto calls = laser->Calls;
  calls->clear();
  EXPECT_NO_THROW(laser.reset());
  EXPECT_TRUE(FSink->Contains("gate output stuck"));
  EXPECT_THAT(*calls, ElementsAre("EmissionOff", "LaserOff"));  // the enable still goes off
}

}  // namespace
}  // namespace devlaser
