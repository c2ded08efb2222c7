// How the IPG YLR driver's exchanges end, against the simulated laser over loopback TCP: a set returns on the echo
// that confirms it and keeps its repeats when none does, reading commands take their own reply line, the serial
// number is read once per connection, and the cached state does not depend on how the replies travel.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/Format.h"
#include "frame/LaserStrs.h"
#include "ipg/IpgYlr2Laser.h"
#include "refhost/transport/PosixTransports.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "sim/ipg/IpgYlrTcpServer.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using TLinkShape = lasersim::TIpgYlrTcpServer::TLinkShape;
namespace ylr = lasersim::ipgylr;

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::map<int32_t, bool> Raised;
  void ReportAlarm(int32_t id, bool raised) override { Raised[id] = raised; }
};

class IpgYlrExchangeTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, nullptr,
                                                                   refhost::TReachabilityProbe::TcpConnect));
    FParams.Model = "YLR";
    FParams.LaserMainType = eltIPG;
    FParams.LaserSubType = 3;
    FParams.DefParams.DataTransType = dttNetTcp;
    FParams.DefParams.Comm.IgnoreCommResult = false;
    FParams.DefParams.DiodeSetTimeOut = 300;
    FParams.DefParams.PWM.DiodeCurrent = 30;
    // Every command that reaches the laser, with the moment it arrived.
    FEngine.SetTraceHook([this](const std::string& command, const std::string&) {
      std::lock_guard lock(FArrivalsLock);
      FArrivals.push_back({command, Clock::now()});
    });
  }
  void TearDown() override {
    FLaser.reset();
    FServer.Stop();
    FEngine.SetTraceHook({});
    TLaserHostFixture::TearDown();
  }

  void Serve(const std::string& address) {
    ASSERT_TRUE(FServer.Start(address)) << FServer.LastError();
    FParams.DefParams.Net.TcpHost = address;
  }
  TIPGYLR2Laser& MakeConnected() {
    FLaser.reset();
    auto laser = MakeLaser<TIPGYLR2Laser>(FParams, FIO);
    if (!laser) throw std::runtime_error("the YLR2 laser could not be built");
    FLaser = laser;
    EXPECT_TRUE(Eventually([&] { return laser->Driver()->IsConnectedOk(); }, 10s));
    return *laser;
  }
  std::vector<Clock::time_point> ArrivalsOf(const std::string& command) {
    std::lock_guard lock(FArrivalsLock);
    std::vector<Clock::time_point> out;
    for (const auto& [c, at] : FArrivals)
      if (c == command) out.push_back(at);
    return out;
  }
  size_t Shown(const std::string& text) const {
    return FSink->Count(
        [&](const refhost::TMessageEntry& e) { return e.Kind == refhost::TEntryKind::Message && e.Text == text; });
  }

  lasersim::TIpgYlrEngine FEngine;
  lasersim::TIpgYlrTcpServer FServer{FEngine};
  std::shared_ptr<TNcLaser> FLaser;
  std::mutex FArrivalsLock;
  std::vector<std::pair<std::string, Clock::time_point>> FArrivals;
};

TEST_F(IpgYlrExchangeTest, AcknowledgedSetsReportTheEchoAndAnUnconfirmedOneKeepsItsRepeats) {
  Serve("127.0.0.61");
  auto& laser = MakeConnected();
  for (double percent : {40.0, 55.0, 12.0, 100.0}) {
    laser.SetDiodeCurrent(percent);
    // Confirmed before the call returned: no wait for a later poll.
    EXPECT_DOUBLE_EQ(laser.Driver()->GetDiodeCurrent(), percent);
    EXPECT_DOUBLE_EQ(laser.GetDiodeCurrent(), percent);
  }
  EXPECT_EQ(FEngine.Log().Count("SDC 40"), 1u);

  // The laser takes whole percents, so 40.5 is never confirmed: "SDC 41" is repeated, one full reply window and
  // pause apart, until the set's time-out, then the operator is told.
  const std::string failed = Format(SSetDiodeParamsFaild.Text(), 41.0, 40.5);
  const auto start = Clock::now();
  laser.SetDiodeCurrent(40.5);
  EXPECT_GE(Clock::now() - start, 300ms);
  EXPECT_EQ(Shown(failed), 1u);
  const auto sent = ArrivalsOf("SDC 41");
  // 300 ms hold the repeats sent at 0, 125 and 250 ms; a loaded machine can only stretch the pace.
  EXPECT_GE(sent.size(), 2u);
  EXPECT_LE(sent.size(), 3u);
  for (size_t i = 1; i < sent.size(); ++i) EXPECT_GE(sent[i] - sent[i - 1], 120ms) << i;
  EXPECT_DOUBLE_EQ(laser.Driver()->GetDiodeCurrent(), 41.0);

  // Without a link the set fails at once instead of trying for its whole time-out.
  FParams.DefParams.DiodeSetTimeOut = 5000;
  auto& unlinked = MakeConnected();
  FServer.Stop();
  ASSERT_TRUE(Eventually([&] { return !unlinked.Driver()->CheckConnection(); }));
  const auto lonely = Clock::now();
  unlinked.SetDiodeCurrent(70);
  EXPECT_LT(Clock::now() - lonely, 2500ms);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsFaild.Text(), 30.0, 70.0)), 1u);
}

