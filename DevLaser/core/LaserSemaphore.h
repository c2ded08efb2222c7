// A counting semaphore with a maximum count, for signals passed between a laser and its sequence threads. Unlike
// std::counting_semaphore, releasing beyond the maximum is not an error: the count simply stays at the maximum, so
// a signal that is already set can be set again (a second finished sequence, a query that puts a signal back).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace devlaser {

class TLaserSemaphore {
 public:
  TLaserSemaphore(int32_t initialCount, int32_t maximumCount);
  TLaserSemaphore(const TLaserSemaphore&) = delete;
  TLaserSemaphore& operator=(const TLaserSemaphore&) = delete;

  // Takes one count without waiting; false when there was none.
  bool TryAcquire();
  // Waits up to `timeout` for a count; false when none came in time.
  bool AcquireFor(std::chrono::milliseconds timeout);
  void Acquire();
  // Adds one count; false (and the count unchanged) when it is already at the maximum.
  bool Release();
  int32_t Count() const;

 private:
  mutable std::mutex FMutex;
  std::condition_variable FCond;
  int32_t FCount;
  const int32_t FMaximum;
};

}  // namespace devlaser
