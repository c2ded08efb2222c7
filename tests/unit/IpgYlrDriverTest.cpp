// The IPG YLR driver against in-memory transports whose far end is the simulated laser's engine.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "frame/Format.h"
#include "frame/LaserComm.h"
#include "frame/LaserError.h"
#include "frame/LaserStrs.h"
#include "ipg/IpgYlr2Driver.h"
#include "ipg/IpgYlrDriver.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "support/FakeTransports.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TEntryKind;
using refhost::TMessageEntry;
using TWrites = std::vector<std::string>;
namespace ylr = lasersim::ipgylr;

// Writes other than the monitor's own polls.
TWrites Commands(const TWrites& writes) {
  TWrites out;
  std::copy_if(writes.begin(), writes.end(), std::back_inserter(out), [](auto& w) { return w != "STA\r"; });
  return out;
}

size_t CountOf(const TWrites& writes, const std::string& cmd) {
  return static_cast<size_t>(std::count(writes.begin(), writes.end(), cmd));
}

class IpgYlrDriverTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(Transports);
    Laser.Attach(*Transports->Tcp);
    Laser.Attach(*Transports->Serial);
    FParams.DefParams.DataTransType = dttNetTcp;
    FParams.DefParams.Net.TcpHost = "192.0.2.10";
    FParams.DefParams.Net.TcpPort = 8080;  // not used: the laser listens on 10001
    FParams.DefParams.DiodeSetTimeOut = 400;
  }
  void TearDown() override {
    Driver.reset();
    SetLaserDebugMode(false);
    TLaserHostFixture::TearDown();
  }

  template <class TDriver = TIPGYLRDriver>
  TDriver& Make() {
    Driver.reset();
    auto driver = std::make_unique<TDriver>(FParams);
    auto& ref = *driver;
    Driver = std::move(driver);
    return ref;
  }
  // Waits until the monitor has connected and its first reply arrived.
  TIPGYLRDriver& MakeConnected() {
    auto& driver = Make();
    EXPECT_TRUE(FSink->WaitForText(SLaserConnectedOk.Text(), 5s));
    EXPECT_TRUE(driver.IsConnectedOk());
    return driver;
  }
  TWrites TcpCommands() const { return Commands(Transports->Tcp->Writes()); }
  size_t Shown(const std::string& text) const {
    return FSink->Count([&](const TMessageEntry& e) { return e.Kind == TEntryKind::Message && e.Text == text; });
  }
  bool PollsSent(size_t n) {
    return Transports->Tcp->WaitForWrites([n](auto& w) { return CountOf(w, "STA\r") >= n; });
  }

  testsupport::TSimulatedYlr Laser;
  lasersim::TIpgYlrEngine& Engine = Laser.Engine;
  std::shared_ptr<testsupport::TFakeTransportFactory> Transports =
      std::make_shared<testsupport::TFakeTransportFactory>();
  std::unique_ptr<TIPGYLRDriver> Driver;
};

TEST_F(IpgYlrDriverTest, TcpLinkUsesTheFixedPortAndOtherTransportsAreRefused) {
  EXPECT_TRUE(MakeConnected().IsTcp());
  EXPECT_EQ(Transports->Tcp->Setting("host"), "192.0.2.10");
  EXPECT_EQ(Transports->Tcp->Setting("port"), "10001");
  EXPECT_EQ(Transports->Ping->Setting("host"), "192.0.2.10");
  EXPECT_EQ(Transports->Ping->Setting("port"), "10001");
  EXPECT_GE(Transports->Ping->SyncPings(), 1);  // the address is tried before connecting

  FParams.DefParams.DataTransType = dttNone;  // no transport type means TCP too
  EXPECT_TRUE(Make().IsTcp());
  for (auto type : {dttHardWire, dttNetUDP, dttEthercat}) {
    FParams.DefParams.DataTransType = type;
    try {
      TIPGYLR2Driver driver(FParams);
      ADD_FAILURE() << "accepted " << DataTransTypeName(type);
    } catch (const ELaserError& e) {
      EXPECT_STREQ(e.what(), "IPG.LaserType Error Message");
    }
  }
}

