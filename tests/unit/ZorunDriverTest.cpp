// The own-brand driver and laser without a link: what each request queues, byte for byte, the queue levels and the
// change filter, alarm decoding, and what the operator reads about a description file that cannot serve.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <typeinfo>
#include <vector>

#include "core/DefaultLaser.h"
#include "core/LaserLifetime.h"
#include "frame/LaserStrs.h"
#include "registry/LaserFactory.h"
#include "registry/LaserLib.h"
#include "support/LaserHostFixture.h"
#include "support/ScratchDir.h"
#include "support/ZorunDescriptionText.h"
#include "zorun/ZorunLaser.h"

namespace devlaser {
namespace {

using namespace zorun;
using refhost::TEntryKind;
using testsupport::TZorunDescriptionText;

TBytes Hex(const std::string& text) {
  std::string error;
  return *TextToBytes(text, TEncoding::Hex, error);
}

const TBytes kInit = Hex("5A A5 01 10 00 02 C1");
const TBytes kDiode300 = Hex("5A A5 01 12 00 2C E0 DC");
const TBytes kAlarmAck = Hex("5A A5 01 14 00 00 01");

class ZorunDriverTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetExeDir(FDir.Path());
    FParams.Model = "Zorun";
    FParams.LaserMainType = eltZorun;
    FParams.DefParams.DataTransType = dttNone;  // nothing sends: the queue stays as the requests left it
  }

  std::unique_ptr<TZorunDriver> MakeDriver(const TZorunDescriptionText& text = {}) {
    FDir.Write("ZorunLaser.json", text.Text());
    return std::make_unique<TZorunDriver>(FParams);
  }

  testsupport::TScratchDir FDir;
};

TEST_F(ZorunDriverTest, ADiodeSetIsQueuedCmdLvPlusOneTimesAndAFourthWaitsOut) {
  auto driver = MakeDriver();
  driver->SetDiodeCurrent(300);
  EXPECT_EQ(driver->QueuedFrames(), (std::vector<TBytes>{kInit, kDiode300, kDiode300, kDiode300}));
  driver->SetDiodeCurrent(60);  // three wait already: refused, though the value is taken as the last one queued
  EXPECT_EQ(driver->QueuedFrames().size(), 4u);
  EXPECT_EQ(driver->GetDiodeCurrent(), 60);
}

TEST_F(ZorunDriverTest, AnUncheckedDiodeTemplateSendsItsBytesWithoutTheValue) {
  TZorunDescriptionText text;
  text.DiodeChecked = false;
  text.DiodeLevel = 0;
  auto driver = MakeDriver(text);
  driver->SetDiodeCurrent(300);
  EXPECT_EQ(driver->QueuedFrames(), (std::vector<TBytes>{kInit, Hex("5A A5 01 12")}));
}

TEST_F(ZorunDriverTest, SmallChangesAndOutOfRangeValuesSendNothing) {
  auto driver = MakeDriver();
  driver->SetDiodeCurrent(0);  // the driver starts at 0
  EXPECT_EQ(driver->QueuedFrames().size(), 1u);
  driver->SetDiodeCurrent(50);
  while (driver->SendFifoCmd()) {
  }
  driver->SetDiodeCurrent(50.05);
  EXPECT_TRUE(driver->QueuedFrames().empty());
  for (double bad : {1000.5, -0.5, std::nan("")}) driver->SetDiodeCurrent(bad);
  EXPECT_TRUE(driver->QueuedFrames().empty());
  EXPECT_EQ(FSink->Count(refhost::TRecordingSink::OfKind(TEntryKind::Message, nchost::msgtype::kWarning)), 3u);
  EXPECT_TRUE(FSink->Contains("峰值功率参数非法: 1000.50"));
  EXPECT_EQ(driver->GetDiodeCurrent(), 50);  // a filtered change is not taken either
}

TEST_F(ZorunDriverTest, AnAlarmByteMarksItsBitsAndIsAcknowledgedOnce) {
  TZorunDescriptionText text;
  text.Alarms = {{0, "a"}, {1, "b"}, {3, "c"}, {7, "d"}};
  auto driver = MakeDriver(text);
  const TBytes reply = Hex("5A A5 95 01 09 8F 7B");
  driver->AnalyzeResponse(reply);
  driver->AnalyzeResponse(reply);  // the acknowledgement still waits: no second one
  const std::map<int32_t, bool> expected = {{0, true}, {1, false}, {3, true}, {7, false}};
  for (const auto& [id, active] : expected) EXPECT_EQ(driver->CheckAlarm(id), active) << "alarm " << id;
  EXPECT_EQ(driver->GetAlarmDesc(3), "c");
  EXPECT_EQ(driver->GetAlarmDesc(1), "");
  EXPECT_EQ(driver->QueuedFrames(), (std::vector<TBytes>{kInit, kAlarmAck}));
  driver->AnalyzeResponse(Hex("5A A5 95 01 00 4F 7D"));
  EXPECT_FALSE(driver->CheckAlarm(0));
}

TEST_F(ZorunDriverTest, ACommandWithoutBytesHoldsUpTheQueue) {
  TZorunDescriptionText text;
  text.Encoding = "Octal";  // no encoding the driver knows: every unchecked frame is empty
  text.Checked = false;
  auto driver = MakeDriver(text);
  driver->AddCmd(ctEmissonOn, 0);
  EXPECT_FALSE(driver->SendFifoCmd());
  EXPECT_FALSE(driver->SendFifoCmd());
  EXPECT_EQ(driver->QueuedTypes(), (std::vector<TCmdType>{ctInit, ctEmissonOn}));
  EXPECT_TRUE(FSink->Contains("EncodeType Error"));
}