TEST_F(IpgYlrExchangeTest, SerialNumberIsReadOnceAndEveryReaderTakesItsOwnLine) {
  Serve("127.0.0.62");
  // Unrequested status lines arrive between the replies, as late answers to the monitor's polls would.
  FServer.SetLinkShape({.StrayStatusAfter = 2ms});
  FEngine.SetModuleErrorCode(7);
  FEngine.SetTemperature(31.5);
  auto& laser = MakeConnected();
  EXPECT_TRUE(Eventually([&] { return laser.GetDeviceDesc() == "YLRYLR-2019 SN: 12345"; }));
  for (int i = 0; i < 10; ++i) laser.GetDeviceDesc();
  EXPECT_EQ(FEngine.Log().Count("RSN"), 1u);

  auto& driver = *laser.Driver();
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(driver.GetSerialNumber(), "12345");
    EXPECT_EQ(driver.GetSoftwareRevision(), "1.2.3");
    EXPECT_EQ(driver.GetOutputPower(), "Off");
    EXPECT_DOUBLE_EQ(driver.GetElapsedTime(), 123.4);
    EXPECT_DOUBLE_EQ(driver.GetFilterWndSz(), 1.0);
    EXPECT_DOUBLE_EQ(driver.GetLaserTemperature(), 31.5);
    EXPECT_DOUBLE_EQ(driver.GetMinimumCurrent(), 10.0);
    EXPECT_EQ(driver.GetModuleErrorCode(), 7);
  }

  // A new connection reads the number again; until then the description has none.
  FEngine.SetSerialNumber("67890");
  FServer.Stop();
  ASSERT_TRUE(Eventually([&] { return laser.GetDeviceDesc() == "YLRYLR-2019"; }));
  ASSERT_TRUE(FServer.Start("127.0.0.62")) << FServer.LastError();
  EXPECT_TRUE(Eventually([&] { return laser.GetDeviceDesc() == "YLRYLR-2019 SN: 67890"; }, 10s));
}

// The same requests, whatever the link does to the replies, leave the same cached state behind.
TEST_F(IpgYlrExchangeTest, CachedStateIsTheSameHoweverTheRepliesTravel) {
  struct TState {
    uint32_t Status = 0;
    double Current = 0;
    std::map<int32_t, bool> Alarms;
    bool Emission = false;
  };
  const std::vector<std::pair<const char*, TLinkShape>> links = {
      {"prompt", {}},
      {"1-byte pieces", {.PieceBytes = 1, .PieceGap = 1ms}},
      {"900 ms late", {.ReplyDelay = 900ms}},
      {"stray status lines", {.StrayStatusAfter = 3ms}},
  };
  FParams.DefParams.DiodeSetTimeOut = 3000;  // long enough for the late laser to confirm
  Serve("127.0.0.63");
  std::optional<TState> prompt;
  for (const auto& [name, shape] : links) {
    SCOPED_TRACE(name);
    FServer.SetLinkShape({});
    FEngine.Feed("EMOFF\rDMOD\rRERR\r");
    FServer.SetLinkShape(shape);
    auto& laser = MakeConnected();
    laser.EmissionOn();
    laser.SetDiodeCurrent(45);
    FEngine.RaiseAlarms(ylr::kAveragePowerTooHigh | ylr::kHighDutyCycle);  // warnings: emission goes on
    auto& driver = *laser.Driver();
    ASSERT_TRUE(Eventually([&] { return driver.GetDeviceStatus() == FEngine.StatusWord(); }, 10s));
    ASSERT_TRUE(Eventually([&] { return driver.GetDiodeCurrent() == 45.0; }, 10s));
    TState state{driver.GetDeviceStatus(), laser.GetDiodeCurrent(), {}, laser.GetIsEmissionOn()};
    TRecordingReport report;
    laser.UpdateAlarms(report);
    state.Alarms = report.Raised;
    if (!prompt) {
      prompt = state;
      EXPECT_EQ(state.Status, ylr::kEmission | ylr::kModulation | ylr::kAveragePowerTooHigh | ylr::kHighDutyCycle);
      continue;
    }
    EXPECT_EQ(state.Status, prompt->Status);
    EXPECT_DOUBLE_EQ(state.Current, prompt->Current);
    EXPECT_EQ(state.Alarms, prompt->Alarms);
    EXPECT_EQ(state.Emission, prompt->Emission);
  }
}

}  // namespace
}  // namespace devlaser
