// The default (hard-wired) laser's ready-then-gate handshake, and the output/input sequence thread it runs on.
#include "core/DefaultLaser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "core/LaserIOThread.h"
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

// Emission reading off during the ready delay and on after it, ready before gate, is shown through laserctl.
TEST_F(TDefaultLaserTest, RequestsDuringTheHandshakeStartNoSecondOneAndOffSwitchesBothOutputs) {
  for (int32_t delay : {100, 0}) {  // even without a delay, ready comes before the gate
    SCOPED_TRACE(delay);
    FParams.CfgOther.ShutterReadyDelay = delay;
    auto laser = Make();
    FIO->ClearWrites();
    laser->EmissionOn();
    if (delay > 0) {  // requests during a handshake start no second one
      laser->EmissionOn();
      laser->ExecuteCmd(5, 0);
    }
    ASSERT_TRUE(EmissionComesOn(*laser));
    EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 3, True", "SetOutputbit: 4, True"));
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
    for (; !stop.stop_requested(); std::this_thread::sleep_for(1ms)) (void)laser->GetIsEmissionOn();
  });
  for (int i = 0; i < 5; ++i) {
    laser->EmissionOn();
    EXPECT_TRUE(EmissionComesOn(*laser));
    laser->EmissionOff();
  }
}

// ---- the output and input sequence the default laser's handshake runs on -----------------------------------------

class TLaserIOThreadTest : public testing::TLaserHostFixture {
 protected:
  // As an owner does: the terminate semaphore is held while the sequence runs, the finish signal starts unset.
  void SetUp() override {
    TLaserHostFixture::SetUp();
    ASSERT_TRUE(FTerminated->TryAcquire());
    FSequence = std::make_unique<TLaserIOThread>(FTerminated);
    FSequence->SetCtrlExtIO(FIO);
    FSequence->SetFinishSemaphore(FFinished);
  }
  void TearDown() override {
    FSequence.reset();
    TLaserHostFixture::TearDown();
  }

  std::shared_ptr<TLaserSemaphore> FTerminated = std::make_shared<TLaserSemaphore>(1, 1);
  std::shared_ptr<TLaserSemaphore> FFinished = std::make_shared<TLaserSemaphore>(0, 1);
  std::unique_ptr<TLaserIOThread> FSequence;
};

TEST_F(TLaserIOThreadTest, AnInputThatNeverComesEndsItsStepAtTheTimeOut) {
  FSequence->AddOutport(6, true);
  FSequence->AddDelay(600001);  // delays out of range are skipped
  FSequence->AddDelay(-1);
  FSequence->AddDelay(50);
  FSequence->AddInport(7, true, 30);
  FSequence->AddOutport(8, true);
  auto start = Clock::now();
  ASSERT_TRUE(FSequence->Start());
  ASSERT_TRUE(FFinished->AcquireFor(10s));
  // Lower bounds only: the delay, the time-out and the settling pauses all passed.
  EXPECT_GE(Clock::now() - start, 50ms + 30ms + 3 * std::chrono::milliseconds(TLaserIOThread::kSettleMs));
  EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 6, True", "SetOutputbit: 8, True"));
  EXPECT_TRUE(FTerminated->AcquireFor(5s));
}

TEST_F(TLaserIOThreadTest, AnAwaitedInputEndsItsStepWhenItArrives) {
  FSequence->AddInport(7, true, 600000);
  FSequence->AddOutport(8, true);
  ASSERT_TRUE(FSequence->Start());
  std::this_thread::sleep_for(20ms);
  EXPECT_TRUE(WriteLines().empty());
  FIO->SetInput(7, true);
  EXPECT_TRUE(FFinished->AcquireFor(10s));
  EXPECT_TRUE(FTerminated->AcquireFor(5s));
  EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 8, True"));
  EXPECT_FALSE(FSequence->Start()) << "a sequence runs once";
}

TEST_F(TLaserIOThreadTest, TerminatingDuringALongWaitEndsPromptlyWithoutTheFinishSignal) {
  FSequence->AddOutport(6, true);
  FSequence->AddInport(3, true, -1);  // a time-out out of range waits the longest time, it is not skipped
  FSequence->AddOutport(8, true);
  ASSERT_TRUE(FSequence->Start());
  ASSERT_TRUE(FIO->WaitForWrite([](const refhost::TIOWrite& w) { return w.Port == 6; }, 5s));
  EXPECT_FALSE(FFinished->AcquireFor(100ms));
  auto stopStart = Clock::now();
  FSequence->Stop();
  EXPECT_LT(Clock::now() - stopStart, 5s);  // ten minutes would fail this, a busy machine would not
  EXPECT_FALSE(FSequence->Running());
  EXPECT_TRUE(FTerminated->TryAcquire());
  EXPECT_FALSE(FTerminated->TryAcquire());  // released once only
  EXPECT_FALSE(FFinished->TryAcquire());
  EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 6, True"));
}

TEST_F(TLaserIOThreadTest, FreeingARunningSequenceStopsAndJoinsIt) {
  FSequence->AddDelay(600000);
  ASSERT_TRUE(FSequence->Start());
  FSequence.reset();
  EXPECT_TRUE(FTerminated->TryAcquire());
  EXPECT_FALSE(FFinished->TryAcquire());
}

}  // namespace
}  // namespace devlaser
