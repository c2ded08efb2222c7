// The IPG YLR lasers against the simulated laser over loopback TCP (port 10001, one 127.0.0.x address per test)
// and over a pseudo-terminal, through the reference host's POSIX transports and its simulated IO extension: the
// emission sequences and what a real laser refuses in them, the remote-start and power pulses, a laser that goes
// away and comes back, and how exchanges end (a set on its echo, readers on their own line, whatever the link does).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/Format.h"
#include "frame/LaserStrs.h"
#include "ipg/IpgYlr2Laser.h"
#include "refhost/transport/PosixTransports.h"
#include "refhost/transport/SerialPortMap.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrPtyServer.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "sim/ipg/IpgYlrTcpServer.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TIOOp;
using refhost::TIOWrite;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using Clock = std::chrono::steady_clock;
using TCommands = std::vector<std::string>;
using TLinkShape = lasersim::TIpgYlrTcpServer::TLinkShape;
namespace ylr = lasersim::ipgylr;

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::map<int32_t, bool> Raised;
  void ReportAlarm(int32_t id, bool raised) override { Raised[id] = raised; }
};

size_t ThreadCount() {
  std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

template <class F>
std::chrono::milliseconds Timed(F&& call) {
  const auto start = Clock::now();
  call();
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

// A command that reached the laser, its reply and when it arrived.
struct TTraced {
  std::string Command, Reply;
  Clock::time_point At;
};

class IpgYlrLaserSimTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    // Probing by connect, as on a host that refuses unprivileged ICMP: every keep-alive opens a second connection.
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, FSerialPorts,
                                                                   refhost::TReachabilityProbe::TcpConnect));
    FParams.Model = "YLR";
    FParams.LaserMainType = eltIPG;
    FParams.LaserSubType = 3;
    FParams.DefParams.DataTransType = dttNetTcp;
    FParams.DefParams.Comm.IgnoreCommResult = false;
    FParams.DefParams.DiodeSetTimeOut = 300;
    FParams.DefParams.PWM.DiodeCurrent = 30;
    FParams.CfgIPG.MaxCurrent = 90;
    // The hook owns what it records: the serving thread may still call it after a failed assertion ended the test.
    FEngine.SetTraceHook([trace = FTrace](const std::string& command, const std::string& reply) {
      std::lock_guard lock(trace->Lock);
      trace->Entries.push_back({command, reply, Clock::now()});
    });
  }
  void TearDown() override {
    FLaser.reset();
    FServer.Stop();
    FPty.Stop();
    TLaserHostFixture::TearDown();
  }

  void ServeTcp(const std::string& address) {
    ASSERT_TRUE(FServer.Start(address)) << FServer.LastError();
    FParams.DefParams.DataTransType = dttNetTcp;
    FParams.DefParams.Net.TcpHost = address;
  }
  void ServeSerial(int32_t portNumber) {
    ASSERT_TRUE(FPty.Start()) << FPty.LastError();
    FSerialPorts->Set(portNumber, FPty.SlavePath());
    FParams.DefParams.DataTransType = dttSerial;
    FParams.DefParams.Comm.CommPort = portNumber;
  }

  // A new laser (the previous one destroyed first), once its driver has had the first reply.
  TIPGYLR2Laser& MakeConnected() {
    FLaser.reset();
    auto laser = MakeLaser<TIPGYLR2Laser>(FParams, FIO);
    if (!laser) throw std::runtime_error("the YLR2 laser could not be built");
    FLaser = laser;
    EXPECT_TRUE(Eventually([&] { return laser->Driver()->IsConnectedOk(); }, 10s));
    return *laser;
  }

  // What the laser received other than status polls since the last Clear().
  TCommands Commands() const {
    TCommands out;
    for (auto& c : FEngine.Log().Commands())
      if (c != "STA") out.push_back(c);
    return out;
  }
  // The same once `last` has arrived `times` times: the last command of a call may still be on its way.
  TCommands CommandsUntil(const std::string& last, size_t times = 1) const {
    EXPECT_TRUE(FEngine.Log().WaitFor(last, 5s, times)) << last;
    return Commands();
  }
  // What the laser received since the last call, with its replies.
  std::vector<TTraced> TakeTrace() {
    std::lock_guard lock(FTrace->Lock);
    return std::exchange(FTrace->Entries, {});
  }
  size_t Shown(const std::string& text) const {
    return FSink->Count(
        [&](const refhost::TMessageEntry& e) { return e.Kind == refhost::TEntryKind::Message && e.Text == text; });
  }
  // Length of the first on-off pulse of an output, from the write log's times, and how often the port was written.
  std::pair<std::optional<std::chrono::microseconds>, size_t> Pulse(int port) const {
    std::vector<TIOWrite> writes;
    for (const auto& w : WritesOf(TIOOp::SetOutputbit))
      if (w.Port == port) writes.push_back(w);
    auto on = std::find_if(writes.begin(), writes.end(), [](auto& w) { return w.Value == 1.0; });
    auto off = std::find_if(on, writes.end(), [](auto& w) { return w.Value == 0.0; });
    if (off == writes.end()) return {std::nullopt, writes.size()};
    return {off->Time - on->Time, writes.size()};
  }

  struct TTrace {
    std::mutex Lock;
    std::vector<TTraced> Entries;
  };
  std::shared_ptr<TTrace> FTrace = std::make_shared<TTrace>();
  lasersim::TIpgYlrEngine FEngine;
  lasersim::TIpgYlrTcpServer FServer{FEngine};
  lasersim::TIpgYlrPtyServer FPty{FEngine};
  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  std::shared_ptr<TNcLaser> FLaser;
};

