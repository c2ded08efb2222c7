// How precisely the IO step sequencer keeps its delays, how soon it sees an awaited input change, and what a laser
// costs the processor while its handshake waits out a long delay or an input. Run: build/release/bench/devlaser_bench
// --benchmark_filter=Sequencer
#include <benchmark/benchmark.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "bench/BenchSupport.h"
#include "core/DefaultLaser.h"
#include "core/LaserIOThread.h"
#include "core/LaserLifetime.h"
#include "frame/LaserComm.h"

namespace {

using bench::ProcessCpuSeconds;
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

// An input that a test flips from outside; the time of the first output write is noted as above.
class TSwitchedInputIO : public TTimestampIO {
 public:
  bool GetInputBit(uint8_t) override { return FInput.load(); }
  void SetInput() {
    FSetTime.store(Clock::now());
    FInput.store(true);
  }
  Clock::time_point SetTime() const { return FSetTime.load(); }

 private:
  std::atomic<bool> FInput{false};
  std::atomic<Clock::time_point> FSetTime{};
};

// A sequence { wait for input 1, output 2 on } whose input switches on at an odd moment while the sequence reads
// it: the output follows one settling pause after the input is seen. Reports how late the input was seen and the
// processor time the wait cost.
void BM_SequencerInputLatency(benchmark::State& state) {
  double worstMs = 0, sumMs = 0, cpuShare = 0;
  int64_t round = 0;
  for (auto _ : state) {
    auto io = std::make_shared<TSwitchedInputIO>();
    auto done = std::make_shared<devlaser::TLaserSemaphore>(0, 1);
    devlaser::TLaserIOThread sequence(nullptr);
    sequence.SetCtrlExtIO(io);
    sequence.SetFinishSemaphore(done);
    sequence.AddInport(1, true, 5000);
    sequence.AddOutport(2, true);
    const double cpuBefore = ProcessCpuSeconds();
    const auto start = Clock::now();
    sequence.Start();
    // 200 ms plus a step through the read period, so the change falls anywhere between two reads.
    std::this_thread::sleep_for(std::chrono::microseconds(200000 + (round++ * 37) % 1000));
    io->SetInput();
    done->Acquire();
    cpuShare = (ProcessCpuSeconds() - cpuBefore) / std::chrono::duration<double>(Clock::now() - start).count();
    const double seenMs = std::chrono::duration<double, std::milli>(io->WriteTime() - io->SetTime()).count() -
                          devlaser::TLaserIOThread::kSettleMs;
    state.SetIterationTime(seenMs > 0 ? seenMs / 1000.0 : 0.0);
    sumMs += seenMs;
    if (seenMs > worstMs) worstMs = seenMs;
  }
  state.counters["mean_seen_after_ms"] = sumMs / static_cast<double>(state.iterations());
  state.counters["worst_seen_after_ms"] = worstMs;
  state.counters["cpu_percent_of_one_core_while_waiting"] = cpuShare * 100.0;
}
BENCHMARK(BM_SequencerInputLatency)->Iterations(20)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
