// What an idle own-brand laser costs the processor while it keeps polling its laser, measured on the laser's own two
// threads (the simulator answering it runs in the same process and is not counted), with the polling rate the laser
// keeps on the wire. Run: build/release/bench/devlaser_bench --benchmark_filter=ZorunIdle
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "bench/BenchSupport.h"
#include "core/LaserLifetime.h"
#include "frame/HostServices.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/transport/PosixTransports.h"
#include "sim/zorun/ZorunSimEngine.h"
#include "sim/zorun/ZorunSimServer.h"
#include "zorun/ZorunLaser.h"

#ifndef DEVLASER_SOURCE_DIR
#define DEVLASER_SOURCE_DIR "."
#endif

namespace {

using bench::ThreadCpuSeconds;

// state.range(0): 1 when the state query waits for its reply (the shipped file), 0 when it does not.
void BM_ZorunIdleCpu(benchmark::State& state) {
  const bool queryWantsReply = state.range(0) != 0;
  const std::string dir = (std::filesystem::temp_directory_path() / "devlaser-zorun-bench").string();
  std::filesystem::create_directories(dir);
  std::ifstream example(std::string(DEVLASER_SOURCE_DIR) + "/examples/ZorunLaser.json");
  std::ostringstream read;
  read << example.rdbuf();
  std::string text = read.str();
  if (!queryWantsReply) {
    const std::string wants =
        "\"CmdDesc\": \"state query\", \"Command\": \"5A A5 01 15 00\", \"CmdTotalLen\": 5, "
        "\"CmdLv\": 0,\n         \"CmdNeedReply\": true";
    const auto at = text.find(wants);
    if (at != std::string::npos) text.replace(at + wants.size() - 4, 4, "false");
  }
  std::ofstream(dir + "/ZorunLaser.json") << text;

  refhost::TRefApp app(std::make_shared<refhost::TRecordingSink>());
  app.SetTransports(std::make_shared<refhost::TPosixTransports>());
  app.SetExeDir(dir);
  devlaser::SetHost(&app);
  lasersim::TZorunSimEngine engine;
  std::string error;
  if (!engine.Load(dir + "/ZorunLaser.json", 0, error)) {
    state.SkipWithError(error.c_str());
    devlaser::SetHost(nullptr);
    return;
  }
  lasersim::TZorunSimServer server(engine);
  lasersim::TZorunSimLinks links;
  links.UdpAddress = "127.0.0.1";
  server.Start(links);

  devlaser::TLaserParams params;
  params.Model = "Zorun";
  params.LaserMainType = devlaser::eltZorun;
  params.DefParams.DataTransType = devlaser::dttNetUDP;
  params.DefParams.Net.TcpHost = "127.0.0.1";
  params.DefParams.Net.TcpPort = server.UdpPort();
  auto laser = devlaser::MakeLaser<devlaser::TZorunLaser>(params, nullptr);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));  // past start-up

  double cpu = 0, seconds = 0, frames = 0;
  for (auto _ : state) {
    const double cpu0 = ThreadCpuSeconds("ZorunLaser");
    const size_t frames0 = engine.Log().Received();
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    cpu += ThreadCpuSeconds("ZorunLaser") - cpu0;
    frames += static_cast<double>(engine.Log().Received() - frames0);
  }
  state.counters["cpu_percent"] = 100.0 * cpu / seconds;
  state.counters["frames_per_s"] = frames / seconds;
  laser.reset();
  server.Stop();
  devlaser::SetHost(nullptr);
  std::filesystem::remove_all(dir);
}

BENCHMARK(BM_ZorunIdleCpu)->Name("ZorunIdle/QueryWantsReply")->Arg(1)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_ZorunIdleCpu)->Name("ZorunIdle/QueryWithoutReply")->Arg(0)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
