// The Raycus serial laser over an in-memory serial line: the ESC bytes of every operation, the repeated diode
// current, the outputs switched with emission, the laser's answers, and a silent line once the laser is gone. The
// pulse settings sent on laser-on are shown against the simulator (RaycusLaserSimTest).
#include "raycus/RaycusLaser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "raycus/RaycusEsc.h"
#include "sim/raycus/RaycusEscEngine.h"
#include "support/FakeSerialPort.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TIOOp;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testsupport::Bytes;
using testsupport::Hex;

const std::string kEmissionOn = Bytes("1B 4F 0D");
const std::string kEmissionOff = Bytes("1B 53 0D");
std::string Diode(uint8_t p) { return std::string{'\x1B', 'C', 'P', static_cast<char>(p), '\x0D'}; }

TEST(RaycusEscTest, CommandBytes) {
  const auto diode = raycus::DiodeCurrentCmd(0x26);
  EXPECT_EQ(Hex(std::string(diode.begin(), diode.end())), "1B 43 50 26 0D");
  struct {
    int32_t Freq, Ratio, Power;
    const char* Bytes;
  } const cases[] = {
      {5000, 10, 100, "1B 46 13 88 44 0A 50 64 0D"},
      // Cut, not checked: the low 16 bits of the frequency, the low byte of each percentage.
      {70000, 300, -1, "1B 46 11 70 44 2C 50 FF 0D"},
      {13, 13, 27, "1B 46 00 0D 44 0D 50 1B 0D"},
  };
  for (const auto& c : cases) {
    const auto cmd = raycus::QcwPulseCmd(c.Freq, c.Ratio, c.Power);
    EXPECT_EQ(Hex(std::string(cmd.begin(), cmd.end())), c.Bytes) << c.Freq;
  }
}

class RaycusLaserTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(FFactory);
    FParams.Model = "Raycus";
    FParams.LaserMainType = eltRay;
    FParams.LaserSubType = 1;
    FParams.DefParams.DataTransType = dttSerial;
    FParams.DefParams.Comm.CommPort = 2;
    FParams.DefParams.Comm.CommSettings = "9600,n,8,1";
    FParams.DefParams.CtrlPort = 0;
    FParams.DefParams.DA.DAPort = 1;
    FParams.DefParams.PWM.DiodeCurrent = 20;
  }
  void TearDown() override {
    FLaser.reset();
    TLaserHostFixture::TearDown();
  }

  // A laser whose start-up diode current has gone out, with the line's record cleared.
  TRaycusLaser& Make() {
    FLaser = MakeLaser<TRaycusLaser>(FParams, FIO);
    EXPECT_TRUE(FLaser);
    if (FLaser->SerialThread()) {
      EXPECT_TRUE(Peer().WaitForWrites(5));
    }
    std::this_thread::sleep_for(50ms);
    FIO->ClearWrites();
    return *FLaser;
  }
  testsupport::TFakeSerialPeer& Peer() { return *FFactory->Peer; }
  // The writes since the start-up repeats.
  std::vector<std::string> LineWrites() {
    auto all = Peer().Writes();
    return {all.begin() + std::min<size_t>(5, all.size()), all.end()};
  }
  size_t Logged(const std::string& text) const {
    return FSink->Count([&](const refhost::TMessageEntry& e) { return e.Text == text; });
  }

  std::shared_ptr<testsupport::TFakeSerialFactory> FFactory = std::make_shared<testsupport::TFakeSerialFactory>();
  std::shared_ptr<TRaycusLaser> FLaser;
};

TEST_F(RaycusLaserTest, StartsItsThreadOnTheConfiguredPortAndSendsTheStartingCurrentFiveTimes) {
  Make();
  EXPECT_EQ(Peer().PortNumber(), 2);
  EXPECT_EQ(Peer().Settings(), "9600,n,8,1");
  EXPECT_EQ(Peer().Writes(), std::vector<std::string>(5, Diode(20)));
}

TEST_F(RaycusLaserTest, SetDiodeCurrentFromTheHostGoesToTheLaserNotTheDAOutput) {
  auto& laser = Make();
  FIO->SetDAValue(1, 2.0);  // driven already: the fiber laser writes the DA output only when it is not
  FIO->ClearWrites();
  laser.SetDiodeCurrent(60);
  ASSERT_TRUE(Peer().WaitForWrites(10));
  EXPECT_EQ(Peer().Writes().back(), Diode(60));
  EXPECT_THAT(WritesOf(TIOOp::SetDAValue), IsEmpty());
  EXPECT_DOUBLE_EQ(laser.GetDiodeCurrent(), 60.0);
}

