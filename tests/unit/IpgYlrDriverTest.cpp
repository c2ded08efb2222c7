// The IPG YLR driver against in-memory transports whose far end behaves like a YLR laser.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserError.h"
#include "frame/LaserStrs.h"
#include "ipg/IpgYlr2Driver.h"
#include "ipg/IpgYlrDriver.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "support/FakeTransports.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TEntryKind;
using refhost::TMessageEntry;
using refhost::TRecordingSink;

// Answers each command line of a write the way a YLR laser does: "STA" with the status word, setters with their
// echo, reading commands with their value, anything else with the mnemonic.
class TScriptedYlr {
 public:
  std::string operator()(const std::string& written) {
    std::lock_guard lock(FMutex);
    std::string reply;
    size_t start = 0;
    for (size_t cr = written.find('\r'); cr != std::string::npos; start = cr + 1, cr = written.find('\r', start))
      reply += Answer(written.substr(start, cr - start));
    return reply;
  }

  void SetStatus(const std::string& value) {
    std::lock_guard lock(FMutex);
    FStatus = value;
  }
  // The laser takes the current but does not echo it.
  void SetEchoCurrent(bool echo) {
    std::lock_guard lock(FMutex);
    FEchoCurrent = echo;
  }
  void SetValue(const std::string& cmd, const std::string& value) {
    std::lock_guard lock(FMutex);
    FValues.emplace_back(cmd, value);
  }

 private:
  std::string Answer(const std::string& cmd) {
    if (cmd == "STA") return "STA: " + FStatus + "\r";
    for (auto& [name, value] : FValues)
      if (name == cmd) return cmd + ": " + value + "\r";
    auto space = cmd.find(' ');
    if (space != std::string::npos) {  // a setter: echo its value
      if (cmd.rfind("SDC", 0) == 0 && !FEchoCurrent) return "";
      return cmd.substr(0, space) + ": " + cmd.substr(space + 1) + "\r";
    }
    return cmd + "\r";
  }

  std::mutex FMutex;
  std::string FStatus = "0";
  bool FEchoCurrent = true;
  std::vector<std::pair<std::string, std::string>> FValues;
};

// Writes other than the monitor's own polls.
std::vector<std::string> Commands(const std::vector<std::string>& writes) {
  std::vector<std::string> out;
  std::copy_if(writes.begin(), writes.end(), std::back_inserter(out), [](auto& w) { return w != "STA\r"; });
  return out;
}

size_t CountOf(const std::vector<std::string>& writes, const std::string& cmd) {
  return static_cast<size_t>(std::count(writes.begin(), writes.end(), cmd));
}

class IpgYlrDriverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    App->SetTransports(Transports);
    SetHost(App.get());
    Transports->Tcp->SetResponder([this](const std::string& w) { return Laser(w); });
    Transports->Serial->SetResponder([this](const std::string& w) { return Laser(w); });
    Params.DefParams.DataTransType = dttNetTcp;
    Params.DefParams.Net.TcpHost = "192.0.2.10";
    Params.DefParams.Net.TcpPort = 8080;  // not used: the laser listens on 10001
    Params.DefParams.DiodeSetTimeOut = 400;
  }

  void TearDown() override {
    Driver.reset();
    SetLaserDebugMode(false);
    SetHost(nullptr);
  }

  template <class TDriver = TIPGYLRDriver>
  TDriver& Make() {
    auto driver = std::make_unique<TDriver>(Params);
    auto& ref = *driver;
    Driver = std::move(driver);
    return ref;
  }

  // Waits until the monitor has connected and its first reply arrived.
  void WaitConnected() {
    ASSERT_TRUE(Sink->WaitForText(SLaserConnectedOk.Text(), 5s));
    ASSERT_TRUE(Driver->IsConnectedOk());
  }

  size_t Shown(const std::string& text) const {
    return Sink->Count([&](const TMessageEntry& e) { return e.Kind == TEntryKind::Message && e.Text == text; });
  }

  std::shared_ptr<TRecordingSink> Sink = std::make_shared<TRecordingSink>();
  std::unique_ptr<refhost::TRefApp> App = std::make_unique<refhost::TRefApp>(Sink);
  std::shared_ptr<testsupport::TFakeTransportFactory> Transports =
      std::make_shared<testsupport::TFakeTransportFactory>();
  TScriptedYlr Laser;
  TLaserParams Params;
  std::unique_ptr<TIPGYLRDriver> Driver;
};