// Every emission sequence of the YLR2 laser, over both links, against the laser's own rules. A real laser refuses
// mode changes (EMOD, DMOD, EEC, DEC) while it emits; the sequences that send them during emission are sent
// unchanged, the refusals are recorded here, the driver logs them, and the laser still ends where the sequence means.
TEST_F(IpgYlrLaserSimTest, EmissionSequencesOverBothLinksEndInTheirIntendedStateDespiteTheLasersRefusals) {
  struct TSetup {
    const char* Model;
    bool Qcw, GateMode, Analog;
  };
  const TSetup cw{"YLR", false, false, false}, analog{"YLR", false, false, true}, cwGate{"YLR", false, true, false},
      qcwGate{"YLR", true, true, false}, qcwInternal{"YLR", true, false, false}, eo{"EO-YLR", false, false, false};
  enum EAction { On, OnAgain, Off, ToQcw, ToCw };  // all but On start from an emitting laser
  struct TCase {
    const char* Name;
    TSetup Setup;
    EAction Action;
    TCommands Sent;
    TCommands Refused;  // what a real laser refuses in this sequence
    uint32_t Final;     // the mode bits of the status word afterwards
  };
  constexpr uint32_t kModeBits = ylr::kEmission | ylr::kExternalControl | ylr::kPulseMode | ylr::kModulation |
                                 ylr::kGateMode | ylr::kEmissionControl | ylr::kExternalAimControl;
  constexpr uint32_t kCw = ylr::kEmission | ylr::kModulation, kQcwInternal = ylr::kPulseMode | ylr::kEmissionControl;
  constexpr uint32_t kQcwGate = ylr::kEmission | ylr::kGateMode | ylr::kPulseMode;
  const std::vector<TCase> cases = {
      {"CW", cw, On, {"DEC", "DPM", "DGM", "DLE", "EMOD", "EMON"}, {}, kCw},
      {"CW analogue", analog, On, {"EEC", "DPM", "DGM", "DLE", "EMOD", "EMON"}, {}, kCw | ylr::kExternalControl},
      // The host switches emission on again while it is on: the mode changes are refused, nothing changes.
      {"CW again", cw, OnAgain, {"DEC", "DPM", "DGM", "DLE", "EMOD", "EMON"}, {"DEC", "EMOD"}, kCw},
      {"QCW gate", qcwGate, On, {"DEC", "DMOD", "EGM", "DLE", "EPM", "EMON"}, {}, kQcwGate},
      {"QCW gate again", qcwGate, OnAgain, {"DEC", "DMOD", "EGM", "DLE", "EPM", "EMON"}, {"DEC", "DMOD"}, kQcwGate},
      // Emission follows the hardware emission signal: no EMON.
      {"QCW internal", qcwInternal, On, {"DEC", "DMOD", "DGM", "EPM", "ELE"}, {}, kQcwInternal},
      {"EO-YLR", eo, On, {"DEC", "DLE", "EMOD", "DGM", "DEABC", "SDS", "EMON"}, {}, kCw},
      {"EO-YLR again", eo, OnAgain, {"DEC", "DLE", "EMOD", "DGM", "DEABC", "SDS", "EMON"}, {"DEC", "EMOD"}, kCw},
      {"off", cw, Off, {"EMOFF"}, {}, ylr::kModulation},
      // Gate mode goes to QCW without stopping emission: the laser keeps modulation on, the rest follows.
      {"gate to QCW", cwGate, ToQcw, {"DMOD", "EGM", "DLE", "EPM", "EMON"}, {"DMOD"}, kQcwGate | ylr::kModulation},
      {"gate to CW", qcwGate, ToCw, {"EMOFF", "DPM", "DGM", "DLE", "EMOD", "EMON"}, {}, kCw},
      {"internal to QCW", cw, ToQcw, {"EMOFF", "DMOD", "DGM", "EPM", "ELE"}, {}, kQcwInternal},
      {"internal to CW", qcwInternal, ToCw, {"EMOFF", "DPM", "DGM", "DLE", "EMOD", "EMON"}, {}, kCw},
  };
  const auto refusalLogged = [&] { return FSink->Count(refhost::TRecordingSink::TextContains("IPGLaser: ERR")); };

  for (bool serial : {false, true}) {
    SCOPED_TRACE(serial ? "pseudo-terminal" : "TCP");
    if (serial)
      ServeSerial(7);
    else
      ServeTcp("127.0.0.42");
    for (const auto& c : cases) {
      SCOPED_TRACE(c.Name);
      FParams.Model = c.Setup.Model;
      FParams.CfgIPG.YLR.QCWMode = c.Setup.Qcw;
      FParams.CfgIPG.YLR.GateMode = c.Setup.GateMode;
      FParams.DefParams.AnalogControl = c.Setup.Analog;
      auto& laser = MakeConnected();
      // Each case starts from a laser with every mode off, straight on the engine (no driver involved).
      FEngine.Feed("EMOFF\rDEC\rDMOD\rDGM\rDPM\rDLE\rDEABC\r");
      if (c.Action != On) {
        FEngine.Log().Clear();
        laser.EmissionOn();
        const bool signalled = c.Setup.Qcw && !c.Setup.GateMode && c.Setup.Model != std::string("EO-YLR");
        ASSERT_TRUE(FEngine.Log().WaitFor(signalled ? "ELE" : "EMON", 5s));
        ASSERT_TRUE(signalled || (FEngine.StatusWord() & ylr::kEmission));
      }
      ASSERT_TRUE(
          Eventually([&] { return laser.GetIsEmissionOn() == ((FEngine.StatusWord() & ylr::kEmission) != 0); }));
      FEngine.Log().Clear();
      TakeTrace();
      const size_t loggedBefore = refusalLogged();

      if (c.Action == Off)
        laser.EmissionOff();
      else if (c.Action == ToQcw || c.Action == ToCw)
        laser.ExecuteCmd(c.Action == ToQcw ? TIPGYLR2Laser::kCmdPulseModelQcw : TIPGYLR2Laser::kCmdPulseModelCw, 0);
      else
        laser.EmissionOn();
      EXPECT_EQ(CommandsUntil(c.Sent.back()), c.Sent) << "the bytes on the wire stay as they are";
      // Two polls after the last command every refusal has been answered and recorded.
      ASSERT_TRUE(FEngine.Log().WaitFor("STA", 5s, FEngine.Log().Count("STA") + 2));
      TCommands refused;
      for (const auto& t : TakeTrace())
        if (t.Reply.rfind("ERR", 0) == 0 || t.Reply.rfind("BCMD", 0) == 0) refused.push_back(t.Command);
      EXPECT_EQ(refused, c.Refused);
      EXPECT_EQ(FEngine.StatusWord() & kModeBits, c.Final);
      EXPECT_TRUE(Eventually([&] { return laser.GetIsEmissionOn() == ((c.Final & ylr::kEmission) != 0); }));
      EXPECT_TRUE(Eventually([&] { return laser.GetPulseModel() == ((c.Final & ylr::kPulseMode) != 0); }));
      if (c.Refused.empty())
        EXPECT_EQ(refusalLogged(), loggedBefore);
      else
        EXPECT_TRUE(Eventually([&] { return refusalLogged() > loggedBefore; })) << "the refusal reaches the log";
    }
  }
}

