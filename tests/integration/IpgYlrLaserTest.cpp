// The IPG YLR lasers against the simulated laser over loopback TCP (port 10001, one 127.0.0.x address per test)
// and over a pseudo-terminal, through the reference host's POSIX transports and its simulated IO extension.
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
    FParams.DefParams.Net.TcpPort = 8080;  // ignored: the laser always listens on 10001
    FParams.DefParams.Comm.IgnoreCommResult = false;
    FParams.DefParams.DiodeSetTimeOut = 500;
    FParams.DefParams.PWM.DiodeCurrent = 30;
    FParams.CfgIPG.MaxCurrent = 90;
  }
  void TearDown() override {
    FLaser.reset();
    FServer.Stop();
    FPty.Stop();
    TLaserHostFixture::TearDown();
  }

  void ServeTcp(const std::string& address) {
    ASSERT_TRUE(FServer.Start(address)) << FServer.LastError();
    FParams.DefParams.Net.TcpHost = address;
  }
  void ServeSerial(int32_t portNumber) {
    ASSERT_TRUE(FPty.Start()) << FPty.LastError();
    FSerialPorts->Set(portNumber, FPty.SlavePath());
    FParams.DefParams.DataTransType = dttSerial;
    FParams.DefParams.Comm.CommPort = portNumber;
  }

  // A new laser (the previous one destroyed first), once its driver has had the first reply.
  template <class T = TIPGYLR2Laser>
  T& MakeConnected() {
    FLaser.reset();
    auto laser = MakeLaser<T>(FParams, FIO);
    EXPECT_TRUE(laser);
    auto& ref = *laser;
    FLaser = std::move(laser);
    EXPECT_TRUE(Eventually([&] { return ref.Driver()->IsConnectedOk(); }, 10s));
    return ref;
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
  size_t Shown(const std::string& text) const {
    return FSink->Count(
        [&](const refhost::TMessageEntry& e) { return e.Kind == refhost::TEntryKind::Message && e.Text == text; });
  }
  // The output writes of one port, in order.
  std::vector<TIOWrite> OutputWrites(int port) const {
    std::vector<TIOWrite> out;
    for (const auto& w : WritesOf(TIOOp::SetOutputbit))
      if (w.Port == port) out.push_back(w);
    return out;
  }
  // Length of the first on-off pulse of an output, from the write log's times.
  std::optional<std::chrono::microseconds> PulseLength(int port) const {
    auto writes = OutputWrites(port);
    auto on = std::find_if(writes.begin(), writes.end(), [](auto& w) { return w.Value == 1.0; });
    auto off = std::find_if(on, writes.end(), [](auto& w) { return w.Value == 0.0; });
    if (off == writes.end()) return std::nullopt;
    return off->Time - on->Time;
  }

  lasersim::TIpgYlrEngine FEngine;
  lasersim::TIpgYlrTcpServer FServer{FEngine};
  lasersim::TIpgYlrPtyServer FPty{FEngine};
  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  std::shared_ptr<TNcLaser> FLaser;
};