template <class TPred>
bool Eventually(TPred pred, std::chrono::milliseconds timeout = 5s) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!pred()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

TEST_F(IpgYlrDriverTest, TcpLinkUsesTheFixedPortAndPingsTheLaserAddress) {
  Make();
  WaitConnected();
  EXPECT_TRUE(Driver->IsTcp());
  EXPECT_EQ(Transports->Tcp->RemoteHost(), "192.0.2.10");
  EXPECT_EQ(Transports->Tcp->RemotePort(), "10001");
  EXPECT_EQ(Transports->Ping->Host(), "192.0.2.10");
  EXPECT_EQ(Transports->Ping->ProbePort(), 10001);
  EXPECT_GE(Transports->Ping->SyncPings(), 1);  // the address is tried before connecting

  Params.DefParams.DataTransType = dttNone;  // no transport type means TCP too
  EXPECT_TRUE(Make().IsTcp());
}

TEST_F(IpgYlrDriverTest, OtherTransportTypesAreRefused) {
  for (auto type : {dttHardWire, dttNetUDP, dttEthercat}) {
    Params.DefParams.DataTransType = type;
    try {
      TIPGYLR2Driver driver(Params);
      ADD_FAILURE() << "accepted " << DataTransTypeName(type);
    } catch (const ELaserError& e) {
      EXPECT_STREQ(e.what(), "IPG.LaserType Error Message");
    }
  }
}

TEST_F(IpgYlrDriverTest, MonitorPollsTheStatusAndAnnouncesTheConnectionOnce) {
  Laser.SetStatus("12");
  auto& driver = Make();
  EXPECT_TRUE(Eventually([&] { return driver.GetDeviceStatus() == 12u; }));
  Laser.SetStatus("4096");
  EXPECT_TRUE(Eventually([&] { return driver.GetDeviceStatus() == 4096u; }));
  ASSERT_TRUE(Transports->Tcp->WaitForWrites([](auto& w) { return CountOf(w, "STA\r") >= 5; }));

  auto shown = Sink->Entries(TEntryKind::Message);
  auto ok = std::count_if(shown.begin(), shown.end(), [](auto& e) { return e.Text == SLaserConnectedOk.Text(); });
  EXPECT_EQ(ok, 1);
  auto entry = Sink->Find(TRecordingSink::TextContains(SLaserConnectedOk.Text()));
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->Color, 0x808000u);
}

TEST_F(IpgYlrDriverTest, GarbageStatusLeavesTheWordAndErrorLinesAreOnlyLogged) {
  Laser.SetStatus("12");
  auto& driver = Make();
  ASSERT_TRUE(Eventually([&] { return driver.GetDeviceStatus() == 12u; }));
  Laser.SetStatus("x7");
  driver.AnalyzeResponse("ERR STA: 99\r");
  ASSERT_TRUE(Transports->Tcp->WaitForWrites([](auto& w) { return CountOf(w, "STA\r") >= 10; }));
  EXPECT_EQ(driver.GetDeviceStatus(), 12u);
  EXPECT_TRUE(Sink->Contains("IPGLaser: ERR STA: 99"));
}

TEST_F(IpgYlrDriverTest, NoReplyCommandsAreSentExactly) {
  auto& d = Make();
  WaitConnected();
  Transports->Tcp->ClearWrites();
  d.EnableEmissionControl();
  d.DisableEmissionControl();
  d.EnableExternalAimControl();
  d.DisableExternalAimControl();
  d.EnableExternalControl();
  d.DisableExternalControl();
  d.EnableGateMode();
  d.DisableGateMode();
  d.EnableModulation();
  d.DisableModulation();
  d.EnablePulseMode();
  d.DisablePulseMode();
  d.SetDigitalPowerSelect();
  d.StartAimingBeam();
  d.StopAimingBeam();
  d.StartEmission();
  d.StopEmission();
  d.SendCmd("");  // nothing at all
  std::vector<std::string> expected = {"ELE\r", "DLE\r",      "EEABC\r",    "DEABC\r",     "EEC\r",       "DEC\r",
                                       "EGM\r", "DGM\r",      "EMOD\r",     "DMOD\r",      "EPM\r",       "DPM\r",
                                       "SDS\r", "ABN\rSTA\r", "ABF\rSTA\r", "EMON\rSTA\r", "EMOFF\rSTA\r"};
  EXPECT_EQ(Commands(Transports->Tcp->Writes()), expected);
}

