// The IPG laser on the EtherCAT bus against the reference host's simulated EtherCAT system: what it writes into
// the laser slave's process image and when, what it reads back, its alarms, and how a shutdown cuts its waits;
// and the simulated slave itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "api/DevLaserApi.h"
#include "core/LaserLifetime.h"
#include "ecat/IpgEcatLaser.h"
#include "frame/LaserComm.h"
#include "refhost/SimEcatLaserSlave.h"
#include "refhost/SimEcatSystem.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using refhost::TEcatInputWrite;
using refhost::TEntryKind;
using ::testing::ElementsAre;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kCtrl = 0, kPower = 1, kAlarms = 3;
// A loaded two-core machine may wake a waiting thread this late; a hold is never shorter than asked.
constexpr auto kSchedulingSlack = 250ms;

std::vector<uint32_t> Values(const std::vector<TEcatInputWrite>& writes) {
  std::vector<uint32_t> values;
  for (const auto& w : writes) values.push_back(w.Value);
  return values;
}

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::vector<std::pair<int32_t, bool>> Reports;
  void ReportAlarm(int32_t id, bool raised) override { Reports.emplace_back(id, raised); }
  std::vector<int32_t> RaisedIds() const {
    std::vector<int32_t> ids;
    for (const auto& [id, raised] : Reports)
      if (raised) ids.push_back(id);
    return ids;
  }
};

class IpgEcatLaserTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetEcatSystem(FEcat);
    FParams.Model = "IPG";
    FParams.LaserMainType = eltIPG;
    FParams.LaserSubType = 9;
    FParams.DefParams.DataTransType = dttEthercat;
    FParams.DefParams.Power = 2000.0;
    FParams.DefParams.PWM.DiodeCurrent = 30.0;
  }
  void TearDown() override {
    FLaser.reset();
    UnloadLaserLibrary();  // when a test loaded it
    SetLaserDebugMode(false);
    TLaserHostFixture::TearDown();
  }

  TIPGEcatLaser& Make() {
    FLaser.reset();
    std::string error;
    FLaser = MakeLaser<TIPGEcatLaser>(FParams, FIO, &error);
    if (!FLaser) throw std::runtime_error("the bus laser could not be built: " + error);
    return *FLaser;
  }
  // A laser whose start sequence has run: enabled, started, emission on.
  TIPGEcatLaser& MakeEmitting() {
    auto& laser = Make();
    laser.EmissionOn();
    Slave().ClearWrites();
    return laser;
  }
  refhost::TSimEcatLaserSlave& Slave() { return *FEcat->Slave(); }
  uint32_t Control() { return Slave().ReadInput(kCtrl); }

  std::shared_ptr<refhost::TSimEcatSystem> FEcat = std::make_shared<refhost::TSimEcatSystem>(
      true, refhost::TSimEcatSystem::kIpgLaserIdentity.Word1, refhost::TSimEcatSystem::kIpgLaserIdentity.Word2);
  std::shared_ptr<TIPGEcatLaser> FLaser;
};

// ---- construction ------------------------------------------------------------------------------------------------

// Without a bus or a laser slave the factory gives the default laser with the bus-laser message (FactoryTest).
TEST_F(IpgEcatLaserTest, AnotherMakersSlaveIsNamedAndLeftAlone) {
  FEcat->SetIdentity(1638, 0);
  std::string error;
  EXPECT_EQ(MakeLaser<TIPGEcatLaser>(FParams, FIO, &error), nullptr);
  EXPECT_EQ(error, "Ecat Laser Error: the laser slave (identity 0x00000666, 0) is no IPG laser");
  EXPECT_TRUE(Slave().Writes().empty()) << "nothing reaches a slave the laser did not take";
}

TEST_F(IpgEcatLaserTest, ABuiltLaserIsEnabledAtItsStartingPower) {
  Make();
  // Control word 1, then the configured 30 % of 2000 W.
  std::vector<std::pair<uint32_t, uint32_t>> writes;
  for (const auto& w : Slave().Writes()) writes.emplace_back(w.Index, w.Value);
  EXPECT_THAT(writes, ElementsAre(std::pair(kCtrl, 0x01u), std::pair(kPower, 600u)));
}

