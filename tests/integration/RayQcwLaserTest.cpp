// The Raycus QCW laser against the simulated laser over a pseudo-terminal, through the reference host's POSIX
// serial port and its simulated IO extension: status and alarms of several modules, answers the driver must drop
// or pick, the pulse settings on the line, emission by outputs, and the line vanishing and coming back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "info/LaserInfo.h"
#include "raycus/RayQcwLaser.h"
#include "refhost/JsonObject.h"
#include "refhost/transport/PosixTransports.h"
#include "refhost/transport/SerialPortMap.h"
#include "sim/rayqcw/RayQcwEngine.h"
#include "sim/rayqcw/RayQcwPtyServer.h"
#include "support/LaserHostFixture.h"
#include "support/ScratchDir.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using lasersim::TRayQcwEngine;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr int32_t kSerialPort = 3;
constexpr uint8_t kGatePort = 6;

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::map<int32_t, bool> Raised;
  void ReportAlarm(int32_t id, bool raised) override { Raised[id] = raised; }
};

class RayQcwLaserSimTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, FSerialPorts));
    ASSERT_TRUE(FPty.Start()) << FPty.LastError();
    FSerialPorts->Set(kSerialPort, FScratch / "ttyQCW");
    FParams.Model = "Raycus";
    FParams.LaserMainType = eltRay;
    FParams.LaserSubType = TRayQCWLaser::kQcwSubType;
    FParams.DefParams.DataTransType = dttSerial;
    FParams.DefParams.Comm.CommPort = kSerialPort;
    FParams.DefParams.Comm.CommSettings = "9600,n,8,1";
    FParams.DefParams.CtrlPort = kGatePort;
    FParams.DefParams.PWM.DiodeCurrent = 30;
  }
  void TearDown() override {
    SetLaserDebugMode(false);
    FLaser.reset();
    FPty.Stop();
    TLaserHostFixture::TearDown();
  }

  TRayQCWLaser& Make() {
    FLaser.reset();
    FLaser = MakeLaser<TRayQCWLaser>(FParams, FIO);
    if (!FLaser || FLaser->Driver() == nullptr) throw std::runtime_error("the QCW laser could not be built");
    return *FLaser;
  }
  TRayQCWDriver& Driver() { return *FLaser->Driver(); }

  // Waits until the laser has reported its status to the driver at least once more from now.
  bool StatusArrives(const std::function<bool(TRayQCWDriver&)>& holds = {}) {
    return Eventually([&] { return Driver().GetAlarmBytes().size() >= 13 && (!holds || holds(Driver())); });
  }
  // Waits until the laser has answered `polls` more status requests: a reply the driver got by then was handled.
  void LetPollsPass(size_t polls = 3) {
    const size_t seen = FEngine.Log().Count("CheckStatus");
    EXPECT_TRUE(FEngine.Log().WaitFor("CheckStatus", 5s, seen + polls));
  }
  // Repeats a request every 50 ms until `holds`: an answer that shares a read with a later one is dropped as stale,
  // so a single request may go unseen on a loaded machine.
  static bool Repeatedly(const std::function<void()>& request, const std::function<bool()>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    for (;;) {
      request();
      if (Eventually(holds, 50ms)) return true;
      if (std::chrono::steady_clock::now() >= deadline) return false;
    }
  }
  // What the laser received since the last Clear(), without the status polls.
  std::vector<std::string> Commands() const {
    std::vector<std::string> out;
    for (auto& c : FEngine.Log().Commands())
      if (c != "CheckStatus") out.push_back(c);
    return out;
  }

  testsupport::TScratchDir FScratch;
  TRayQcwEngine FEngine;
  lasersim::TRayQcwPtyServer FPty{FEngine, FScratch / "ttyQCW"};
  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  std::shared_ptr<TRayQCWLaser> FLaser;
};