TEST_F(IpgYlrDriverTest, ReadingCommandsTakeTheValueOrTheirDefault) {
  Laser.SetValue("RSN", "12345");
  Laser.SetValue("RNC", "n/a");
  Laser.SetValue("RFV", "V2.1.0");
  Laser.SetValue("RMEC", "17");
  auto& d = Make();
  WaitConnected();
  EXPECT_EQ(d.GetSerialNumber(), "12345");
  EXPECT_DOUBLE_EQ(d.GetMinimumCurrent(), 10.0);  // unparsable: the laser's usual minimum
  EXPECT_EQ(d.GetSoftwareRevision(), "V2.1.0");
  EXPECT_EQ(d.GetModuleErrorCode(), 17);
  auto cmds = Commands(Transports->Tcp->Writes());
  EXPECT_EQ(CountOf(cmds, "RSN\r"), 1u);
  EXPECT_EQ(CountOf(cmds, "RNC\r"), 1u);
}

TEST_F(IpgYlrDriverTest, SerialNumberThatIsNoNumberIsEmpty) {
  Laser.SetValue("RSN", "PLC-12345");
  auto& d = Make();
  WaitConnected();
  EXPECT_EQ(d.GetSerialNumber(), "");
}

TEST_F(IpgYlrDriverTest, SettersSendOnlyValuesInRangeAndTakeTheEcho) {
  auto& d = Make();
  WaitConnected();
  Transports->Tcp->ClearWrites();
  d.SetPulseRate(0);
  d.SetPulseRate(10000000);
  d.SetFilterWndSz(0.1);
  d.SetPulseWidth(50.01);
  EXPECT_TRUE(Commands(Transports->Tcp->Writes()).empty());

  d.SetFilterWndSz(5.0);
  d.SetPulseRate(5000);
  d.SetPulseWidth(2.5);
  d.ReceiveResponse(50);
  EXPECT_EQ(Commands(Transports->Tcp->Writes()), (std::vector<std::string>{"SFWS 5.0\r", "SPRR 5000\r", "SPW 2.50\r"}));
  EXPECT_EQ(d.GetPulseRate(), 5000);
  EXPECT_DOUBLE_EQ(d.GetPulseWidth(), 2.5);
}

TEST_F(IpgYlrDriverTest, DiodeCurrentIsConfirmedByTheEcho) {
  auto& d = Make();
  WaitConnected();
  d.SetDiodeCurrent(40.0);
  EXPECT_DOUBLE_EQ(d.GetDiodeCurrent(), 40.0);
  EXPECT_GE(CountOf(Transports->Tcp->Writes(), "SDC 40\r"), 1u);
  EXPECT_FALSE(Sink->Contains("(0.00 / 40.00)"));
  EXPECT_FALSE(Sink->Contains(Format(SSetDiodeParamsFaild.Text(), 40.0, 40.0)));
}

TEST_F(IpgYlrDriverTest, UnconfirmedDiodeCurrentIsReportedAfterTheTimeOut) {
  Laser.SetEchoCurrent(false);
  auto& d = Make();
  WaitConnected();
  d.SetDiodeCurrent(40.0);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsFaild.Text(), 0.0, 40.0)), 1u);
  // It kept trying while the time-out ran.
  EXPECT_GE(CountOf(Transports->Tcp->Writes(), "SDC 40\r"), 2u);
}

TEST_F(IpgYlrDriverTest, FractionalDiodeCurrentIsNeverConfirmed) {
  auto& d = Make();
  WaitConnected();
  d.SetDiodeCurrent(40.5);
  double echoed = d.GetDiodeCurrent();
  EXPECT_TRUE(echoed == 40.0 || echoed == 41.0) << echoed;
  EXPECT_EQ(Shown(Format(SSetDiodeParamsFaild.Text(), echoed, 40.5)), 1u);
}

TEST_F(IpgYlrDriverTest, InvalidDiodeCurrentIsShownAndNotSentValidOnesAre) {
  auto& d = Make();
  WaitConnected();
  Transports->Tcp->ClearWrites();
  d.SetDiodeCurrent(100.01);
  d.SetDiodeCurrentAsynchronous(-1.0);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsInValid.Text(), 100.01)), 1u);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsInValid.Text(), -1.0)), 1u);
  auto cmds = Commands(Transports->Tcp->Writes());
  EXPECT_TRUE(std::none_of(cmds.begin(), cmds.end(), [](auto& c) { return c.rfind("SDC", 0) == 0; }));

  d.SetDiodeCurrent(100.0);  // the top of the range is allowed
  EXPECT_GE(CountOf(Transports->Tcp->Writes(), "SDC 100\r"), 1u);
  d.SetDiodeCurrentAsynchronous(33.3);  // unacknowledged: sent five times
  EXPECT_EQ(CountOf(Transports->Tcp->Writes(), "SDC 33\r"), 5u);
}

