// How long the host's calls into a Raycus QCW laser take, with the simulated laser on a pseudo-terminal and after
// the line has gone. Each call is timed on its own; the counters give the median, the 99th percentile and the
// longest call in microseconds, and how many calls took longer than 50 us and 1 ms. LaserOn is left out: it waits the
// fiber laser's QCW settling time by design. Run: build/release/bench/devlaser_bench --benchmark_filter=RayQcw
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/HostServices.h"
#include "raycus/RayQcwLaser.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/transport/PosixTransports.h"
#include "refhost/transport/SerialPortMap.h"
#include "sim/rayqcw/RayQcwEngine.h"
#include "sim/rayqcw/RayQcwPtyServer.h"

namespace {

using Clock = std::chrono::steady_clock;

struct TAlarmSink : nchost::INcAlarmReport20 {
  void ReportAlarm(int32_t, bool) override {}
};

// One QCW laser on its simulator, built once per benchmark run.
class TQcwBench {
 public:
  TQcwBench() {
    devlaser::SetHost(&FApp);
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, FPorts));
    FPty.Start();
    FPorts->Set(3, FLink);
    devlaser::TLaserParams params;
    params.Model = "Raycus";
    params.LaserMainType = devlaser::eltRay;
    params.LaserSubType = devlaser::TRayQCWLaser::kQcwSubType;
    params.DefParams.DataTransType = devlaser::dttSerial;
    params.DefParams.Comm.CommPort = 3;
    params.DefParams.CtrlPort = 6;
    FLaser = devlaser::MakeLaser<devlaser::TRayQCWLaser>(params, FIO);
    // Until the first status came.
    for (int i = 0; i < 500 && FLaser && FLaser->Driver()->GetAlarmBytes().empty(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ~TQcwBench() {
    FLaser.reset();
    FPty.Stop();
    devlaser::SetHost(nullptr);
  }

  bool Ready() const { return FLaser != nullptr && !FLaser->Driver()->GetAlarmBytes().empty(); }
  devlaser::TRayQCWLaser& Laser() { return *FLaser; }
  void PullTheLine() {
    FPty.Stop();
    for (int i = 0; i < 500 && FLaser->Driver()->PortActive(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }

 private:
  refhost::TRefApp FApp;
  std::shared_ptr<refhost::TSerialPortMap> FPorts = std::make_shared<refhost::TSerialPortMap>();
  std::shared_ptr<refhost::TSimCtrlExtIO> FIO = std::make_shared<refhost::TSimCtrlExtIO>();
  std::string FLink = (std::filesystem::temp_directory_path() / "devlaser-bench-ttyQCW").string();
  lasersim::TRayQcwEngine FEngine;
  lasersim::TRayQcwPtyServer FPty{FEngine, FLink};
  std::shared_ptr<devlaser::TRayQCWLaser> FLaser;
};

// The calls a host makes, in turn: commands that write to the line and queries that read the cache.
std::vector<std::function<void(devlaser::TRayQCWLaser&, int)>> HostCalls() {
  return {
      [](auto& l, int i) { l.SetDiodeCurrent(40 + (i % 2) * 10); },
      [](auto& l, int) { l.EmissionOn(); },
      [](auto& l, int) { l.EmissionOff(); },
      [](auto& l, int) { l.LaserOff(); },
      [](auto& l, int) { l.Driver()->LaserOn(); },
      [](auto& l, int) { (void)l.GetDiodeCurrent(); },
      [](auto& l, int) { (void)l.GetIsEmissionOn(); },
      [](auto& l, int) { (void)l.GetDeviceDesc(); },
      [](auto& l, int) {
        TAlarmSink sink;
        l.UpdateAlarms(sink);
      },
  };
}

void RunHostCalls(benchmark::State& state, bool lineGone) {
  TQcwBench bench;
  if (!bench.Ready()) {
    state.SkipWithError("the QCW laser did not come up on its simulator");
    return;
  }
  if (lineGone) bench.PullTheLine();
  const auto calls = HostCalls();
  std::vector<double> micros;
  micros.reserve(static_cast<size_t>(state.max_iterations));
  int i = 0;
  for (auto _ : state) {
    const auto& call = calls[static_cast<size_t>(i) % calls.size()];
    const auto start = Clock::now();
    call(bench.Laser(), i / static_cast<int>(calls.size()));
    micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    ++i;
  }
  std::sort(micros.begin(), micros.end());
  auto at = [&](double q) { return micros[std::min(micros.size() - 1, static_cast<size_t>(q * micros.size()))]; };
  state.counters["p50_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
  state.counters["max_us"] = micros.back();
  state.counters["over_50us"] =
      static_cast<double>(micros.end() - std::upper_bound(micros.begin(), micros.end(), 50.0));
  state.counters["over_1ms"] =
      static_cast<double>(micros.end() - std::upper_bound(micros.begin(), micros.end(), 1000.0));
}

void BM_RayQcwHostCallsLineOpen(benchmark::State& state) { RunHostCalls(state, false); }
void BM_RayQcwHostCallsLineGone(benchmark::State& state) { RunHostCalls(state, true); }

BENCHMARK(BM_RayQcwHostCallsLineOpen)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RayQcwHostCallsLineGone)->Iterations(20000)->Unit(benchmark::kMicrosecond);

}  // namespace