TEST_F(RaycusLaserTest, EmissionSwitchesTheStartOutputAroundTheSerialCommandUnderRemoteControlOnly) {
  FParams.CfgRay.RayStartPort = 9;
  for (bool remote : {true, false}) {
    FParams.CfgRay.UseRemoteCtrl = remote;
    FFactory->Peer = std::make_shared<testsupport::TFakeSerialPeer>();
    auto& laser = Make();
    laser.EmissionOn();
    EXPECT_TRUE(laser.GetIsEmissionOn());
    laser.EmissionOff();
    EXPECT_FALSE(laser.GetIsEmissionOn());
    ASSERT_TRUE(Peer().WaitForWrites(7));
    EXPECT_THAT(LineWrites(), ElementsAre(kEmissionOn, kEmissionOff));
    if (remote)
      EXPECT_THAT(WriteLines(), ElementsAre("SetOutputbit: 9, True", "SetOutputbit: 9, False"));
    else
      EXPECT_THAT(WritesOf(TIOOp::SetOutputbit), IsEmpty());
  }
}

TEST_F(RaycusLaserTest, AGateOutputMakesItHardWiredAndIsWhatEmissionReads) {
  FParams.DefParams.CtrlPort = 6;
  auto& laser = Make();
  EXPECT_TRUE(laser.GetIsHardWire());
  laser.EmissionOn();
  EXPECT_TRUE(FIO->State().Outputs.test(6));
  EXPECT_TRUE(laser.GetIsEmissionOn());
  // Emission is what the gate output says, not what was commanded.
  FIO->SetOutputbit(6, false);
  EXPECT_FALSE(laser.GetIsEmissionOn());
  ASSERT_TRUE(Peer().WaitForWrites(6));
  EXPECT_THAT(LineWrites(), ElementsAre(kEmissionOn));
}

TEST_F(RaycusLaserTest, EmissionAndAimingExcludeEachOtherWhenHardWired) {
  FParams.DefParams.CtrlPort = 6;
  FParams.DefParams.AimingPort = 7;
  FParams.DefParams.HardWireMutexEmAndAB = true;
  auto& laser = Make();
  laser.SetAimingOn(true);
  EXPECT_FALSE(laser.GetIsEmissionOn());
  laser.EmissionOn();
  EXPECT_FALSE(laser.GetIsAimingOn());
  laser.EmissionOff();
  EXPECT_TRUE(laser.GetIsAimingOn());
}

TEST_F(RaycusLaserTest, WithoutASerialPortEverythingIsHardWired) {
  FParams.DefParams.Comm.CommPort = 0;
  FParams.DefParams.CtrlPort = 6;
  auto& laser = Make();
  EXPECT_EQ(laser.SerialThread(), nullptr);
  EXPECT_FALSE(laser.SetDiodeCustom(50));
  laser.SetDiodeCurrent(50);
  EXPECT_DOUBLE_EQ(FIO->State().DA[1], 5.0);
  laser.EmissionOn();
  EXPECT_TRUE(laser.GetIsEmissionOn());
  laser.EmissionOff();
  EXPECT_FALSE(laser.GetIsEmissionOn());
  EXPECT_EQ(WritesOf(TIOOp::SetOutputbit).size(), 2u);
  EXPECT_EQ(Peer().WriteCount(), 0u);
}

TEST_F(RaycusLaserTest, PowerOnAlsoSwitchesEmissionOn) {
  auto& laser = Make();
  laser.PowerOn();
  EXPECT_TRUE(laser.GetIsEmissionOn());
  ASSERT_TRUE(Peer().WaitForWrites(6));
  EXPECT_THAT(LineWrites(), ElementsAre(kEmissionOn));
}

TEST_F(RaycusLaserTest, AnswersOfTheLaserAreLoggedAsTextUnlessIgnored) {
  FParams.DefParams.Comm.IgnoreCommResult = false;
  Peer().Send("TS\r");
  Peer().Send("TS\r");
  Peer().Send("ready");
  Peer().Send(Bytes("1B 41 0D"));  // binary: never text
  Peer().Send("\xFF\xFE");         // no text: reported once, then hex-dumped in debug mode only
  Peer().Send("\x80");
  Make();
  ASSERT_TRUE(FSink->WaitForText("TRaycusLaser Thread Exception:", 5s));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(Logged(SLaserConnectedOk.Text()), 1u);
  EXPECT_EQ(Logged("TS\r"), 2u);
  EXPECT_EQ(Logged("ready"), 1u);
  EXPECT_FALSE(
      FSink->Contains("\x1B"
                      "A"));
  EXPECT_EQ(FSink->Count(refhost::TRecordingSink::TextContains("Exception")), 1u);

  // Ignoring the answers: no text and no text fault, but the connection is still seen.
  FLaser.reset();
  FSink->Clear();
  FParams.DefParams.Comm.IgnoreCommResult = true;
  FFactory->Peer = std::make_shared<testsupport::TFakeSerialPeer>();
  Peer().Send("TS\r");
  Peer().Send("\xFF");
  Make();
  ASSERT_TRUE(FSink->WaitForText(SLaserConnectedOk.Text(), 5s));
  EXPECT_EQ(Logged("TS\r"), 0u);
  EXPECT_FALSE(FSink->Contains("Exception"));
}