TEST_F(IpgYlrDriverTest, IgnoringTheReplySendsFiveTimesWithoutWaiting) {
  Params.CfgIPG.YLR.IgnoreDiodeReply = true;
  Laser.SetEchoCurrent(false);
  auto& d = Make();
  WaitConnected();
  d.SetDiodeCurrent(60.0);
  EXPECT_EQ(CountOf(Transports->Tcp->Writes(), "SDC 60\r"), 5u);
  EXPECT_FALSE(d.GetIsImdState());
  EXPECT_EQ(Shown(Format(SSetDiodeParamsFaild.Text(), 0.0, 60.0)), 0u);
}

TEST_F(IpgYlrDriverTest, UnansweredKeepAlivePingDropsAndRenewsTheConnection) {
  auto& d = Make();
  WaitConnected();
  ASSERT_TRUE(Eventually([&] { return Transports->Ping->AsyncPings() >= 1; }));
  ASSERT_TRUE(Transports->Ping->FailLastAsyncPing());
  EXPECT_TRUE(Sink->WaitFor(
      [](const TMessageEntry& e) {
        return e.Kind == TEntryKind::Log && e.Text == "TCP Connection Closed." && e.Category == "Laser";
      },
      5s));
  // The monitor reconnects and the first reply announces the new connection.
  EXPECT_TRUE(Eventually([&] { return Transports->Tcp->OpenCount() >= 2 && d.IsConnectedOk(); }));
  EXPECT_TRUE(Eventually([&] { return Shown(SLaserConnectedOk.Text()) == 2u; }));
}

TEST_F(IpgYlrDriverTest, UnreachableLaserIsReportedOnceAndNotConnected) {
  Transports->Ping->SetReachable(false);
  auto& d = Make();
  EXPECT_TRUE(Sink->WaitForText(SLaserConnectedFail.Text(), 5s));
  ASSERT_TRUE(Eventually([&] { return Transports->Ping->SyncPings() >= 6; }));
  EXPECT_EQ(Transports->Tcp->OpenCount(), 0);  // no connect to an address that does not answer
  EXPECT_EQ(Shown(SLaserConnectedFail.Text()), 1u);
  EXPECT_FALSE(d.IsConnectedOk());
  // Exchanges are skipped and readers return their defaults at once.
  EXPECT_EQ(d.GetSerialNumber(), "");
  EXPECT_DOUBLE_EQ(d.GetMinimumCurrent(), 10.0);
}

TEST_F(IpgYlrDriverTest, PeerThatHangsUpIsReconnected) {
  auto& d = Make();
  WaitConnected();
  Transports->Tcp->Close();
  EXPECT_TRUE(Eventually([&] { return Transports->Tcp->OpenCount() >= 2 && Transports->Tcp->IsOpen(); }));
  Laser.SetStatus("8");
  EXPECT_TRUE(Eventually([&] { return d.GetDeviceStatus() == 8u; }));
}

TEST_F(IpgYlrDriverTest, HostWithoutTcpClientLeavesTheDriverQuiet) {
  Transports->OfferTcp = false;
  auto& d = Make();
  d.StartEmission();
  d.SetDiodeCurrentAsynchronous(10);
  EXPECT_FALSE(d.CheckConnection());
  EXPECT_TRUE(Sink->Contains("the host offers no TCP client"));
  EXPECT_TRUE(Transports->Tcp->Writes().empty());
}

TEST_F(IpgYlrDriverTest, SerialLinkUsesTheConfiguredPort) {
  Params.DefParams.DataTransType = dttSerial;
  Params.DefParams.Comm.CommPort = 3;
  Params.DefParams.Comm.CommSettings = "57600,n,8,1";
  Laser.SetStatus("1024");
  auto& d = Make();
  EXPECT_FALSE(d.IsTcp());
  EXPECT_TRUE(Eventually([&] { return d.GetDeviceStatus() == 1024u; }));
  EXPECT_EQ(Transports->Serial->SerialPort(), 3);
  EXPECT_EQ(Transports->Serial->SerialSettings(), "57600,n,8,1");
  d.StartEmission();
  d.SetDiodeCurrent(25.0);
  EXPECT_DOUBLE_EQ(d.GetDiodeCurrent(), 25.0);
  auto cmds = Commands(Transports->Serial->Writes());
  EXPECT_EQ(CountOf(cmds, "EMON\rSTA\r"), 1u);
  EXPECT_GE(CountOf(cmds, "SDC 25\r"), 1u);
  EXPECT_TRUE(Transports->Tcp->Writes().empty());
}

