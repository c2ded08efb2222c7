// Every command a simulated laser received, in arrival order, for tests that check what a driver sent. Written by
// the simulator's serving thread and read from any other thread; a reader can wait for a command to arrive. A
// simulator left running for days polls far more commands than anyone reads, so only the latest kCapacity stay.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace lasersim {

class TCommandLog {
 public:
  static constexpr size_t kCapacity = 100000;

  void Add(std::string command);
  void Clear();

  std::vector<std::string> Commands() const;
  size_t Size() const;
  // Commands received since the last Clear(), also those that no longer fit in the log.
  size_t Received() const;
  // How many received commands are exactly `command`.
  size_t Count(std::string_view command) const;
  bool Contains(std::string_view command) const { return Count(command) > 0; }

  // Waits until `command` has been received at least `times` times since the last Clear(), or `timeout` passed.
  // Returns whether it has.
  bool WaitFor(std::string_view command, std::chrono::milliseconds timeout, size_t times = 1) const;

 private:
  size_t CountLocked(std::string_view command) const;

  mutable std::mutex FMutex;
  mutable std::condition_variable FArrived;
  std::deque<std::string> FCommands;
  size_t FReceived = 0;
};

}  // namespace lasersim