TEST_F(IpgYlrDriverTest, SerialLinkUsesTheConfiguredPort) {
  FParams.DefParams.DataTransType = dttSerial;
  FParams.DefParams.Comm.CommPort = 3;
  FParams.DefParams.Comm.CommSettings = "57600,n,8,1";
  Engine.SetAlarmWord(ylr::kPulseTooShort);
  auto& d = Make();
  EXPECT_FALSE(d.IsTcp());
  EXPECT_TRUE(Eventually([&] { return d.GetDeviceStatus() == ylr::kPulseTooShort; }));
  EXPECT_EQ(Transports->Serial->Setting("port"), "3");
  EXPECT_EQ(Transports->Serial->Setting("settings"), "57600,n,8,1");
  d.StartEmission();
  d.SetDiodeCurrent(25.0);
  EXPECT_DOUBLE_EQ(d.GetDiodeCurrent(), 25.0);
  auto cmds = Commands(Transports->Serial->Writes());
  EXPECT_EQ(CountOf(cmds, "EMON\rSTA\r"), 1u);
  EXPECT_GE(CountOf(cmds, "SDC 25\r"), 1u);
  EXPECT_TRUE(Transports->Tcp->Writes().empty());
}

TEST_F(IpgYlrDriverTest, MonitorPollsTheStatusAnnouncesTheConnectionOnceAndSkipsGarbage) {
  Engine.SetAlarmWord(ylr::kOverheat);
  auto& d = Make();
  EXPECT_TRUE(Eventually([&] { return d.GetDeviceStatus() == ylr::kOverheat; }));
  Engine.SetAlarmWord(ylr::kHighBackReflection);
  EXPECT_TRUE(Eventually([&] { return d.GetDeviceStatus() == ylr::kHighBackReflection; }));

  Laser.SetStatusReply("STA: x7\r");
  d.AnalyzeResponse("ERR STA: 99\r");
  ASSERT_TRUE(PollsSent(10));
  EXPECT_EQ(d.GetDeviceStatus(), ylr::kHighBackReflection);
  EXPECT_TRUE(FSink->Contains("IPGLaser: ERR STA: 99"));
  EXPECT_EQ(Shown(SLaserConnectedOk.Text()), 1u);
  auto entry = FSink->Find(refhost::TRecordingSink::TextContains(SLaserConnectedOk.Text()));
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->Color, 0x808000u);
}

TEST_F(IpgYlrDriverTest, NoReplyCommandsAreSentExactly) {
  auto& d = MakeConnected();
  Transports->Tcp->ClearWrites();
  using D = TIPGYLRDriver;
  const std::vector<std::pair<void (D::*)(), const char*>> commands = {
      {&D::EnableEmissionControl, "ELE\r"},
      {&D::DisableEmissionControl, "DLE\r"},
      {&D::EnableExternalAimControl, "EEABC\r"},
      {&D::DisableExternalAimControl, "DEABC\r"},
      {&D::EnableExternalControl, "EEC\r"},
      {&D::DisableExternalControl, "DEC\r"},
      {&D::EnableGateMode, "EGM\r"},
      {&D::DisableGateMode, "DGM\r"},
      {&D::EnableModulation, "EMOD\r"},
      {&D::DisableModulation, "DMOD\r"},
      {&D::EnablePulseMode, "EPM\r"},
      {&D::DisablePulseMode, "DPM\r"},
      {&D::SetDigitalPowerSelect, "SDS\r"},
      {&D::StartAimingBeam, "ABN\rSTA\r"},
      {&D::StopAimingBeam, "ABF\rSTA\r"},
      {&D::StartEmission, "EMON\rSTA\r"},
      {&D::StopEmission, "EMOFF\rSTA\r"},
  };
  TWrites expected;
  for (auto [command, text] : commands) {
    (d.*command)();
    expected.push_back(text);
  }
  d.SendCmd("");  // nothing at all
  EXPECT_EQ(TcpCommands(), expected);
}

TEST_F(IpgYlrDriverTest, ReadersAndSettersExchangeOnlyValidValues) {
  Engine.SetSerialNumber("PLC-12345");  // no number: no serial number
  Engine.SetFirmwareRevision("V2.1.0");
  Engine.SetModuleErrorCode(17);
  Engine.SetMinimumCurrent(12.5);
  auto& d = MakeConnected();
  Transports->Tcp->ClearWrites();
  EXPECT_EQ(d.GetSerialNumber(), "");
  EXPECT_EQ(d.GetSoftwareRevision(), "V2.1.0");
  EXPECT_EQ(d.GetModuleErrorCode(), 17);
  EXPECT_DOUBLE_EQ(d.GetMinimumCurrent(), 12.5);

  d.SetPulseRate(0);
  d.SetPulseRate(10000000);
  d.SetFilterWndSz(0.1);
  d.SetPulseWidth(50.01);
  d.SetFilterWndSz(5.0);
  d.SetPulseRate(5000);
  d.SetPulseWidth(2.5);
  d.ReceiveResponse(50);
  EXPECT_EQ(TcpCommands(), (TWrites{"RSN\r", "RFV\r", "RMEC\r", "RNC\r", "SFWS 5.0\r", "SPRR 5000\r", "SPW 2.50\r"}));
  EXPECT_EQ(d.GetPulseRate(), 5000);
  EXPECT_DOUBLE_EQ(d.GetPulseWidth(), 2.5);
}

