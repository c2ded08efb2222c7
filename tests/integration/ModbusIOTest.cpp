// The IO extension on a Modbus TCP IO module, against an in-process module (libmodbus's own server) on loopback:
// the image, refused writes, the module vanishing and coming back, and laserctl driving a hard-wired laser through it
// with --io.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "LaserctlTestSupport.h"
#include "core/DefaultLaser.h"
#include "core/LaserLifetime.h"
#include "refhost/modbus/ModbusCtrlExtIO.h"
#include "sim/modbus/ModbusModuleSim.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TEntryKind;
using refhost::TModbusTable;
using ::testing::HasSubstr;
using Clock = std::chrono::steady_clock;

constexpr int kModulePort = 15020;
constexpr uint16_t kReady = 5, kGate = 6;

// The first write of `value` to a point of the module, at or after `after`.
std::optional<lasersim::TModbusWrite> FirstWrite(const lasersim::TModbusModuleSim& module, TModbusTable table,
                                                 uint16_t address, uint16_t value, Clock::time_point after = {}) {
  for (const auto& w : module.Writes())
    if (w.Table == table && w.Address == address && w.Value == value && w.Time >= after) return w;
  return std::nullopt;
}

class ModbusIOTest : public testing::TLaserHostFixture {
 protected:
  void TearDown() override {
    FLaser.reset();
    if (FModbus) FModbus->Stop();
    FModule.Stop();
    TLaserHostFixture::TearDown();
  }

  // The module on `ip`, and the IO extension connected to it with short time-outs.
  void Open(const std::string& ip, refhost::TModbusMap map = refhost::TModbusMap::Default()) {
    FAddress = ip;
    std::string error;
    ASSERT_TRUE(FModule.Start(ip, kModulePort, error)) << error;
    refhost::TModbusIOOptions options;
    options.Host = ip;
    options.Port = kModulePort;
    options.Map = std::move(map);
    options.ResponseTimeout = 200ms;
    options.RetryFirst = 20ms;
    options.RetryLongest = 100ms;
    FModbus = std::make_shared<refhost::TModbusCtrlExtIO>(options, FSink);
    ASSERT_TRUE(FModbus->Connect(error)) << error;
    FModbus->Start();
  }

  // The default laser of examples/default-laser.json: ready output 5, 300 ms, gate output 6, diode on DA 1.
  void MakeDefaultLaser() {
    FParams.Model = "Default";
    FParams.DefParams.CtrlPort = kGate;
    FParams.CfgOther.ShutterReady = kReady;
    FParams.CfgOther.ShutterReadyDelay = 300;
    FParams.DefParams.DA.DAPort = 1;
    FParams.DefParams.DA.MaxVoltage = 10.0;
    FLaser = MakeLaser<TDefaultLaser>(FParams, FModbus);
    ASSERT_TRUE(FLaser);
  }

  bool ModuleHolds(const std::function<bool(const lasersim::TModbusModuleSim&)>& holds) {
    return FModule.WaitUntil(holds, 5s);
  }
  size_t MessagesAbout(const std::string& part) const {
    return FSink->Count([&](const refhost::TMessageEntry& e) {
      return e.Kind == TEntryKind::Message && e.Text.find(part) != std::string::npos;
    });
  }

  std::string FAddress;
  lasersim::TModbusModuleSim FModule;
  std::shared_ptr<refhost::TModbusCtrlExtIO> FModbus;
  std::shared_ptr<TDefaultLaser> FLaser;
};

TEST_F(ModbusIOTest, ImageFollowsTheModulesInputsAndCarriesPwmAndAnalogueWrites) {
  Open("127.0.17.3");
  EXPECT_FALSE(FModbus->GetOutPortExist(17)) << "the default map has outputs 1 to 16";
  EXPECT_FALSE(FModbus->GetDAPortExist(4));
  EXPECT_TRUE(FModbus->GetPwmPortExist(1));

  FModule.SetDiscreteInput(3, true);
  FModule.SetInputRegister(2, 4500);
  EXPECT_TRUE(Eventually([&] { return FModbus->GetInputBit(3) && FModbus->GetADValue(2) == 4.5; }));
  EXPECT_FALSE(FModbus->GetInputBit(4));

  FModbus->SetPwmFreq(1, 5000);
  FModbus->SetPwmRatio(1, 0.25);
  FModbus->SetPwmEn(1, true);
  EXPECT_EQ(FModbus->GetPwmRatio(1), 0.25) << "a write reads back from the image at once";
  EXPECT_TRUE(ModuleHolds(
      [](auto& m) { return m.Coil(201) && m.HoldingRegister(102) == 5000 && m.HoldingRegister(103) == 2500; }));

  FModbus->SetOutputbit(2, true);
  FModbus->SetOutputbit(9, true);
  ASSERT_TRUE(ModuleHolds([](auto& m) { return m.Coil(2) && m.Coil(9); }));
  FModbus->CloseAllOutports();
  EXPECT_TRUE(ModuleHolds([](auto& m) { return !m.Coil(2) && !m.Coil(9); }));
  EXPECT_TRUE(FModule.Coil(201)) << "closing the outputs leaves the PWM channel to the laser";

  // Stop switches every mapped output off, PWM enables and analogue outputs included.
  FModbus->SetOutputbit(4, true);
  FModbus->SetDAValue(1, 5.0);
  ASSERT_TRUE(ModuleHolds([](auto& m) { return m.Coil(4) && m.HoldingRegister(1) == 5000; }));
  FModbus->Stop();
  EXPECT_FALSE(FModule.Coil(4));
  EXPECT_FALSE(FModule.Coil(201));
  EXPECT_EQ(FModule.HoldingRegister(1), 0);
  FModbus->SetOutputbit(4, true);
  EXPECT_FALSE(FModbus->GetOutputBit(4)) << "a stopped IO extension takes no writes";
}

