// The worker thread of a simulator front end: owned, named, and stopped at once. Its body waits in poll() on its
// own descriptors plus WakeFd(); Stop() makes WakeFd() readable, so the body sees the stop without any time-out and
// returns, and Stop() then joins it.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "refhost/transport/UniqueFd.h"

namespace lasersim {

using refhost::TUniqueFd;

class TServiceThread {
 public:
  using TBody = std::function<void(TServiceThread&)>;

  TServiceThread() = default;
  ~TServiceThread() { Stop(); }
  TServiceThread(const TServiceThread&) = delete;
  TServiceThread& operator=(const TServiceThread&) = delete;

  // Starts `body` on a thread named `name` (the kernel keeps 15 characters). False with `error` set when the wake
  // descriptor cannot be made or the thread is already running.
  bool Start(const std::string& name, TBody body, std::string& error);
  // Wakes the body and joins it. Safe to call when not running; not from the body itself.
  void Stop();

  bool Running() const { return FThread.joinable(); }
  bool StopRequested() const { return FStopRequested.load(std::memory_order_acquire); }
  // Readable once a stop has been requested: add it to every poll() of the body.
  int WakeFd() const { return FWake.Get(); }

 private:
  TUniqueFd FWake;
  std::atomic<bool> FStopRequested{false};
  std::thread FThread;
};

}  // namespace lasersim
