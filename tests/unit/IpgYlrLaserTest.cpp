// The IPG YLR driver and lasers against an in-memory link whose far end is the simulated laser's engine: what a real
// link cannot show (replies fed by hand, an unknown status, a laser that stops echoing currents, a failed keep-alive
// ping, a host without a TCP client) and the settings that change behaviour.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/Format.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "ipg/IpgYlr2Driver.h"
#include "ipg/IpgYlr2Laser.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "support/FakeTransports.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TEntryKind;
using refhost::TMessageEntry;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using TCommands = std::vector<std::string>;
namespace ylr = lasersim::ipgylr;

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::map<int32_t, bool> Raised;
  void ReportAlarm(int32_t id, bool raised) override { Raised[id] = raised; }
};

class TIpgYlrLaserTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(FTransports);
    // The far end answers like the laser, unless the test garbled its status or it stopped echoing currents.
    FTransports->Tcp->SetResponder([this](const std::string& written) {
      std::string reply = FEngine.Feed(written);  // the laser takes a current also when it does not echo it
      if (FGarbledStatus && written == "STA\r") return std::string("STA: x7\r");
      return FEchoCurrent || written.rfind("SDC", 0) != 0 ? reply : std::string();
    });
    FParams.Model = "YLR";
    FParams.LaserMainType = eltIPG;
    FParams.LaserSubType = 3;
    FParams.DefParams.DataTransType = dttNetTcp;
    FParams.DefParams.Net.TcpHost = "192.0.2.20";
    FParams.DefParams.DiodeSetTimeOut = 300;
    FParams.DefParams.PWM.DiodeCurrent = 30;
    FParams.CfgIPG.MaxCurrent = 60;
    FParams.DefParams.DA.DAPort = 2;
    FParams.DefParams.DA.MaxVoltage = 10;
    FParams.DefParams.Comm.IgnoreCommResult = false;
  }
  void TearDown() override {
    FLaser.reset();
    FDriver.reset();
    TLaserHostFixture::TearDown();
  }

  TIPGYLR2Laser& Make() {
    FLaser.reset();
    auto laser = MakeLaser<TIPGYLR2Laser>(FParams, FIO);
    // Fails this test (GoogleTest reports the exception) rather than crashing the whole run.
    if (!laser) throw std::runtime_error("the YLR2 laser could not be built");
    FLaser = laser;
    return *laser;
  }
  // A driver alone, once its monitor has connected and had the first reply.
  template <class TDriver = TIPGYLRDriver>
  TDriver& MakeDriver(bool connected = true) {
    FDriver.reset();
    FDriver = std::make_unique<TDriver>(FParams);
    EXPECT_TRUE(!connected || FSink->WaitForText(SLaserConnectedOk.Text(), 5s));
    return static_cast<TDriver&>(*FDriver);
  }

  // Commands the laser received other than the monitor's status polls, since the last Clear().
  TCommands Commands() const {
    TCommands out;
    for (auto& c : FEngine.Log().Commands())
      if (c != "STA") out.push_back(c);
    return out;
  }
  size_t Shown(const std::string& text) const {
    return FSink->Count([&](const TMessageEntry& e) { return e.Kind == TEntryKind::Message && e.Text == text; });
  }

  std::shared_ptr<testsupport::TFakeTransportFactory> FTransports =
      std::make_shared<testsupport::TFakeTransportFactory>();
  lasersim::TIpgYlrEngine FEngine;
  std::atomic<bool> FGarbledStatus{false}, FEchoCurrent{true};
  std::shared_ptr<TNcLaser> FLaser;
  std::unique_ptr<TIPGYLRDriver> FDriver;
};
using IpgYlrDriverTest = TIpgYlrLaserTest;

TEST_F(IpgYlrDriverTest, MonitorKeepsTheLastGoodStatusThroughGarbageAndLogsErrorLines) {
  FEngine.SetAlarmWord(ylr::kOverheat);
  auto& d = MakeDriver();
  EXPECT_TRUE(Eventually([&] { return d.GetDeviceStatus() == ylr::kOverheat; }));

  FGarbledStatus = true;
  d.AnalyzeResponse("ERR STA: 99\r");
  ASSERT_TRUE(FEngine.Log().WaitFor("STA", 5s, 10));
  EXPECT_EQ(d.GetDeviceStatus(), ylr::kOverheat);
  EXPECT_TRUE(FSink->Contains("IPGLaser: ERR STA: 99"));
  EXPECT_EQ(Shown(SLaserConnectedOk.Text()), 1u);
}

