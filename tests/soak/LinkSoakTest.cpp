// A protocol laser of each family polls its simulator for a long while, with a host polling the laser and now and
// then switching emission and setting the peak power, while the process is sampled: resident memory, the heap in
// use, threads and open descriptors. After a warm-up none of them may grow: a leak of a few hundred bytes per poll,
// a thread or a descriptor per reconnect, shows up here long before it takes a controller down.
//
// The run lasts DEVLASER_SOAK_SECONDS per laser (5 s when unset, which is enough to try it locally; CI runs two
// minutes). Labelled "slow".
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <malloc.h>

#include "core/NcLaser.h"
#include "frame/HostServices.h"
#include "refhost/RefApp.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/transport/PosixTransports.h"
#include "registry/LaserFactory.h"
#include "registry/LaserLib.h"
#include "registry/LaserRegistrations.h"
#include "support/LinkSimulators.h"

// AddressSanitizer keeps freed memory aside (256 MB by default) to catch late uses; a laser polling for minutes
// churns through that much, and resident memory would then measure the recycle bin rather than the program. A small
// quarantine keeps the check meaningful (ASAN_OPTIONS still decides when set).
extern "C" const char* __asan_default_options();
// The heap in use as a sanitizer's allocator counts it; absent (null) without a sanitizer runtime.
extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=4"; }

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testsupport::TLink;

std::chrono::seconds SoakTime() {
  const char* text = std::getenv("DEVLASER_SOAK_SECONDS");
  const long seconds = text != nullptr ? std::strtol(text, nullptr, 10) : 0;
  return std::chrono::seconds(seconds > 0 ? seconds : 5);
}

size_t CountEntries(const char* dir) {
  std::filesystem::directory_iterator entries(dir);
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

struct TSample {
  size_t Threads = 0;
  size_t Descriptors = 0;
  size_t ResidentBytes = 0;
  size_t HeapBytes = 0;
};

size_t HeapInUse() {
  if (__sanitizer_get_current_allocated_bytes != nullptr) return __sanitizer_get_current_allocated_bytes();
  return mallinfo2().uordblks;
}

TSample Sample() {
  TSample s;
  s.Threads = CountEntries("/proc/self/task");
  s.Descriptors = CountEntries("/proc/self/fd");
  std::ifstream statm("/proc/self/statm");
  size_t pages = 0, resident = 0;
  statm >> pages >> resident;
  s.ResidentBytes = resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  s.HeapBytes = HeapInUse();
  return s;
}

double MiB(size_t bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

// Counts what the laser tells the host instead of keeping it: a recording sink would itself grow for hours.
class TCountingSink final : public refhost::TMessageSink {
 public:
  void Write(const refhost::TMessageEntry&) override { FCount.fetch_add(1); }
  size_t Count() const { return FCount.load(); }

 private:
  std::atomic<size_t> FCount{0};
};

struct TSoakCase {
  const char* Name;
  const char* ClassName;
  TLink Link;
  int Index;
};

const std::vector<TSoakCase> kSoakCases = {
    {"IpgYlrTcp", "TIPGYLR2Laser", TLink::Tcp, 0},
    {"RaycusEsc", "TRaycusLaser", TLink::Serial, 1},
    {"RaycusQcw", "TRayQCWLaser", TLink::Serial, 2},
    {"ZorunUdp", "TZorunLaser", TLink::Udp, 3},
};

std::string SoakName(const ::testing::TestParamInfo<TSoakCase>& info) { return info.param.Name; }
void PrintTo(const TSoakCase& c, std::ostream* os) { *os << c.Name; }

struct TNullReport : nchost::INcAlarmReport20 {
  void ReportAlarm(int32_t, bool) override {}
};

class LinkSoak : public ::testing::TestWithParam<TSoakCase> {
 protected:
  void SetUp() override {
    SetHost(&FApp);
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, FSerialPorts,
                                                                   refhost::TReachabilityProbe::TcpConnect));
    ASSERT_TRUE(LoadLaserLibrary(&FApp));
  }
  void TearDown() override {
    UnloadLaserLibrary();
    if (FSim) FSim->Stop();
    SetHost(nullptr);
  }

  std::shared_ptr<TCountingSink> FSink = std::make_shared<TCountingSink>();
  refhost::TRefApp FApp{FSink};
  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  std::unique_ptr<testsupport::TLinkSimulator> FSim;
};

