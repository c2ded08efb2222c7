// The IPG YLR laser classes against an in-memory link whose far end is the simulated laser's engine: alarm
// reporting and registration, diode-current supervision, the QCW limit, the pulse-model switch, the cached-state
// rules and the description.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/LaserStrs.h"
#include "ipg/Ipg500Laser.h"
#include "ipg/IpgYlr2Laser.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "support/FakeTransports.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
namespace ylr = lasersim::ipgylr;

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::map<int32_t, bool> Raised;
  void ReportAlarm(int32_t id, bool raised) override { Raised[id] = raised; }
  std::vector<int32_t> RaisedIds() const {
    std::vector<int32_t> ids;
    for (auto [id, raised] : Raised)
      if (raised) ids.push_back(id);
    return ids;
  }
};

struct TRecordingTable : nchost::INcAlarmTable20 {
  std::vector<int32_t> Ids;
  void RegisterAlarm(int32_t id, const nchost::TNcAlarmDef&) override { Ids.push_back(id); }
};

class TIpgYlrLaserTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(FTransports);
    FLink.Attach(*FTransports->Tcp);
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
    TLaserHostFixture::TearDown();
  }

  template <class T = TIPGYLR2Laser>
  T& Make() {
    FLaser.reset();
    auto laser = MakeLaser<T>(FParams, FIO);
    EXPECT_TRUE(laser);
    auto& ref = *laser;
    FLaser = std::move(laser);
    return ref;
  }

  // Commands the laser received other than the monitor's status polls, since the last Clear().
  std::vector<std::string> Commands() const {
    std::vector<std::string> out;
    for (auto& c : FEngine.Log().Commands())
      if (c != "STA") out.push_back(c);
    return out;
  }
  bool WaitForStatus(TIPGYLRLaserBase& laser, uint32_t status) {
    return Eventually([&] { return laser.Driver()->GetDeviceStatus() == status; });
  }

  std::shared_ptr<testsupport::TFakeTransportFactory> FTransports =
      std::make_shared<testsupport::TFakeTransportFactory>();
  testsupport::TSimulatedYlr FLink;
  lasersim::TIpgYlrEngine& FEngine = FLink.Engine;
  std::shared_ptr<TNcLaser> FLaser;
};

TEST_F(TIpgYlrLaserTest, ReportsEveryStatusBitAsItsAlarmIdAndNothingWhileTheStatusIsUnknown) {
  FEngine.SetAlarmWord(ylr::kOverheat | ylr::kAveragePowerTooHigh);
  auto& laser = Make();
  ASSERT_TRUE(WaitForStatus(laser, ylr::kOverheat | ylr::kAveragePowerTooHigh));
  TRecordingReport report;
  EXPECT_TRUE(laser.UpdateAlarms(report));
  EXPECT_THAT(report.RaisedIds(), ElementsAre(3, 33));
  EXPECT_EQ(report.Raised.size(), 33u);  // 511 and all 32 bits, set or not

  FLink.SetStatusReply("STA: 4294967295\r");
  ASSERT_TRUE(WaitForStatus(laser, 0xFFFFFFFF));
  TRecordingReport unknown;
  EXPECT_FALSE(laser.UpdateAlarms(unknown));
  EXPECT_EQ(unknown.Raised.size(), 1u);
  EXPECT_FALSE(unknown.Raised.at(kDiodeSetAlarmId));
}