TEST_F(RayQcwLaserSimTest, ReportsEveryAlarmByteOfEveryModule) {
  FEngine.SetModuleCount(2);
  auto& laser = Make();
  ASSERT_TRUE(StatusArrives([](auto& d) { return d.GetAlarmBytes().size() == 26; }));
  EXPECT_FALSE(Driver().HasAlarm());
  TRecordingReport clear;
  EXPECT_FALSE(laser.UpdateAlarms(clear));
  EXPECT_EQ(clear.Raised.size(), 26u);
  FEngine.SetAlarm(0, 3, 1);
  FEngine.SetAlarm(1, 12, 9);
  ASSERT_TRUE(StatusArrives([](auto& d) { return d.HasAlarm(); }));
  TRecordingReport report;
  EXPECT_TRUE(laser.UpdateAlarms(report));
  std::vector<int32_t> raised;
  for (auto& [id, on] : report.Raised)
    if (on) raised.push_back(id);
  EXPECT_EQ(report.Raised.begin()->first, 2);
  EXPECT_THAT(raised, ElementsAre(5, 27));
  EXPECT_EQ(Driver().GetDeviceStatus(), (1u << 3) | (1u << 12));

  EXPECT_EQ(laser.GetAlarmDesc(5), STemperature4Err.Text() + SLaserAlarm.Text() + "Raycus");
  // Only the first module's alarms have texts.
  EXPECT_EQ(laser.GetAlarmDesc(27), std::string("Unknow Error") + SLaserAlarm.Text() + "Raycus");
  EXPECT_EQ(laser.GetDeviceDesc(), "RFL-QCW150");

  // The QCW source, made on request, shows which alarm indexes are raised in any module.
  auto obj = refhost::CreateJsonObject();
  TRaycusQCWInfo(FLaser).ReadAllData(*obj);
  EXPECT_EQ(obj->Get("LaserType")->AsString(), "Ray-QCW");
  EXPECT_EQ(obj->Get("AlarmBit")->AsInteger(), (1 << 3) | (1 << 12));
}

TEST_F(RayQcwLaserSimTest, TakesTheModeByteOnlyWhenItNamesAMode) {
  Make();
  ASSERT_TRUE(StatusArrives());
  EXPECT_EQ(Driver().GetCurMode(), 0);
  FEngine.SetModeByte(2);
  ASSERT_TRUE(Repeatedly([&] { Driver().CheckBySuperMode(); }, [&] { return Driver().GetCurMode() == 2; }));

  FEngine.SetModeByte(3);
  Driver().CheckBySuperMode();
  ASSERT_TRUE(FEngine.Log().WaitFor("CheckBySuperMode", 5s, 2));
  LetPollsPass();
  EXPECT_EQ(Driver().GetCurMode(), 2);
}

TEST_F(RayQcwLaserSimTest, CorruptedAnswersChangeNothing) {
  Make();
  ASSERT_TRUE(StatusArrives());
  FEngine.SetReplyMode(TRayQcwEngine::TReplyMode::CorruptCheck);
  FEngine.SetLaserId("RFL-QCW450");
  FEngine.SetAlarm(0, 1, 1);
  LetPollsPass(5);
  EXPECT_THAT(Driver().GetAlarmBytes(), Each(0));
  EXPECT_EQ(Driver().GetLaserID(), "RFL-QCW150");

  FEngine.SetReplyMode(TRayQcwEngine::TReplyMode::Normal);
  EXPECT_TRUE(StatusArrives([](auto& d) { return d.HasAlarm() && d.GetIsQCW450(); }));
}

TEST_F(RayQcwLaserSimTest, OfTwoAnswersWaitingOnlyTheLaterCounts) {
  Make();
  ASSERT_TRUE(StatusArrives());
  // From now on every answer comes behind the stale one sent before the switch, in one write.
  FEngine.SetReplyMode(TRayQcwEngine::TReplyMode::Double);
  FEngine.SetAlarm(0, 2, 1);
  ASSERT_TRUE(StatusArrives([](auto& d) { return d.HasAlarm(); }));
  LetPollsPass();
  EXPECT_TRUE(Driver().HasAlarm());
}

TEST_F(RayQcwLaserSimTest, SendsThePulseSettingsWithinTheModelsLimits) {
  FEngine.SetLaserId("RFL-QCW450");
  FParams.CfgRay.QCW.PulseFreq = 3000;
  FParams.CfgRay.QCW.PulseRatio = 20;
  auto& laser = Make();
  ASSERT_TRUE(StatusArrives([](auto& d) { return d.GetIsQCW450(); }));
  FEngine.Log().Clear();

  EXPECT_TRUE(laser.SetDiodeCustom(49.9));
  EXPECT_EQ(laser.GetDiodeCurrent(), 49.0);
  ASSERT_THAT(FEngine.Log().WaitFor("SetLaserData 0 49 3000 20 1", 5s), true) << ::testing::PrintToString(Commands());
  EXPECT_EQ(FEngine.CutFrames(), 2u);  // this one and the one of the starting diode current

  // Emission selects outer modulation, which resets the laser's mode once; the settings then carry mode 4.
  laser.EmissionOn();
  laser.SetDiodeCurrent(80);
  ASSERT_TRUE(FEngine.Log().WaitFor("SetLaserData 4 50 3000 20 1", 5s)) << ::testing::PrintToString(Commands());
  EXPECT_THAT(Commands(), ElementsAre("SetLaserData 0 49 3000 20 1", "ResetLaserMode", "SetLaserData 4 50 3000 20 1"));
  EXPECT_EQ(FEngine.Power(), 50);

  Driver().SetLaserParam(80, 6000, 40, 9);
  EXPECT_EQ(Driver().GetLaserParam(), (rayqcw::TPulseSettings{33, 5000, 30, 6}));
}