TEST_F(IpgEcatLaserTest, TheDiodeCurrentIsSentAsWattsOfTheRatedPower) {
  const char* const kFallback = "FLaserParams.DefParams.Power := 1";
  const struct {
    double RatedWatts;
    double Percent;
    uint32_t Watts;
    bool Fallback;
  } cases[] = {
      {2000.0, 50.0, 1000, false},
      {1001.0, 50.0, 500, false},  // 500.5 W rounds to the even neighbour
      {0.005, 80.0, 1, true},      // no usable rated power: taken as 1 W, and the operator is told
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.RatedWatts);
    FSink->Clear();
    FParams.DefParams.Power = c.RatedWatts;
    auto& laser = Make();
    EXPECT_TRUE(laser.SetDiodeCustom(c.Percent));
    EXPECT_EQ(Slave().ReadInput(kPower), c.Watts);
    EXPECT_DOUBLE_EQ(laser.GetDiodeCurrent(), c.Percent);
    std::vector<std::string> fallbacks;
    for (const auto& e : FSink->Entries(TEntryKind::Message))
      if (e.Text == kFallback) fallbacks.push_back(e.Text);
    EXPECT_EQ(fallbacks.size(), c.Fallback ? 1u : 0u) << "told once, at the first set";
  }
}

// ---- the control word ----------------------------------------------------------------------------------------------

TEST_F(IpgEcatLaserTest, EmissionOnStartsALaserThatIsNotStartedWithTheTimedSequence) {
  auto& laser = Make();
  Slave().ClearWrites();
  laser.EmissionOn();

  const auto writes = Slave().ControlWrites();
  // Emission, start and enable dropped one by one, enable and start raised in order, then emission.
  ASSERT_THAT(Values(writes), ElementsAre(0x01u, 0x01u, 0x00u, 0x01u, 0x03u, 0x13u));
  const std::chrono::milliseconds holds[] = {100ms, 100ms, 100ms, 50ms, 300ms};
  for (size_t i = 0; i < std::size(holds); ++i) {
    const auto held = writes[i + 1].Time - writes[i].Time;
    EXPECT_GE(held, holds[i]) << "step " << i + 1;
    EXPECT_LT(held, holds[i] + kSchedulingSlack) << "step " << i + 1;
  }
  // The laser has started and reports emission.
  EXPECT_TRUE(laser.GetIsEmissionOn());
  EXPECT_TRUE(laser.GetIsLaserOn());
}

TEST_F(IpgEcatLaserTest, EmissionOnAStartedLaserOnlySetsTheEmissionBit) {
  auto& laser = Make();
  Slave().SetStatusFlags(0x03);  // the laser reports itself started
  Slave().ClearWrites();
  laser.EmissionOn();
  EXPECT_THAT(Values(Slave().ControlWrites()), ElementsAre(0x11u));
}

