// The information sources of the host's status pages: which source each laser class gets, the keys each writes
// and that the values come from the laser's state.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "api/DevLaserApi.h"
#include "info/LaserInfo.h"
#include "refhost/JsonObject.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using TConfigure = std::function<void(TLaserConfig&)>;

const std::vector<std::string> kBaseKeys = {"Version",  "LaserType",  "DiodeCurrent", "PwmFreq",
                                            "PwmRatio", "IsAimingOn", "IsEmissionOn", "IsLaserOn"};
std::vector<std::string> Plus(std::vector<std::string> keys, std::initializer_list<std::string> more) {
  keys.insert(keys.end(), more);
  return keys;
}
const std::vector<std::string> kFiberKeys = Plus(kBaseKeys, {"IsQCW"});
const std::vector<std::string> kYlrKeys = Plus(kFiberKeys, {"StateBit", "AlarmBit", "WarningBit"});

class LaserInfoTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override { ASSERT_TRUE(LoadLaserLibrary(&FApp)); }
  void TearDown() override { UnloadLaserLibrary(); }

  // What a source writes, by default the current laser's.
  static std::shared_ptr<nchost::ISuperObject> Read(
      std::shared_ptr<nchost::TVkInfoSource> source = CreateLaserInfoSource()) {
    EXPECT_NE(source, nullptr);
    auto obj = refhost::CreateJsonObject();
    if (source != nullptr) source->ReadAllData(*obj);
    return obj;
  }
  static std::string TypeOf(const std::shared_ptr<nchost::ISuperObject>& obj) {
    auto value = obj->Get("LaserType");
    return value ? value->AsString() : "<missing>";
  }

  std::shared_ptr<TNcLaser> CreateModel(const char* model, const TConfigure& more = nullptr) {
    TLaserConfig config;
    config.SetModel(model);
    if (more) more(config);
    return CreateLaser(&config, FIO);
  }
};

TConfigure IpgModel(const char* model, bool network = false) {
  return [=](TLaserConfig& c) {
    c.GetIPGConfig().SetModel(model);
    c.GetIPGConfig().YLS2000().SetUseNetCtrl(network);
  };
}
TConfigure RaycusType(const char* type) {
  return [=](TLaserConfig& c) { c.GetRaycusConfig().SetType(type); };
}

// The sources are tried from the most special class down; each family's source names its protocol, every other
// laser shows its model.
TEST_F(LaserInfoTest, EachClassGetsTheSourceOfItsNearestFamily) {
  struct TCase {
    const char* Model;
    TConfigure More;
    const char* Type;
    std::vector<std::string> Keys;
  } cases[] = {
      {"IPG", IpgModel("YLR-500"), "IPG-YLR", kYlrKeys},
      {"IPG", IpgModel("YLS-6000", true), "IPG-YLS", kFiberKeys},
      {"Raycus", RaycusType("CW-3000"), "Ray-CW", kFiberKeys},
      {"Raycus", RaycusType("SM-1500"), "Raycus", kFiberKeys},
      {"Raycus", RaycusType("QCW-150"), "Raycus", kFiberKeys},  // has a source of its own, but only on request
      {"IPG", IpgModel("YLS-2000"), "IPG", kFiberKeys},         // hard-wired
      {"Default", nullptr, "Default", kFiberKeys},
      {"CO2", nullptr, "CO2", kBaseKeys},  // not a fiber laser
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Type);
    CreateModel(c.Model, c.More);
    auto obj = Read();
    EXPECT_EQ(TypeOf(obj), c.Type);
    EXPECT_EQ(obj->Keys(), c.Keys);
  }
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
  auto obj = Read(source);
  EXPECT_EQ(TypeOf(obj), "Default");
  EXPECT_FALSE(obj->Get("IsEmissionOn")->AsBoolean()) << "every read asks the laser: the dropped one was switched off";
  source.reset();
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace devlaser
