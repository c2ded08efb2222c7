// What a protocol laser costs its host when its link is healthy, slow or dead, and when it is destroyed on a stalled
// link:
//  - IPG YLR2 over TCP: each of the queries a host polls, timed on its own, with the simulated laser answering at
//    once, answering every command 150 ms late, and gone (the driver reconnecting in the background);
//  - DestroyLaser while the host's control thread waits for a silent laser's echo of a diode current (YLR2 over
//    TCP), and DestroyLaser of a Raycus QCW laser whose simulated laser has gone silent: how long DestroyLaser
//    takes and how soon the held call returns;
//  - processor time of an idle YLR2 laser over TCP and of an idle QCW laser on a pseudo-terminal, counted on the
//    laser's own threads (the simulators run in the same process and are left out).
// Run: build/release/bench/devlaser_bench --benchmark_filter=LinkHealth
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchSupport.h"
#include "bench/IpgYlrBenchParams.h"
#include "ipg/IpgYlr2Laser.h"
#include "ipg/IpgYlrDriver.h"
#include "raycus/RayQcwDriver.h"
#include "raycus/RayQcwLaser.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/transport/PosixTransports.h"
#include "refhost/transport/SerialPortMap.h"
#include "registry/LaserFactory.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrTcpServer.h"
#include "sim/rayqcw/RayQcwEngine.h"
#include "sim/rayqcw/RayQcwPtyServer.h"

namespace {

using Clock = std::chrono::steady_clock;
using bench::ReportPercentiles;
using bench::ThreadCpuSeconds;

constexpr const char* kYlrAddress = "127.0.0.74";
constexpr int32_t kQcwPort = 4;

double Micros(Clock::duration d) { return std::chrono::duration<double, std::micro>(d).count(); }
double Millis(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

struct TAlarmSink : nchost::INcAlarmReport20 {
  void ReportAlarm(int32_t, bool) override {}
};

bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (!done()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// The library loaded into a reference host with real transports; serial port kQcwPort is a pseudo-terminal.
class TLoadedLibrary {
 public:
  explicit TLoadedLibrary(const std::string& qcwLink = {}) {
    auto ports = std::make_shared<refhost::TSerialPortMap>();
    if (!qcwLink.empty()) ports->Set(kQcwPort, qcwLink);
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, ports));
    Loaded = devlaser::LoadLaserLibrary(&FApp);
  }
  ~TLoadedLibrary() { devlaser::UnloadLaserLibrary(); }
  bool Loaded = false;
  std::shared_ptr<refhost::TSimCtrlExtIO> IO = std::make_shared<refhost::TSimCtrlExtIO>();

 private:
  refhost::TRefApp FApp;
};

devlaser::TLaserParams QcwParams() {
  devlaser::TLaserParams params;
  params.Model = "Raycus";
  params.LaserMainType = devlaser::eltRay;
  params.LaserSubType = devlaser::TRayQCWLaser::kQcwSubType;
  params.DefParams.DataTransType = devlaser::dttSerial;
  params.DefParams.Comm.CommPort = kQcwPort;
  return params;
}

// A YLR2 laser created through the factory, connected to its simulator.
class TYlrRig {
 public:
  TYlrRig() {
    if (!FLibrary.Loaded || !FServer.Start(kYlrAddress)) return;
    FHeld = devlaser::CreateLaser(bench::YlrOverTcpParams(kYlrAddress), FLibrary.IO);
    Laser = dynamic_cast<devlaser::TIPGYLR2Laser*>(FHeld.get());
    if (Laser != nullptr && !WaitUntil([&] { return Laser->Driver()->IsConnectedOk(); }, std::chrono::seconds(10)))
      Laser = nullptr;
  }
  ~TYlrRig() {
    devlaser::DestroyLaser();
    FHeld.reset();
    FServer.Stop();
  }
  lasersim::TIpgYlrEngine Engine;
  lasersim::TIpgYlrTcpServer& Server() { return FServer; }
  devlaser::TIPGYLR2Laser* Laser = nullptr;

