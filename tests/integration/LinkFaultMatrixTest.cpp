// Every protocol laser on every link it speaks, against every fault its link can show: the peer killed and started
// again, a silent peer, garbage on the line, replies in one-byte pieces, a slow first byte, and the device path (or
// the listener) vanishing and coming back. In each cell the laser is emitting when the fault begins, and a host
// keeps polling it through the fault. The cell holds the laser to four promises:
//   - no host call waits longer than the laser's longest exchange (with room for a loaded machine);
//   - the operator hears of the lost connection at most once per outage, not once per poll;
//   - once the fault ends the laser finds its link again and commands reach the laser;
//   - a reconnect never switches emission on by itself: no emission-on command reaches the laser after the fault,
//     no output of the laser is switched on, and a laser that restarted stays off.
// Faults that a link cannot show are listed with the reason in kNotApplicable, never skipped silently.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "core/NcLaser.h"
#include "frame/LaserStrs.h"
#include "refhost/transport/PosixTransports.h"
#include "registry/LaserFactory.h"
#include "registry/LaserLib.h"
#include "registry/LaserRegistrations.h"
#include "support/LaserHostFixture.h"
#include "support/LinkSimulators.h"
#include "support/ScratchDir.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testsupport::TLink;
using testsupport::TPeerFault;

// A laser class on one of its links. `Exchange` is the longest a host call of this laser may legitimately wait on
// its link: a YLR read waits up to a second for its reply; the QCW driver writes a frame (a stalled line is given
// half a second) and reads only what is waiting; the Raycus and own-brand lasers only queue for their threads.
// `WarnsOfOutage`: whether the operator hears of a link that is gone for the fault's length. The Raycus ESC serial
// thread reopens its port silently, and a UDP laser counts as gone only after seconds of silence.
struct TLaserRow {
  const char* Name;
  const char* ClassName;
  TLink Link;
  std::chrono::milliseconds Exchange;
  bool WarnsOfOutage;
};

const std::vector<TLaserRow> kLasers = {
    {"IpgYlrTcp", "TIPGYLR2Laser", TLink::Tcp, 1000ms, true},
    {"IpgYlrSerial", "TIPGYLR2Laser", TLink::Serial, 1000ms, true},
    {"RaycusEsc", "TRaycusLaser", TLink::Serial, 0ms, false},
    {"RaycusQcw", "TRayQCWLaser", TLink::Serial, 500ms, true},
    {"ZorunUdp", "TZorunLaser", TLink::Udp, 0ms, false},
    {"ZorunTcp", "TZorunLaser", TLink::Tcp, 0ms, true},
    {"ZorunSerial", "TZorunLaser", TLink::Serial, 0ms, true},
};

enum class TFault { PeerRestart, Silent, Garbage, BytePieces, SlowFirstByte, PathVanishes };

struct TFaultColumn {
  TFault Fault;
  const char* Name;
};
const std::vector<TFaultColumn> kFaults = {
    {TFault::PeerRestart, "PeerRestart"},
    {TFault::Silent, "Silent"},
    {TFault::Garbage, "Garbage"},
    {TFault::BytePieces, "BytePieces"},
    {TFault::SlowFirstByte, "SlowFirstByte"},
    {TFault::PathVanishes, "PathVanishes"},
};

// The cells a link cannot show, and why.
const std::map<std::pair<TLink, TFault>, const char*> kNotApplicable = {
    {{TLink::Udp, TFault::BytePieces}, "a datagram arrives whole or not at all"},
    {{TLink::Udp, TFault::PathVanishes},
     "UDP has neither a device path nor a listener; a peer that vanishes and returns is PeerRestart"},
};

struct TCell {
  TLaserRow Laser;
  TFaultColumn Fault;
  int Index;  // gives the cell its own loopback address and serial port number
  const char* NotApplicable = nullptr;
};

std::vector<TCell> Cells() {
  std::vector<TCell> cells;
  for (const auto& laser : kLasers) {
    for (const auto& fault : kFaults) {
      TCell cell{laser, fault, static_cast<int>(cells.size())};
      if (auto it = kNotApplicable.find({laser.Link, fault.Fault}); it != kNotApplicable.end())
        cell.NotApplicable = it->second;
      cells.push_back(cell);
    }
  }
  return cells;
}