TEST_F(IpgYlrLaserSimTest, RemoteStartAndPowerControlPulsesHaveTheirLengths) {
  constexpr int kKeyOn = 11, kStart = 12, kPower = 13;
  ServeTcp("127.0.0.44");
  FParams.CfgIPG.YLR.UseRemoteCtrl = true;
  FParams.CfgIPG.YLR.YLRKeyOnPort = kKeyOn;
  FParams.CfgIPG.YLR.YLRStartPort = kStart;
  FParams.CfgIPG.PowerCtrlPort = kPower;
  FEngine.SetPowerSupplyOff(true);
  auto& laser = MakeConnected();
  EXPECT_TRUE(FIO->State().Outputs.test(kKeyOn));
  EXPECT_TRUE(FIO->State().Outputs.test(kStart));
  ASSERT_TRUE(Eventually([&] { return laser.Driver()->GetStatusBit(11); }));

  // Emission on a laser whose power supply is off powers it on first; the power relay follows the output.
  FEngine.Log().Clear();
  laser.EmissionOn();
  ASSERT_TRUE(FIO->State().Outputs.test(kPower));
  laser.PowerOn();  // during the pulse: only sets the output again
  FEngine.SetPowerSupplyOff(false);
  EXPECT_TRUE(FEngine.Log().WaitFor("SDC 30", 10s));  // the power-on sequence ends with the default current
  ASSERT_TRUE(FIO->WaitForWrite([](const TIOWrite& w) { return w.Port == kStart && w.Value == 0.0; }, 10s));
  EXPECT_TRUE(Eventually([&] { return !laser.PowerOnThreadActive() && !laser.RemoteStartThreadActive(); }));

  const auto [start, startWrites] = Pulse(kStart);
  const auto [power, powerWrites] = Pulse(kPower);
  ASSERT_TRUE(start && power);
  // Never shorter; later only by the machine's load. The bound only catches a pulse not ended by its own timer.
  EXPECT_GE(*start, 3000ms);
  EXPECT_LT(*start, 3000ms + 1000ms);
  EXPECT_GE(*power, 1200ms);
  EXPECT_LT(*power, 1200ms + 1000ms);
  EXPECT_EQ(powerWrites, 3u);                      // on, on again (second request), off
  EXPECT_TRUE(FIO->State().Outputs.test(kKeyOn));  // held for the laser's lifetime

  // After the pulse: internal control with emission on, the aiming beam, then the default current.
  auto commands = Commands();
  auto from = std::find(commands.begin(), commands.end(), "DEABC");
  ASSERT_GE(from - commands.begin(), 1);
  ASSERT_NE(from, commands.end());
  EXPECT_EQ(TCommands(from - 1, commands.end()), (TCommands{"EMOFF", "DEABC", "DEC", "EMON", "ABN", "SDC 30"}));
  EXPECT_TRUE(Eventually([&] { return laser.GetIsEmissionOn() && laser.GetIsAimingOn(); }));
}