TEST_F(IpgYlrDriverTest, DiodeCurrentIsValidatedAndConfirmedByTheEcho) {
  auto& d = MakeConnected();
  const std::string failed = SSetDiodeParamsFaild.Text();
  d.SetDiodeCurrent(40.0);
  EXPECT_DOUBLE_EQ(d.GetDiodeCurrent(), 40.0);
  EXPECT_GE(CountOf(TcpCommands(), "SDC 40\r"), 1u);
  EXPECT_EQ(Shown(Format(failed, 40.0, 40.0)), 0u);

  // The laser takes whole percents: a fractional request is never confirmed.
  d.SetDiodeCurrent(40.5);
  EXPECT_DOUBLE_EQ(d.GetDiodeCurrent(), 41.0);
  EXPECT_EQ(Shown(Format(failed, 41.0, 40.5)), 1u);

  Transports->Tcp->ClearWrites();
  d.SetDiodeCurrent(100.01);
  d.SetDiodeCurrentAsynchronous(-1.0);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsInValid.Text(), 100.01)), 1u);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsInValid.Text(), -1.0)), 1u);
  EXPECT_TRUE(TcpCommands().empty());
  d.SetDiodeCurrent(100.0);  // the top of the range is allowed
  EXPECT_GE(CountOf(TcpCommands(), "SDC 100\r"), 1u);
  d.SetDiodeCurrentAsynchronous(33.3);  // unacknowledged: sent five times
  EXPECT_EQ(CountOf(TcpCommands(), "SDC 33\r"), 5u);
}

TEST_F(IpgYlrDriverTest, UnechoedDiodeCurrentIsReportedUnlessRepliesAreIgnored) {
  Laser.EchoCurrent = false;
  const std::string failed = SSetDiodeParamsFaild.Text();
  MakeConnected().SetDiodeCurrent(40.0);
  EXPECT_EQ(Shown(Format(failed, 0.0, 40.0)), 1u);
  EXPECT_GE(CountOf(TcpCommands(), "SDC 40\r"), 2u);  // it kept trying while the time-out ran

  FParams.CfgIPG.YLR.IgnoreDiodeReply = true;
  auto& trusting = Make();
  ASSERT_TRUE(Eventually([&] { return trusting.IsConnectedOk(); }));
  trusting.SetDiodeCurrent(60.0);
  EXPECT_EQ(CountOf(TcpCommands(), "SDC 60\r"), 5u);
  EXPECT_FALSE(trusting.GetIsImdState());
  EXPECT_EQ(Shown(Format(failed, 0.0, 60.0)), 0u);
}

TEST_F(IpgYlrDriverTest, LostConnectionIsRenewed) {
  auto& d = MakeConnected();
  // An unanswered keep-alive ping drops the connection; the monitor reconnects and announces it again.
  ASSERT_TRUE(Eventually([&] { return Transports->Ping->AsyncPings() >= 1; }));
  ASSERT_TRUE(Transports->Ping->FailLastAsyncPing());
  EXPECT_TRUE(FSink->WaitFor(
      [](const TMessageEntry& e) {
        return e.Kind == TEntryKind::Log && e.Text == "TCP Connection Closed." && e.Category == "Laser";
      },
      5s));
  EXPECT_TRUE(Eventually([&] { return Transports->Tcp->OpenCount() >= 2 && d.IsConnectedOk(); }));
  EXPECT_TRUE(Eventually([&] { return Shown(SLaserConnectedOk.Text()) == 2u; }));

  // A laser that hangs up is connected again too.
  Transports->Tcp->Close();
  EXPECT_TRUE(Eventually([&] { return Transports->Tcp->OpenCount() >= 3 && Transports->Tcp->IsOpen(); }));
  Engine.SetAlarmWord(ylr::kHighBackReflection);
  EXPECT_TRUE(Eventually([&] { return d.GetDeviceStatus() == ylr::kHighBackReflection; }));
}

TEST_F(IpgYlrDriverTest, UnreachableLaserIsReportedOnceAndNotConnected) {
  Transports->Ping->SetReachable(false);
  auto& d = Make();
  EXPECT_TRUE(FSink->WaitForText(SLaserConnectedFail.Text(), 5s));
  ASSERT_TRUE(Eventually([&] { return Transports->Ping->SyncPings() >= 6; }));
  EXPECT_EQ(Transports->Tcp->OpenCount(), 0);  // no connect to an address that does not answer
  EXPECT_EQ(Shown(SLaserConnectedFail.Text()), 1u);
  EXPECT_FALSE(d.IsConnectedOk());
  // Exchanges are skipped and readers return their defaults at once.
  EXPECT_EQ(d.GetSerialNumber(), "");
  EXPECT_DOUBLE_EQ(d.GetMinimumCurrent(), 10.0);
}