void PrintTo(const TCell& cell, std::ostream* os) { *os << cell.Laser.Name << " x " << cell.Fault.Name; }

std::string CellName(const ::testing::TestParamInfo<TCell>& info) {
  return std::string(info.param.Laser.Name) + "_" + info.param.Fault.Name;
}

TPeerFault PeerFaultOf(TFault fault) {
  switch (fault) {
    case TFault::Silent:
      return TPeerFault::Silent;
    case TFault::Garbage:
      return TPeerFault::Garbage;
    case TFault::BytePieces:
      return TPeerFault::BytePieces;
    case TFault::SlowFirstByte:
      return TPeerFault::SlowFirstByte;
    default:
      return TPeerFault::None;
  }
}

// The registered type and sub-type of a class (its first sub-type).
bool RegistrationOf(const std::string& className, TEnumLaserType& type, int32_t& subType) {
  TNcLaserLib lib;
  TLaserTypeDic types;
  RegisterBuiltInLasers(lib, types);
  for (const auto& entry : lib.Entries()) {
    if (entry.LaserClass.Name != className) continue;
    for (size_t sub = 0; sub < entry.SubTypes.size(); ++sub) {
      if (!entry.SubTypes.test(sub)) continue;
      type = entry.LaserType;
      subType = static_cast<int32_t>(sub);
      return true;
    }
  }
  return false;
}

struct TNullReport : nchost::INcAlarmReport20 {
  void ReportAlarm(int32_t, bool) override {}
};

class LinkFaultMatrix : public ::testing::TestWithParam<TCell> {
 protected:
  // How long each fault lasts: several polls of every laser (the slowest polls every 200 ms).
  static constexpr auto kFaultWindow = 700ms;
  // Room beyond a laser's exchange time for a loaded machine running sanitizers.
  static constexpr auto kCallSlack = 2s;
  // How long a laser may take to find its link again once the fault has ended: several reconnect attempts.
  static constexpr auto kRecovery = 10s;