TEST_F(TIpgYlrLaserTest, RegistersTheAlarmBitsOfItsDriverGenerationAndDescribesThem) {
  auto& ylr2 = Make();
  TRecordingTable table;
  ylr2.RegisterAlarms(table);
  EXPECT_THAT(table.Ids, ElementsAre(1, 511, 3, 5, 21, 26, 27, 31, 32));
  EXPECT_EQ(ylr2.GetAlarmDesc(3), "YLR" + SLaserAlarm.Text() + SIPGOverheat.Text());
  EXPECT_EQ(ylr2.GetAlarmDesc(2), "YLR" + SLaserAlarm.Text() + "Unknow Error");  // bit 0 only warns here
  EXPECT_EQ(ylr2.GetAlarmDesc(511), "YLR" + SLaserDiodeSetErr.Text());
  EXPECT_EQ(ylr2.GetAlarmIDPrefix(), "IPGYLR2");
  EXPECT_EQ(ylr2.GetDeviceDesc(), "YLRYLR-2019 SN: 12345");  // the serial number is asked over the link

  auto& ylr1 = Make<TIPG500Laser>();
  table.Ids.clear();
  ylr1.RegisterAlarms(table);
  EXPECT_THAT(table.Ids, ElementsAre(1, 511, 2, 3, 5, 7, 19, 21, 25, 26, 27, 31, 32, 33));
  EXPECT_EQ(ylr1.GetAlarmDesc(2), "YLR" + SLaserAlarm.Text() + SIPGCommBUfferOverload.Text());
  EXPECT_EQ(ylr1.Driver()->AlarmMask(), 0xE38A002Bu);
  EXPECT_EQ(ylr1.Driver()->WarningMask(), 0x240u);
}

TEST_F(TIpgYlrLaserTest, UnconfirmedSetsRaiseTheDiodeAlarmUnlessRepliesAreIgnored) {
  FParams.DefParams.DiodeSetAlarmEn = true;
  auto& laser = Make();
  FLink.EchoCurrent = false;  // after the creation, whose own set of the default current must succeed
  // The asynchronous set is supervised by UpdateAlarms: the alarm comes after its time-out.
  laser.SetDiodeCurrentWaitBusy(50);
  TRecordingReport report;
  laser.UpdateAlarms(report);
  EXPECT_FALSE(report.Raised.at(kDiodeSetAlarmId));  // still within its time-out
  EXPECT_TRUE(laser.DiodeSetPending());
  ASSERT_TRUE(Eventually([&] {
    laser.UpdateAlarms(report);
    return report.Raised.at(kDiodeSetAlarmId);
  }));
  EXPECT_EQ(FEngine.Log().Count("SDC 50"), 5u);

  // The operator resets it; a set that the laser echoes clears the supervision.
  laser.ResetAlarm(kDiodeSetAlarmId);
  laser.UpdateAlarms(report);
  EXPECT_FALSE(report.Raised.at(kDiodeSetAlarmId));
  FLink.EchoCurrent = true;
  laser.SetDiodeCurrentWaitBusy(45);
  ASSERT_TRUE(Eventually([&] { return laser.Driver()->GetDiodeCurrent() == 45.0; }));
  laser.UpdateAlarms(report);
  EXPECT_FALSE(laser.DiodeSetPending());
  EXPECT_FALSE(report.Raised.at(kDiodeSetAlarmId));

  FLink.EchoCurrent = false;
  laser.SetDiodeCurrent(70);  // a CW laser: the acknowledged set, given up after its time-out
  EXPECT_TRUE(laser.DiodeSetAlarm());
  laser.UpdateAlarms(report);
  EXPECT_TRUE(report.Raised.at(kDiodeSetAlarmId));

  FParams.CfgIPG.YLR.IgnoreDiodeReply = true;
  auto& trusting = Make();
  FEngine.Log().Clear();
  trusting.SetDiodeCurrent(70);
  EXPECT_FALSE(trusting.DiodeSetAlarm());
  EXPECT_EQ(FEngine.Log().Count("SDC 70"), 5u);
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
  EXPECT_THAT(Commands(), ElementsAreArray(std::vector<std::string>(5, "SDC 60")));
}