TEST_F(IpgYlrLaserSimTest, DestroyingTheLaserDuringAPulseEndsThePulseAndLeavesNoThread) {
  constexpr int kStart = 12, kPower = 13;
  ServeTcp("127.0.0.45");
  FParams.CfgIPG.YLR.UseRemoteCtrl = true;
  FParams.CfgIPG.YLR.YLRStartPort = kStart;
  FParams.CfgIPG.PowerCtrlPort = kPower;
  const size_t before = ThreadCount();
  MakeConnected().PowerOn();
  ASSERT_TRUE(FIO->State().Outputs.test(kStart) && FIO->State().Outputs.test(kPower));
  EXPECT_GT(ThreadCount(), before);
  EXPECT_LT(Timed([&] { FLaser.reset(); }), 1000ms);  // the pulses would have lasted 3 s
  // Both pulses were cut short, and both outputs are off: destruction never leaves a pulse standing.
  EXPECT_FALSE(FIO->State().Outputs.test(kStart));
  EXPECT_FALSE(FIO->State().Outputs.test(kPower));
  EXPECT_EQ(ThreadCount(), before);
}

TEST_F(IpgYlrLaserSimTest, SurvivesTheLaserGoingAwayAndComingBack) {
  ServeTcp("127.0.0.46");
  FParams.DefParams.ConnCheck.ConnCheckTimeIntv = 1;  // minutes: one warning in this test
  auto& laser = MakeConnected();
  // Three connections: the probe before connecting, the driver's own, and the first keep-alive probe. A probe that
  // took the laser from the driver would make it reconnect within a poll period.
  ASSERT_TRUE(Eventually([&] { return FServer.AcceptedConnections() >= 3; }));
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(FServer.AcceptedConnections(), 3u);
  EXPECT_EQ(FServer.OpenConnections(), 1u);

  FServer.Stop();
  ASSERT_TRUE(FSink->WaitForText(SLaserConnectedFail.Text(), 5s));
  // While it is gone, every call gives up at once, the acknowledged diode-current set included.
  std::vector<std::pair<const char*, std::chrono::milliseconds>> calls = {
      {"EmissionOn", Timed([&] { laser.EmissionOn(); })},
      {"SetAimingOn", Timed([&] { laser.SetAimingOn(true); })},
      {"SetDiodeCurrent", Timed([&] { laser.SetDiodeCurrent(60); })},
      {"GetDeviceDesc", Timed([&] { EXPECT_EQ(laser.GetDeviceDesc(), "YLRYLR-2019"); })},
  };
  for (auto& [name, took] : calls) EXPECT_LT(took, 1500ms) << name;
  std::this_thread::sleep_for(300ms);  // several monitor periods without the laser
  EXPECT_EQ(Shown(SLaserConnectedFail.Text()), 1u);

  FEngine.Log().Clear();
  ASSERT_TRUE(FServer.Start("127.0.0.46")) << FServer.LastError();
  ASSERT_TRUE(FEngine.Log().WaitFor("STA", 10s, 2));
  laser.SetAimingOn(true);
  EXPECT_TRUE(FEngine.Log().WaitFor("ABN", 5s));
  EXPECT_TRUE(Eventually([&] { return laser.GetIsAimingOn(); }));
  // The named reset of the host's device interface reaches the laser.
  static_cast<nchost::INcLaser30&>(laser).ExecCmd("ResetErrors", 0);
  EXPECT_TRUE(FEngine.Log().WaitFor("RERR", 5s));
  EXPECT_EQ(Shown(SLaserConnectedFail.Text()), 1u);
  // The operator learns that the link is back: once per reconnection, here after the peer closed the connection
  // long before any keep-alive ping could time out.
  EXPECT_TRUE(Eventually([&] { return Shown(SLaserConnectedOk.Text()) == 2u; }));
  FServer.Stop();
  ASSERT_TRUE(Eventually([&] { return !laser.Driver()->IsConnectedOk(); }));
  ASSERT_TRUE(FServer.Start("127.0.0.46")) << FServer.LastError();
  EXPECT_TRUE(Eventually([&] { return Shown(SLaserConnectedOk.Text()) == 3u; }, 10s));
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(Shown(SLaserConnectedOk.Text()), 3u);  // once per connection, not per reply
}

