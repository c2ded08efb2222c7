// The plug-in as a host meets it: loaded with dlopen, checked for its interface version, driven only through its
// API table, unloaded without a thread left behind; destroying a laser in the middle of a long emission handshake
// does not wait for the handshake. (The thousand create/destroy cycles run in the lifecycle conformance suite.)
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "api/DevLaserPlugin.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"

namespace {

using namespace std::chrono_literals;

const char* const kPluginPath = DEVLASER_BIN_DIR "/libDevLaser.so";

size_t ThreadCount() {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) ++count;
  return count;
}

// A joined thread may still be listed for a moment while the kernel reaps it.
bool ThreadCountReturnsTo(size_t expected, std::chrono::seconds timeout = 10s) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (ThreadCount() != expected) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

// The plug-in, loaded the way a host loads it.
using TPlugin = std::unique_ptr<void, int (*)(void*)>;

template <class Fn>
Fn* Entry(const TPlugin& plugin, const char* name) {
  return reinterpret_cast<Fn*>(dlsym(plugin.get(), name));
}

class PluginLoadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // A sanitizer runtime starts a helper thread of its own with the process's first thread; start one first so
    // that the baseline already holds it.
    std::thread([] {}).join();
    FBaseline = ThreadCount();
    FPlugin.reset(dlopen(kPluginPath, RTLD_NOW | RTLD_LOCAL));
    ASSERT_NE(FPlugin, nullptr) << dlerror();
    auto* version = Entry<int32_t()>(FPlugin, "DevLaser_HostInterfaceVersion");
    auto* api = Entry<const devlaser::TDevLaserApi*()>(FPlugin, "DevLaser_GetApi");
    ASSERT_TRUE(version != nullptr && api != nullptr);
    ASSERT_EQ(version(), nchost::kHostInterfaceVersion);
    FApi = api();
    ASSERT_NE(FApi, nullptr);
    ASSERT_TRUE(FApi->Load(&FApp));
  }
  void TearDown() override {
    if (FApi) FApi->Unload();
    FPlugin.reset();
    EXPECT_TRUE(ThreadCountReturnsTo(FBaseline)) << ThreadCount() << " threads, " << FBaseline << " before";
  }

  // A configuration of the plug-in's own making, set through the generic node interface as a host does.
  std::shared_ptr<nchost::TXmlSubConfig> NewConfig(const std::string& model) {
    std::shared_ptr<nchost::TXmlSubConfig> config(FApi->NewConfig(), FApi->FreeConfig);
    config->SetString("Model", model);
    return config;
  }

  size_t FBaseline = 0;
  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  std::shared_ptr<refhost::TSimCtrlExtIO> FIO = std::make_shared<refhost::TSimCtrlExtIO>();
  TPlugin FPlugin{nullptr, dlclose};
  const devlaser::TDevLaserApi* FApi = nullptr;
};

TEST_F(PluginLoadTest, DestroyingDuringALongReadyDelayReturnsPromptly) {
  devlaser::TLaserParams params;
  params.Model = "Default";
  params.CfgOther.ShutterReady = 5;
  params.CfgOther.ShutterReadyDelay = 10 * 60 * 1000;  // the laser would open its gate after ten minutes
  params.DefParams.CtrlPort = 6;
  auto laser = FApi->CreateLaserFromParams(params, FIO);
  ASSERT_NE(laser, nullptr);
  laser->EmissionOn();
  ASSERT_TRUE(FIO->WaitUntil([](const refhost::TSimIOState& s) { return s.Outputs.test(5); }, 10s));
  EXPECT_FALSE(laser->GetIsEmissionOn()) << "still in the ready delay";

  const auto start = std::chrono::steady_clock::now();
  FApi->DestroyLaser();
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_LT(took, 60s) << "destroying waited for the handshake";  // far below the delay, far above any load
  const auto state = FIO->State();
  EXPECT_FALSE(state.Outputs.test(5));
  EXPECT_FALSE(state.Outputs.test(6)) << "the gate never opened";
}

TEST_F(PluginLoadTest, OnlyTheEntryPointsAreVisibleAndEveryCreationRouteGivesALaser) {
  EXPECT_EQ(dlsym(FPlugin.get(), "_ZTIN6nchost10INcLaser30E"), nullptr) << "the host's type information stays inside";

  // A configuration node that is not the plug-in's laser configuration gives the default laser and a log line.
  nchost::TXmlSubConfig foreign(nullptr, "Laser");
  auto laser = FApi->CreateLaserFromConfig(&foreign, FIO, nullptr);
  ASSERT_NE(laser, nullptr);
  EXPECT_EQ(laser->GetDeviceDesc(), "Default");
  EXPECT_TRUE(FSink->Contains("not a laser configuration"));

  devlaser::TLaserParams odd;
  odd.LaserMainType = static_cast<devlaser::TEnumLaserType>(200);  // no such family
  odd.LaserSubType = -5;
  EXPECT_NE(FApi->CreateLaserFromParams(odd, FIO), nullptr);
  FApi->FreeConfig(nullptr);
  EXPECT_NE(FApi->CreateLaserFromConfig(nullptr, nullptr, nullptr), nullptr);  // default laser on a simulated board

  // A laser of the plug-in's own configuration, and its information source until the laser is destroyed.
  devlaser::TLaserParams used;
  auto co2 = FApi->CreateLaserFromConfig(NewConfig("CO2").get(), FIO, &used);
  ASSERT_NE(co2, nullptr);
  EXPECT_EQ(used.Model, "CO2");
  co2->LaserOn();
  auto source = FApi->CreateLaserInfoSource();
  ASSERT_NE(source, nullptr);
  auto obj = FApp.CreateJsonObject();
  source->ReadAllData(*obj);
  EXPECT_TRUE(obj->Has("IsLaserOn") && obj->Get("IsLaserOn")->AsBoolean());
  FApi->DestroyLaser();
  EXPECT_EQ(FApi->CreateLaserInfoSource(), nullptr);
}

}  // namespace
