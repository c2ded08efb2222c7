#include "StopSignals.h"

#include <signal.h>

#include <cerrno>
#include <ctime>

namespace laserctl {
namespace {

sigset_t StopSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

void TStopSignals::Block() {
  const sigset_t set = StopSet();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool TStopSignals::WaitFor(std::chrono::milliseconds duration) {
  if (FStopped) return true;
  const sigset_t set = StopSet();
  const auto deadline = std::chrono::steady_clock::now() + duration;
  for (;;) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= std::chrono::nanoseconds::zero()) return Poll();
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
    timespec timeout{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    if (sigtimedwait(&set, nullptr, &timeout) > 0) {
      FStopped = true;
      return true;
    }
    // EAGAIN: the time is up (checked again at the top); EINTR: another signal's handler ran.
    if (errno != EAGAIN && errno != EINTR) return false;
  }
}

bool TStopSignals::Poll() {
  if (FStopped) return true;
  const sigset_t set = StopSet();
  timespec zero{0, 0};
  if (sigtimedwait(&set, nullptr, &zero) > 0) FStopped = true;
  return FStopped;
}

}  // namespace laserctl