TEST_F(IpgYlrLaserSimTest, StateQueriesAndAlarmsNeverWaitForTheLink) {
  ServeTcp("127.0.0.48");
  auto& laser = MakeConnected();
  laser.EmissionOn();
  ASSERT_TRUE(Eventually([&] { return laser.GetIsEmissionOn(); }));
  FEngine.SetReplyMode(lasersim::TIpgYlrEngine::TReplyMode::Silent);
  // A reading command now waits its whole reply window, holding the link.
  auto busy = std::async(std::launch::async, [&] { return laser.GetDeviceDesc(); });
  ASSERT_TRUE(FEngine.Log().WaitFor("RSN", 5s));
  TRecordingReport report;
  auto took = Timed([&] {
    for (int i = 0; i < 20; ++i) {
      EXPECT_TRUE(laser.GetIsEmissionOn());
      EXPECT_FALSE(laser.GetIsAimingOn());
      EXPECT_DOUBLE_EQ(laser.GetDiodeCurrent(), 30.0);
      laser.GetIsLaserOn();
      laser.UpdateAlarms(report);
    }
  });
  EXPECT_LT(took, 900ms);  // 20 rounds, while the link is held for a second: one wait for it would exceed this
  EXPECT_EQ(busy.get(), "YLRYLR-2019");
}

