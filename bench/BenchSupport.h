// Measuring helpers shared by the benchmarks: processor time of the process or of some of its threads, and the
// percentiles of a set of timings as benchmark counters.
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace bench {

inline double ProcessCpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Processor seconds used so far by the threads whose name starts with `prefix` (names are cut to 15 characters by
// the kernel, so the prefix must be no longer). Read in nanoseconds from the scheduler's statistics: the clock
// ticks of /proc/.../stat are too coarse for a thread that runs a few microseconds at a time. Threads that have
// ended no longer count.
inline double ThreadCpuSeconds(const std::string& prefix) {
  double total = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream commFile(entry.path() / "comm");
    std::string name;
    std::getline(commFile, name);
    if (name.rfind(prefix, 0) != 0) continue;
    std::ifstream schedStat(entry.path() / "schedstat");
    double runNanoseconds = 0;
    if (schedStat >> runNanoseconds) total += runNanoseconds * 1e-9;
  }
  return total;
}

// Adds <prefix>min_us, p50_us, p99_us and max_us counters; sorts `us`.
inline void ReportPercentiles(benchmark::State& state, std::vector<double>& us, const std::string& prefix = {}) {
  if (us.empty()) return;
  std::sort(us.begin(), us.end());
  auto at = [&](double q) {
    return us[std::min(us.size() - 1, static_cast<size_t>(q * static_cast<double>(us.size())))];
  };
  state.counters[prefix + "min_us"] = us.front();
  state.counters[prefix + "p50_us"] = at(0.50);
  state.counters[prefix + "p99_us"] = at(0.99);
  state.counters[prefix + "max_us"] = us.back();
}

}  // namespace bench