TEST_F(ModbusIOTest, WriteTheModuleRefusesIsLoggedWithItsPortAndTheLinkStays) {
  refhost::TModbusMap map = refhost::TModbusMap::Default();
  map.Points.push_back({refhost::TIORole::Output, 20, TModbusTable::Coil, 300, 1});          // the module has 256 coils
  map.Points.push_back({refhost::TIORole::Input, 20, TModbusTable::DiscreteInput, 100, 1});  // and 64 inputs
  Open("127.0.17.4", map);
  FModbus->SetOutputbit(20, true);
  EXPECT_TRUE(FSink->WaitForText("refused SetOutputbit 20 (coil 300)", 5s));
  EXPECT_TRUE(Eventually([&] { return !FModbus->GetOutputBit(20); })) << "the output reads as the module holds it";
  FModbus->SetOutputbit(3, true);
  EXPECT_TRUE(ModuleHolds([](auto& m) { return m.Coil(3); }));
  EXPECT_EQ(MessagesAbout(FAddress), 0u) << "a refusal is no lost link";

  // A read the module refuses is logged once, not every scan, and the other inputs are still read.
  FModule.SetDiscreteInput(2, true);
  EXPECT_TRUE(Eventually([&] { return FModbus->GetInputBit(2); }));
  EXPECT_EQ(FSink->Count(refhost::TRecordingSink::TextContains("refused to read discrete_input 100..100")), 1u);
}

// The module killed during emission and started again, with its tables cleared as after a power cycle.
TEST_F(ModbusIOTest, ModuleVanishingDuringEmissionIsToldOnceAndNothingComesBackOnByItself) {
  Open("127.0.17.5");
  MakeDefaultLaser();
  FLaser->EmissionOn();
  ASSERT_TRUE(ModuleHolds([](auto& m) { return m.Coil(kGate); }));

  FModule.Stop();
  ASSERT_TRUE(FSink->WaitForText("IO module " + FAddress + ":15020 unit 1 does not answer", 5s));
  // The laser runs on: its calls answer from the image, which holds every output off.
  FLaser->SetDiodeCurrent(70);
  FLaser->EmissionOff();
  FLaser->EmissionOn();  // the ready-then-gate sequence runs against a module that is not there
  FModbus->SetOutputbit(4, true);
  EXPECT_FALSE(FModbus->GetOutputBit(4));
  EXPECT_FALSE(FModbus->GetOutputBit(kReady));
  std::this_thread::sleep_for(500ms);  // several reconnection attempts
  EXPECT_EQ(MessagesAbout("does not answer"), 1u) << "the operator is told once";

  FModule.ClearTables();
  std::string error;
  ASSERT_TRUE(FModule.Start(FAddress, kModulePort, error)) << error;
  ASSERT_TRUE(FSink->WaitForText("IO module " + FAddress + ":15020 unit 1 answers again", 5s));
  const auto back = Clock::now();
  const int replies = FModule.Replies();
  ASSERT_TRUE(ModuleHolds([&](auto& m) { return m.Replies() > replies + 20; }));  // many scans later
  for (uint16_t coil : {uint16_t{4}, kReady, kGate}) {
    EXPECT_FALSE(FModule.Coil(coil)) << coil;
    EXPECT_FALSE(FirstWrite(FModule, TModbusTable::Coil, coil, 1, back)) << "coil " << coil << " was switched on again";
  }
  EXPECT_EQ(MessagesAbout("does not answer"), 1u);

  // Only a new write sets an output again.
  FLaser->EmissionOff();
  FLaser->EmissionOn();
  EXPECT_TRUE(ModuleHolds([](auto& m) { return m.Coil(kReady) && m.Coil(kGate); }));
}

