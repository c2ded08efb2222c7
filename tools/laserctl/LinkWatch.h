// What laserctl knows of the laser's communication link: which links the laser opened (serial, TCP, UDP), whether
// the laser ever answered on one, why one failed, and with --trace-io every chunk of traffic in both directions.
// The transports that report here are made by TWatchedTransports (WatchedTransports.h).
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace laserctl {

class TLinkWatch {
 public:
  // Receives one trace line; called from the laser's threads. Empty: no trace.
  using TTrace = std::function<void(const std::string& line)>;

  explicit TLinkWatch(TTrace trace = {}) : FTrace(std::move(trace)) {}

  // Called by the watched transports, from any thread. `link` is what Add returned.
  size_t Add(const std::string& name);
  void Rename(size_t link, const std::string& name);
  void Failed(size_t link, const std::string& why);
  void Sent(size_t link, const std::string& bytes);
  void Received(size_t link, const std::string& bytes);

  // Whether the laser opened a link at all (a hard-wired laser opens none).
  bool HasLinks() const;
  // Whether the laser answered on one of its links.
  bool Up() const;
  // Waits up to `duration` for the laser's first answer; true when it came.
  bool WaitUp(std::chrono::milliseconds duration);
  struct TLink {
    std::string Name;     // "TCP 10.0.0.5:10001", "serial port 1 (/dev/ttyUSB0)"
    std::string Failure;  // why it last failed to open, to send or lost its peer; empty when nothing failed
  };
  // The links the laser opened, with why they last failed.
  std::vector<TLink> Links() const;

 private:
  void Trace(size_t link, const char* direction, const std::string& bytes);

  const TTrace FTrace;
  mutable std::mutex FMutex;
  std::condition_variable FAnswered;
  std::vector<TLink> FLinks;
  bool FUp = false;
};

// "-> 4 bytes: 53 54 41 0D  \"STA\\r\"": the direction (-> to the laser, <- from it), the hex bytes and the same
// bytes as text with control and non-ASCII bytes escaped.
std::string TrafficText(const char* direction, const std::string& bytes);

}  // namespace laserctl