TEST_F(RayQcwLaserSimTest, EmissionIsSwitchedByOutputsAndLaserOnOffGoOverTheLine) {
  auto& laser = Make();
  ASSERT_TRUE(StatusArrives());
  laser.EmissionOn();
  EXPECT_TRUE(FIO->GetOutputBit(kGatePort));
  EXPECT_TRUE(laser.GetIsEmissionOn());
  laser.LaserOn();
  ASSERT_TRUE(Eventually([&] { return FEngine.LaserOn(); }));
  ASSERT_TRUE(StatusArrives());
  FEngine.Log().Clear();

  laser.EmissionOff();
  EXPECT_FALSE(FIO->GetOutputBit(kGatePort));
  EXPECT_FALSE(laser.GetIsEmissionOn());
  const size_t writes = FIO->Writes().size();
  EXPECT_EQ(laser.ExecuteCmd(TRayQCWLaser::kQueryCmd, 3), 10);
  LetPollsPass();
  EXPECT_TRUE(Commands().empty()) << ::testing::PrintToString(Commands());
  EXPECT_EQ(FIO->Writes().size(), writes);

  laser.LaserOff();
  ASSERT_TRUE(FEngine.Log().WaitFor("LaserOff", 5s));
  EXPECT_TRUE(Eventually([&] { return !FEngine.LaserOn(); }));
}

TEST_F(RayQcwLaserSimTest, TracesTheTrafficAndRefusedCommandsInDebugMode) {
  Make();
  ASSERT_TRUE(StatusArrives());
  // Shared with the driver's thread, which may still be inside the listener when the test has moved on.
  struct TTraced {
    std::mutex Mutex;
    std::vector<std::string> Texts;
  };
  auto traced = std::make_shared<TTraced>();
  Driver().SetBufEvent([traced](const std::string& text) {
    std::lock_guard lock(traced->Mutex);
    traced->Texts.push_back(text);
  });
  SetLaserDebugMode(true);
  FEngine.SetResult(rayqcw::kLaserOn, 0);
  EXPECT_TRUE(Repeatedly([&] { Driver().LaserOn(); }, [&] { return FSink->Contains("ErrorCode233"); }));
  EXPECT_TRUE(FSink->Contains("RayQCW.SendCmd: AA 55 00 06 00 FF E9 00 01 E8 55 AA "));
  EXPECT_TRUE(FSink->Contains("00 FF E9 00 00 01 E8 55 AA "));
  SetLaserDebugMode(false);
  std::lock_guard lock(traced->Mutex);
  EXPECT_THAT(traced->Texts, ::testing::Contains("RayQCW.SendCmd: AA 55 00 06 00 FF E9 00 01 E8 55 AA "));
}

TEST_F(RayQcwLaserSimTest, ReopensThePortWhenTheLineComesBack) {
  auto& laser = Make();
  ASSERT_TRUE(StatusArrives());
  FPty.Stop();
  ASSERT_TRUE(Eventually([&] { return !Driver().PortActive(); }));
  // Host calls while the line is gone drop their commands and return.
  laser.LaserOff();
  EXPECT_TRUE(laser.SetDiodeCustom(40));
  EXPECT_FALSE(Driver().HasAlarm());

  FEngine.SetLaserId("RFL-QCW450");
  FEngine.SetAlarm(0, 0, 1);
  ASSERT_TRUE(FPty.Start()) << FPty.LastError();
  EXPECT_TRUE(Eventually([&] { return Driver().PortActive(); }));
  EXPECT_TRUE(StatusArrives([](auto& d) { return d.HasAlarm() && d.GetIsQCW450(); }));

  // Destroyed while emitting: the gate output and the laser are switched off on the way out.
  FEngine.Log().Clear();
  laser.EmissionOn();
  FLaser.reset();
  EXPECT_FALSE(FIO->GetOutputBit(kGatePort));
  EXPECT_TRUE(FEngine.Log().WaitFor("LaserOff", 5s));
}

}  // namespace
}  // namespace devlaser
