#include "core/FiberLaser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <tuple>

#include "core/LaserLifetime.h"
#include "frame/Format.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using refhost::TEntryKind;
using refhost::TIOOp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A fiber laser with a command link: it accepts diode currents when told to and records what it was offered.
class TLinkedFiberLaser : public TFiberLaser {
 public:
  using TFiberLaser::TFiberLaser;
  std::atomic<bool> Accepts{true};
  std::atomic<bool> HardWire{false};
  std::vector<double> Offered;  // only written under the diode lock

  bool SetDiodeCustom(double value) override {
    Offered.push_back(value);
    TFiberLaser::SetDiodeCustom(value);
    return Accepts.load();
  }
  bool GetIsHardWire() override { return HardWire.load(); }
};

// The host's PWM control extension, recording each timed emission it was asked for.
struct TRecordingPwmCtrlExt : nchost::IPwmCtrlExt {
  struct TCall {
    uint8_t Port;
    int32_t LengthMs;
    int32_t Count;
  };
  std::vector<TCall> Calls;
  void TimedEmission(uint8_t pwmPort, int32_t lengthMs, int32_t count) override {
    Calls.push_back({pwmPort, lengthMs, count});
  }
};

class TFiberLaserTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FParams.DefParams.DA.DAPort = 2;
  }
  template <class T = TFiberLaser>
  std::shared_ptr<T> Make() {
    return MakeLaser<T>(FParams, FIO);
  }
  double DAVolts() const { return FIO->State().DA[2]; }
  size_t DAWrites() const { return WritesOf(TIOOp::SetDAValue).size(); }
};

TEST_F(TFiberLaserTest, SmallDiodeCurrentChangesFallInTheDeadBand) {
  auto laser = Make();
  laser->SetDiodeCurrent(50.0);
  EXPECT_DOUBLE_EQ(DAVolts(), 5.0);
  FIO->ClearWrites();
  laser->SetDiodeCurrent(50.1);
  laser->SetDiodeCurrent(50.2);
  laser->SetDiodeCurrent(49.8);
  EXPECT_EQ(DAWrites(), 0u);
  EXPECT_DOUBLE_EQ(laser->GetDiodeCurrent(), 50.0);
  EXPECT_DOUBLE_EQ(laser->GetCmdDiodeCurrent(), 49.8);  // commanded, though not sent
  laser->SetDiodeCurrent(50.3);
  EXPECT_NEAR(DAVolts(), 5.03, 1e-9);
  EXPECT_DOUBLE_EQ(laser->GetLastDiodeCurrent(), 50.3);
}

TEST_F(TFiberLaserTest, ALinkedLaserTakesTheValueAndTheDaOutputIsTheFallBack) {
  auto laser = Make<TLinkedFiberLaser>();
  EXPECT_THAT(laser->Offered, ElementsAre(10.0));  // the configured start current went over the link
  EXPECT_EQ(DAWrites(), 0u);

  // The DA output was never driven, so the first set writes it at once, then the link takes the value.
  laser->SetDiodeCurrent(60);
  EXPECT_DOUBLE_EQ(DAVolts(), 6.0);
  EXPECT_THAT(laser->Offered, ElementsAre(10.0, 60.0));
  FIO->ClearWrites();

  laser->Accepts = false;  // the link refuses: the DA output carries the value
  laser->SetDiodeCurrent(70);
  EXPECT_DOUBLE_EQ(DAVolts(), 7.0);
  EXPECT_DOUBLE_EQ(laser->GetLastDiodeCurrent(), 70.0);

  laser->Offered.clear();
  laser->ForceDiodeCurrent(0);  // zero never goes over the link
  EXPECT_DOUBLE_EQ(DAVolts(), 0.0);
  EXPECT_THAT(laser->Offered, IsEmpty());
}

TEST_F(TFiberLaserTest, AnalogControlAlwaysUsesTheDaOutput) {
  FParams.DefParams.AnalogControl = true;
  FParams.DefParams.DA.MaxVoltage = 10.0;
  auto laser = Make<TLinkedFiberLaser>();
  laser->ForceDiodeCurrent(80);
  EXPECT_DOUBLE_EQ(DAVolts(), 8.0);
  EXPECT_THAT(laser->Offered, IsEmpty());
  EXPECT_DOUBLE_EQ(laser->GetDiodeCurrent(), 80.0);
}

TEST_F(TFiberLaserTest, StartsAtTheConfiguredCurrentLimitedTo10To100) {
  FParams.DefParams.PWM.DiodeCurrent = 5;
  EXPECT_DOUBLE_EQ(Make()->GetDiodeCurrent(), 10.0);
  EXPECT_DOUBLE_EQ(DAVolts(), 1.0);
  FParams.DefParams.PWM.DiodeCurrent = 150;
  EXPECT_DOUBLE_EQ(Make()->GetDiodeCurrent(), 100.0);
  FParams.DefParams.PWM.DiodeCurrent = 42;
  EXPECT_DOUBLE_EQ(Make()->GetDefDiodeCurrent(), 42.0);
}

TEST_F(TFiberLaserTest, SettingByDaOnlyRecordsTheValueAndDynamicPowerSetsTheRatio) {
  auto laser = Make();
  FIO->ClearWrites();
  laser->SetDiodeCurrentByDA(33);
  EXPECT_EQ(std::tuple(laser->GetDiodeCurrent(), laser->GetLastDiodeCurrent()), std::tuple(33.0, 33.0));
  EXPECT_THAT(FIO->Writes(), IsEmpty());
  laser->DynamicPower(0.4);
  EXPECT_DOUBLE_EQ(FIO->GetPwmRatio(laser->PwmPort()), 0.4);
}

