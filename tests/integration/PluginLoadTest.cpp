// The plug-in as a host meets it: loaded with dlopen, checked for its interface version, driven only through its
// API table. A thousand creations of mixed lasers leave no thread and no memory behind (LeakSanitizer checks the
// latter when the process ends), and destroying a laser in the middle of a long emission handshake does not wait
// for the handshake.
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

TEST_F(PluginLoadTest, AThousandMixedLasersLeaveNoThreadBehind) {
  const char* const models[] = {"Default", "CO2", "LPing", "OVNT", "Rofin", "Unknown-1", "Trumpf", "Meiman"};
  devlaser::TLaserParams handshake;  // a default laser whose emission runs a handshake thread
  handshake.Model = "Default";
  handshake.CfgOther.ShutterReady = 5;
  handshake.CfgOther.ShutterReadyDelay = 50;
  handshake.DefParams.CtrlPort = 6;

  size_t lasers = 0, sources = 0;
  for (int i = 0; i < 1000; ++i) {
    std::shared_ptr<nchost::INcLaser30> laser;
    switch (i % 4) {
      case 0:
        laser = FApi->CreateLaserFromParams(handshake, FIO);
        laser->EmissionOn();  // left running: the next creation must stop and join it
        break;
      case 1: {
        auto config = NewConfig(models[(i / 4) % std::size(models)]);
        devlaser::TLaserParams used;
        laser = FApi->CreateLaserFromConfig(config.get(), FIO, &used);
        EXPECT_EQ(used.Model, config->GetString("Model"));
        break;
      }
      case 2:
        laser = FApi->CreateLaserFromConfig(nullptr, nullptr, nullptr);  // default laser on a simulated board
        break;
      default:
        laser = FApi->CreateLaserFromConfig(NewConfig("CO2").get(), FIO, nullptr);
        laser->LaserOn();
        if (auto source = FApi->CreateLaserInfoSource()) {
          auto obj = FApp.CreateJsonObject();
          source->ReadAllData(*obj);
          sources += obj->Has("IsLaserOn") && obj->Get("IsLaserOn")->AsBoolean();
        }
        if (i % 8 == 7) FApi->DestroyLaser();
        break;
    }
    lasers += laser != nullptr;
  }
  EXPECT_EQ(lasers, 1000u);
  EXPECT_EQ(sources, 250u);
  FApi->DestroyLaser();
  EXPECT_EQ(FApi->CreateLaserInfoSource(), nullptr);
  EXPECT_FALSE(FIO->State().Outputs.test(6)) << "the last handshake's gate was closed";
}

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

TEST_F(PluginLoadTest, OnlyTheEntryPointsAreVisibleAndNoneThrowsAtItsHost) {
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
}

}  // namespace
