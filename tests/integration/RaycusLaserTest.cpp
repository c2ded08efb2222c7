// The Raycus serial laser against the simulated laser over a pseudo-terminal, through the reference host's POSIX
// serial port: the bytes on the line for the diode current, emission and the QCW pulse settings, and a line that
// vanishes (the simulator stopped, or its process killed) and comes back under the same link path.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/LaserStrs.h"
#include "raycus/RaycusLaser.h"
#include "refhost/transport/PosixTransports.h"
#include "refhost/transport/SerialPortMap.h"
#include "registry/LaserFactory.h"
#include "sim/raycus/RaycusEscEngine.h"
#include "sim/raycus/RaycusPtyServer.h"
#include "support/FakeSerialPort.h"
#include "support/LaserHostFixture.h"
#include "support/ScratchDir.h"

extern char** environ;

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using testsupport::Bytes;
using testsupport::Hex;
using Clock = std::chrono::steady_clock;

constexpr int32_t kPort = 4;
const std::string kEmissionOn = Bytes("1B 4F 0D");
const std::string kEmissionOff = Bytes("1B 53 0D");
std::string Diode(uint8_t p) { return std::string{'\x1B', 'C', 'P', static_cast<char>(p), '\x0D'}; }

std::vector<uint8_t> Vec(const std::string& s) { return {s.begin(), s.end()}; }

// How long a call took: a host call must return at once even while the line is gone.
template <class F>
Clock::duration Timed(F&& call) {
  const auto start = Clock::now();
  call();
  return Clock::now() - start;
}

class RaycusLaserSimTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, FSerialPorts));
    FSerialPorts->Set(kPort, FLink);
    FParams.Model = "Raycus";
    FParams.LaserMainType = eltRay;
    FParams.LaserSubType = 1;
    FParams.DefParams.DataTransType = dttSerial;
    FParams.DefParams.Comm.CommPort = kPort;
    FParams.DefParams.Comm.CommSettings = "9600,n,8,1";
    FParams.DefParams.CtrlPort = 0;
    FParams.DefParams.PWM.DiodeCurrent = 20;
  }
  void TearDown() override {
    FLaser.reset();
    if (FLibraryLoaded) UnloadLaserLibrary();
    FServer.Stop();
    TLaserHostFixture::TearDown();
  }

  void Serve() { ASSERT_TRUE(FServer.Start()) << FServer.LastError(); }

  // A laser whose start-up diode current has reached the simulator, with the simulator's log cleared.
  TRaycusLaser& Connected(std::shared_ptr<TNcLaser> laser) {
    FLaser = std::move(laser);
    auto* raycus = dynamic_cast<TRaycusLaser*>(FLaser.get());
    EXPECT_NE(raycus, nullptr);
    EXPECT_TRUE(FEngine.WaitFor(Diode(20), 10s, 5));
    std::this_thread::sleep_for(100ms);
    FEngine.ClearLog();
    return *raycus;
  }
  TRaycusLaser& FromParams() { return Connected(MakeLaser<TRaycusLaser>(FParams, FIO)); }
  TRaycusLaser& FromConfig() {
    EXPECT_TRUE(LoadLaserLibrary(&FApp));
    FLibraryLoaded = true;
    TLaserConfig config;
    config.SetModel("Raycus");
    config.GetRaycusConfig().SetType("CW");
    config.GetRaycusConfig().SetCommPort(kPort);
    config.Pwm().SetDiodeCurrent(20);
    return Connected(CreateLaser(&config, FIO));
  }

  // The diode commands in the log, and where `command` stands among all commands (-1 when absent).
  size_t DiodeCommands() const {
    auto all = FEngine.Commands();
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), [](auto& c) { return c[1] == 'C'; }));
  }
  long IndexOf(const std::string& command) const {
    auto all = FEngine.Commands();
    auto it = std::find(all.begin(), all.end(), command);
    return it == all.end() ? -1 : it - all.begin();
  }

  testsupport::TScratchDir FDir;
  const std::string FLink = FDir / "raycus-line";
  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  lasersim::TRaycusEscEngine FEngine;
  lasersim::TRaycusPtyServer FServer{FEngine, FLink};
  std::shared_ptr<TNcLaser> FLaser;
  bool FLibraryLoaded = false;
};