TEST_F(TFiberLaserTest, DebugModeShowsEachForcedSet) {
  auto laser = Make();
  SetLaserDebugMode(true);
  laser->ForceDiodeCurrent(70);
  SetLaserDebugMode(false);
  laser->ForceDiodeCurrent(20);
  EXPECT_EQ(FSink->Count(refhost::TRecordingSink::OfKind(TEntryKind::Message)), 1u);
  EXPECT_TRUE(FSink->Contains(Format(SForceSetDiode.Text(), 10.0, 70.0)));
}

TEST_F(TFiberLaserTest, LaserOnAndOffSwitchPwmAndBothEnables) {
  FParams.DefParams.PWM.EnablePort1 = 5;
  FParams.DefParams.PWM.EnablePort2 = 6;
  auto laser = Make();
  laser->SetPwmFreq(2000);
  laser->SetPwmRatio(0.3);
  FIO->ClearWrites();
  laser->LaserOn();
  EXPECT_THAT(WriteLines(), ElementsAre("SetPwmFreq: 1, 2000.000", "SetPwmRatio: 1, 0.300", "SetPwmEn: 1, True",
                                        "SetOutputbit: 5, True", "SetOutputbit: 6, True"));
  EXPECT_TRUE(laser->GetIsLaserOn());
  EXPECT_TRUE(laser->GetIsCmdLaserOn());
  FIO->ClearWrites();
  laser->LaserOff();
  EXPECT_THAT(WriteLines(), ElementsAre("SetPwmEn: 1, False", "SetOutputbit: 5, False", "SetOutputbit: 6, False"));
  EXPECT_FALSE(laser->GetIsLaserOn());
}

TEST_F(TFiberLaserTest, PreparingSetsTheEnablesWithoutEmitting) {
  FParams.DefParams.PWM.EnablePort1 = 5;  // enable 2 stays 0: not used, not written
  auto laser = Make();
  FIO->ClearWrites();
  laser->LaserOnPrepare();
  EXPECT_THAT(WriteLines(), ElementsAre("SetPwmFreq: 1, 5000.000", "SetPwmRatio: 1, 1.000", "SetOutputbit: 5, True"));
  EXPECT_FALSE(laser->GetIsLaserOn());
}

TEST_F(TFiberLaserTest, ATimedEmissionReplacesThePwmEnableOnce) {
  auto laser = Make();
  auto ext = std::make_shared<TRecordingPwmCtrlExt>();
  laser->SetLaserCtrl(ext, 300);
  FIO->ClearWrites();
  laser->LaserOn();
  EXPECT_TRUE(WritesOf(TIOOp::SetPwmEn).empty());
  ASSERT_EQ(ext->Calls.size(), 1u);
  EXPECT_EQ(std::tuple(ext->Calls[0].Port, ext->Calls[0].LengthMs, ext->Calls[0].Count),
            std::tuple(laser->PwmPort(), 300, 1));
  auto logged = FSink->Entries(TEntryKind::Log);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(std::tuple(logged[0].Text, logged[0].Type, logged[0].Category),
            std::tuple(Format(SControledLaserOn.Text(), 300), nchost::msgtype::kTrace, "Laser"));

  laser->LaserOn();  // one shot: the next switch-on emits by PWM again
  EXPECT_EQ(ext->Calls.size(), 1u);
  EXPECT_THAT(WritesOf(TIOOp::SetPwmEn), ::testing::SizeIs(1));
  EXPECT_TRUE(laser->GetIsLaserOn());
}

TEST_F(TFiberLaserTest, OnAHardWiredLaserEmissionAndAimingExcludeEachOther) {
  FParams.DefParams.AimingPort = 7;
  auto laser = Make<TLinkedFiberLaser>();  // the exclusion is switched off: aiming leaves emission alone
  laser->HardWire = true;
  laser->EmissionOn();
  laser->SetAimingOn(true);
  EXPECT_EQ(std::tuple(laser->GetIsEmissionOn(), laser->GetIsAimingOn()), std::tuple(true, true));

  FParams.DefParams.HardWireMutexEmAndAB = true;
  auto linked = Make<TLinkedFiberLaser>();  // a laser that is not hard-wired ignores the switch
  linked->EmissionOn();
  linked->SetAimingOn(true);
  EXPECT_TRUE(linked->GetIsEmissionOn());

  laser = Make<TLinkedFiberLaser>();
  laser->HardWire = true;
  laser->EmissionOn();
  laser->SetAimingOn(true);
  EXPECT_FALSE(laser->GetIsEmissionOn());
  laser->SetAimingOn(false);
  EXPECT_TRUE(laser->GetIsEmissionOn());
  laser->MutexEmAndAB(TFiberLaser::kEmissionSwitchedOff);  // aiming is off: it comes on
  EXPECT_TRUE(laser->GetIsAimingOn());
  laser->MutexEmAndAB(TFiberLaser::kEmissionSwitchedOn);
  EXPECT_FALSE(laser->GetIsAimingOn());
  laser->MutexEmAndAB(9);
  EXPECT_FALSE(laser->GetIsAimingOn());
}

TEST_F(TFiberLaserTest, DiodeSetsFromSeveralThreadsLeaveAConsistentState) {
  auto laser = Make<TLinkedFiberLaser>();
  std::thread setter([&] {
    for (int i = 0; i < 200; ++i) laser->ForceDiodeCurrent(20 + i % 50);
  });
  for (int i = 0; i < 200; ++i) {
    laser->SetDiodeCurrentByDA(90);
    (void)laser->GetDiodeCurrent();
  }
  setter.join();
  EXPECT_DOUBLE_EQ(laser->GetDiodeCurrent(), laser->GetLastDiodeCurrent());
  EXPECT_EQ(laser->Offered.size(), 201u);
}

}  // namespace
}  // namespace devlaser