TEST_P(LinkSoak, PollingForLongLeavesMemoryThreadsAndDescriptorsFlat) {
  const TSoakCase& c = GetParam();
  TLaserParams params;
  params.Initialize();
  params.Model = c.ClassName;
  {
    TNcLaserLib lib;
    TLaserTypeDic types;
    RegisterBuiltInLasers(lib, types);
    bool found = false;
    for (const auto& entry : lib.Entries()) {
      if (std::string(entry.LaserClass.Name) != c.ClassName || found) continue;
      for (size_t sub = 0; sub < entry.SubTypes.size() && !found; ++sub) {
        if (!entry.SubTypes.test(sub)) continue;
        params.LaserMainType = entry.LaserType;
        params.LaserSubType = static_cast<int32_t>(sub);
        found = true;
      }
    }
    ASSERT_TRUE(found) << c.ClassName;
  }
  params.DefParams.DiodeSetTimeOut = 300;
  FSim = testsupport::SimFamilyOf(c.ClassName)->Make();
  testsupport::TSimSlot slot{"127.0.40." + std::to_string(c.Index + 1), 400 + c.Index, FSerialPorts, nullptr};
  std::string error;
  ASSERT_TRUE(FSim->Start(c.Link, slot, params, error)) << error;

  auto io = std::make_shared<refhost::TSimCtrlExtIO>();
  auto laser = CreateLaser(params, io);
  ASSERT_TRUE(laser);
  const auto total = SoakTime();
  // The warm-up fills what is filled once: caches, the allocator's pools, the first reconnect's buffers.
  const auto warmUp = std::max<Clock::duration>(total / 5, 1s);
  const auto start = Clock::now();
  const auto end = start + total;

  // One host tick every 100 ms: the state queries; every second a peak-power set; every three an emission switch.
  std::vector<TSample> samples;
  size_t lastCount = 0, ticks = 0, received = 0;
  bool emitting = false;
  for (;;) {
    const auto now = Clock::now();
    if (now >= end) break;
    laser->GetIsEmissionOn();
    laser->GetIsLaserOn();
    laser->GetDiodeCurrent();
    laser->GetDeviceDesc();
    TNullReport report;
    laser->UpdateAlarms(report);
    if (ticks % 10 == 0) laser->SetDiodeCurrent(ticks % 20 == 0 ? 30.0 : 40.0);
    if (ticks % 30 == 0) {
      emitting = !emitting;
      if (emitting) {
        laser->LaserOn();
        laser->EmissionOn();
      } else {
        laser->EmissionOff();
        laser->LaserOff();
      }
    }
    ++ticks;
    if (ticks % 5 == 0) {
      // The simulator's own log would grow with every poll: it is emptied, after noting that polls still come.
      // Some simulators count on across a clear, others anew.
      const size_t count = FSim->Received();
      received += count >= lastCount ? count - lastCount : count;
      FSim->ClearLog();
      lastCount = FSim->Received();
      if (now - start >= warmUp) samples.push_back(Sample());
    }
    std::this_thread::sleep_for(100ms);
  }
  ASSERT_GE(samples.size(), 2u) << "the soak ended before its warm-up did";
  laser->EmissionOff();
  laser->LaserOff();

  // The last few samples, each at its smallest: transient threads and descriptors (a keep-alive ping in flight)
  // and a poll's buffers come and go.
  auto least = [&](auto field) {
    size_t value = SIZE_MAX;
    for (size_t i = samples.size() > 4 ? samples.size() - 4 : 0; i < samples.size(); ++i)
      value = std::min(value, samples[i].*field);
    return value;
  };
  auto mostAtStart = [&](auto field) {
    size_t value = 0;
    for (size_t i = 0; i < std::min<size_t>(4, samples.size()); ++i) value = std::max(value, samples[i].*field);
    return value;
  };
  const TSample last{least(&TSample::Threads), least(&TSample::Descriptors), least(&TSample::ResidentBytes),
                     least(&TSample::HeapBytes)};
  const TSample first{mostAtStart(&TSample::Threads), mostAtStart(&TSample::Descriptors),
                      mostAtStart(&TSample::ResidentBytes), mostAtStart(&TSample::HeapBytes)};

  std::cout << "soak " << c.Name << ": " << std::chrono::duration_cast<std::chrono::seconds>(total).count() << " s, "
            << received << " commands at the simulator, " << FSink->Count() << " host messages; heap "
            << MiB(first.HeapBytes) << " -> " << MiB(last.HeapBytes) << " MiB, resident " << MiB(first.ResidentBytes)
            << " -> " << MiB(last.ResidentBytes) << " MiB, threads " << first.Threads << " -> " << last.Threads
            << ", descriptors " << first.Descriptors << " -> " << last.Descriptors << std::endl;
  RecordProperty("commands", std::to_string(received));
  RecordProperty("heap_kib", std::to_string(first.HeapBytes / 1024) + "->" + std::to_string(last.HeapBytes / 1024));
  RecordProperty("rss_kib",
                 std::to_string(first.ResidentBytes / 1024) + "->" + std::to_string(last.ResidentBytes / 1024));

  EXPECT_GT(received, static_cast<size_t>(std::chrono::duration_cast<std::chrono::seconds>(total).count()))
      << "the laser hardly polled its simulator";
  EXPECT_LE(last.Threads, first.Threads);
  EXPECT_LE(last.Descriptors, first.Descriptors);
  // A leak of a few hundred bytes per poll exceeds these within the CI run; the allocator's own drift does not.
  EXPECT_LE(last.HeapBytes, first.HeapBytes + 256 * 1024 + first.HeapBytes / 50);
  EXPECT_LE(last.ResidentBytes, first.ResidentBytes + 8 * 1024 * 1024 + first.ResidentBytes / 20);
  DestroyLaser();
}

INSTANTIATE_TEST_SUITE_P(Families, LinkSoak, ::testing::ValuesIn(kSoakCases), SoakName);

}  // namespace
}  // namespace devlaser
