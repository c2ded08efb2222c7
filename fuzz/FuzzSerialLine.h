// A serial line whose far end plays back what a fuzz input says the laser sent, for the targets that drive a
// serial laser's own threads. Each queued read is what one Read returns (an empty one is a read that finds nothing
// waiting, which ends a reading phase); a read longer than the caller takes leaves its rest for the next Read, as a
// real port does. Once everything queued has been read, every Read finds nothing and Drained() holds. Writes are
// counted and dropped. Thread-safe: the laser's thread reads while the fuzz target queues and waits.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "host/Transports.h"

namespace fuzz {

class TFuzzSerialLine {
 public:
  void QueueRead(std::string_view bytes) {
    std::lock_guard lock(FMutex);
    FReads.emplace_back(bytes);
  }
  // Waits until every queued read has been taken; false when the line's reader did not get there in time.
  bool WaitDrained(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    std::unique_lock lock(FMutex);
    return FChanged.wait_for(lock, timeout, [this] { return FReads.empty() && FEmptyReadsSinceDrain > 0; });
  }
  void Reset() {
    std::lock_guard lock(FMutex);
    FReads.clear();
    FEmptyReadsSinceDrain = 0;
    FWrites = 0;
    FOpen = false;
  }
  size_t Writes() const {
    std::lock_guard lock(FMutex);
    return FWrites;
  }

  // ---- the port's side ----
  bool SetActive(bool active) {
    std::lock_guard lock(FMutex);
    FOpen = active;
    return active;
  }
  bool Active() const {
    std::lock_guard lock(FMutex);
    return FOpen;
  }
  std::string Read(size_t maxBytes) {
    std::lock_guard lock(FMutex);
    if (FReads.empty()) {
      ++FEmptyReadsSinceDrain;
      FChanged.notify_all();
      return {};
    }
    FEmptyReadsSinceDrain = 0;
    std::string& next = FReads.front();
    std::string chunk = next.substr(0, maxBytes);
    next.erase(0, chunk.size());
    if (next.empty() || chunk.empty()) FReads.pop_front();
    return chunk;
  }
  int Write(const std::string& data) {
    std::lock_guard lock(FMutex);
    ++FWrites;
    return static_cast<int>(data.size());
  }

 private:
  mutable std::mutex FMutex;
  std::condition_variable FChanged;
  std::deque<std::string> FReads;
  // Reads that found nothing since the queue ran empty: one means the reader has seen the end of what was sent.
  size_t FEmptyReadsSinceDrain = 0;
  size_t FWrites = 0;
  bool FOpen = false;
};

class TFuzzSerialPort final : public nchost::TCommCtrl {
 public:
  explicit TFuzzSerialPort(std::shared_ptr<TFuzzSerialLine> line) : FLine(std::move(line)) {}
  void SetPort(int32_t) override {}
  void SetSettings(const std::string&) override {}
  bool SetActive(bool active) override { return FLine->SetActive(active); }
  bool GetActive() override { return FLine->Active(); }
  std::string Read(size_t maxBytes) override { return FLine->Read(maxBytes); }
  int Write(const std::string& data) override { return FLine->Write(data); }

 private:
  std::shared_ptr<TFuzzSerialLine> FLine;
};

}  // namespace fuzz