TEST_F(IpgYlrDriverTest, CommandsWithoutAReplyAreSentExactlyAndSwitchesAskForTheStatus) {
  auto& d = MakeDriver();
  const size_t before = FTransports->Tcp->Writes().size();
  d.EnableExternalAimControl();
  d.EnableExternalControl();
  d.StopAimingBeam();
  d.StartEmission();
  d.SendCmd("");  // nothing at all
  const auto all = FTransports->Tcp->Writes();
  TCommands writes;
  for (size_t i = before; i < all.size(); ++i)
    if (all[i] != "STA\r") writes.push_back(all[i]);
  EXPECT_EQ(writes, (TCommands{"EEABC\r", "EEC\r", "ABF\rSTA\r", "EMON\rSTA\r"}));
}

// Unconfirmed and unacknowledged sets are shown against the simulator (IpgYlrExchangeTest, IpgYlrLaserSimTest).
TEST_F(IpgYlrDriverTest, DiodeCurrentOutsideZeroToHundredIsRefusedWithoutSending) {
  auto& d = MakeDriver();
  FEngine.Log().Clear();
  d.SetDiodeCurrent(100.01);
  d.SetDiodeCurrentAsynchronous(-1.0);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsInValid.Text(), -1.0)), 1u);
  EXPECT_THAT(Commands(), IsEmpty());
}

TEST_F(IpgYlrDriverTest, FailedKeepAlivePingRenewsTheConnectionAndDestroyingDuringOneIsSafe) {
  auto& d = MakeDriver();
  ASSERT_TRUE(Eventually([&] { return FTransports->Ping->FailLastAsyncPing(); }));
  EXPECT_TRUE(FSink->WaitFor(
      [](const TMessageEntry& e) { return e.Kind == TEntryKind::Log && e.Text == "TCP Connection Closed."; }, 5s));
  EXPECT_TRUE(Eventually([&] { return Shown(SLaserConnectedOk.Text()) == 2u && d.IsConnectedOk(); }));

  for (int i = 0; i < 5; ++i) {
    FSink->Clear();
    MakeDriver();
    FTransports->Ping->FailLastAsyncPing();
    FDriver.reset();  // joins the monitor and the ping client's thread before the transports go
    FTransports->Tcp->Close();
  }
}

TEST_F(IpgYlrDriverTest, HostWithoutTcpClientLeavesTheDriverQuiet) {
  FTransports->OfferTcp = false;
  auto& d = MakeDriver(false);
  d.StartEmission();
  d.SetDiodeCurrentAsynchronous(10);
  EXPECT_FALSE(d.CheckConnection());
  EXPECT_TRUE(FSink->Contains("the host offers no TCP client"));
  EXPECT_TRUE(FTransports->Tcp->Writes().empty());
}

TEST_F(IpgYlrDriverTest, OverlongRepliesAndTheAlarmMasksOfBothGenerations) {
  FTransports->Tcp->SetResponder(nullptr);  // only what the test feeds arrives
  auto& d = MakeDriver(false);
  d.AnalyzeResponse("STA: 64\r");  // bit 6: module disconnected
  d.AnalyzeResponse(std::string(1001, '#'));
  EXPECT_TRUE(FSink->Contains(SIPGCommCommunicationException.Text()));

  EXPECT_FALSE(d.HasAlarm());  // no mask before the laser chooses a mode
  d.SetAlarmMode(false);
  EXPECT_FALSE(d.HasAlarm() || d.HasWarning());  // warnings count in QCW only
  d.SetQCWMode(true);
  EXPECT_TRUE(d.HasWarning());
  d.SetAlarmMode(true);
  EXPECT_TRUE(d.HasAlarm());
  d.AnalyzeResponse("STA: 4294967295\r");  // unknown
  EXPECT_FALSE(d.HasAlarm() || d.HasWarning() || d.GetStatusBit(1));

  auto& second = MakeDriver<TIPGYLR2Driver>(false);
  second.SetQCWMode(false);
  second.AnalyzeResponse("STA: 1\r");  // bit 0: an alarm of the first generation, a warning here
  EXPECT_FALSE(second.HasAlarm());
  EXPECT_EQ(second.GetLaserWarning(), 1u);
  second.SetQCWMode(true);
  EXPECT_TRUE(second.HasAlarm());
}

TEST_F(TIpgYlrLaserTest, UnconfirmedSetsRaiseTheDiodeAlarmUnlessRepliesAreIgnored) {
  FParams.DefParams.DiodeSetAlarmEn = true;
  auto& laser = Make();
  FEchoCurrent = false;  // after the creation, whose own set of the default current must succeed
  // The asynchronous set is supervised by UpdateAlarms: the alarm comes after its time-out.
  laser.SetDiodeCurrentWaitBusy(50);
  TRecordingReport report;
  laser.UpdateAlarms(report);
  EXPECT_FALSE(report.Raised.at(kDiodeSetAlarmId));  // still within its time-out
  ASSERT_TRUE(Eventually([&] {
    laser.UpdateAlarms(report);
    return report.Raised.at(kDiodeSetAlarmId);
  }));

  // The operator resets it; a set that the laser echoes clears the supervision.
  laser.ResetAlarm(kDiodeSetAlarmId);
  FEchoCurrent = true;
  laser.SetDiodeCurrentWaitBusy(45);
  ASSERT_TRUE(Eventually([&] { return laser.Driver()->GetDiodeCurrent() == 45.0; }));
  laser.UpdateAlarms(report);
  EXPECT_FALSE(laser.DiodeSetPending());
  EXPECT_FALSE(report.Raised.at(kDiodeSetAlarmId));

  FEchoCurrent = false;
  laser.SetDiodeCurrent(70);  // the acknowledged set, given up after its time-out
  EXPECT_TRUE(laser.DiodeSetAlarm());
  FParams.CfgIPG.YLR.IgnoreDiodeReply = true;
  auto& trusting = Make();
  trusting.SetDiodeCurrent(70);
  EXPECT_FALSE(trusting.DiodeSetAlarm());
}