TEST_F(IpgYlrLaserSimTest, Ylr2SwitchesEmissionAimingAndCurrentOverTcpAndAPseudoTerminal) {
  struct TCase {
    const char* Model;
    bool Qcw, GateMode;
    TCommands Expected;
  };
  const std::vector<TCase> sequences = {
      {"YLR", true, true, {"DEC", "DMOD", "EGM", "DLE", "EPM", "EMON"}},
      {"YLR", true, false, {"DEC", "DMOD", "DGM", "EPM", "ELE"}},  // QCW internal: the emission signal rules
      {"EO-YLR", false, false, {"DEC", "DLE", "EMOD", "DGM", "DEABC", "SDS", "EMON"}},
      {"YLR", false, false, {"DEC", "DPM", "DGM", "DLE", "EMOD", "EMON"}},  // CW, the laser used below
  };
  for (bool serial : {false, true}) {
    SCOPED_TRACE(serial ? "pseudo-terminal" : "TCP");
    if (serial)
      ServeSerial(7);
    else
      ServeTcp("127.0.0.41");
    TIPGYLR2Laser* cw = nullptr;
    for (const auto& c : sequences) {
      SCOPED_TRACE(::testing::PrintToString(c.Expected));
      FParams.Model = c.Model;
      FParams.CfgIPG.YLR.QCWMode = c.Qcw;
      FParams.CfgIPG.YLR.GateMode = c.GateMode;
      auto& laser = MakeConnected();
      cw = &laser;
      FEngine.Log().Clear();
      laser.EmissionOn();
      EXPECT_EQ(CommandsUntil(c.Expected.back()), c.Expected);
      const bool emits = c.Expected.back() == "EMON";
      EXPECT_EQ((FEngine.StatusWord() & ylr::kEmission) != 0, emits);
      // The laser reports emission from its status word once the next poll has brought it.
      EXPECT_TRUE(Eventually([&] { return laser.GetIsEmissionOn() == emits; }));
      FEngine.Log().Clear();
      laser.EmissionOff();
      EXPECT_THAT(CommandsUntil("EMOFF"), ElementsAre("EMOFF"));
    }

    auto& laser = *cw;
    FEngine.Log().Clear();
    laser.SetAimingOn(true);
    EXPECT_THAT(CommandsUntil("ABN"), ElementsAre("ABN"));
    EXPECT_TRUE(Eventually([&] { return laser.GetIsAimingOn(); }));
    // Acknowledged: sent until the laser echoes it, here at once.
    FEngine.Log().Clear();
    laser.SetDiodeCurrent(40);
    EXPECT_THAT(Commands(), ElementsAre("SDC 40"));
    EXPECT_DOUBLE_EQ(laser.GetDiodeCurrent(), 40.0);

    // Status bit b is alarm b + 2.
    FEngine.RaiseAlarms(ylr::kOverheat | ylr::kOpticalInterlockOpen);
    TRecordingReport report;
    ASSERT_TRUE(Eventually([&] {
      laser.UpdateAlarms(report);
      return report.Raised[3] && report.Raised[32];
    }));
    EXPECT_TRUE(report.Raised[10]);  // the aiming beam, bit 8: reported like every bit
    EXPECT_FALSE(report.Raised[4]);  // no emission
    EXPECT_FALSE(report.Raised[511]);
    EXPECT_EQ(laser.Driver()->GetLaserAlarm(), ylr::kOverheat | ylr::kOpticalInterlockOpen);
    FEngine.SetAlarmWord(0);

    // Without diode replies: sent five times, unacknowledged.
    FParams.CfgIPG.YLR.IgnoreDiodeReply = true;
    auto& trusting = MakeConnected();
    FEngine.Log().Clear();
    trusting.SetDiodeCurrent(55);
    EXPECT_THAT(CommandsUntil("SDC 55", 5), ElementsAreArray(TCommands(5, "SDC 55")));
    EXPECT_DOUBLE_EQ(FEngine.DiodeCurrent(), 55.0);
    FParams.CfgIPG.YLR.IgnoreDiodeReply = false;
  }
}

