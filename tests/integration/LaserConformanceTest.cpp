// Every laser class the registry knows, created through the factory and held to one lifecycle: every host
// operation in every state without an exception or a wait beyond the class's time-outs; after DestroyLaser, with the
// host still holding the laser and an information source, no byte on any link, no output written, no thread and no
// descriptor left; a second creation on the same port only once the first laser has let go of it; and a thousand
// create/destroy cycles that leave the process as they found it. The cases come from the registry's own table and,
// for a class with a link, run against its simulator (support/LinkSimulators.h) over each link it speaks.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

#include "core/NcLaser.h"
#include "frame/LaserStrs.h"
#include "refhost/SimEcatSystem.h"
#include "refhost/transport/PosixTransports.h"
#include "registry/LaserFactory.h"
#include "registry/LaserLib.h"
#include "registry/LaserRegistrations.h"
#include "support/LaserHostFixture.h"
#include "support/LinkSimulators.h"
#include "support/PortCensus.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testsupport::TLink;

struct TRegistration {
  std::string ClassName;
  TEnumLaserType Type = eltNone;
  int32_t SubType = 0;
  TLink Link = TLink::None;
  int Index = 0;             // gives the case its own loopback address and serial port number
  bool FirstSubType = true;  // of its registration
};

// One case per registered sub-type; a class with a simulator runs its first sub-type over every link it speaks and
// the others over its first link (the link code is the same for every sub-type of a class).
std::vector<TRegistration> RegistryCases() {
  TNcLaserLib lib;
  TLaserTypeDic types;
  RegisterBuiltInLasers(lib, types);
  std::vector<TRegistration> cases;
  for (const auto& entry : lib.Entries()) {
    bool first = true;
    for (int sub = 0; sub < static_cast<int>(entry.SubTypes.size()); ++sub) {
      if (!entry.SubTypes.test(static_cast<size_t>(sub))) continue;
      TRegistration c{entry.LaserClass.Name, entry.LaserType, sub};
      c.FirstSubType = first;
      const auto* family = testsupport::SimFamilyOf(c.ClassName);
      if (family == nullptr) {
        cases.push_back(c);
      } else {
        for (size_t i = 0; i < (first ? family->Links.size() : 1); ++i) {
          c.Link = family->Links[i];
          cases.push_back(c);
        }
      }
      first = false;
    }
  }
  for (size_t i = 0; i < cases.size(); ++i) cases[i].Index = static_cast<int>(i);
  return cases;
}

void PrintTo(const TRegistration& c, std::ostream* os) {
  *os << c.ClassName << " (" << static_cast<int>(c.Type) << "/" << c.SubType << ", " << testsupport::LinkName(c.Link)
      << ")";
}

std::string CaseName(const ::testing::TestParamInfo<TRegistration>& info) {
  const auto& c = info.param;
  return c.ClassName + "_" + std::to_string(static_cast<int>(c.Type)) + "_" + std::to_string(c.SubType) + "_" +
         testsupport::LinkName(c.Link);
}

size_t CountEntries(const char* dir) {
  std::filesystem::directory_iterator entries(dir);
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}
// The threads of the process. A sanitizer runtime starts a helper thread of its own when the process creates its
// first thread; one thread started and joined before the first count puts that helper in every baseline.
size_t ThreadCount() {
  static const bool runtimeHelpersStarted = [] {
    std::thread([] {}).join();
    return true;
  }();
  (void)runtimeHelpersStarted;
  return CountEntries("/proc/self/task");
}

// A joined thread can stay listed for a moment after its join returned (the kernel wakes the joiner before it
// reaps the task), so a baseline is the count once two readings agree.
size_t SettledThreadCount() {
  size_t count = ThreadCount();
  for (int i = 0; i < 100; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const size_t again = ThreadCount();
    if (again == count) break;
    count = again;
  }
  return count;
}

size_t OpenDescriptors() { return CountEntries("/proc/self/fd"); }

// The bus identity under which the factory builds an EtherCAT laser; other registrations need no bus at all.
std::optional<std::pair<uint32_t, uint32_t>> BusIdentity(const TRegistration& c) {
  if (c.Type == eltIPG && c.SubType == 9) return std::pair{0xE0000044u, 3u};
  if (c.Type == eltMaxSZ && c.SubType == 3) return std::pair{1638u, 0u};
  return std::nullopt;
}

struct TAlarmSink : nchost::INcAlarmTable20, nchost::INcAlarmReport20 {
  void RegisterAlarm(int32_t, const nchost::TNcAlarmDef&) override {}
  void ReportAlarm(int32_t, bool) override {}
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
// Command numbers the base and the models give a meaning, and numbers no laser knows.
std::vector<int32_t> CommandNumbers() {
  std::vector<int32_t> numbers;
  for (int32_t n = 0; n <= 28; ++n) numbers.push_back(n);
  for (int32_t n :
       {2101, 2102, -1, 29, 2100, 2103, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()})
    numbers.push_back(n);
  return numbers;
}

class LaserConformance : public testing::TLaserHostFixture, public ::testing::WithParamInterface<TRegistration> {
 protected:
  // No single host call may take longer than the longest wait a class has: a reply window of 1 s or the diode-set
  // time-out below, with room for a loaded machine.
  static constexpr auto kLongestCall = 3s;