TEST_F(IpgEcatLaserTest, EachOperationChangesOnlyItsOwnControlBit) {
  auto& laser = Make();
  const struct {
    const char* Name;
    uint32_t Before, After;
    std::function<void()> Run;
  } cases[] = {
      {"PowerOn", 0x00, 0x01, [&] { laser.PowerOn(); }},
      {"aiming on", 0x13, 0x1B, [&] { laser.SetAimingOn(true); }},
      {"aiming off", 0x1B, 0x13, [&] { laser.SetAimingOn(false); }},
      {"EmissionOff", 0x1B, 0x0B, [&] { laser.EmissionOff(); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    Slave().WriteInput(kCtrl, c.Before);
    FIO->ClearWrites();
    c.Run();
    EXPECT_EQ(Control(), c.After);
    EXPECT_TRUE(FIO->Writes().empty()) << "the bus laser's aiming beam has no IO output";
  }
  // Aiming is what the laser reports, not what was commanded.
  Slave().WriteInput(kCtrl, 0x08);
  EXPECT_TRUE(laser.GetIsAimingOn());
  Slave().WriteInput(kCtrl, 0x00);
  EXPECT_FALSE(laser.GetIsAimingOn());
}

TEST_F(IpgEcatLaserTest, TheAlarmResetPulseDropsEnableAimingAndEmission) {
  auto& laser = MakeEmitting();
  laser.SetAimingOn(true);
  Slave().SetAlarmDword(1u << 20);
  Slave().SetStatusFlags(0x104);
  ASSERT_EQ(Control(), 0x1Bu);
  Slave().ClearWrites();

  laser.ResetAlarm(20);
  const auto writes = Slave().ControlWrites();
  ASSERT_THAT(Values(writes), ElementsAre(0x04u, 0x00u));
  EXPECT_GE(writes[1].Time - writes[0].Time, TIPGEcatLaser::kResetPulse);
  EXPECT_LT(writes[1].Time - writes[0].Time, TIPGEcatLaser::kResetPulse + kSchedulingSlack);
  EXPECT_FALSE(laser.GetIsEmissionOn());
  EXPECT_FALSE(laser.GetIsAimingOn());
  EXPECT_EQ(Slave().ReadOutput(kAlarms), 0u) << "the laser cleared its alarms";

  // The laser must be started again.
  Slave().ClearWrites();
  laser.EmissionOn();
  EXPECT_EQ(Slave().ControlWrites().size(), 6u);
  EXPECT_TRUE(laser.GetIsEmissionOn());
}

// ---- alarms ------------------------------------------------------------------------------------------------------

TEST_F(IpgEcatLaserTest, StatusWordZeroClearsEveryAlarmWhateverTheDwordHolds) {
  auto& laser = Make();
  SetLaserDebugMode(true);
  Slave().SetAlarmDword(0xFFFFFFFF);
  // Status word 0, and program interrupted while the alarm bits are not valid.
  for (uint32_t status : {0x00u, 0x40u}) {
    Slave().SetStatusFlags(status);
    TRecordingReport report;
    EXPECT_FALSE(laser.UpdateAlarms(report));
    EXPECT_EQ(report.Reports.size(), 13u) << "every alarm is reported, cleared";
    EXPECT_TRUE(report.RaisedIds().empty());
  }
}

TEST_F(IpgEcatLaserTest, WithValidAlarmBitsEachAlarmFollowsItsOwnBit) {
  auto& laser = Make();
  // Where each alarm's bit is: status bit 6 for alarm 6, alarm-dword bit n for alarm n. Laser busy (22), spare
  // module (25), too few modules (26) and low supply voltage (28) are shown in debug mode only.
  struct TCase {
    int32_t Id;
    uint32_t StatusBits, AlarmBits;
    bool DebugOnly;
  };
  std::vector<TCase> cases = {{6, 0x40, 0, false}};
  for (int32_t id : {16, 17, 18, 19, 20, 21, 23, 24}) cases.push_back({id, 0, 1u << id, false});
  for (int32_t id : {22, 25, 26, 28}) cases.push_back({id, 0, 1u << id, true});
  for (uint32_t valid : {0x04u, 0x100u}) {
    for (bool debug : {false, true}) {
      for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "alarm " << c.Id << " valid 0x" << std::hex << valid << " debug " << debug);
        SetLaserDebugMode(debug);
        Slave().SetStatusFlags(valid | c.StatusBits);
        Slave().SetAlarmDword(c.AlarmBits);
        TRecordingReport report;
        const bool shown = debug || !c.DebugOnly;
        EXPECT_EQ(laser.UpdateAlarms(report), shown);
        EXPECT_EQ(report.RaisedIds(), shown ? std::vector<int32_t>{c.Id} : std::vector<int32_t>{});
        EXPECT_EQ(report.Reports.size(), debug ? 13u : 9u) << "the debug-only alarms are not reported at all";
      }
    }
  }
  // Bits that carry no alarm raise nothing.
  Slave().SetStatusFlags(0x104 | 0x03 | 0x08);
  Slave().SetAlarmDword(0xFFFF | 1u << 27 | 0xE0000000);
  TRecordingReport report;
  EXPECT_FALSE(laser.UpdateAlarms(report));
}

// ---- shutdown ----------------------------------------------------------------------------------------------------