// ---- the laser -----------------------------------------------------------------------------------------------------

struct TRecordingAlarms : nchost::INcAlarmTable20 {
  std::vector<int32_t> Registered;
  void RegisterAlarm(int32_t id, const nchost::TNcAlarmDef&) override { Registered.push_back(id); }
};

// Raising and acknowledging them over a link is in ZorunLaserLinkTest.
TEST_F(ZorunDriverTest, TheLaserRegistersDescriptionAlarmsTwoAboveTheirBitsUnderItsOwnName) {
  TZorunDescriptionText text;
  text.Desc = "ZR";
  text.Alarms = {{0, ": hot"}, {5, ": stop"}};
  FDir.Write("ZorunLaser.json", text.Text());
  auto laser = MakeLaser<TZorunLaser>(FParams, FIO);
  ASSERT_NE(laser, nullptr);
  TRecordingAlarms alarms;
  laser->RegisterAlarms(alarms);
  EXPECT_EQ(alarms.Registered, (std::vector<int32_t>{kLaserAlarmId, 2, 7}));
  EXPECT_EQ(laser->GetAlarmDesc(7), "ZR");              // the bit's text follows once it is raised
  EXPECT_EQ(laser->GetAlarmDesc(kLaserAlarmId), "ZR");  // the base text is replaced too
  EXPECT_EQ(laser->GetAlarmIDPrefix(), "ZR");
}

// The frames these queue are checked byte for byte in ZorunLaserLinkTest.
TEST_F(ZorunDriverTest, TheLaserKeepsWhatItCommandedAndTheDiodeValueTheDriverRefused) {
  FDir.Write("ZorunLaser.json", TZorunDescriptionText{}.Text());
  auto laser = MakeLaser<TZorunLaser>(FParams, FIO);
  ASSERT_NE(laser, nullptr);
  auto& driver = laser->Driver();
  while (driver.SendFifoCmd()) {
  }
  laser->EmissionOn();
  laser->SetAimingOn(true);
  EXPECT_TRUE(laser->GetIsEmissionOn());  // as commanded: the laser never acknowledged it
  EXPECT_TRUE(laser->GetIsAimingOn());
  EXPECT_TRUE(laser->SetDiodeCustom(5000));  // refused by the driver, taken by the laser
  EXPECT_TRUE(FSink->Contains("峰值功率参数非法: 5000.00"));
  laser->SetDiodeCurrent(60);
  EXPECT_EQ(laser->GetDiodeCurrent(), 60);
  const auto types = driver.QueuedTypes();
  EXPECT_EQ(std::count(types.begin(), types.end(), ctDiodeSet), 3);
}

// ---- description files that cannot serve: the operator learns which and why, the host gets the default laser ----

class ZorunDescriptionFileTest : public ZorunDriverTest {
 protected:
  void SetUp() override {
    ZorunDriverTest::SetUp();
    ResetMessages();
    ASSERT_TRUE(LoadLaserLibrary(&FApp));
    FConfig.SetModel("Zorun");
  }
  void TearDown() override {
    UnloadLaserLibrary();
    ZorunDriverTest::TearDown();
  }
  TLaserConfig FConfig;
};

TEST_F(ZorunDescriptionFileTest, ABadFileNamesItselfAndItsEntryAndGivesTheDefaultLaser) {
  struct TCase {
    const char* Name;
    std::string Content;  // empty: no file
    int LaserIdx;
    std::vector<std::string> Says;
  };
  TZorunDescriptionText paramPastFrame;
  paramPastFrame.DiodeParamIdx = 9;
  TZorunDescriptionText checkOutside;
  checkOutside.InitCheckEnd = 5;
  TZorunDescriptionText notHex;
  notHex.InitCommand = "5A G5";
  const std::vector<TCase> cases = {
      {"missing", "", 0, {"ZorunLaser.json", "missing"}},
      {"malformed", "{\"Lasers\": [", 0, {"ZorunLaser.json", "not valid JSON", "line 1"}},
      {"too short for LaserIdx", TZorunDescriptionText{}.Text(), 1, {"Lasers[1]", "none at LaserIdx 1"}},
      {"parameter past the frame",
       paramPastFrame.Text(),
       0,
       {"Lasers[0].Instructions[3]", "ParamIdx 9 lies outside the 4-byte command"}},
      {"check range outside the frame",
       checkOutside.Text(),
       0,
       {"Lasers[0].Instructions[0]", "check range 0..5 lies outside the 5-byte frame"}},
      {"a command that is no hex", notHex.Text(), 0, {"Lasers[0].Instructions[0]", "\"G5\" is not a hexadecimal byte"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    std::filesystem::remove(FDir / "ZorunLaser.json");
    if (!c.Content.empty()) FDir.Write("ZorunLaser.json", c.Content);
    FConfig.GetZorunConfig().SetLaserIdx(c.LaserIdx);
    FSink->Clear();
    auto laser = CreateLaser(&FConfig, FIO, nullptr);
    ASSERT_NE(laser, nullptr);
    const TNcLaser& object = *laser;
    EXPECT_EQ(typeid(object), typeid(TDefaultLaser));
    std::vector<std::string> errors;
    for (const auto& e : FSink->Entries(TEntryKind::Message))
      if (e.Type == nchost::msgtype::kError) errors.push_back(e.Text);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find(FDir / "ZorunLaser.json"), std::string::npos) << errors[0];
    for (const auto& part : c.Says) EXPECT_NE(errors[0].find(part), std::string::npos) << errors[0];
  }
}

}  // namespace
}  // namespace devlaser