TEST_F(TIpgYlrLaserTest, PulseModelSwitchSendsItsSequenceAndLogsIt) {
  struct TCase {
    bool GateMode, Qcw;
    std::vector<std::string> Commands;
    const char* Log;
  };
  const std::vector<TCase> cases = {
      {true, false, {"EMOFF", "DPM", "DGM", "DLE", "EMOD", "EMON"}, "GateMode: TO CW"},
      {true, true, {"DMOD", "EGM", "DLE", "EPM", "EMON"}, "GateMode: TO QCW"},
      {false, true, {"EMOFF", "DMOD", "DGM", "EPM", "ELE"}, "InternalMode: TO QCW"},
      {false, false, {"EMOFF", "DPM", "DGM", "DLE", "EMOD", "EMON"}, "InternalMode: TO QCW"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.Log) + (c.Qcw ? " qcw" : " cw"));
    FParams.CfgIPG.YLR.GateMode = c.GateMode;
    FParams.CfgIPG.YLR.QCWMode = !c.Qcw;
    auto& laser = Make();
    FEngine.Log().Clear();
    FSink->Clear();
    EXPECT_EQ(laser.ExecuteCmd(c.Qcw ? 27 : 28, 0), 0);
    EXPECT_EQ(Commands(), c.Commands);
    EXPECT_EQ(laser.GetIsQCW(), c.Qcw);
    EXPECT_TRUE(FSink->Contains(c.Log));
  }
}

TEST_F(TIpgYlrLaserTest, NamedAndNumberedCommands) {
  auto& laser = Make();
  EXPECT_EQ(laser.ExecuteCmd(2101, 0), 10);
  EXPECT_EQ(laser.ExecuteCmd(2102, 0), 100);
  FEngine.RaiseAlarms(ylr::kOverheat);
  FEngine.Log().Clear();
  laser.ExecCmd("resetERRORS", 0);
  laser.ExecCmd("Reset", 0);
  EXPECT_THAT(Commands(), ElementsAre("RERR"));
  EXPECT_EQ(FEngine.AlarmWord(), 0u);
}

TEST_F(TIpgYlrLaserTest, StateQueriesFollowTheStatusWordUnlessCachedStatesAreTrusted) {
  auto& laser = Make();
  laser.EmissionOn();
  laser.SetAimingOn(true);
  ASSERT_TRUE(WaitForStatus(laser, FEngine.StatusWord()));
  EXPECT_TRUE(laser.GetIsEmissionOn());
  EXPECT_TRUE(laser.GetIsAimingOn());

  // The laser drops emission on a fault: the status says so, the commanded state does not.
  FEngine.RaiseAlarms(ylr::kOverheat);
  ASSERT_TRUE(Eventually([&] { return !laser.GetIsEmissionOn(); }));
  FApp.SetTrustCachedLaserStates(true);
  EXPECT_TRUE(laser.GetIsEmissionOn());
  EXPECT_TRUE(laser.GetIsAimingOn());
  FApp.SetTrustCachedLaserStates(false);
  laser.SetAimingOn(false);
  ASSERT_TRUE(Eventually([&] { return !laser.GetIsAimingOn(); }));
}

TEST_F(TIpgYlrLaserTest, WithoutALinkNothingIsSentAndStatesAreTheCommandedOnes) {
  FParams.DefParams.DataTransType = dttNone;
  FParams.DefParams.Comm.IgnoreCommResult = true;
  auto& laser = Make();
  FEngine.Log().Clear();
  laser.EmissionOn();
  laser.SetAimingOn(true);
  laser.SetDiodeCurrent(70);
  laser.ExecCmd("ResetErrors", 0);
  EXPECT_THAT(Commands(), IsEmpty());
  EXPECT_TRUE(laser.GetIsEmissionOn());
  EXPECT_DOUBLE_EQ(laser.GetDiodeCurrent(), 70.0);
  EXPECT_DOUBLE_EQ(FIO->State().DA[laser.GetCurrentDAPort()], 7.0);  // the DA output carries the current
  EXPECT_EQ(laser.GetDeviceDesc(), "YLRYLR-2019");                   // no serial number without a link

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
