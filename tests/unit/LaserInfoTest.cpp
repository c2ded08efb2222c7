// The information sources of the host's status pages: which source each laser class gets, the keys each writes
// and that the values come from the laser's state and its driver's cached words.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "api/DevLaserApi.h"
#include "frame/HostServices.h"
#include "info/LaserInfo.h"
#include "ipg/Ipg500Laser.h"
#include "ipg/IpgYlrDriver.h"
#include "raycus/RaycusLasers.h"
#include "refhost/JsonObject.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "support/FakeTransports.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;

const std::vector<std::string> kBaseKeys = {"Version",  "LaserType",  "DiodeCurrent", "PwmFreq",
                                            "PwmRatio", "IsAimingOn", "IsEmissionOn", "IsLaserOn"};

std::vector<std::string> With(std::vector<std::string> keys, std::initializer_list<const char*> more) {
  keys.insert(keys.end(), more.begin(), more.end());
  return keys;
}

class LaserInfoTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(LoadLaserLibrary(&FApp)); }
  void TearDown() override { UnloadLaserLibrary(); }

  // What the current laser's source writes.
  std::shared_ptr<nchost::ISuperObject> Read() {
    auto source = CreateLaserInfoSource();
    EXPECT_NE(source, nullptr);
    return Read(source.get());
  }
  static std::shared_ptr<nchost::ISuperObject> Read(nchost::TVkInfoSource* source) {
    auto obj = refhost::CreateJsonObject();
    if (source != nullptr) source->ReadAllData(*obj);
    return obj;
  }
  static std::string Text(const nchost::ISuperObject& obj, const char* key) {
    auto value = obj.Get(key);
    return value ? value->AsString() : "<missing>";
  }

  std::shared_ptr<TNcLaser> CreateModel(const char* model, const std::function<void(TLaserConfig&)>& more = nullptr) {
    TLaserConfig config;
    config.SetModel(model);
    if (more) more(config);
    return CreateLaser(&config, FIO);
  }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  std::shared_ptr<refhost::TSimCtrlExtIO> FIO = std::make_shared<refhost::TSimCtrlExtIO>();
};

TEST_F(LaserInfoTest, TheDefaultLaserShowsItsCommandedStateAndQcwFlag) {
  auto laser = CreateModel("Default", [](TLaserConfig& c) { c.SetAimingPort(9); });
  laser->SetPwmFreq(2000);
  laser->SetPwmRatio(0.25);
  laser->SetDiodeCurrent(42.0);
  laser->SetAimingOn(true);
  laser->LaserOn();

  auto obj = Read();
  EXPECT_EQ(obj->Keys(), With(kBaseKeys, {"IsQCW"}));
  EXPECT_EQ(Text(*obj, "Version"), "1.0.0");
  EXPECT_EQ(Text(*obj, "LaserType"), "Default");
  EXPECT_DOUBLE_EQ(obj->Get("DiodeCurrent")->AsDouble(), laser->GetDiodeCurrent());
  EXPECT_EQ(obj->Get("PwmFreq")->Kind(), nchost::ISuperObject::TKind::Int);
  EXPECT_EQ(obj->Get("PwmFreq")->AsInteger(), 2000);
  EXPECT_DOUBLE_EQ(obj->Get("PwmRatio")->AsDouble(), 0.25);
  EXPECT_TRUE(obj->Get("IsAimingOn")->AsBoolean());
  EXPECT_FALSE(obj->Get("IsEmissionOn")->AsBoolean());
  EXPECT_TRUE(obj->Get("IsLaserOn")->AsBoolean());
  EXPECT_FALSE(obj->Get("IsQCW")->AsBoolean());

  laser->LaserOff();
  EXPECT_FALSE(Read()->Get("IsLaserOn")->AsBoolean()) << "every read asks the laser afresh";
}

TEST_F(LaserInfoTest, ACO2LaserIsNoFiberLaserAndShowsItsCommandedLaserOn) {
  auto laser = CreateModel("CO2");
  auto obj = Read();
  EXPECT_EQ(obj->Keys(), kBaseKeys);
  EXPECT_EQ(Text(*obj, "LaserType"), "CO2");
  EXPECT_FALSE(obj->Get("IsLaserOn")->AsBoolean());
  laser->LaserOn();
  EXPECT_TRUE(Read()->Get("IsLaserOn")->AsBoolean());
}

TEST_F(LaserInfoTest, FamilySourcesNameTheProtocolInsteadOfTheModel) {
  CreateModel("IPG", [](TLaserConfig& c) { c.GetIPGConfig().SetModel("YLR-500"); });
  auto obj = Read();
  EXPECT_EQ(Text(*obj, "LaserType"), "IPG-YLR");
  EXPECT_EQ(obj->Keys(), With(kBaseKeys, {"IsQCW", "StateBit", "AlarmBit", "WarningBit"}));

  CreateModel("IPG", [](TLaserConfig& c) {
    c.GetIPGConfig().SetModel("YLS-6000");
    c.GetIPGConfig().YLS2000().SetUseNetCtrl(true);
  });
  EXPECT_EQ(Text(*Read(), "LaserType"), "IPG-YLS");

  CreateModel("Raycus", [](TLaserConfig& c) { c.GetRaycusConfig().SetType("CW-3000"); });
  EXPECT_EQ(Text(*Read(), "LaserType"), "Ray-CW");

  // Other fiber lasers, also other Raycus ones, show their model.
  CreateModel("Raycus", [](TLaserConfig& c) { c.GetRaycusConfig().SetType("SM-1500"); });
  EXPECT_EQ(Text(*Read(), "LaserType"), "Raycus");
  CreateModel("IPG", [](TLaserConfig& c) { c.GetIPGConfig().SetModel("YLS-2000"); });  // hard-wired: 1000 class
  obj = Read();
  EXPECT_EQ(Text(*obj, "LaserType"), "IPG");
  EXPECT_EQ(obj->Keys(), With(kBaseKeys, {"IsQCW"}));
}

