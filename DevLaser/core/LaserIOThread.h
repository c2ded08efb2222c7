// A short, fixed sequence of IO steps (set an output, wait for an input, wait a time) run on a thread of its own,
// so that a hard-wired handshake with delays of up to ten minutes never blocks the caller. The owner fills the
// steps, hands over the IO extension and the semaphores, starts the sequence and learns of its end through the
// semaphores; it owns the object and stops it (promptly, even mid-delay) before freeing it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/LaserSemaphore.h"
#include "frame/LaserThread.h"
#include "host/CtrlExtIO.h"

namespace devlaser {

enum TNCIOStepType : uint8_t { stDelay, stOutport, stInport };

struct TNcIOStep {
  TNCIOStepType StepType = stDelay;
  bool PortStatus = false;  // output value to write, or input value to wait for
  int32_t Port = 0;         // passed to the IO extension as a byte
  int32_t Delay = 0;        // ms: the wait of stDelay, the time-out of stInport
};

class TLaserIOThread {
 public:
  // Longest delay or input time-out a step may have (ten minutes).
  static constexpr int32_t kMaxDelayMs = 600000;
  // Outputs and inputs of a hard-wired laser need this pause after each step to settle.
  static constexpr int32_t kSettleMs = 10;
  // How often an awaited input is read: a change is seen within half a millisecond plus the wake-up latency.
  // The IO extension tells of no change, so the wait reads; it sleeps between reads and only during a wait.
  static constexpr auto kInputPollInterval = std::chrono::microseconds(500);

  // `terminateSemaphore` is released exactly once when the run ends, whatever the reason (also when it never
  // starts); it may be null.
  explicit TLaserIOThread(std::shared_ptr<TLaserSemaphore> terminateSemaphore);
  // Stops and joins a run still in progress.
  ~TLaserIOThread();
  TLaserIOThread(const TLaserIOThread&) = delete;
  TLaserIOThread& operator=(const TLaserIOThread&) = delete;

  // Filling the sequence: only before Start.
  void AddDelay(int32_t ms);
  void AddOutport(int32_t port, bool value);
  void AddInport(int32_t port, bool value, int32_t timeOut);
  const std::vector<TNcIOStep>& Steps() const { return FSteps; }
  // Released once when every step ran (or the list was empty); may be null.
  void SetFinishSemaphore(std::shared_ptr<TLaserSemaphore> finishSemaphore);
  void SetCtrlExtIO(std::shared_ptr<nchost::ICtrlExtIO> io);

  // Runs the sequence once on a thread named "NCIOThread". A second call does nothing; false when the thread
  // could not be started (the terminate semaphore is then released at once).
  bool Start();
  // Requests a stop: the run ends before its next step or at once from a wait, without the finish signal.
  void Terminate();
  // Terminate and join.
  void Stop();
  void Join();
  // True from Start until the run has ended.
  bool Running() const;

 private:
  void Process(TLaserThread& thread);
  void WaitForInput(TLaserThread& thread, const TNcIOStep& step);

  std::shared_ptr<TLaserSemaphore> FTerminateSemaphore;
  std::shared_ptr<TLaserSemaphore> FFinishSemaphore;
  std::vector<TNcIOStep> FSteps;
  std::shared_ptr<nchost::ICtrlExtIO> FCtrlExtIO;
  bool FStarted = false;
  TLaserThread FThread{"NCIOThread"};  // last: it stops before the members it uses are freed
};

}  // namespace devlaser