class RaycusDiodeTest : public RaycusLaserSimTest, public ::testing::WithParamInterface<bool> {};

TEST_P(RaycusDiodeTest, DiodeCurrentIsRepeatedFiveTimesAndQueuedCommandsGoFirst) {
  Serve();
  auto& laser = GetParam() ? FromConfig() : FromParams();

  // 37.5 rounds to 38 (0x26), sent five times; an emission-on queued after two of them goes out before the rest.
  ASSERT_TRUE(laser.SetDiodeCustom(37.5));
  ASSERT_TRUE(FEngine.WaitFor(Diode(0x26), 5s, 2));
  laser.EmissionOn();
  ASSERT_TRUE(FEngine.WaitFor(Diode(0x26), 5s, 5));
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(FEngine.Count(Diode(0x26)), 5u);
  EXPECT_EQ(DiodeCommands(), 5u);
  const long on = IndexOf(kEmissionOn);
  EXPECT_GE(on, 2);
  EXPECT_LT(on, 5) << "the emission command waited for the repeats";
  EXPECT_TRUE(FEngine.State().EmissionOn);
  EXPECT_EQ(FEngine.State().DiodeCurrent, 38);

  // 36.5 rounds to 36 (0x24); a newer value before the five are out replaces it and starts five afresh.
  FEngine.ClearLog();
  laser.SetDiodeCustom(36.5);
  ASSERT_TRUE(FEngine.WaitFor(Diode(0x24), 5s, 2));
  laser.SetDiodeCustom(41.0);
  ASSERT_TRUE(FEngine.WaitFor(Diode(41), 5s, 5));
  std::this_thread::sleep_for(200ms);
  EXPECT_LT(FEngine.Count(Diode(0x24)), 5u);
  EXPECT_EQ(FEngine.Count(Diode(41)), 5u);

  // 28 bytes (six commands) go out as they stand; 29 go nowhere.
  FEngine.ClearLog();
  const std::string six =
      Bytes("1B 46 13 88 44 0A 50 64 0D") + Diode(50) + Diode(13) + kEmissionOff + kEmissionOn + kEmissionOff;
  ASSERT_EQ(six.size(), 28u);
  EXPECT_FALSE(laser.SerialThread()->LockAddCmd(Vec(six + "\x0D")));
  EXPECT_TRUE(laser.SerialThread()->LockAddCmd(Vec(six)));
  ASSERT_TRUE(FEngine.WaitFor(kEmissionOn, 5s));
  std::this_thread::sleep_for(200ms);
  std::vector<std::string> hex;
  for (const auto& c : FEngine.Commands()) hex.push_back(Hex(c));
  EXPECT_THAT(hex, ::testing::ElementsAre("1B 46 13 88 44 0A 50 64 0D", "1B 43 50 32 0D", "1B 43 50 0D 0D", "1B 53 0D",
                                          "1B 4F 0D", "1B 53 0D"));
  EXPECT_TRUE(std::none_of(FEngine.Log().begin(), FEngine.Log().end(), [](auto& e) { return e.Junk; }));
}

INSTANTIATE_TEST_SUITE_P(FromConfigAndParams, RaycusDiodeTest, ::testing::Bool(),
                         [](const auto& p) { return p.param ? "FromConfig" : "FromParams"; });