TEST_F(LaserInfoTest, ARaycusQcwLaserGetsTheFiberSourceUnlessItsOwnIsAskedFor) {
  auto laser = CreateModel("Raycus", [](TLaserConfig& c) { c.GetRaycusConfig().SetType("QCW-150"); });
  ASSERT_NE(dynamic_cast<TRayQCWLaser*>(laser.get()), nullptr);
  auto obj = Read();
  EXPECT_EQ(obj->Keys(), With(kBaseKeys, {"IsQCW"}));
  EXPECT_EQ(Text(*obj, "LaserType"), "Raycus");
  EXPECT_FALSE(obj->Has("AlarmBit"));

  TRaycusQCWInfo qcw(laser);
  EXPECT_EQ(Text(*Read(&qcw), "LaserType"), "Ray-QCW");

  // A source made for another class writes only its ancestors' keys.
  auto other = CreateModel("Raycus", [](TLaserConfig& c) { c.GetRaycusConfig().SetType("CW-3000"); });
  TRaycusQCWInfo wrong(other);
  EXPECT_EQ(Text(*Read(&wrong), "LaserType"), "Raycus");
  TIPG500LaserInfo wrongIpg(other);
  obj = Read(&wrongIpg);
  EXPECT_EQ(Text(*obj, "LaserType"), "Raycus");
  EXPECT_FALSE(obj->Has("StateBit"));
}

TEST_F(LaserInfoTest, AnIpgYlrLaserShowsItsDriversStatusWords) {
  auto transports = std::make_shared<testsupport::TFakeTransportFactory>();
  FApp.SetTransports(transports);
  std::atomic<uint32_t> status{0};
  transports->Tcp->SetResponder([&status](const std::string& written) {
    return written.find("STA") != std::string::npos ? "STA: " + std::to_string(status.load()) + "\r" : "";
  });
  auto laser = CreateModel("IPG", [](TLaserConfig& c) {
    auto& ipg = c.GetIPGConfig();
    ipg.SetModel("YLR-1000");
    ipg.SetUseTcp(true);
    ipg.SetTcpHost("192.0.2.10");  // reached only through the in-memory transports
  });
  auto* ylr = dynamic_cast<TIPG500Laser*>(laser.get());
  ASSERT_NE(ylr, nullptr);
  TIPGYLRDriver* driver = ylr->Driver();
  ASSERT_NE(driver, nullptr);

  // Every alarm and warning bit and one more state bit: all three words are then non-zero.
  status = driver->AlarmMask() | driver->WarningMask() | (1u << 12);
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (driver->GetDeviceStatus() != status && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(10ms);
  ASSERT_EQ(driver->GetDeviceStatus(), status.load()) << "the monitor never polled the status";
  ASSERT_NE(driver->GetLaserAlarm(), 0u);
  ASSERT_NE(driver->GetLaserWarning(), 0u);

  auto obj = Read();
  EXPECT_EQ(obj->Keys(), With(kBaseKeys, {"IsQCW", "StateBit", "AlarmBit", "WarningBit"}));
  EXPECT_EQ(Text(*obj, "LaserType"), "IPG-YLR");
  EXPECT_EQ(obj->Get("StateBit")->AsInteger(), driver->GetLaserState());
  EXPECT_EQ(obj->Get("AlarmBit")->AsInteger(), driver->GetLaserAlarm());
  EXPECT_EQ(obj->Get("WarningBit")->AsInteger(), driver->GetLaserWarning());
  laser.reset();
  DestroyLaser();  // stops the monitor before the transports go
}

TEST_F(LaserInfoTest, ASourceKeepsItsLaserReadableAfterTheLibraryDroppedIt) {
  EXPECT_EQ(CreateLaserInfoSource(), nullptr) << "no laser, no source";
  EXPECT_EQ(CreateLaserInfo(nullptr), nullptr);

  auto laser = CreateModel("Default", [](TLaserConfig& c) { c.SetCtrlPort(6); });
  laser->EmissionOn();
  ASSERT_TRUE(FIO->WaitUntil([](const refhost::TSimIOState& s) { return s.Outputs.test(6); }, 10s));
  auto source = CreateLaserInfoSource();
  std::weak_ptr<TNcLaser> weak = laser;
  laser.reset();
  DestroyLaser();

  ASSERT_FALSE(weak.expired()) << "the source holds the laser";
  auto obj = Read(source.get());
  EXPECT_EQ(Text(*obj, "LaserType"), "Default");
  EXPECT_FALSE(obj->Get("IsEmissionOn")->AsBoolean()) << "the dropped laser was switched off";
  source.reset();
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace devlaser