TEST_F(RaycusLaserTest, DebugModeDumpsTrafficInHex) {
  SetLaserDebugMode(true);
  Peer().Send(Bytes("1B 41 0D"));
  Make();
  SetLaserDebugMode(false);
  EXPECT_TRUE(FSink->Contains("Rev Data: 1B 41 0D "));
  EXPECT_TRUE(FSink->Contains("Send Data: 1B 43 50 14 0D "));
  EXPECT_TRUE(FSink->Contains("Raycus thread started!"));
}

TEST_F(RaycusLaserTest, ALaserShutDownWhileTheHostStillHoldsItPutsNothingOnTheLine) {
  auto& laser = Make();
  laser.Shutdown();
  const size_t written = Peer().WriteCount();
  EXPECT_EQ(Peer().Writes().back(), kEmissionOff);
  laser.EmissionOn();
  laser.SetDiodeCurrent(80);
  laser.LaserOn();
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(Peer().WriteCount(), written);
  EXPECT_FALSE(Peer().IsOpen());
}

}  // namespace
}  // namespace devlaser

namespace lasersim {
namespace {

// The Raycus simulator's engine on byte strings: framing by fixed lengths, resynchronising after junk, and the
// answers of each reply mode.
using ::testing::ElementsAre;
using testsupport::Bytes;
using testsupport::Hex;
using TMode = TRaycusEscEngine::TReplyMode;

std::vector<std::string> HexCommands(const TRaycusEscEngine& engine) {
  std::vector<std::string> out;
  for (const auto& c : engine.Commands()) out.push_back(Hex(c));
  return out;
}

TEST(RaycusSimEngineTest, FramesByLengthSoThatParameterBytesMayBeCrOrEsc) {
  TRaycusEscEngine engine;
  // A current of 13 % is a CR, a pulse power of 27 % an ESC; the pulse settings arrive in two pieces.
  const std::string bytes = Bytes("1B 43 50 0D 0D 1B 46 00 0D 44 0D 50 1B 0D 1B 4F 0D");
  EXPECT_EQ(engine.Feed(bytes.substr(0, 9)), "TS\r");
  EXPECT_EQ(engine.Feed(bytes.substr(9)), "TS\rTS\r");
  EXPECT_THAT(HexCommands(engine), ElementsAre("1B 43 50 0D 0D", "1B 46 00 0D 44 0D 50 1B 0D", "1B 4F 0D"));
  const auto state = engine.State();
  EXPECT_EQ(std::tuple(state.DiodeCurrent, state.PulseFreq, state.PulseRatio, state.PulsePower, state.EmissionOn),
            std::tuple(13, 13, 13, 27, true));
  EXPECT_EQ(engine.Received(), 3u);
}

TEST(RaycusSimEngineTest, SkipsJunkUpToTheNextEsc) {
  TRaycusEscEngine engine;
  // Leading noise, an unknown letter, a diode command without its CR, then a good emission-off.
  engine.Feed(Bytes("41 42 1B 5A 0D 1B 43 50 20 41 1B 53 0D"));
  EXPECT_THAT(HexCommands(engine), ElementsAre("1B 53 0D"));
  std::vector<std::string> junk;
  for (const auto& e : engine.Log())
    if (e.Junk) junk.push_back(Hex(e.Bytes));
  EXPECT_THAT(junk, ElementsAre("41 42", "1B 5A 0D", "1B 43 50 20 41"));
  EXPECT_EQ(engine.State().DiodeCurrent, 0);
}

TEST(RaycusSimEngineTest, ReplyModes) {
  const std::string two = Bytes("1B 4F 0D 1B 53 0D");
  struct {
    TMode Mode;
    std::string First, Second;
    bool Executes;
  } const cases[] = {
      {TMode::AlwaysTS, "TS\rTS\r", "TS\rTS\r", true},
      {TMode::FirstTS, "TS\r", "", true},
      {TMode::NeverTS, "", "", true},
      {TMode::Error, "TE7\rTE7\r", "TE7\rTE7\r", true},
      {TMode::Silent, "", "", false},
  };
  for (const auto& c : cases) {
    TRaycusEscEngine engine;
    engine.SetReplyMode(c.Mode);
    engine.SetErrorCode(7);
    engine.Feed(Bytes("1B 43 50 21 0D"));  // executed in every mode but silent
    engine.ResetInput();                   // a new line: FirstTS answers again
    EXPECT_EQ(engine.Feed(two), c.First) << ReplyModeName(c.Mode);
    EXPECT_EQ(engine.Feed(two), c.Second) << ReplyModeName(c.Mode);
    EXPECT_EQ(engine.State().DiodeCurrent, c.Executes ? 0x21 : 0) << ReplyModeName(c.Mode);
    EXPECT_EQ(engine.Commands().size(), 5u) << ReplyModeName(c.Mode);
  }
  TRaycusEscEngine garbage;
  garbage.SetReplyMode(TMode::Garbage);
  const std::string answer = garbage.Feed(Bytes("1B 4F 0D"));
  ASSERT_FALSE(answer.empty());
  EXPECT_NE(answer[0], '\x1B');
  EXPECT_TRUE(static_cast<unsigned char>(answer[0]) >= 0x80);
}

}  // namespace
}  // namespace lasersim