TEST_F(IpgYlrDriverTest, SplitAndCombinedRepliesUpdateEveryField) {
  Transports->Tcp->SetResponder(nullptr);  // only what the test pushes arrives
  auto& d = Make();
  d.AnalyzeResponse("SDC: 45\rSTA: 3");
  EXPECT_DOUBLE_EQ(d.GetDiodeCurrent(), 45.0);
  d.AnalyzeResponse("00\r");
  EXPECT_EQ(d.GetDeviceStatus(), 300u);
  d.AnalyzeResponse(std::string(1001, '#'));
  EXPECT_TRUE(Sink->Contains(SIPGCommCommunicationException.Text()));
  d.AnalyzeResponse("STA: 5\r");
  EXPECT_EQ(d.GetDeviceStatus(), 5u);
}

TEST_F(IpgYlrDriverTest, AlarmAndWarningMasksOfTheFirstGeneration) {
  auto& d = Make();
  d.AnalyzeResponse("STA: 64\r");  // bit 6: module disconnected
  EXPECT_FALSE(d.HasAlarm());      // no mask before the laser chooses a mode
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
  EXPECT_FALSE(d.HasAlarm());
  EXPECT_FALSE(d.HasWarning());
  EXPECT_EQ(d.GetLaserAlarm(), 0u);
  EXPECT_EQ(d.GetLaserState(), 0u);
  EXPECT_FALSE(d.GetStatusBit(1));

  EXPECT_EQ(d.AlarmText(30), SIPGOpticalInterlockactive.Text());
  EXPECT_EQ(d.AlarmText(6), "");
  EXPECT_EQ(d.AlarmBits().size(), 12u);
}

TEST_F(IpgYlrDriverTest, SecondGenerationMasksAndTables) {
  auto& d = Make<TIPGYLR2Driver>();
  d.SetQCWMode(false);
  EXPECT_EQ(d.AlarmMask(), 0x6308000Au);
  EXPECT_EQ(d.WarningMask(), 0x80820221u);
  d.AnalyzeResponse("STA: 1\r");  // bit 0: an alarm of the first generation, a warning here
  EXPECT_FALSE(d.HasAlarm());
  EXPECT_EQ(d.GetLaserWarning(), 1u);
  EXPECT_FALSE(d.HasWarning());  // the QCW flag is never set by this generation
  d.SetQCWMode(true);
  EXPECT_EQ(d.AlarmMask(), 0xE38A022Bu);
  EXPECT_EQ(d.WarningMask(), 0x80820221u);
  EXPECT_TRUE(d.HasAlarm());
  EXPECT_FALSE(d.HasWarning());
  EXPECT_FALSE(d.AlarmTable().Contains(0));
  EXPECT_EQ(d.WarningTable().Text(0), SIPGCommBUfferOverload.Text());
  EXPECT_EQ(d.AlarmBits(), (std::vector<int32_t>{1, 3, 19, 24, 25, 29, 30}));
}

TEST_F(IpgYlrDriverTest, DebugModeTracesCommandsButNotThePolls) {
  auto& d = Make();
  WaitConnected();
  SetLaserDebugMode(true);
  d.StartEmission();
  EXPECT_TRUE(Sink->Contains("PC->Laser:EMON#13STA"));
  EXPECT_TRUE(Sink->Contains("ResponseCache = "));
  ASSERT_TRUE(Transports->Tcp->WaitForWrites([](auto& w) { return CountOf(w, "STA\r") >= 10; }));
  EXPECT_FALSE(Sink->Contains("PC->Laser:STA"));
}

TEST_F(IpgYlrDriverTest, DestroyedWhileTheMonitorAndAPingHandlerRun) {
  for (int i = 0; i < 5; ++i) {
    Make();
    WaitConnected();
    Transports->Ping->FailLastAsyncPing();
    Driver.reset();  // joins the monitor and the ping client's thread before the transports go
    Transports->Tcp->Close();
    Sink->Clear();
  }
}

}  // namespace
}  // namespace devlaser
