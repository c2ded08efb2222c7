#include "core/LaserSemaphore.h"

#include <algorithm>

namespace devlaser {

TLaserSemaphore::TLaserSemaphore(int32_t initialCount, int32_t maximumCount)
    : FCount(std::clamp(initialCount, 0, std::max(maximumCount, 1))), FMaximum(std::max(maximumCount, 1)) {}

bool TLaserSemaphore::TryAcquire() {
  std::lock_guard lock(FMutex);
  if (FCount == 0) return false;
  --FCount;
  return true;
}

bool TLaserSemaphore::AcquireFor(std::chrono::milliseconds timeout) {
  std::unique_lock lock(FMutex);
  if (!FCond.wait_for(lock, timeout, [this] { return FCount > 0; })) return false;
  --FCount;
  return true;
}

void TLaserSemaphore::Acquire() {
  std::unique_lock lock(FMutex);
  FCond.wait(lock, [this] { return FCount > 0; });
  --FCount;
}

bool TLaserSemaphore::Release() {
  {
    std::lock_guard lock(FMutex);
    if (FCount >= FMaximum) return false;
    ++FCount;
  }
  FCond.notify_one();
  return true;
}

int32_t TLaserSemaphore::Count() const {
  std::lock_guard lock(FMutex);
  return FCount;
}

}  // namespace devlaser