TEST_F(RaycusLaserSimTest, LaserOnSendsThePulseSettingsOnlyOnTheQcwSubType) {
  Serve();
  FParams.CfgRay.QCW = {5000, 10, 100};
  FParams.LaserSubType = 1;
  FromParams().LaserOn();
  FLaser->EmissionOn();  // a marker: what LaserOn queued goes out before it
  ASSERT_TRUE(FEngine.WaitFor(kEmissionOn, 5s));
  EXPECT_EQ(FEngine.Commands(), std::vector<std::string>{kEmissionOn});

  FParams.LaserSubType = 2;
  FLaser.reset();
  FromParams().LaserOn();
  ASSERT_TRUE(FEngine.WaitFor(Bytes("1B 46 13 88 44 0A 50 64 0D"), 5s));
  const auto state = FEngine.State();
  EXPECT_EQ(state.PulseFreq, 5000);
  EXPECT_EQ(state.PulseRatio, 10);
  EXPECT_EQ(state.PulsePower, 100);
}

TEST_F(RaycusLaserSimTest, ALineThatVanishesIsReopenedWhenItComesBack) {
  Serve();
  auto& laser = FromParams();
  FServer.Stop();  // the cable is pulled: the port hangs up and the link path is gone
  const auto worst = std::max({Timed([&] { laser.EmissionOn(); }), Timed([&] { laser.SetDiodeCurrent(70); }),
                               Timed([&] { (void)laser.GetIsEmissionOn(); }), Timed([&] { laser.EmissionOff(); })});
  EXPECT_LT(worst, 100ms);
  std::this_thread::sleep_for(200ms);
  Serve();
  laser.EmissionOn();
  ASSERT_TRUE(FEngine.WaitFor(kEmissionOn, 10s));
  EXPECT_TRUE(FEngine.State().EmissionOn);

  // Destroyed while emitting: emission is switched off on the way out, after what was still queued.
  FLaser.reset();
  EXPECT_TRUE(Eventually([&] { return !FEngine.State().EmissionOn; }, 2s));
}

// The simulator as a program, killed outright and started again on the same link path.
class TSimProcess {
 public:
  explicit TSimProcess(std::string link) : FLink(std::move(link)) {}
  ~TSimProcess() { Kill(); }
  bool Start() {
    const std::string program = std::string(DEVLASER_BIN_DIR) + "/raycussim";
    std::vector<std::string> args{program, "--link", FLink};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const int spawned = posix_spawn(&FPid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return false;
    for (auto deadline = Clock::now() + 10s; Clock::now() < deadline; std::this_thread::sleep_for(5ms))
      if (std::filesystem::exists(FLink)) return true;
    return false;
  }
  void Kill() {
    if (FPid <= 0) return;
    ::kill(FPid, SIGKILL);
    ::waitpid(FPid, nullptr, 0);
    FPid = 0;
  }

 private:
  std::string FLink;
  pid_t FPid = 0;
};

TEST_F(RaycusLaserSimTest, ASimulatorKilledAndStartedAgainIsTalkedToAgain) {
  FParams.DefParams.Comm.IgnoreCommResult = false;  // the laser logs each "TS" answer: proof that commands flow
  TSimProcess sim(FLink);
  ASSERT_TRUE(sim.Start());
  FLaser = MakeLaser<TRaycusLaser>(FParams, FIO);
  auto& laser = dynamic_cast<TRaycusLaser&>(*FLaser);
  auto answers = [&] { return FSink->Count([](const refhost::TMessageEntry& e) { return e.Text == "TS\r"; }); };
  ASSERT_TRUE(Eventually([&] { return answers() >= 5; }, 10s));

  sim.Kill();  // the pseudo-terminal goes with the process; a stale link may stay behind
  std::filesystem::remove(FLink);
  const auto worst = std::max({Timed([&] { laser.EmissionOn(); }), Timed([&] { laser.SetDiodeCurrent(55); }),
                               Timed([&] { laser.EmissionOff(); })});
  EXPECT_LT(worst, 100ms);
  std::this_thread::sleep_for(200ms);

  ASSERT_TRUE(sim.Start());
  const size_t before = answers();
  laser.EmissionOn();
  EXPECT_TRUE(Eventually([&] { return answers() > before; }, 10s));
  EXPECT_EQ(FSink->Count(refhost::TRecordingSink::TextContains("Exception")), 0u);
}

}  // namespace
}  // namespace devlaser