  void SetUp() override {
    const auto& c = GetParam();
    ResetMessages();
    TLaserHostFixture::SetUp();
    FApp.SetTransports(FCensus);
    FApp.SetEcatSystem(FEcat);
    const auto bus = BusIdentity(c);
    FEcat->SetLaserSlave(bus.has_value(), bus ? bus->first : 0, bus ? bus->second : 0);
    ASSERT_TRUE(LoadLaserLibrary(&FApp));
    FParams.Initialize();
    FParams.Model = c.ClassName;
    FParams.LaserMainType = c.Type;
    FParams.LaserSubType = c.SubType;
    FParams.DefParams.DiodeSetTimeOut = 100;
    if (c.Link != TLink::None) {
      FSim = testsupport::SimFamilyOf(c.ClassName)->Make();
      // ctest runs the tests of one case side by side: each test kind has its own loopback subnet.
      const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
      const int subnet = test.rfind("Every", 0) == 0 ? 8 : test.rfind("Destroyed", 0) == 0 ? 10 : 11;
      testsupport::TSimSlot slot{"127.0." + std::to_string(subnet) + "." + std::to_string(c.Index + 1), 200 + c.Index,
                                 FSerialPorts, FEcat};
      std::string error;
      ASSERT_TRUE(FSim->Start(c.Link, slot, FParams, error)) << error;
    }
  }

  void TearDown() override {
    UnloadLaserLibrary();
    if (FSim) FSim->Stop();
    TLaserHostFixture::TearDown();
  }

  // Creates the case's laser through the factory and checks that the registration's class was built.
  std::shared_ptr<TNcLaser> Create() {
    auto laser = CreateLaser(FParams, FIO);
    EXPECT_TRUE(laser);
    if (laser) {
      const TNcLaser& object = *laser;
      const std::string built = typeid(object).name();
      EXPECT_NE(built.find(GetParam().ClassName), std::string::npos)
          << "the factory built " << built << ": "
          << ::testing::PrintToString(FSink->Texts(refhost::TEntryKind::Message));
    }
    return laser;
  }

  // A laser with a link has heard back from its simulator (its first command has arrived there).
  void AwaitLink() {
    if (FSim) {
      EXPECT_TRUE(Eventually([&] { return FSim->Received() > 0; }, 10s));
    }
  }

  // Every operation of the host's interface, the queries first so that they see the state the caller set up.
  using TCall = std::function<void(nchost::INcLaser30&)>;
  std::vector<std::pair<std::string, TCall>> Operations(bool hostileValues) {
    std::vector<std::pair<std::string, TCall>> ops = {
        {"GetDeviceDesc", [](auto& l) { l.GetDeviceDesc(); }},
        // The state queries answer from what the laser holds: one time limit for them all.
        {"state queries",
         [](auto& l) {
           l.GetIsBusy(), l.GetAlarmIDPrefix(), l.GetDiodeCurrent(), l.GetLaserMode(), l.GetIsAimingOn();
           l.GetIsEmissionOn(), l.GetIsLaserOn(), l.GetIsCmdLaserOn(), l.GetPwmFreq(), l.GetPwmRatio();
           l.GetLaserRtData(0), l.GetLaserRtData(-1), l.GetLaserRtData(99);
         }},
        {"alarms",
         [this](auto& l) {
           l.GetAlarmDesc(1), l.GetAlarmDesc(511), l.GetAlarmDesc(-7);
           l.RegisterAlarms(FAlarms), l.UpdateAlarms(FAlarms);
         }},
        {"ResetAlarm", [](auto& l) { l.ResetAlarm(511), l.ResetAlarm(1), l.ResetAlarm(-1); }},
        {"ExecCmd", [](auto& l) { l.ExecCmd("ResetErrors", 0), l.ExecCmd("", 0), l.ExecCmd("NoSuchCommand", kNaN); }},
        {"ExecuteDebugCmd", [](auto& l) { l.ExecuteDebugCmd(0, 0), l.ExecuteDebugCmd(-1, kNaN); }},
        {"UpdateLaserParams",
         [this](auto& l) {
           auto json = FApp.CreateJsonObject();
           l.UpdateLaserParams(*json);
         }},
    };
    const std::vector<double> values =
        hostileValues ? std::vector<double>{0.5, kNaN, kInf, -kInf, 1e300, -1e300} : std::vector<double>{0.5};
    for (double v : values) {
      ops.push_back({"SetDiodeCurrent", [v](auto& l) { l.SetDiodeCurrent(v * 100); }});
      ops.push_back({"SetDiodeCurrentByDA", [v](auto& l) { l.SetDiodeCurrentByDA(v * 100); }});
      ops.push_back({"SetDiodeCurrentWaitBusy", [v](auto& l) { l.SetDiodeCurrentWaitBusy(v * 100); }});
      ops.push_back({"SetPwmRatio", [v](auto& l) { l.SetPwmRatio(v); }});
      ops.push_back({"DynamicPower", [v](auto& l) { l.DynamicPower(v); }});
      for (int32_t cmd : CommandNumbers())
        ops.push_back({"ExecuteCmd " + std::to_string(cmd), [cmd, v](auto& l) { l.ExecuteCmd(cmd, v); }});
    }
    for (int32_t hz : {1000, 0, -1, std::numeric_limits<int32_t>::max()})
      ops.push_back({"SetPwmFreq", [hz](auto& l) { l.SetPwmFreq(hz); }});
    for (int32_t mode : {0, 1, -1}) ops.push_back({"SetLaserMode", [mode](auto& l) { l.SetLaserMode(mode); }});
    ops.push_back({"Stop", [](auto& l) { l.Stop(0); }});
    ops.push_back({"switching", [](auto& l) {
                     l.SetAimingOn(true), l.SetAimingOn(false), l.LaserOnPrepare(), l.LaserOn(), l.EmissionOn();
                     l.EmissionOff(), l.LaserOff(), l.PowerOn(), l.PowerOff();
                   }});
    return ops;
  }

