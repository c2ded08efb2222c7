// How precisely the IPG bus laser holds the steps of its emission start sequence, and how quickly destroying the
// laser frees a host thread held in the start sequence or the alarm-reset pulse.
// Run: build/release/bench/devlaser_bench --benchmark_filter=IpgEcat
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <thread>

#include "api/DevLaserApi.h"
#include "core/LaserLifetime.h"
#include "ecat/IpgEcatLaser.h"
#include "frame/HostServices.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/SimEcatSystem.h"

namespace {

using Clock = std::chrono::steady_clock;
using refhost::TSimEcatSystem;

double Ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

struct TBusHost {
  TBusHost() {
    App.SetEcatSystem(Ecat);
    devlaser::SetHost(&App);
  }
  ~TBusHost() { devlaser::SetHost(nullptr); }
  refhost::TRefApp App{std::make_shared<refhost::TRecordingSink>()};
  std::shared_ptr<TSimEcatSystem> Ecat = std::make_shared<TSimEcatSystem>(true, TSimEcatSystem::kIpgLaserIdentity.Word1,
                                                                          TSimEcatSystem::kIpgLaserIdentity.Word2);
};

devlaser::TLaserParams BusLaserParams() {
  devlaser::TLaserParams params;
  params.Model = "IPG";
  params.LaserMainType = devlaser::eltIPG;
  params.LaserSubType = 9;
  params.DefParams.Power = 2000.0;
  return params;
}

// Each write of the start sequence against the hold the laser needs before it: the deviation of every step, as
// the slave recorded the writes.
void BM_IpgEcatStartSequenceStepAccuracy(benchmark::State& state) {
  TBusHost host;
  double worstMs = 0, sumMs = 0;
  int steps = 0;
  for (auto _ : state) {
    auto laser = devlaser::MakeLaser<devlaser::TIPGEcatLaser>(BusLaserParams(), nullptr);
    auto slave = host.Ecat->Slave();
    slave->ClearWrites();
    const auto start = Clock::now();
    laser->EmissionOn();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    const auto writes = slave->ControlWrites();
    for (size_t i = 0; i + 1 < writes.size() && i < std::size(devlaser::TIPGEcatLaser::kStartSequence); ++i) {
      const double deviation =
          Ms(writes[i + 1].Time - writes[i].Time) - Ms(devlaser::TIPGEcatLaser::kStartSequence[i].Hold);
      worstMs = std::max(worstMs, std::fabs(deviation));
      sumMs += std::fabs(deviation);
      ++steps;
    }
  }
  state.counters["worst_step_deviation_ms"] = worstMs;
  state.counters["mean_step_deviation_ms"] = steps > 0 ? sumMs / steps : 0.0;
}
BENCHMARK(BM_IpgEcatStartSequenceStepAccuracy)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

// DestroyLaser while the host's control thread waits in the start sequence (argument 0) or in the reset pulse
// (argument 1): how long DestroyLaser takes, and how long until the held call returns.
void BM_IpgEcatDestroyDuringWait(benchmark::State& state) {
  const bool reset = state.range(0) == 1;
  TBusHost host;
  devlaser::LoadLaserLibrary(&host.App);
  double worstDestroyMs = 0, worstReturnMs = 0;
  for (auto _ : state) {
    auto laser = devlaser::CreateLaser(BusLaserParams(), nullptr);
    auto slave = host.Ecat->Slave();
    slave->ClearWrites();
    Clock::time_point returned;
    std::jthread control([&] {
      if (reset)
        laser->ResetAlarm(16);
      else
        laser->EmissionOn();
      returned = Clock::now();
    });
    slave->WaitForWrite([](const refhost::TEcatInputWrite& w) { return w.Index == 0; }, std::chrono::seconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // well inside the first hold
    const auto begin = Clock::now();
    devlaser::DestroyLaser();
    const auto destroyed = Clock::now();
    control.join();
    worstDestroyMs = std::max(worstDestroyMs, Ms(destroyed - begin));
    worstReturnMs = std::max(worstReturnMs, Ms(returned - begin));
    state.SetIterationTime(std::chrono::duration<double>(returned - begin).count());
  }
  devlaser::UnloadLaserLibrary();
  state.counters["worst_destroy_ms"] = worstDestroyMs;
  state.counters["worst_call_return_ms"] = worstReturnMs;
}
BENCHMARK(BM_IpgEcatDestroyDuringWait)
    ->ArgName("reset")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
