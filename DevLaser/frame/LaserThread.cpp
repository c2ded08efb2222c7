#include "frame/LaserThread.h"

#include <exception>

#include "frame/HostServices.h"

namespace devlaser {

TLaserThread::TLaserThread(std::string name) : FName(std::move(name)) {}

TLaserThread::~TLaserThread() { Stop(); }

void TLaserThread::Start(TBody body) {
  Join();
  {
    std::lock_guard lock(FMutex);
    if (FClosed) return;
    FSource = std::stop_source();
    FWoken = false;
    FRunning = true;
  }
  FThread = std::thread([this, body = std::move(body)] {
    NameThread(FName);
    try {
      body(*this);
    } catch (const std::exception& e) {
      LogMsg(FName + " Exception: " + e.what(), nchost::msgtype::kLaserLog);
    } catch (...) {
      LogMsg(FName + " Exception: unknown", nchost::msgtype::kLaserLog);
    }
    std::lock_guard lock(FMutex);
    FRunning = false;
  });
}

void TLaserThread::Terminate() {
  {
    std::lock_guard lock(FMutex);
    FSource.request_stop();
  }
  FCond.notify_all();
}

void TLaserThread::Join() {
  if (FThread.joinable() && FThread.get_id() != std::this_thread::get_id()) FThread.join();
}

void TLaserThread::Stop() {
  Terminate();
  Join();
  // A thread that stopped itself cannot join itself; its owner's destructor still must not leave it joinable.
  if (FThread.joinable() && FThread.get_id() == std::this_thread::get_id()) FThread.detach();
}

void TLaserThread::Close() {
  {
    std::lock_guard lock(FMutex);
    FClosed = true;
  }
  Stop();
}

bool TLaserThread::Terminated() const {
  std::lock_guard lock(FMutex);
  return FSource.stop_requested();
}

bool TLaserThread::Running() const {
  std::lock_guard lock(FMutex);
  return FRunning;
}

bool TLaserThread::SleepA(int64_t ms) { return SleepUntil(Clock::now() + std::chrono::milliseconds(ms)); }

bool TLaserThread::SleepUntil(Clock::time_point deadline) {
  std::unique_lock lock(FMutex);
  auto token = FSource.get_token();
  FCond.wait_until(lock, token, deadline, [] { return false; });
  return !token.stop_requested();
}

bool TLaserThread::WaitForWake(int64_t ms) {
  std::unique_lock lock(FMutex);
  auto token = FSource.get_token();
  FWaiting.store(true);
  FCond.wait_until(lock, token, Clock::now() + std::chrono::milliseconds(ms), [this] { return FWoken.load(); });
  FWaiting.store(false);
  FWoken.store(false);
  return !token.stop_requested();
}

void TLaserThread::Wake() {
  if (FWoken.exchange(true) || !FWaiting.load()) return;
  // The lock orders the notification after the waiter's check of FWoken: it is either blocked already or sees the
  // flag.
  { std::lock_guard lock(FMutex); }
  FCond.notify_all();
}

}  // namespace devlaser