  void SetUp() override {
    const TCell& cell = GetParam();
    if (cell.NotApplicable != nullptr) GTEST_SKIP() << "not applicable: " << cell.NotApplicable;
    SetHost(&FApp);
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, FSerialPorts,
                                                                   refhost::TReachabilityProbe::TcpConnect));
    ASSERT_TRUE(LoadLaserLibrary(&FApp));
    FParams.Initialize();
    FParams.Model = cell.Laser.ClassName;
    ASSERT_TRUE(RegistrationOf(cell.Laser.ClassName, FParams.LaserMainType, FParams.LaserSubType));
    // An unconfirmed diode set is given up soon, so that a silent laser keeps the poll loop moving.
    FParams.DefParams.DiodeSetTimeOut = 300;
    FSim = testsupport::SimFamilyOf(cell.Laser.ClassName)->Make();
    FSlot.Address = "127.0.30." + std::to_string(cell.Index + 1);
    FSlot.SerialPort = 300 + cell.Index;
    FSlot.SerialPorts = FSerialPorts;
    // A device that vanishes comes back under the same name; a restarted peer gets a new device, to which the
    // laser's port number is pointed again.
    if (cell.Fault.Fault == TFault::PathVanishes) {
      FLinkPath = FLinkDir / "laser-tty";
      FSim->SetSerialLinkPath(FLinkPath);
    }
    std::string error;
    ASSERT_TRUE(FSim->Start(cell.Laser.Link, FSlot, FParams, error)) << error;
    FSimStarted = true;
  }

  void TearDown() override {
    if (GetParam().NotApplicable != nullptr) return;
    UnloadLaserLibrary();
    if (FSim) FSim->Stop();
    SetHost(nullptr);
  }

  static bool Eventually(const std::function<bool()>& holds, std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (!holds()) {
      if (Clock::now() >= deadline) return false;
      std::this_thread::sleep_for(5ms);
    }
    return true;
  }

  // Runs `call`, noting how long it took under `name`.
  void Timed(const std::string& name, const std::function<void()>& call) {
    const auto start = Clock::now();
    EXPECT_NO_THROW(call()) << name;
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    auto& longest = FLongest[name];
    longest = std::max(longest, took);
  }

  // One round of what a host does while it polls: the state queries and a peak-power set.
  void HostPollRound(nchost::INcLaser30& laser, double diode) {
    Timed("GetIsEmissionOn", [&] { laser.GetIsEmissionOn(); });
    Timed("GetIsLaserOn", [&] { laser.GetIsLaserOn(); });
    Timed("GetIsAimingOn", [&] { laser.GetIsAimingOn(); });
    Timed("GetDiodeCurrent", [&] { laser.GetDiodeCurrent(); });
    Timed("GetIsBusy", [&] { laser.GetIsBusy(); });
    Timed("GetDeviceDesc", [&] { laser.GetDeviceDesc(); });
    Timed("UpdateAlarms", [&] {
      TNullReport report;
      laser.UpdateAlarms(report);
    });
    Timed("SetDiodeCurrent", [&] { laser.SetDiodeCurrent(diode); });
  }

  // Connection warnings so far: the operator's "connection failed", and with it the driver's "connection closed".
  size_t FailedWarnings() const {
    return FSink->Count(refhost::TRecordingSink::TextContains(SLaserConnectedFail.Text()));
  }
  size_t ConnectionWarnings() const {
    return FailedWarnings() + FSink->Count(refhost::TRecordingSink::TextContains("Connection Closed."));
  }

  bool OutputSwitchedOnSince(size_t writes) const {
    const auto all = FIO->Writes();
    for (size_t i = writes; i < all.size(); ++i)
      if (all[i].Op == refhost::TIOOp::SetOutputbit && all[i].Value != 0.0) return true;
    return false;
  }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  std::shared_ptr<refhost::TSimCtrlExtIO> FIO = std::make_shared<refhost::TSimCtrlExtIO>();
  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  testsupport::TScratchDir FLinkDir;
  testsupport::TSimSlot FSlot;
  std::string FLinkPath;
  std::unique_ptr<testsupport::TLinkSimulator> FSim;
  bool FSimStarted = false;
  TLaserParams FParams;
  std::map<std::string, std::chrono::milliseconds> FLongest;
};

