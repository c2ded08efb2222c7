// What the Raycus serial laser costs its callers and the processor, on a pseudo-terminal that a reader drains:
//  - caller latency of the host's operations while the serial thread always has a command to write (p50/p99/max),
//  - command-to-line latency while the thread idles (from EmissionOn to the bytes at the far end),
//  - processor time of one idle laser over a window (default 30 s).
// Run: build/release/bench/devlaser_bench --benchmark_filter=Raycus
#include <benchmark/benchmark.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchSupport.h"
#include "core/LaserLifetime.h"
#include "frame/HostServices.h"
#include "raycus/RaycusLaser.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/transport/PosixTransports.h"
#include "refhost/transport/PseudoTerminal.h"
#include "refhost/transport/SerialPortMap.h"

namespace {

using bench::ProcessCpuSeconds;
using bench::ReportPercentiles;
using Clock = std::chrono::steady_clock;

// The measuring thread waits by yielding, not by spinning: the scheduler tends to wake the laser's thread on the
// waker's processor, and a spinning waker keeps it off that processor until the next scheduler tick (about 4 ms),
// which measures the benchmark instead of the laser.
void YieldToLaserThread() { std::this_thread::yield(); }

// A Raycus laser on serial port 1, which is a pseudo-terminal whose far end a reader thread drains, noting when
// bytes arrive.
class TRaycusRig {
 public:
  TRaycusRig() {
    FTerminal.Open();
    auto ports = std::make_shared<refhost::TSerialPortMap>();
    ports->Set(1, FTerminal.SlavePath());
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, ports));
    devlaser::SetHost(&FApp);
    FReader = std::thread([this] { Drain(); });
    devlaser::TLaserParams params;
    params.Model = "Raycus";
    params.LaserMainType = devlaser::eltRay;
    params.LaserSubType = 1;
    params.DefParams.DataTransType = devlaser::dttSerial;
    params.DefParams.Comm.CommPort = 1;
    params.DefParams.Comm.CommSettings = "115200,n,8,1";
    params.DefParams.CtrlPort = 0;
    Laser = devlaser::MakeLaser<devlaser::TRaycusLaser>(params, std::make_shared<refhost::TSimCtrlExtIO>());
    // The start-up diode current goes out five times; after that the thread idles.
    WaitForBytes(25, std::chrono::seconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ~TRaycusRig() {
    Laser.reset();
    FStop = true;
    FReader.join();
    devlaser::SetHost(nullptr);
  }

  uint64_t Received() const { return FReceived.load(); }
  Clock::time_point LastArrival() const { return FLastArrival.load(); }
  bool WaitForBytes(uint64_t count, Clock::duration timeout) const {
    const auto deadline = Clock::now() + timeout;
    while (FReceived.load() < count) {
      if (Clock::now() > deadline) return false;
      YieldToLaserThread();
    }
    return true;
  }

  std::shared_ptr<devlaser::TRaycusLaser> Laser;

 private:
  void Drain() {
    char buffer[4096];
    while (!FStop) {
      pollfd fd{FTerminal.MasterFd(), POLLIN, 0};
      if (::poll(&fd, 1, 50) <= 0) continue;
      const ssize_t n = ::read(FTerminal.MasterFd(), buffer, sizeof buffer);
      if (n <= 0) continue;
      FLastArrival.store(Clock::now());
      FReceived.fetch_add(static_cast<uint64_t>(n));
    }
  }

  refhost::TRefApp FApp;
  refhost::TPseudoTerminal FTerminal;
  std::atomic<bool> FStop{false};
  std::atomic<uint64_t> FReceived{0};
  std::atomic<Clock::time_point> FLastArrival{};
  std::thread FReader;
};

// Each iteration is one round of host calls: emission on and off, a diode current, and the state queries. Every
// call queues a command or reads a cached value; the thread meanwhile writes a command in every cycle.
void BM_RaycusCallerLatencyWhileWriting(benchmark::State& state) {
  TRaycusRig rig;
  auto& laser = *rig.Laser;
  std::vector<double> on, off, diode, queries;
  const auto timed = [](std::vector<double>& into, auto&& call) {
    const auto start = Clock::now();
    call();
    into.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  };
  double current = 50;
  for (auto _ : state) {
    timed(on, [&] { laser.EmissionOn(); });
    timed(diode, [&] { laser.SetDiodeCurrent(current = current == 50 ? 60 : 50); });
    timed(queries, [&] {
      benchmark::DoNotOptimize(laser.GetIsEmissionOn());
      benchmark::DoNotOptimize(laser.GetDiodeCurrent());
      benchmark::DoNotOptimize(laser.GetIsLaserOn());
    });
    timed(off, [&] { laser.EmissionOff(); });
    // A host calls every few hundred microseconds at most; the pause lets the thread's cycles interleave.
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  ReportPercentiles(state, on, "EmissionOn_");
  ReportPercentiles(state, off, "EmissionOff_");
  ReportPercentiles(state, diode, "SetDiodeCurrent_");
  ReportPercentiles(state, queries, "Queries_");
  state.counters["line_bytes"] = static_cast<double>(rig.Received());
}
BENCHMARK(BM_RaycusCallerLatencyWhileWriting)->Iterations(20000)->Unit(benchmark::kMicrosecond);

// From EmissionOn (or Off) on an idle laser to the command's bytes at the far end of the line.
void BM_RaycusCommandToLineWhileIdle(benchmark::State& state) {
  TRaycusRig rig;
  auto& laser = *rig.Laser;
  std::vector<double> latency, toWrite;
  bool on = false;
  for (auto _ : state) {
    // Past the 20 ms pause after the last write and well into idle cycles.
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    const uint64_t before = rig.Received();
    const uint64_t written = laser.SerialThread()->WrittenCount();
    const auto start = Clock::now();
    on = !on;
    if (on)
      laser.EmissionOn();
    else
      laser.EmissionOff();
    // The moment the thread's write returned, apart from the terminal's own delivery to the far end.
    while (laser.SerialThread()->WrittenCount() == written && Clock::now() - start < std::chrono::seconds(1))
      YieldToLaserThread();
    toWrite.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    if (!rig.WaitForBytes(before + 3, std::chrono::seconds(1))) {
      state.SkipWithError("the command never reached the line");
      break;
    }
    const double us = std::chrono::duration<double, std::micro>(rig.LastArrival() - start).count();
    latency.push_back(us);
    state.SetIterationTime(us * 1e-6);
  }
  ReportPercentiles(state, latency);
  ReportPercentiles(state, toWrite, "written_");
}
BENCHMARK(BM_RaycusCommandToLineWhileIdle)->Iterations(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

// One idle laser: its thread opens nothing new, reads an empty line and waits 5 ms, two hundred times a second.
void BM_RaycusIdleCpu(benchmark::State& state) {
  const auto window = std::chrono::milliseconds(state.range(0));
  double share = 0;
  for (auto _ : state) {
    TRaycusRig rig;
    const double cpuBefore = ProcessCpuSeconds();
    const auto wallBefore = Clock::now();
    std::this_thread::sleep_for(window);
    const double cpu = ProcessCpuSeconds() - cpuBefore;
    share = cpu / std::chrono::duration<double>(Clock::now() - wallBefore).count();
    state.SetIterationTime(cpu);
  }
  state.counters["cpu_percent_of_one_core"] = share * 100.0;
}
BENCHMARK(BM_RaycusIdleCpu)->Arg(30000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