// A module that hangs with its connection open is gone after the response time-out; whatever it still held is
// switched off when it answers again, so that the image (all off) is true.
TEST_F(ModbusIOTest, HungModuleTimesOutAndIsBroughtToTheSafeStateWhenItAnswersAgain) {
  Open("127.0.17.6");
  FModbus->SetOutputbit(kGate, true);
  ASSERT_TRUE(ModuleHolds([](auto& m) { return m.Coil(kGate); }));
  FModule.SetSilent(true);
  ASSERT_TRUE(FSink->WaitForText("does not answer", 5s));
  EXPECT_FALSE(FModbus->GetOutputBit(kGate));
  EXPECT_TRUE(FModule.Coil(kGate)) << "the hung module still holds it";
  FModule.SetSilent(false);
  ASSERT_TRUE(FSink->WaitForText("answers again", 5s));
  EXPECT_FALSE(FModule.Coil(kGate));
}

TEST_F(ModbusIOTest, StopCutsTheReconnectionBackOffShort) {
  refhost::TModbusIOOptions options;
  options.Host = "127.0.17.7";  // nobody listens there
  options.Port = kModulePort;
  options.RetryFirst = 10s;
  refhost::TModbusCtrlExtIO io(options, FSink);
  std::string error;
  EXPECT_FALSE(io.Connect(error));
  EXPECT_THAT(error, HasSubstr("IO module 127.0.17.7:15020 unit 1 does not answer: Connection refused"));
  io.Start();
  ASSERT_TRUE(FSink->WaitForText("does not answer", 5s));
  const auto start = Clock::now();
  io.Stop();
  EXPECT_LT(Clock::now() - start, 2s);
}

// laserctl drives the default laser through a module, and refuses what cannot work before it switches anything.
class ModbusLaserctlTest : public ::testing::Test {
 protected:
  void TearDown() override { FModule.Stop(); }
  lasersim::TModbusModuleSim FModule;
};

TEST_F(ModbusLaserctlTest, DefaultLaserThroughAModule) {
  std::string error;
  ASSERT_TRUE(FModule.Start("127.0.17.8", kModulePort, error)) << error;
  const auto result = laserctltest::RunLaserctl({"--io", "modbus-tcp://127.0.17.8:15020?scan-ms=5", "--config",
                                                 laserctltest::SourceDir() + "/examples/default-laser.json",
                                                 "emission-on", "wait", "400", "status", "diode", "60", "wait", "50"});
  EXPECT_EQ(result.ExitStatus, 0) << result.Err;
  EXPECT_THAT(result.Err, HasSubstr("SetOutputbit: 6, True"));
  EXPECT_THAT(result.Out, HasSubstr("\"IsEmissionOn\":true"));
  // The ready output, the gate after the ready delay, and the peak power in millivolts on holding register 1.
  const auto ready = FirstWrite(FModule, TModbusTable::Coil, kReady, 1);
  const auto gate = FirstWrite(FModule, TModbusTable::Coil, kGate, 1);
  ASSERT_TRUE(ready && gate && FirstWrite(FModule, TModbusTable::HoldingRegister, 1, 6000));
  EXPECT_GE(gate->Time - ready->Time, 280ms);
  EXPECT_LT(gate->Time - ready->Time, 1000ms);
  // After the run both outputs are off.
  EXPECT_FALSE(FModule.Coil(kReady));
  EXPECT_FALSE(FModule.Coil(kGate));
}

TEST_F(ModbusLaserctlTest, RefusesWhatCannotWorkNamingIt) {
  testsupport::TScratchDir dir;
  const std::string map = dir.Write("io.json", R"({"da": [{"port": 1, "address": 1, "scale": -1}]})");
  struct TCase {
    std::vector<std::string> Args;
    std::string Says;
  };
  const TCase cases[] = {
      {{"--io", "modbus-tcp://127.0.17.9:15020", "emission-on"},
       "IO module 127.0.17.9:15020 unit 1 does not answer: Connection refused"},
      {{"--io", "modbus-tcp://127.0.17.9:15020?map=" + map}, map + ": da[0] (port 1): bad scale -1"},
      {{"--io", "modbus-tcp://127.0.17.9:15020", "--input", "3=1"}, "--input sets inputs of the simulated"},
      {{"--io", "modbus://127.0.17.9"}, "--io is sim or modbus-tcp://"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Says);
    const auto start = Clock::now();
    const auto result = laserctltest::RunLaserctl(c.Args);
    EXPECT_EQ(result.ExitStatus, 2);
    EXPECT_THAT(result.Err, HasSubstr(c.Says));
    EXPECT_LT(Clock::now() - start, 10s);
  }
}

}  // namespace
}  // namespace devlaser