TEST_P(LinkFaultMatrix, HostCallsStayShortWarningsAreThrottledAndTheLaserReconnectsWithoutEmitting) {
  const TCell& cell = GetParam();
  const TLink link = cell.Laser.Link;
  const TFault fault = cell.Fault.Fault;
  const std::string onCmd = FSim->EmissionOnCommand();
  const std::string offCmd = FSim->EmissionOffCommand();
  ASSERT_FALSE(onCmd.empty());

  auto laser = CreateLaser(FParams, FIO);
  ASSERT_TRUE(laser);
  ASSERT_NE(std::string(typeid(*laser).name()).find(cell.Laser.ClassName), std::string::npos)
      << ::testing::PrintToString(FSink->Texts(refhost::TEntryKind::Message));
  ASSERT_TRUE(Eventually([&] { return FSim->Received() > 0; }, 10s)) << "the laser never reached its simulator";

  // The laser emits when the fault begins.
  laser->LaserOn();
  laser->EmissionOn();
  ASSERT_TRUE(FSim->WaitFor(onCmd, 5s)) << "emission-on never reached the laser";
  ASSERT_TRUE(Eventually([&] { return FSim->Emitting(); }, 5s));

  const size_t warningsBefore = ConnectionWarnings();
  const size_t failedBefore = FailedWarnings();
  const size_t ioWritesBefore = FIO->Writes().size();

  // ---- the fault ----
  switch (fault) {
    case TFault::PeerRestart:
      FSim->Stop();
      FSim->PowerCycle();  // a laser that restarts comes up without emission
      // Its device is gone with it; the system may give the name to another device meanwhile (parallel tests make
      // pseudo-terminals all the time), which this laser must not be pointed at.
      if (link == TLink::Serial) FSerialPorts->Set(FSlot.SerialPort, FLinkDir / "gone");
      break;
    case TFault::PathVanishes:
      FSim->Stop();
      if (link == TLink::Serial) {
        ASSERT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(FLinkPath)))
            << "the device path stayed while the device was gone";
      }
      break;
    default:
      ASSERT_TRUE(FSim->SetPeerFault(link, PeerFaultOf(fault)));
      break;
  }
  // The host keeps polling; it re-asserts emission as its program runs, and switches emission off as it learns of
  // the trouble.
  const auto faultEnd = Clock::now() + kFaultWindow;
  Timed("EmissionOn", [&] { laser->EmissionOn(); });
  bool switchedOff = false;
  for (int round = 0; Clock::now() < faultEnd; ++round) {
    HostPollRound(*laser, round % 2 == 0 ? 30.0 : 40.0);
    if (!switchedOff && Clock::now() + kFaultWindow / 2 >= faultEnd) {
      Timed("EmissionOff", [&] { laser->EmissionOff(); });
      switchedOff = true;
    }
    std::this_thread::sleep_for(20ms);
  }
  if (!switchedOff) Timed("EmissionOff", [&] { laser->EmissionOff(); });

  // Emission-on commands the laser had received when the fault ended; none may follow.
  const size_t onsAtFaultEnd = FSim->Count(onCmd);
  const size_t receivedAtFaultEnd = FSim->Received();
  std::string error;
  switch (fault) {
    case TFault::PeerRestart:
    case TFault::PathVanishes:
      ASSERT_TRUE(FSim->Start(link, FSlot, FParams, error)) << error;
      break;
    default:
      ASSERT_TRUE(FSim->SetPeerFault(link, TPeerFault::None));
      break;
  }

  // ---- after the fault: the laser finds its link again and commands flow ----
  EXPECT_TRUE(Eventually([&] { return FSim->Received() > receivedAtFaultEnd; }, kRecovery))
      << "the laser never reached its simulator again";
  const size_t offsBefore = FSim->Count(offCmd);
  // EmissionOff switches the output stage of the QCW laser off only with LaserOff.
  Timed("EmissionOff", [&] { laser->EmissionOff(); });
  Timed("LaserOff", [&] { laser->LaserOff(); });
  EXPECT_TRUE(Eventually([&] { return FSim->Count(offCmd) > offsBefore; }, kRecovery))
      << "no command reached the laser after the fault";
  HostPollRound(*laser, 50.0);
  std::this_thread::sleep_for(300ms);  // a few more polls of every laser, in which nothing may switch it on

  EXPECT_EQ(FSim->Count(onCmd), onsAtFaultEnd) << "the laser was switched on after the fault without being asked";
  EXPECT_FALSE(OutputSwitchedOnSince(ioWritesBefore)) << "an output of the laser was switched on during the fault";
  EXPECT_FALSE(FSim->Emitting()) << "the laser emits after the fault although the host switched it off";

  // One "connection failed" for an outage, at most one "connection closed" with it; none while the link stays up.
  // A warning per poll would be many.
  const bool outage = fault == TFault::PeerRestart || fault == TFault::PathVanishes;
  const size_t failed = FailedWarnings() - failedBefore;
  if (outage && cell.Laser.WarnsOfOutage) {
    EXPECT_EQ(failed, 1u) << "the operator was not told of the outage exactly once";
  } else {
    EXPECT_LE(failed, 1u);
  }
  EXPECT_LE(ConnectionWarnings() - warningsBefore, 2u)
      << ::testing::PrintToString(FSink->Texts(refhost::TEntryKind::Message));

  const auto bound = cell.Laser.Exchange + kCallSlack;
  for (const auto& [name, longest] : FLongest)
    EXPECT_LT(longest, bound) << name << " waited " << longest.count() << " ms";

  DestroyLaser();
}

INSTANTIATE_TEST_SUITE_P(Lasers, LinkFaultMatrix, ::testing::ValuesIn(Cells()), CellName);

}  // namespace
}  // namespace devlaser
