// How precisely the IO step sequencer keeps its delays, and what a laser costs the processor while its handshake
// waits out a long delay. Run: build/release/bench/devlaser_bench --benchmark_filter=Sequencer
#include <benchmark/benchmark.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "core/DefaultLaser.h"
#include "core/LaserIOThread.h"
#include "core/LaserLifetime.h"
#include "frame/LaserComm.h"

namespace {

using Clock = std::chrono::steady_clock;

// Notes the moment of the first output write; everything else as the simulated board.
class TTimestampIO : public devlaser::TSimIOExtBoard {
 public:
  void SetOutputbit(uint8_t, bool) override {
    if (!FWritten.exchange(true)) FWriteTime.store(Clock::now());
  }
  Clock::time_point WriteTime() const { return FWriteTime.load(); }

 private:
  std::atomic<bool> FWritten{false};
  std::atomic<Clock::time_point> FWriteTime{};
};

double ProcessCpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// A sequence { delay N, output on }: the output is written N ms plus one settling pause after the start. Reports
// the lateness beyond that as the iteration time and as counters.
void BM_SequencerDelayAccuracy(benchmark::State& state) {
  const auto requested = static_cast<int32_t>(state.range(0));
  double worstLateMs = 0, sumLateMs = 0;
  for (auto _ : state) {
    auto io = std::make_shared<TTimestampIO>();
    auto done = std::make_shared<devlaser::TLaserSemaphore>(0, 1);
    devlaser::TLaserIOThread sequence(nullptr);
    sequence.SetCtrlExtIO(io);
    sequence.SetFinishSemaphore(done);
    sequence.AddDelay(requested);
    sequence.AddOutport(1, true);
    auto start = Clock::now();
    sequence.Start();
    done->Acquire();
    double actualMs = std::chrono::duration<double, std::milli>(io->WriteTime() - start).count();
    double lateMs = actualMs - requested - devlaser::TLaserIOThread::kSettleMs;
    state.SetIterationTime(lateMs > 0 ? lateMs / 1000.0 : 0.0);
    sumLateMs += lateMs;
    if (lateMs > worstLateMs) worstLateMs = lateMs;
  }
  state.counters["requested_ms"] = requested;
  state.counters["mean_late_ms"] = sumLateMs / static_cast<double>(state.iterations());
  state.counters["worst_late_ms"] = worstLateMs;
}
BENCHMARK(BM_SequencerDelayAccuracy)
    ->Arg(5)
    ->Arg(50)
    ->Arg(500)
    ->Iterations(5)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// A default laser whose shutter-ready delay is ten minutes: its handshake sleeps while the process is measured
// for a fixed wall time. Then the laser is freed mid-delay; the time that takes is reported too.
void BM_SequencerIdleCpuDuringLongDelay(benchmark::State& state) {
  const auto window = std::chrono::milliseconds(state.range(0));
  double cpuShare = 0, freeMs = 0;
  for (auto _ : state) {
    devlaser::TLaserParams params;
    params.CfgOther.ShutterReady = 3;
    params.CfgOther.ShutterReadyDelay = 600000;
    params.DefParams.CtrlPort = 4;
    auto laser = devlaser::MakeLaser<devlaser::TDefaultLaser>(params, nullptr);
    laser->EmissionOn();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // let the handshake reach its delay
    double cpuBefore = ProcessCpuSeconds();
    auto wallBefore = Clock::now();
    std::this_thread::sleep_for(window);
    double cpu = ProcessCpuSeconds() - cpuBefore;
    double wall = std::chrono::duration<double>(Clock::now() - wallBefore).count();
    cpuShare = cpu / wall;
    auto freeStart = Clock::now();
    laser.reset();
    freeMs = std::chrono::duration<double, std::milli>(Clock::now() - freeStart).count();
    state.SetIterationTime(cpu);
  }
  state.counters["cpu_percent_of_one_core"] = cpuShare * 100.0;
  state.counters["free_mid_delay_ms"] = freeMs;
}
BENCHMARK(BM_SequencerIdleCpuDuringLongDelay)->Arg(1000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
