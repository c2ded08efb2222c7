#include "core/DefaultLaser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "core/LaserLifetime.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Clock = std::chrono::steady_clock;

constexpr int32_t kReadyPort = 3;
constexpr int32_t kGatePort = 4;

class TDefaultLaserTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FParams.CfgOther.ShutterReady = kReadyPort;
    FParams.CfgOther.ShutterReadyDelay = 20;
    FParams.DefParams.CtrlPort = kGatePort;
  }
  std::shared_ptr<TDefaultLaser> Make() { return MakeLaser<TDefaultLaser>(FParams, FIO); }
  bool EmissionComesOn(TDefaultLaser& laser) {
    return Eventually([&] { return laser.GetIsEmissionOn(); });
  }
};

TEST_F(TDefaultLaserTest, EmissionIsOnOnlyOnceTheHandshakeHasFinishedAndOffSwitchesBothOutputs) {
  for (int32_t delay : {100, 0}) {  // even without a delay, ready comes before the gate
    SCOPED_TRACE(delay);
    FParams.CfgOther.ShutterReadyDelay = delay;
    auto laser = Make();
    FIO->ClearWrites();
    auto start = Clock::now();
    laser->EmissionOn();
    if (delay > 0) {  // requests during a handshake start no second one
      laser->EmissionOn();
      laser->ExecuteCmd(5, 0);
    }
    ASSERT_TRUE(EmissionComesOn(*laser));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(delay));
    EXPECT_FALSE(laser->SequenceRunning());
    EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 3, True", "SetOutputbit: 4, True"));
    auto writes = FIO->Writes();
    EXPECT_GE(writes[1].Time - writes[0].Time, std::chrono::milliseconds(delay));
    EXPECT_TRUE(laser->GetIsEmissionOn()) << "a query puts the signal back: asking twice answers the same";
    FIO->ClearWrites();
    laser->EmissionOff();
    EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 3, False", "SetOutputbit: 4, False"));
    EXPECT_FALSE(laser->GetIsEmissionOn());
  }
}

TEST_F(TDefaultLaserTest, WithoutAReadyPortTheGateOpensAtOnceAndWithoutAGateEmissionIsTheCommandedFlag) {
  FParams.CfgOther.ShutterReady = 0;
  auto laser = Make();
  FIO->ClearWrites();
  laser->EmissionOn();
  ASSERT_TRUE(EmissionComesOn(*laser));
  EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 4, True"));
  FIO->SetOutputbit(kGatePort, false);  // the gate output dropped: emission reads off
  EXPECT_FALSE(laser->GetIsEmissionOn());

  FParams.DefParams.CtrlPort = 0;
  laser = Make();
  FIO->ClearWrites();
  laser->EmissionOn();
  EXPECT_TRUE(laser->GetIsEmissionOn());
  laser->EmissionOff();
  EXPECT_FALSE(laser->GetIsEmissionOn());
  EXPECT_TRUE(WriteLines().empty());
}

TEST_F(TDefaultLaserTest, QueriesFromAnotherThreadWhileHandshakesRun) {
  auto laser = Make();
  std::jthread display([&](std::stop_token stop) {  // stopped and joined before the laser goes
    while (!stop.stop_requested()) {
      (void)laser->GetIsEmissionOn();
      (void)laser->GetDiodeCurrent();
      std::this_thread::sleep_for(1ms);
    }
  });
  for (int i = 0; i < 5; ++i) {
    laser->EmissionOn();
    EXPECT_TRUE(EmissionComesOn(*laser));
    laser->EmissionOff();
  }
}

}  // namespace
}  // namespace devlaser