TEST_F(IpgYlrDriverTest, HostWithoutTcpClientLeavesTheDriverQuiet) {
  Transports->OfferTcp = false;
  auto& d = Make();
  d.StartEmission();
  d.SetDiodeCurrentAsynchronous(10);
  EXPECT_FALSE(d.CheckConnection());
  EXPECT_TRUE(FSink->Contains("the host offers no TCP client"));
  EXPECT_TRUE(Transports->Tcp->Writes().empty());
}

TEST_F(IpgYlrDriverTest, RepliesInPiecesAndFirstGenerationMasks) {
  Transports->Tcp->SetResponder(nullptr);  // only what the test feeds arrives
  auto& d = Make();
  d.AnalyzeResponse("SDC: 45\rSTA: 6");
  EXPECT_DOUBLE_EQ(d.GetDiodeCurrent(), 45.0);
  d.AnalyzeResponse("4\r");  // bit 6: module disconnected
  EXPECT_EQ(d.GetDeviceStatus(), 64u);
  d.AnalyzeResponse(std::string(1001, '#'));
  EXPECT_TRUE(FSink->Contains(SIPGCommCommunicationException.Text()));

  EXPECT_FALSE(d.HasAlarm());  // no mask before the laser chooses a mode
  d.SetAlarmMode(false);
  EXPECT_FALSE(d.HasAlarm());
  EXPECT_EQ(d.GetLaserWarning(), 64u);
  EXPECT_FALSE(d.HasWarning());  // warnings count in QCW only
  d.SetQCWMode(true);
  EXPECT_TRUE(d.HasWarning());
  d.SetAlarmMode(true);
  EXPECT_TRUE(d.HasAlarm());
  EXPECT_EQ(d.GetLaserAlarm(), 64u);

  d.AnalyzeResponse("STA: 4294967295\r");  // unknown
  EXPECT_FALSE(d.HasAlarm() || d.HasWarning() || d.GetStatusBit(1));
  EXPECT_EQ(d.GetLaserAlarm(), 0u);
  EXPECT_EQ(d.GetLaserState(), 0u);
  EXPECT_EQ(d.AlarmText(30), SIPGOpticalInterlockactive.Text());
  EXPECT_EQ(d.AlarmText(6), "");
}

TEST_F(IpgYlrDriverTest, SecondGenerationMasksAndTables) {
  Transports->Tcp->SetResponder(nullptr);
  auto& d = Make<TIPGYLR2Driver>();
  d.SetQCWMode(false);
  d.AnalyzeResponse("STA: 1\r");  // bit 0: an alarm of the first generation, a warning here
  EXPECT_FALSE(d.HasAlarm());
  EXPECT_EQ(d.GetLaserWarning(), 1u);
  EXPECT_FALSE(d.HasWarning());  // the QCW flag is never set by this generation
  d.SetQCWMode(true);
  EXPECT_EQ(d.AlarmMask(), ipg::kYlr2AlarmMaskQcw);
  EXPECT_TRUE(d.HasAlarm());
  EXPECT_FALSE(d.HasWarning());
  EXPECT_EQ(d.WarningTable().Text(0), SIPGCommBUfferOverload.Text());
  EXPECT_EQ(d.AlarmBits(), (std::vector<int32_t>{1, 3, 19, 24, 25, 29, 30}));
}

TEST_F(IpgYlrDriverTest, DebugModeTracesCommandsButNotThePolls) {
  auto& d = MakeConnected();
  SetLaserDebugMode(true);
  d.StartEmission();
  EXPECT_TRUE(FSink->Contains("PC->Laser:EMON#13STA"));
  EXPECT_TRUE(FSink->Contains("ResponseCache = "));
  ASSERT_TRUE(PollsSent(10));
  EXPECT_FALSE(FSink->Contains("PC->Laser:STA"));
}

TEST_F(IpgYlrDriverTest, DestroyedWhileTheMonitorAndAPingHandlerRun) {
  for (int i = 0; i < 5; ++i) {
    MakeConnected();
    Transports->Ping->FailLastAsyncPing();
    Driver.reset();  // joins the monitor and the ping client's thread before the transports go
    Transports->Tcp->Close();
    FSink->Clear();
  }
}

}  // namespace
}  // namespace devlaser
