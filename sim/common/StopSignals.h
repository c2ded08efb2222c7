// How a simulator program runs until the user stops it: SIGINT and SIGTERM are blocked in the calling thread, and so
// in every thread it starts from then on (threads inherit the mask), so that only Wait() takes them and a serving
// thread is never interrupted. Create it before starting any server.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace lasersim {

class TStopSignals {
 public:
  TStopSignals() {
    sigemptyset(&FSet);
    sigaddset(&FSet, SIGINT);
    sigaddset(&FSet, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &FSet, nullptr);
  }
  // Waits for SIGINT or SIGTERM; returns which one came.
  int Wait() const {
    int received = 0;
    sigwait(&FSet, &received);
    return received;
  }

 private:
  sigset_t FSet{};
};

}  // namespace lasersim
