// What a host call on the Modbus IO extension costs while the module answers, answers slowly, or is gone: the
// calls answer from the image, so none may wait on the network. Reports the median, p99 and worst call in µs.
// Run: build/release/bench/devlaser_bench --benchmark_filter=ModbusHostCall
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "refhost/RecordingSink.h"
#include "refhost/modbus/ModbusCtrlExtIO.h"
#include "sim/modbus/ModbusModuleSim.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

enum TModuleState { kAnswering, kSlow, kGone };

// The calls a hard-wired laser and the host's control loop make, in turn: outputs, inputs, PWM, DA and AD.
void OneHostCall(refhost::TModbusCtrlExtIO& io, int64_t i) {
  switch (i % 6) {
    case 0:
      io.SetOutputbit(5, (i / 6) % 2 == 0);
      break;
    case 1:
      benchmark::DoNotOptimize(io.GetOutputBit(5));
      break;
    case 2:
      benchmark::DoNotOptimize(io.GetInputBit(3));
      break;
    case 3:
      io.SetDAValue(1, static_cast<double>(i % 100) / 10.0);
      break;
    case 4:
      benchmark::DoNotOptimize(io.GetADValue(0));
      break;
    default:
      io.SetPwmRatio(1, static_cast<double>(i % 100) / 100.0);
      break;
  }
}

void BM_ModbusHostCall(benchmark::State& state) {
  const auto moduleState = static_cast<TModuleState>(state.range(0));
  lasersim::TModbusModuleSim module;
  std::string error;
  if (!module.Start("127.0.17.20", 15021, error)) {
    state.SkipWithError(error.c_str());
    return;
  }
  refhost::TModbusIOOptions options;
  options.Host = "127.0.17.20";
  options.Port = 15021;
  options.RetryFirst = 1ms;  // a gone module is retried as often as the back-off allows
  options.RetryLongest = 5ms;
  refhost::TModbusCtrlExtIO io(options, std::make_shared<refhost::TRecordingSink>());
  if (!io.Connect(error)) {
    state.SkipWithError(error.c_str());
    return;
  }
  io.Start();
  if (moduleState == kSlow) module.SetReplyDelay(100ms);  // ten scans per reply
  if (moduleState == kGone) module.Stop();

  std::vector<double> micros;
  micros.reserve(static_cast<size_t>(state.max_iterations));
  int64_t i = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    OneHostCall(io, i++);
    micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    std::this_thread::sleep_for(20us);  // a control loop's pace: the scan thread works in between
  }
  io.Stop();
  module.Stop();

  std::sort(micros.begin(), micros.end());
  const auto at = [&](double q) { return micros[static_cast<size_t>(q * static_cast<double>(micros.size() - 1))]; };
  state.counters["p50_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
  state.counters["max_us"] = micros.back();
  state.SetLabel(moduleState == kAnswering ? "module answers" : moduleState == kSlow ? "module slow" : "module gone");
}

// A fixed count spread over a second or two, so that the scan thread's requests, slow replies and reconnections
// happen while the calls are measured.
BENCHMARK(BM_ModbusHostCall)->Arg(kAnswering)->Arg(kSlow)->Arg(kGone)->Iterations(20000)->UseRealTime();

}  // namespace