  // Runs every operation on `laser`; none may throw or take longer than kLongestCall.
  void CallEverything(nchost::INcLaser30& laser, const std::string& state, bool hostileValues) {
    for (const auto& [name, call] : Operations(hostileValues)) {
      const auto start = Clock::now();
      EXPECT_NO_THROW(call(laser)) << name << " in state " << state;
      EXPECT_LT(Clock::now() - start, kLongestCall) << name << " in state " << state;
    }
  }

  // What reaches the world: bytes on the links, writes to the IO extension, commands at the simulator.
  struct TOutside {
    size_t BytesWritten, IOWrites, SimReceived;
  };
  TOutside Outside() const {
    return {FCensus->Counts().BytesWritten, FIO->Writes().size(), FSim ? FSim->Received() : 0};
  }

  TAlarmSink FAlarms;
  std::shared_ptr<refhost::TSimEcatSystem> FEcat = std::make_shared<refhost::TSimEcatSystem>();
  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  std::shared_ptr<testsupport::TPortCensus> FCensus =
      std::make_shared<testsupport::TPortCensus>(std::make_shared<refhost::TPosixTransports>(
          refhost::TTransportLog{}, FSerialPorts, refhost::TReachabilityProbe::TcpConnect));
  std::unique_ptr<testsupport::TLinkSimulator> FSim;
};

TEST_P(LaserConformance, EveryOperationInEveryStateReturnsWithoutThrowing) {
  // Over a link the sweep takes seconds; a further sub-type of the same class runs the same code over the same link.
  if (GetParam().Link != TLink::None && !GetParam().FirstSubType) GTEST_SKIP() << "swept with the first sub-type";
  auto laser = Create();
  ASSERT_TRUE(laser);
  AwaitLink();
  using TEnter = std::function<void(nchost::INcLaser30&)>;
  const std::vector<std::pair<const char*, TEnter>> states = {
      {"fresh", [](auto&) {}},
      {"power on", [](auto& l) { l.PowerOn(); }},
      {"laser on", [](auto& l) { l.LaserOn(); }},
      {"emission on", [](auto& l) { l.LaserOn(), l.EmissionOn(); }},
      {"aiming on", [](auto& l) { l.SetAimingOn(true); }},
      {"after power off", [](auto& l) { l.EmissionOff(), l.LaserOff(), l.PowerOff(); }},
  };
  for (const auto& [state, enter] : states) {
    EXPECT_NO_THROW(enter(*laser)) << state;
    // Hostile values while emitting, where a bad one would do most harm; the ordinary ones in every state.
    const bool hostile = std::string(state) == "emission on";
    CallEverything(*laser, state, hostile);
  }
}

TEST_P(LaserConformance, DestroyedWhileHeldGoesSilentAndLetsGoOfEverything) {
  const size_t threads = SettledThreadCount();
  const size_t descriptors = OpenDescriptors();
  std::shared_ptr<nchost::INcLaser30> held = Create();
  ASSERT_TRUE(held);
  auto info = CreateLaserInfoSource();
  ASSERT_TRUE(info);
  AwaitLink();
  held->LaserOn();
  held->EmissionOn();
  held->SetAimingOn(true);

  DestroyLaser();
  const TOutside atDestroy = Outside();
  EXPECT_TRUE(Eventually([&] { return ThreadCount() == threads; }, 200ms))
      << "a thread of the laser outlived DestroyLaser: " << ThreadCount() << " against " << threads;
  EXPECT_EQ(FCensus->Counts().Open, 0u) << "a port of the laser outlived DestroyLaser";
  EXPECT_EQ(FCensus->Counts().Clients, 0u) << "a client of the laser outlived DestroyLaser";
  // The in-process simulator closes its end of a connection once it notices the laser's close.
  EXPECT_TRUE(Eventually([&] { return OpenDescriptors() == descriptors; }, 2s)) << OpenDescriptors();

  // Bytes written before DestroyLaser returned may still be on their way through a serial line.
  std::this_thread::sleep_for(100ms);
  const size_t simSettled = FSim ? FSim->Received() : 0;

  // The held interface and the information source answer from state; nothing reaches the link or the IO.
  held->EmissionOn();
  CallEverything(*held, "destroyed", true);
  auto obj = FApp.CreateJsonObject();
  EXPECT_NO_THROW(info->ReadAllData(*obj));
  std::this_thread::sleep_for(300ms);  // several poll periods of any monitor that might still run
  const TOutside after = Outside();
  EXPECT_EQ(after.BytesWritten, atDestroy.BytesWritten) << "bytes reached a link after DestroyLaser";
  EXPECT_EQ(after.IOWrites, atDestroy.IOWrites) << "the IO extension was written after DestroyLaser";
  EXPECT_EQ(after.SimReceived, simSettled) << "the simulated laser heard from a destroyed laser";
  EXPECT_EQ(SettledThreadCount(), threads);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_P(LaserConformance, ASecondCreationTakesThePortOnlyAfterTheFirstLetGoOfIt) {
  auto first = Create();
  ASSERT_TRUE(first);
  AwaitLink();
  FCensus->ResetMostOpen();
  const size_t before = FSim ? FSim->Received() : 0;
  auto second = Create();
  ASSERT_TRUE(second);
  EXPECT_TRUE(first->IsShutDown());
  if (FSim) {
    EXPECT_TRUE(Eventually([&] { return FSim->Received() > before; }, 10s)) << "the new laser never reached the link";
    EXPECT_LE(FCensus->Counts().MostOpen, 1u) << "two lasers had the port open at once";
  }
  // The first laser, still held, writes nothing while the second one stands idle.
  const size_t ioWrites = FIO->Writes().size();
  first->EmissionOn();
  first->SetAimingOn(true);
  first->SetPwmRatio(0.9);
  EXPECT_EQ(FIO->Writes().size(), ioWrites);
  DestroyLaser();
}

INSTANTIATE_TEST_SUITE_P(Registry, LaserConformance, ::testing::ValuesIn(RegistryCases()), CaseName);

// ---- many lives ------------------------------------------------------------------------------------------------

class LaserLifeCycles : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, nullptr,
                                                                   refhost::TReachabilityProbe::TcpConnect));
    ASSERT_TRUE(LoadLaserLibrary(&FApp));
  }
  void TearDown() override {
    UnloadLaserLibrary();
    TLaserHostFixture::TearDown();
  }
};