TEST_F(TIpgYlrLaserTest, QcwLimitSuppressesAnAcknowledgedSetButClipsAnAsynchronousOne) {
  FParams.CfgIPG.YLR.QCWMode = true;
  auto& laser = Make();
  ASSERT_TRUE(laser.GetIsQCW());
  FEngine.Log().Clear();
  laser.SetDiodeCurrent(80);
  EXPECT_THAT(Commands(), IsEmpty());
  laser.SetDiodeCurrent(55);
  EXPECT_THAT(Commands(), ElementsAre("SDC 55"));

  FEngine.Log().Clear();
  laser.SetDiodeCurrentWaitBusy(80);
  EXPECT_THAT(Commands(), ElementsAreArray(TCommands(5, "SDC 60")));
}

TEST_F(TIpgYlrLaserTest, PulseModelSwitchSendsItsSequenceAndResetClearsTheAlarms) {
  FParams.CfgIPG.YLR.GateMode = true;
  auto& laser = Make();
  FEngine.Log().Clear();
  EXPECT_EQ(laser.ExecuteCmd(27, 0), 0);  // to QCW
  EXPECT_EQ(Commands(), (TCommands{"DMOD", "EGM", "DLE", "EPM", "EMON"}));
  EXPECT_TRUE(laser.GetIsQCW());
  EXPECT_TRUE(FSink->Contains("GateMode: TO QCW"));

  FEngine.RaiseAlarms(ylr::kOverheat);
  FEngine.Log().Clear();
  laser.ExecCmd("resetERRORS", 0);
  laser.ExecCmd("Reset", 0);  // not a reset of the laser's errors
  EXPECT_THAT(Commands(), ElementsAre("RERR"));
  EXPECT_EQ(FEngine.AlarmWord(), 0u);
}

TEST_F(TIpgYlrLaserTest, StateQueriesFollowTheStatusWordUnlessCachedStatesAreTrusted) {
  auto& laser = Make();
  laser.EmissionOn();
  ASSERT_TRUE(Eventually([&] { return laser.GetIsEmissionOn(); }));
  // The laser drops emission on a fault: the status says so, the commanded state does not.
  FEngine.RaiseAlarms(ylr::kOverheat);
  ASSERT_TRUE(Eventually([&] { return !laser.GetIsEmissionOn(); }));
  FApp.SetTrustCachedLaserStates(true);
  EXPECT_TRUE(laser.GetIsEmissionOn());
}

TEST_F(TIpgYlrLaserTest, WithoutALinkNothingIsSentAndStatesAreTheCommandedOnes) {
  FParams.DefParams.DataTransType = dttNone;
  FParams.DefParams.Comm.IgnoreCommResult = true;
  auto& laser = Make();
  FEngine.Log().Clear();
  laser.EmissionOn();
  laser.SetDiodeCurrent(70);
  EXPECT_THAT(Commands(), IsEmpty());
  EXPECT_TRUE(laser.GetIsEmissionOn());
  EXPECT_DOUBLE_EQ(FIO->State().DA[laser.GetCurrentDAPort()], 7.0);  // the DA output carries the current

  FParams.DefParams.DataTransType = dttNetUDP;  // a link the laser does not speak: no laser
  EXPECT_EQ(MakeLaser<TIPGYLR2Laser>(FParams, FIO), nullptr);
  EXPECT_TRUE(FSink->Contains("IPG.LaserType Error Message"));
}

TEST_F(TIpgYlrLaserTest, LaserOnOutputIsSwitchedAndReadBackWhenConfigured) {
  FParams.DefParams.CtrlPort = 9;
  FParams.CfgIPG.YLR.UseOutputLaserOn = true;
  auto& laser = Make();
  laser.LaserOn();
  EXPECT_TRUE(FIO->State().Outputs.test(9));
  EXPECT_TRUE(laser.GetIsLaserOn());
  laser.LaserOff();
  EXPECT_FALSE(FIO->State().Outputs.test(9));
  EXPECT_FALSE(laser.GetIsLaserOn());
}

}  // namespace
}  // namespace devlaser
