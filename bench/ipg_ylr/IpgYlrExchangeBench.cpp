// What the host's control thread waits for when it drives an IPG YLR2 laser over TCP, against the simulated laser
// answering at once on loopback: the time from a call to its command reaching the laser, an acknowledged diode
// current set, emission on and off, the device description, and creating the laser with nothing listening.
// Prints p50, p99 and the maximum of each in milliseconds.
//
// Run: build/release/bin/ipg_ylr_exchange_bench [rounds]   (default 200 rounds; creation: a tenth of them)
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/IpgYlrBenchParams.h"
#include "frame/HostServices.h"
#include "ipg/IpgYlr2Laser.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/transport/PosixTransports.h"
#include "registry/LaserFactory.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrTcpServer.h"

namespace {

using Clock = std::chrono::steady_clock;
using Ms = std::chrono::duration<double, std::milli>;

constexpr const char* kLaserAddress = "127.0.0.71";
constexpr const char* kAbsentAddress = "127.0.0.72";

void Report(const char* name, std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  auto at = [&](double q) {
    return ms[std::min(ms.size() - 1, static_cast<size_t>(q * static_cast<double>(ms.size())))];
  };
  std::printf("%-34s n=%4zu  p50 %8.3f ms  p99 %8.3f ms  max %8.3f ms\n", name, ms.size(), at(0.50), at(0.99),
              ms.back());
}

template <class F>
double Timed(F&& call) {
  const auto start = Clock::now();
  call();
  return Ms(Clock::now() - start).count();
}

// Notes when a command reaches the simulated laser.
class TArrivals {
 public:
  void Note(const std::string& command) {
    std::lock_guard lock(FMutex);
    FLast[command] = Clock::now();
    FArrived.notify_all();
  }
  void Forget(const std::string& command) {
    std::lock_guard lock(FMutex);
    FLast.erase(command);
  }
  Clock::time_point WaitFor(const std::string& command) {
    std::unique_lock lock(FMutex);
    FArrived.wait_for(lock, std::chrono::seconds(5), [&] { return FLast.count(command) != 0; });
    return FLast.count(command) ? FLast[command] : Clock::now();
  }

 private:
  std::mutex FMutex;
  std::condition_variable FArrived;
  std::map<std::string, Clock::time_point> FLast;
};

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::max(10, std::atoi(argv[1])) : 200;
  refhost::TRefApp app;
  app.SetTransports(std::make_shared<refhost::TPosixTransports>());
  if (!devlaser::LoadLaserLibrary(&app)) {
    std::fprintf(stderr, "cannot load the laser library\n");
    return 1;
  }
  auto io = std::make_shared<refhost::TSimCtrlExtIO>();

  lasersim::TIpgYlrEngine engine;
  TArrivals arrivals;
  engine.SetTraceHook([&](const std::string& command, const std::string&) { arrivals.Note(command); });
  lasersim::TIpgYlrTcpServer server(engine);
  if (!server.Start(kLaserAddress)) {
    std::fprintf(stderr, "cannot start the simulated laser: %s\n", server.LastError().c_str());
    return 1;
  }

  {
    auto created = devlaser::CreateLaser(bench::YlrOverTcpParams(kLaserAddress), io);
    auto* laser = dynamic_cast<devlaser::TIPGYLR2Laser*>(created.get());
    if (laser == nullptr) {
      std::fprintf(stderr, "the configuration did not give an IPG YLR2 laser\n");
      return 1;
    }
    const auto connectBy = Clock::now() + std::chrono::seconds(10);
    while (!laser->Driver()->IsConnectedOk() && Clock::now() < connectBy)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));

    std::vector<double> toWire, set, emission, desc;
    for (int i = 0; i < rounds; ++i) {
      const bool on = i % 2 == 0;
      const std::string command = on ? "ABN" : "ABF";
      arrivals.Forget(command);
      const auto start = Clock::now();
      laser->SetAimingOn(on);
      toWire.push_back(Ms(arrivals.WaitFor(command) - start).count());
    }
    int confirmedOnReturn = 0;
    for (int i = 0; i < rounds; ++i) {
      const double percent = i % 2 == 0 ? 40 : 50;
      set.push_back(Timed([&] { laser->SetDiodeCurrent(percent); }));
      if (laser->Driver()->GetDiodeCurrent() == percent) ++confirmedOnReturn;
    }
    for (int i = 0; i < rounds; ++i)
      emission.push_back(Timed([&] {
        laser->EmissionOn();
        laser->EmissionOff();
      }));
    for (int i = 0; i < rounds; ++i) {
      desc.push_back(Timed([&] { laser->GetDeviceDesc(); }));
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::printf("device description: %s\n", laser->GetDeviceDesc().c_str());
    std::printf("sets confirmed by the laser's echo when the call returned: %d of %d\n", confirmedOnReturn, rounds);
    Report("command to wire (SetAimingOn)", toWire);
    Report("acknowledged SetDiodeCurrent", set);
    Report("EmissionOn + EmissionOff", emission);
    Report("GetDeviceDesc", desc);
  }
  devlaser::DestroyLaser();

  std::vector<double> absent;
  for (int i = 0; i < std::max(10, rounds / 10); ++i) {
    absent.push_back(Timed([&] { devlaser::CreateLaser(bench::YlrOverTcpParams(kAbsentAddress), io); }));
    devlaser::DestroyLaser();
  }
  Report("CreateLaser, nothing listening", absent);

  server.Stop();
  devlaser::UnloadLaserLibrary();
  return 0;
}
