// The one thread class of the library: owned, named, stoppable and joined by its owner. Its waits return early
// when a stop is requested, so that an owner never waits long for a thread to end.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

namespace devlaser {

class TLaserThread {
 public:
  using Clock = std::chrono::steady_clock;
  using TBody = std::function<void(TLaserThread&)>;

  explicit TLaserThread(std::string name);
  // Requests a stop and joins.
  ~TLaserThread();
  TLaserThread(const TLaserThread&) = delete;
  TLaserThread& operator=(const TLaserThread&) = delete;

  const std::string& Name() const { return FName; }

  // Starts `body` on a new thread named Name(). An exception that leaves the body is logged once and ends the
  // thread; it never reaches the host. Starting a thread that has run before joins the old run first. A closed
  // thread does not start; its waits return false at once.
  void Start(TBody body);
  // Requests a stop and wakes every wait of the thread. Safe from any thread, the thread itself included.
  void Terminate();
  // Waits for the thread to end (a no-op from the thread itself or when it never started).
  void Join();
  // Terminate, then Join.
  void Stop();
  // Stop, and refuse every later Start: for an owner that is shutting down for good.
  void Close();

  bool Terminated() const;
  // True from Start until the body has returned.
  bool Running() const;

  // Waits `ms` milliseconds; returns false when a stop cut the wait short.
  bool SleepA(int64_t ms);
  bool SleepUntil(Clock::time_point deadline);
  // Waits until Wake(), a stop, or `ms` elapse; returns false on stop.
  bool WaitForWake(int64_t ms);
  // Wakes one WaitForWake early (an event that resets itself). Costs the caller a lock and a system call only when
  // the thread is in WaitForWake: a caller queuing work while the thread is busy or pacing the line just raises
  // the flag.
  void Wake();

 private:
  std::string FName;
  mutable std::mutex FMutex;
  std::condition_variable_any FCond;
  std::stop_source FSource;
  // Raised by Wake, consumed by WaitForWake. FWaiting is true while WaitForWake may block; Wake raises FWoken before
  // it reads FWaiting and the waiter raises FWaiting before it reads FWoken, so one of the two always sees the other.
  std::atomic<bool> FWoken{false};
  std::atomic<bool> FWaiting{false};
  bool FRunning = false;
  bool FClosed = false;
  std::thread FThread;
};

}  // namespace devlaser
