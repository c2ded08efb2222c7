#include "sim/common/ServiceThread.h"

#include <pthread.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iostream>
#include <system_error>

namespace lasersim {

bool TServiceThread::Start(const std::string& name, TBody body, std::string& error) {
  if (Running()) {
    error = "thread " + name + " is already running";
    return false;
  }
  TUniqueFd wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake.Valid()) {
    error = std::string("eventfd: ") + std::strerror(errno);
    return false;
  }
  FWake = std::move(wake);
  FStopRequested.store(false, std::memory_order_release);
  try {
    FThread = std::thread([this, name, body = std::move(body)] {
      ::pthread_setname_np(::pthread_self(), name.substr(0, 15).c_str());
      try {
        body(*this);
      } catch (const std::exception& e) {
        // A simulator thread must never take the test process down; say why it ended.
        std::cerr << name << " ended by an exception: " << e.what() << '\n';
      }
    });
  } catch (const std::system_error& e) {
    error = std::string("cannot start thread ") + name + ": " + e.what();
    FWake.Reset();
    return false;
  }
  return true;
}

void TServiceThread::Stop() {
  if (!FThread.joinable()) return;
  FStopRequested.store(true, std::memory_order_release);
  const uint64_t one = 1;
  while (::write(FWake.Get(), &one, sizeof one) < 0 && errno == EINTR) {
  }
  FThread.join();
  FWake.Reset();
}

}  // namespace lasersim