// A destroy while the host's control thread is held in the start sequence or the reset pulse: the wait ends at
// once, the laser is left with control word 0, and nothing is written after it.
TEST_F(IpgEcatLaserTest, DestroyCutsAWaitingStartOrResetShortAndLeavesControlWordZero) {
  const struct {
    const char* Name;
    std::function<void(nchost::INcLaser30&)> Call;
    uint32_t WaitingAfter;           // the control word written just before the wait that is cut
    std::chrono::milliseconds Left;  // how long the call would still have waited
  } cases[] = {
      {"start sequence", [](nchost::INcLaser30& l) { l.EmissionOn(); }, 0x00, 100ms + 50ms + 300ms},
      {"reset pulse", [](nchost::INcLaser30& l) { l.ResetAlarm(16); }, 0x04, 500ms},
  };
  ASSERT_TRUE(LoadLaserLibrary(&FApp));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    std::shared_ptr<nchost::INcLaser30> laser = CreateLaser(FParams, FIO);
    ASSERT_NE(dynamic_cast<TIPGEcatLaser*>(laser.get()), nullptr);
    Slave().ClearWrites();
    Clock::time_point returned;
    std::jthread control([&] {
      c.Call(*laser);
      returned = Clock::now();
    });
    EXPECT_TRUE(Slave().WaitForWrite(
        [&](const TEcatInputWrite& w) { return w.Index == kCtrl && w.Value == c.WaitingAfter; }, 5s));
    const auto destroyBegin = Clock::now();
    DestroyLaser();
    const auto destroyEnd = Clock::now();
    control.join();
    EXPECT_LT(destroyEnd - destroyBegin, c.Left / 2);
    EXPECT_LT(returned - destroyBegin, c.Left / 2) << "the waiting call returned without waiting its time out";

    // Silent from here on, also when the host goes on calling the laser it still holds.
    laser->EmissionOn();
    laser->SetAimingOn(true);
    laser->SetDiodeCurrent(80);
    laser->PowerOn();
    const auto writes = Slave().ControlWrites();
    ASSERT_FALSE(writes.empty());
    EXPECT_EQ(writes.back().Value, 0u);
    EXPECT_EQ(Control(), 0u);
    for (const auto& w : Slave().Writes()) EXPECT_LE(w.Time, destroyEnd) << w.Line();
  }
}

}  // namespace
}  // namespace devlaser

namespace refhost {
namespace {

// The simulated IPG laser slave answers the control word as the laser does: it starts only when enable and start
// are raised in order, emits only while started, and clears its alarms with the reset bit.
using namespace std::chrono_literals;
using TSlave = TSimEcatLaserSlave;

TEST(RefhostSimEcatTest, TheStatusWordFollowsTheControlWordsInOrder) {
  const struct {
    std::vector<uint32_t> Control;
    uint32_t Status;
  } cases[] = {
      {{0x01, 0x03}, 0x03},
      {{0x01, 0x03, 0x13}, 0x13 | TSlave::kLaserOn},
      {{0x01, 0x13}, 0x13 | TSlave::kLaserOn},  // emission asked for with the start bit
      {{0x03}, 0x00},                           // enable and start at once: no start
      {{0x02, 0x03}, 0x00},                     // start before enable: no start
      {{0x01, 0x03, 0x01, 0x11}, 0x00},         // start dropped: stopped, and emission waits for a start
      {{0x08}, 0x08},                           // aiming needs no start
  };
  for (const auto& c : cases) {
    TSlave slave(TSimEcatSlaveKind::IpgLaser, 0ms);
    for (uint32_t control : c.Control) slave.WriteInput(TSlave::kControlIndex, control);
    EXPECT_EQ(slave.ReadOutput(TSlave::kStatusIndex), c.Status) << ::testing::PrintToString(c.Control);
    EXPECT_EQ(slave.ControlWrites().size(), c.Control.size());
  }

  // Started only after the start time.
  TSlave slow(TSimEcatSlaveKind::IpgLaser, 1h);
  for (uint32_t control : {0x01u, 0x03u}) slow.WriteInput(TSlave::kControlIndex, control);
  EXPECT_EQ(slow.ReadOutput(TSlave::kStatusIndex), 0u);
}

TEST(RefhostSimEcatTest, TheResetBitClearsTheAlarmsAndTheirValidBits) {
  TSlave ipg(TSimEcatSlaveKind::IpgLaser, 0ms);
  ipg.SetAlarmDword(0x00110000);
  ipg.SetStatusFlags(0x800 | TSlave::kAlarmValid | TSlave::kWarningValid | TSlave::kProgramInterrupted);
  ipg.WriteInput(TSlave::kControlIndex, TSlave::kReset);
  EXPECT_EQ(ipg.ReadOutput(TSlave::kAlarmIndex), 0u);
  EXPECT_EQ(ipg.ReadOutput(TSlave::kStatusIndex), 0x800u);
}

}  // namespace
}  // namespace refhost
