#include "core/FiberLaser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <tuple>

#include "core/LaserLifetime.h"
#include "frame/Format.h"
#include "frame/LaserStrs.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

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
  std::vector<std::tuple<int, int32_t, int32_t>> Calls;  // port, length in ms, count
  void TimedEmission(uint8_t port, int32_t lengthMs, int32_t count) override {
    Calls.emplace_back(port, lengthMs, count);
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
  laser->SetDiodeCurrent(50.2);
  laser->SetDiodeCurrent(49.8);
  EXPECT_EQ(DAWrites(), 0u);
  EXPECT_DOUBLE_EQ(laser->GetCmdDiodeCurrent(), 49.8);  // commanded, though not sent
  laser->SetDiodeCurrent(50.3);
  EXPECT_NEAR(DAVolts(), 5.03, 1e-9);
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

  laser->Offered.clear();
  laser->ForceDiodeCurrent(0);  // zero never goes over the link
  EXPECT_DOUBLE_EQ(DAVolts(), 0.0);
  EXPECT_THAT(laser->Offered, IsEmpty());
}

TEST_F(TFiberLaserTest, AnalogControlStartsOnTheDaOutputAtNoLessThan10AndSettingByDaWritesNothing) {
  FParams.DefParams.PWM.DiodeCurrent = 5;
  FParams.DefParams.AnalogControl = true;
  auto laser = Make<TLinkedFiberLaser>();
  EXPECT_DOUBLE_EQ(laser->GetDiodeCurrent(), 10.0);
  EXPECT_DOUBLE_EQ(DAVolts(), 1.0);
  EXPECT_THAT(laser->Offered, IsEmpty()) << "analog control never uses the link";
  FIO->ClearWrites();
  laser->SetDiodeCurrentByDA(33);  // the host drives the DA output itself: only the value is kept
  EXPECT_DOUBLE_EQ(laser->GetDiodeCurrent(), 33.0);
  EXPECT_THAT(FIO->Writes(), IsEmpty());
}

TEST_F(TFiberLaserTest, LaserOnOffAndPrepareSwitchPwmAndBothEnables) {
  FParams.DefParams.PWM.EnablePort1 = 5;
  FParams.DefParams.PWM.EnablePort2 = 6;
  auto laser = Make();
  laser->SetPwmFreq(2000);
  laser->SetPwmRatio(0.3);
  FIO->ClearWrites();
  laser->LaserOn();
  EXPECT_THAT(WriteLines(), ElementsAre("SetPwmFreq: 1, 2000.000", "SetPwmRatio: 1, 0.300", "SetPwmEn: 1, True",
                                        "SetOutputbit: 5, True", "SetOutputbit: 6, True"));
  FIO->ClearWrites();
  laser->LaserOff();
  EXPECT_THAT(WriteLines(), ElementsAre("SetPwmEn: 1, False", "SetOutputbit: 5, False", "SetOutputbit: 6, False"));
  FIO->ClearWrites();
  laser->LaserOnPrepare();  // the PWM settings and the enables, without emitting
  EXPECT_THAT(WriteLines(), ElementsAre("SetPwmFreq: 1, 2000.000", "SetPwmRatio: 1, 0.300", "SetOutputbit: 5, True",
                                        "SetOutputbit: 6, True"));
  EXPECT_FALSE(laser->GetIsLaserOn());
}

TEST_F(TFiberLaserTest, ATimedEmissionReplacesThePwmEnableOnce) {
  auto laser = Make();
  auto ext = std::make_shared<TRecordingPwmCtrlExt>();
  laser->SetLaserCtrl(ext, 300);
  FIO->ClearWrites();
  laser->LaserOn();
  EXPECT_TRUE(WritesOf(TIOOp::SetPwmEn).empty());
  EXPECT_THAT(ext->Calls, ElementsAre(std::tuple(laser->PwmPort(), 300, 1)));
  EXPECT_TRUE(FSink->Contains(Format(SControledLaserOn.Text(), 300)));

  laser->LaserOn();  // one shot: the next switch-on emits by PWM again
  EXPECT_EQ(ext->Calls.size(), 1u);
  EXPECT_THAT(WritesOf(TIOOp::SetPwmEn), ::testing::SizeIs(1));
}

TEST_F(TFiberLaserTest, OnAHardWiredLaserEmissionAndAimingExcludeEachOther) {
  FParams.DefParams.AimingPort = 7;
  std::shared_ptr<TLinkedFiberLaser> laser;
  // Only a hard-wired laser with the exclusion switched on drops emission when aiming comes on.
  for (auto [hardWire, exclusive] : {std::pair{true, false}, {false, true}, {true, true}}) {
    FParams.DefParams.HardWireMutexEmAndAB = exclusive;
    laser = Make<TLinkedFiberLaser>();
    laser->HardWire = hardWire;
    laser->EmissionOn();
    laser->SetAimingOn(true);
    EXPECT_EQ(laser->GetIsEmissionOn(), !(hardWire && exclusive)) << hardWire << exclusive;
    EXPECT_TRUE(laser->GetIsAimingOn());
  }
  laser->SetAimingOn(false);
  EXPECT_TRUE(laser->GetIsEmissionOn());
  laser->MutexEmAndAB(TFiberLaser::kEmissionSwitchedOff);  // aiming is off: it comes on
  EXPECT_TRUE(laser->GetIsAimingOn());
  laser->MutexEmAndAB(TFiberLaser::kEmissionSwitchedOn);
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
