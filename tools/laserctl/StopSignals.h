// Ctrl-C and SIGTERM as a stop request that laserctl's waits see at once: the signals are blocked in every thread
// (call Block before any thread starts, so that all threads inherit the mask) and taken only by the waits, so
// that a stopped run still switches the laser off and destroys it in order.
#pragma once

#include <chrono>

namespace laserctl {

class TStopSignals {
 public:
  // Blocks SIGINT and SIGTERM in the calling thread and every thread it starts afterwards.
  static void Block();

  // Waits for `duration` unless a stop signal comes first; true when one came (now or earlier).
  bool WaitFor(std::chrono::milliseconds duration);
  // Takes a stop signal that is pending, without waiting; true when one was.
  bool Poll();
  bool Stopped() const { return FStopped; }

 private:
  bool FStopped = false;
};

}  // namespace laserctl