 private:
  TLoadedLibrary FLibrary;
  lasersim::TIpgYlrTcpServer FServer{Engine};
  std::shared_ptr<devlaser::TNcLaser> FHeld;
};

// A Raycus QCW laser created through the factory on a pseudo-terminal under `link`, with its first status in.
class TQcwRig {
 public:
  explicit TQcwRig(const std::string& link) : FPty(Engine, link) {
    FPty.Start();
    FLibrary = std::make_unique<TLoadedLibrary>(link);
    FHeld = devlaser::CreateLaser(QcwParams(), FLibrary->IO);
    Laser = dynamic_cast<devlaser::TRayQCWLaser*>(FHeld.get());
    if (Laser != nullptr &&
        !WaitUntil([&] { return !Laser->Driver()->GetAlarmBytes().empty(); }, std::chrono::seconds(5)))
      Laser = nullptr;
  }
  ~TQcwRig() {
    devlaser::DestroyLaser();
    FHeld.reset();
    FLibrary.reset();
    FPty.Stop();
  }
  lasersim::TRayQcwEngine Engine;
  devlaser::TRayQCWLaser* Laser = nullptr;

 private:
  lasersim::TRayQcwPtyServer FPty;
  std::unique_ptr<TLoadedLibrary> FLibrary;
  std::shared_ptr<devlaser::TNcLaser> FHeld;
};

enum class TLinkHealth { Healthy, Slow, Dead };

// One round of a host's polling: each query timed on its own.
void BM_LinkHealthYlrCachedQueries(benchmark::State& state) {
  const auto health = static_cast<TLinkHealth>(state.range(0));
  TYlrRig rig;
  if (rig.Laser == nullptr) {
    state.SkipWithError("the YLR2 laser did not connect to its simulator");
    return;
  }
  auto& laser = *rig.Laser;
  if (health == TLinkHealth::Slow) {
    lasersim::TIpgYlrTcpServer::TLinkShape slow;
    slow.ReplyDelay = std::chrono::milliseconds(150);
    rig.Server().SetLinkShape(slow);
  } else if (health == TLinkHealth::Dead) {
    rig.Server().Stop();
    WaitUntil([&] { return !laser.Driver()->IsConnectedOk(); }, std::chrono::seconds(5));
  }
  TAlarmSink sink;
  const std::vector<std::function<void()>> queries = {
      [&] { benchmark::DoNotOptimize(laser.GetIsEmissionOn()); },
      [&] { benchmark::DoNotOptimize(laser.GetIsLaserOn()); },
      [&] { benchmark::DoNotOptimize(laser.GetDiodeCurrent()); },
      [&] { benchmark::DoNotOptimize(laser.GetIsBusy()); },
      [&] { benchmark::DoNotOptimize(laser.GetDeviceDesc()); },
      [&] { benchmark::DoNotOptimize(laser.UpdateAlarms(sink)); },
  };
  std::vector<double> us;
  for (auto _ : state) {
    for (const auto& query : queries) {
      const auto start = Clock::now();
      query();
      us.push_back(Micros(Clock::now() - start));
    }
    // A host polls every few hundred microseconds at most; meanwhile the driver's thread polls the laser.
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  ReportPercentiles(state, us);
}
BENCHMARK(BM_LinkHealthYlrCachedQueries)
    ->Name("LinkHealth/YlrCachedQueries")
    ->ArgName("healthy0_slow1_dead2")
    ->DenseRange(0, 2)
    ->Iterations(5000)
    ->Unit(benchmark::kMicrosecond);

// The host's control thread sets a diode current on a laser that no longer answers; 50 ms into the wait for the
// echo the host destroys the laser.
void BM_LinkHealthYlrDestroyWhileWaiting(benchmark::State& state) {
  double worstDestroy = 0, worstReturn = 0;
  for (auto _ : state) {
    TYlrRig rig;
    if (rig.Laser == nullptr) {
      state.SkipWithError("the YLR2 laser did not connect to its simulator");
      return;
    }
    rig.Engine.SetReplyMode(lasersim::TIpgYlrEngine::TReplyMode::Silent);
    auto* laser = rig.Laser;
    Clock::time_point returned;
    std::thread control([&] {
      laser->SetDiodeCurrent(45);
      returned = Clock::now();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto begin = Clock::now();
    devlaser::DestroyLaser();
    const auto destroyed = Clock::now();
    control.join();
    worstDestroy = std::max(worstDestroy, Millis(destroyed - begin));
    worstReturn = std::max(worstReturn, Millis(returned - begin));
    state.SetIterationTime(std::chrono::duration<double>(destroyed - begin).count());
  }
  state.counters["worst_destroy_ms"] = worstDestroy;
  state.counters["worst_call_return_ms"] = worstReturn;
}
BENCHMARK(BM_LinkHealthYlrDestroyWhileWaiting)
    ->Name("LinkHealth/YlrDestroyWhileWaiting")
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// A QCW laser whose simulated laser stopped answering a while ago, destroyed.
void BM_LinkHealthQcwDestroySilent(benchmark::State& state) {
  const std::string link = (std::filesystem::temp_directory_path() / "devlaser-bench-ttyQCW-destroy").string();
  double worst = 0;
  for (auto _ : state) {
    TQcwRig rig(link);
    if (rig.Laser == nullptr) {
      state.SkipWithError("the QCW laser did not come up on its simulator");
      return;
    }
    rig.Engine.SetReplyMode(lasersim::TRayQcwEngine::TReplyMode::Silent);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto begin = Clock::now();
    devlaser::DestroyLaser();
    const auto destroyed = Clock::now();
    worst = std::max(worst, Millis(destroyed - begin));
    state.SetIterationTime(std::chrono::duration<double>(destroyed - begin).count());
  }
  state.counters["worst_destroy_ms"] = worst;
}
BENCHMARK(BM_LinkHealthQcwDestroySilent)
    ->Name("LinkHealth/QcwDestroySilent")
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Processor share of the laser's own threads over a window of state.range(0) ms, the laser idle but polled.
void ReportIdleShare(benchmark::State& state, const std::string& threadPrefix) {
  const auto window = std::chrono::milliseconds(state.range(0));
  double share = 0;
  for (auto _ : state) {
    const double cpuBefore = ThreadCpuSeconds(threadPrefix);
    const auto wallBefore = Clock::now();
    std::this_thread::sleep_for(window);
    const double cpu = ThreadCpuSeconds(threadPrefix) - cpuBefore;
    share = cpu / std::chrono::duration<double>(Clock::now() - wallBefore).count();
    state.SetIterationTime(cpu);
  }
  state.counters["cpu_percent_of_one_core"] = share * 100.0;
}

void BM_LinkHealthYlrIdleCpu(benchmark::State& state) {
  TYlrRig rig;
  if (rig.Laser == nullptr) {
    state.SkipWithError("the YLR2 laser did not connect to its simulator");
    return;
  }
  ReportIdleShare(state, std::string(devlaser::TIPGYLRDriver::kMonThreadName).substr(0, 15));
}
BENCHMARK(BM_LinkHealthYlrIdleCpu)
    ->Name("LinkHealth/YlrIdleCpu")
    ->Arg(10000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_LinkHealthQcwIdleCpu(benchmark::State& state) {
  const std::string link = (std::filesystem::temp_directory_path() / "devlaser-bench-ttyQCW-idle").string();
  TQcwRig rig(link);
  if (rig.Laser == nullptr) {
    state.SkipWithError("the QCW laser did not come up on its simulator");
    return;
  }
  ReportIdleShare(state, devlaser::TRayQCWDriver::kThreadName);
}
BENCHMARK(BM_LinkHealthQcwIdleCpu)
    ->Name("LinkHealth/QcwIdleCpu")
    ->Arg(10000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