// Every emission sequence of the YLR2 laser against the laser's own rules. A real laser refuses mode changes (EMOD,
// DMOD, EEC, DEC) while it emits; the sequences below that send them during emission are sent unchanged, the
// refusals are recorded here, the driver logs them, and the laser still ends where the sequence means it to.
TEST_F(IpgYlrLaserSimTest, EmissionSequencesAgainstTheLasersRefusalsEndInTheirIntendedState) {
  enum class EStart { Off, Emitting };
  enum class EAction { EmissionOn, EmissionOff, PulseModelQcw, PulseModelCw };
  struct TCase {
    const char* Name;
    const char* Model;
    bool Qcw, GateMode, Analog;
    EStart Start;
    EAction Action;
    TCommands Sent;
    TCommands Refused;  // what a real laser refuses in this sequence
    uint32_t Final;     // the mode bits of the status word afterwards
  };
  constexpr uint32_t kModeBits = ylr::kEmission | ylr::kExternalControl | ylr::kPulseMode | ylr::kModulation |
                                 ylr::kGateMode | ylr::kEmissionControl | ylr::kExternalAimControl;
  constexpr uint32_t kCw = ylr::kEmission | ylr::kModulation;
  const std::vector<TCase> cases = {
      {"CW",
       "YLR",
       false,
       false,
       false,
       EStart::Off,
       EAction::EmissionOn,
       {"DEC", "DPM", "DGM", "DLE", "EMOD", "EMON"},
       {},
       kCw},
      {"CW, analogue control",
       "YLR",
       false,
       false,
       true,
       EStart::Off,
       EAction::EmissionOn,
       {"EEC", "DPM", "DGM", "DLE", "EMOD", "EMON"},
       {},
       kCw | ylr::kExternalControl},
      // The host switches emission on again while it is on: the mode changes are refused, nothing changes.
      {"CW again",
       "YLR",
       false,
       false,
       false,
       EStart::Emitting,
       EAction::EmissionOn,
       {"DEC", "DPM", "DGM", "DLE", "EMOD", "EMON"},
       {"DEC", "EMOD"},
       kCw},
      {"QCW, gate mode",
       "YLR",
       true,
       true,
       false,
       EStart::Off,
       EAction::EmissionOn,
       {"DEC", "DMOD", "EGM", "DLE", "EPM", "EMON"},
       {},
       ylr::kEmission | ylr::kGateMode | ylr::kPulseMode},
      {"QCW, gate mode, again",
       "YLR",
       true,
       true,
       false,
       EStart::Emitting,
       EAction::EmissionOn,
       {"DEC", "DMOD", "EGM", "DLE", "EPM", "EMON"},
       {"DEC", "DMOD"},
       ylr::kEmission | ylr::kGateMode | ylr::kPulseMode},
      // Emission follows the hardware emission signal: no EMON.
      {"QCW, internal",
       "YLR",
       true,
       false,
       false,
       EStart::Off,
       EAction::EmissionOn,
       {"DEC", "DMOD", "DGM", "EPM", "ELE"},
       {},
       ylr::kPulseMode | ylr::kEmissionControl},
      {"EO-YLR",
       "EO-YLR",
       false,
       false,
       false,
       EStart::Off,
       EAction::EmissionOn,
       {"DEC", "DLE", "EMOD", "DGM", "DEABC", "SDS", "EMON"},
       {},
       kCw},
      {"EO-YLR again",
       "EO-YLR",
       false,
       false,
       false,
       EStart::Emitting,
       EAction::EmissionOn,
       {"DEC", "DLE", "EMOD", "DGM", "DEABC", "SDS", "EMON"},
       {"DEC", "EMOD"},
       kCw},
      {"off", "YLR", false, false, false, EStart::Emitting, EAction::EmissionOff, {"EMOFF"}, {}, ylr::kModulation},
      // Gate mode goes to QCW without stopping emission: the laser keeps modulation on, the rest follows.
      {"gate mode to QCW",
       "YLR",
       false,
       true,
       false,
       EStart::Emitting,
       EAction::PulseModelQcw,
       {"DMOD", "EGM", "DLE", "EPM", "EMON"},
       {"DMOD"},
       ylr::kEmission | ylr::kModulation | ylr::kGateMode | ylr::kPulseMode},
      {"gate mode to CW",
       "YLR",
       true,
       true,
       false,
       EStart::Emitting,
       EAction::PulseModelCw,
       {"EMOFF", "DPM", "DGM", "DLE", "EMOD", "EMON"},
       {},
       kCw},
      {"internal to QCW",
       "YLR",
       false,
       false,
       false,
       EStart::Emitting,
       EAction::PulseModelQcw,
       {"EMOFF", "DMOD", "DGM", "EPM", "ELE"},
       {},
       ylr::kPulseMode | ylr::kEmissionControl},
      {"internal to CW",
       "YLR",
       true,
       false,
       false,
       EStart::Emitting,
       EAction::PulseModelCw,
       {"EMOFF", "DPM", "DGM", "DLE", "EMOD", "EMON"},
       {},
       kCw},
  };

  std::mutex refusedLock;
  TCommands refused;
  FEngine.SetTraceHook([&](const std::string& command, const std::string& reply) {
    std::lock_guard lock(refusedLock);
    if (reply.rfind("ERR", 0) == 0 || reply.rfind("BCMD", 0) == 0) refused.push_back(command);
  });
  auto takeRefused = [&] {
    std::lock_guard lock(refusedLock);
    return std::exchange(refused, {});
  };
  const auto refusalLogged = [&] { return FSink->Count(refhost::TRecordingSink::TextContains("IPGLaser: ERR")); };

  ServeTcp("127.0.0.42");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    FParams.Model = c.Model;
    FParams.CfgIPG.YLR.QCWMode = c.Qcw;
    FParams.CfgIPG.YLR.GateMode = c.GateMode;
    FParams.DefParams.AnalogControl = c.Analog;
    auto& laser = MakeConnected();
    // Each case starts from a laser with every mode off, straight on the engine (no driver involved).
    FEngine.Feed("EMOFF\rDEC\rDMOD\rDGM\rDPM\rDLE\rDEABC\r");
    if (c.Start == EStart::Emitting) {
      FEngine.Log().Clear();
      laser.EmissionOn();
      ASSERT_TRUE(FEngine.Log().WaitFor(c.Qcw && !c.GateMode && c.Model != std::string("EO-YLR") ? "ELE" : "EMON", 5s));
      if (!c.Qcw || c.GateMode) {
        ASSERT_TRUE(FEngine.StatusWord() & ylr::kEmission);
      }
    }
    ASSERT_TRUE(Eventually([&] { return laser.GetIsEmissionOn() == ((FEngine.StatusWord() & ylr::kEmission) != 0); }));
    FEngine.Log().Clear();
    takeRefused();
    const size_t loggedBefore = refusalLogged();

    switch (c.Action) {
      case EAction::EmissionOn:
        laser.EmissionOn();
        break;
      case EAction::EmissionOff:
        laser.EmissionOff();
        break;
      case EAction::PulseModelQcw:
        laser.ExecuteCmd(TIPGYLR2Laser::kCmdPulseModelQcw, 0);
        break;
      case EAction::PulseModelCw:
        laser.ExecuteCmd(TIPGYLR2Laser::kCmdPulseModelCw, 0);
        break;
    }
    EXPECT_EQ(CommandsUntil(c.Sent.back()), c.Sent) << "the bytes on the wire stay as they are";
    // Two polls after the last command every refusal has been answered and recorded.
    ASSERT_TRUE(FEngine.Log().WaitFor("STA", 5s, FEngine.Log().Count("STA") + 2));
    EXPECT_EQ(takeRefused(), c.Refused);
    EXPECT_EQ(FEngine.StatusWord() & kModeBits, c.Final);
    const bool emits = (c.Final & ylr::kEmission) != 0;
    EXPECT_TRUE(Eventually([&] { return laser.GetIsEmissionOn() == emits; }));
    EXPECT_TRUE(Eventually([&] { return laser.GetPulseModel() == ((c.Final & ylr::kPulseMode) != 0); }));
    if (c.Refused.empty())
      EXPECT_EQ(refusalLogged(), loggedBefore);
    else
      EXPECT_TRUE(Eventually([&] { return refusalLogged() > loggedBefore; })) << "the refusal reaches the log";
  }
  FEngine.SetTraceHook({});
  FParams.DefParams.AnalogControl = false;
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

  auto start = PulseLength(kStart);
  auto power = PulseLength(kPower);
  ASSERT_TRUE(start && power);
  // Never shorter; later only by the machine's load. The bound only catches a pulse not ended by its own timer.
  EXPECT_GE(*start, 3000ms);
  EXPECT_LT(*start, 3000ms + 1000ms);
  EXPECT_GE(*power, 1200ms);
  EXPECT_LT(*power, 1200ms + 1000ms);
  EXPECT_EQ(OutputWrites(kPower).size(), 3u);      // on, on again (second request), off
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

TEST_F(IpgYlrLaserSimTest, NamedResetThroughTheHostInterfaceClearsTheLaserErrors) {
  ServeTcp("127.0.0.49");
  auto& laser = MakeConnected();
  FEngine.Log().Clear();
  nchost::INcLaser30& host = laser;
  host.ExecCmd("ResetErrors", 0);
  EXPECT_TRUE(FEngine.Log().WaitFor("RERR", 5s));
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
  // While it is gone, every call gives up within its exchange's time-out (1 s for reading commands);
  // SetDiodeCurrent keeps trying for DiodeSetTimeOut (500 ms), the others fail at once.
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

}  // namespace
}  // namespace devlaser
