#include "sim/common/CommandLog.h"

#include <algorithm>

namespace lasersim {

void TCommandLog::Add(std::string command) {
  {
    std::lock_guard lock(FMutex);
    if (FCommands.size() >= kCapacity) FCommands.pop_front();
    FCommands.push_back(std::move(command));
    ++FReceived;
  }
  FArrived.notify_all();
}

void TCommandLog::Clear() {
  std::lock_guard lock(FMutex);
  FCommands.clear();
  FReceived = 0;
}

std::vector<std::string> TCommandLog::Commands() const {
  std::lock_guard lock(FMutex);
  return {FCommands.begin(), FCommands.end()};
}

size_t TCommandLog::Size() const {
  std::lock_guard lock(FMutex);
  return FCommands.size();
}

size_t TCommandLog::Received() const {
  std::lock_guard lock(FMutex);
  return FReceived;
}

size_t TCommandLog::Count(std::string_view command) const {
  std::lock_guard lock(FMutex);
  return CountLocked(command);
}

bool TCommandLog::WaitFor(std::string_view command, std::chrono::milliseconds timeout, size_t times) const {
  std::unique_lock lock(FMutex);
  return FArrived.wait_for(lock, timeout, [&] { return CountLocked(command) >= times; });
}

size_t TCommandLog::CountLocked(std::string_view command) const {
  return static_cast<size_t>(std::count(FCommands.begin(), FCommands.end(), command));
}

}  // namespace lasersim