// ---- how exchanges end ------------------------------------------------------------------------------------------

TEST_F(IpgYlrLaserSimTest, AcknowledgedSetsReportTheEchoAndAnUnconfirmedOneKeepsItsRepeats) {
  ServeTcp("127.0.0.61");
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
  TakeTrace();
  const auto start = Clock::now();
  laser.SetDiodeCurrent(40.5);
  EXPECT_GE(Clock::now() - start, 300ms);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsFaild.Text(), 41.0, 40.5)), 1u);
  std::vector<Clock::time_point> sent;
  for (const auto& t : TakeTrace())
    if (t.Command == "SDC 41") sent.push_back(t.At);
  // 300 ms hold the repeats sent at 0, 125 and 250 ms; a loaded machine can only stretch the pace.
  EXPECT_GE(sent.size(), 2u);
  EXPECT_LE(sent.size(), 3u);
  for (size_t i = 1; i < sent.size(); ++i) EXPECT_GE(sent[i] - sent[i - 1], 120ms) << i;
  EXPECT_DOUBLE_EQ(laser.Driver()->GetDiodeCurrent(), 41.0);

  // Without diode replies: sent five times, unacknowledged.
  FParams.CfgIPG.YLR.IgnoreDiodeReply = true;
  auto& trusting = MakeConnected();
  FEngine.Log().Clear();
  trusting.SetDiodeCurrent(55);
  EXPECT_THAT(CommandsUntil("SDC 55", 5), ElementsAreArray(TCommands(5, "SDC 55")));
  EXPECT_DOUBLE_EQ(FEngine.DiodeCurrent(), 55.0);

  // Without a link the set fails at once instead of trying for its whole time-out.
  FParams.CfgIPG.YLR.IgnoreDiodeReply = false;
  FParams.DefParams.DiodeSetTimeOut = 5000;
  auto& unlinked = MakeConnected();
  FServer.Stop();
  ASSERT_TRUE(Eventually([&] { return !unlinked.Driver()->CheckConnection(); }));
  EXPECT_LT(Timed([&] { unlinked.SetDiodeCurrent(70); }), 2500ms);
  EXPECT_EQ(Shown(Format(SSetDiodeParamsFaild.Text(), 30.0, 70.0)), 1u);
}

TEST_F(IpgYlrLaserSimTest, SerialNumberIsReadOnceAndEveryReaderTakesItsOwnLine) {
  ServeTcp("127.0.0.62");
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
TEST_F(IpgYlrLaserSimTest, CachedStateIsTheSameHoweverTheRepliesTravel) {
  struct TState {
    uint32_t Status = 0;
    double Current = 0;
    std::map<int32_t, bool> Alarms;
    bool Emission = false;
    bool operator==(const TState&) const = default;
  };
  const std::vector<std::pair<const char*, TLinkShape>> links = {
      {"prompt", {}},
      {"1-byte pieces", {.PieceBytes = 1, .PieceGap = 1ms}},
      {"900 ms late", {.ReplyDelay = 900ms}},
      {"stray status lines", {.StrayStatusAfter = 3ms}},
  };
  FParams.DefParams.DiodeSetTimeOut = 3000;  // long enough for the late laser to confirm
  ServeTcp("127.0.0.63");
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
    TRecordingReport report;
    laser.UpdateAlarms(report);
    const TState state{driver.GetDeviceStatus(), laser.GetDiodeCurrent(), report.Raised, laser.GetIsEmissionOn()};
    if (prompt) {
      EXPECT_EQ(state, *prompt);
      continue;
    }
    prompt = state;
    EXPECT_EQ(state.Status, ylr::kEmission | ylr::kModulation | ylr::kAveragePowerTooHigh | ylr::kHighDutyCycle);
    // Status bit b is alarm b + 2.
    EXPECT_TRUE(report.Raised[25] && report.Raised[33]);
    EXPECT_FALSE(report.Raised[3]);
  }
}

}  // namespace
}  // namespace devlaser
