// Timing helpers on the steady clock: the one-shot millisecond timer and the wrapping tick count.
#pragma once

#include <chrono>
#include <cstdint>

namespace nchost {

// A one-shot millisecond timer: Delay(ms) starts it, IsBusy tells whether it still runs. A fresh timer and a
// timer started with 0 ms are expired.
class TDelayRec {
 public:
  using Clock = std::chrono::steady_clock;

  void Delay(int64_t ms) { FDeadline = Clock::now() + std::chrono::milliseconds(ms < 0 ? 0 : ms); }
  bool IsBusy() const { return Clock::now() < FDeadline; }
  Clock::time_point Deadline() const { return FDeadline; }
  // Milliseconds until expiry, 0 once expired.
  int64_t RemainingMs() const {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(FDeadline - Clock::now()).count();
    return left > 0 ? left : 0;
  }

 private:
  Clock::time_point FDeadline{};
};

// Milliseconds since an arbitrary start, wrapping at 32 bits like the controller's tick counter.
inline uint32_t GetTickCount() {
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(TDelayRec::Clock::now().time_since_epoch());
  return static_cast<uint32_t>(ms.count());
}

}  // namespace nchost
