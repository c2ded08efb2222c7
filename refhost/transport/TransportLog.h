// How the reference host's communication clients report what happens on their links.
#pragma once

#include <functional>
#include <mutex>
#include <string>

namespace refhost {

// Receives one log line. Clients call it from the caller's thread and, for the ping client, from its own thread,
// so the callback must be safe to call from several threads. An empty callback drops the lines.
using TTransportLog = std::function<void(const std::string&)>;

// Passes a line to the log unless it repeats the line logged before: a link that is retried every few
// milliseconds while its device is gone logs its failure once, not at every retry.
class TLogOnChange {
 public:
  explicit TLogOnChange(TTransportLog log) : FLog(std::move(log)) {}

  void Log(const std::string& line) {
    std::lock_guard lock(FMutex);
    if (line == FLast) return;
    FLast = line;
    if (FLog) FLog(line);
  }
  // Logs the line even when it repeats, and lets the next line through.
  void LogAlways(const std::string& line) {
    std::lock_guard lock(FMutex);
    FLast.clear();
    if (FLog) FLog(line);
  }
  // Lets the next line through even when it repeats the last one (after the link recovered).
  void Reset() {
    std::lock_guard lock(FMutex);
    FLast.clear();
  }

 private:
  TTransportLog FLog;
  std::mutex FMutex;
  std::string FLast;
};

}  // namespace refhost