TEST_F(LaserLifeCycles, AThousandLivesAcrossClassesLeaveNoThreadAndNoDescriptor) {
  const auto cases = RegistryCases();
  // A laser with a link looks for it at an address where nothing listens: refused at once, never waited for.
  auto paramsOf = [](const TRegistration& c) {
    TLaserParams params;
    params.Initialize();
    params.LaserMainType = c.Type;
    params.LaserSubType = c.SubType;
    params.DefParams.DataTransType = c.Link == TLink::Serial ? dttSerial : dttNetTcp;
    params.DefParams.Net.TcpHost = "127.0.9.1";
    params.DefParams.Comm.CommPort = 250;  // mapped to no device
    params.DefParams.DiodeSetTimeOut = 0;  // a set that nobody echoes is given up at once
    return params;
  };
  // One life of each first, so that what the host creates once (its logger, say) is in the baseline.
  for (const auto& c : cases) CreateLaser(paramsOf(c), FIO);
  DestroyLaser();
  const size_t threads = SettledThreadCount();
  const size_t descriptors = OpenDescriptors();
  for (int i = 0; i < 1000; ++i) {
    const auto& c = cases[static_cast<size_t>(i) % cases.size()];
    auto laser = CreateLaser(paramsOf(c), FIO);
    ASSERT_TRUE(laser) << c.ClassName;
    if (i % 3 == 0) laser->EmissionOn();
    if (i % 2 == 0) DestroyLaser();  // else the next creation replaces it
  }
  DestroyLaser();
  EXPECT_EQ(SettledThreadCount(), threads);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace devlaser
