// A sink for tests: keeps every entry, and lets a test query them, wait for one, or start afresh.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/MessageSink.h"

namespace refhost {

class TRecordingSink : public TMessageSink {
 public:
  using TPredicate = std::function<bool(const TMessageEntry&)>;

  // Optionally passes every entry on to another sink as well (to watch a test's log while recording it).
  explicit TRecordingSink(std::shared_ptr<TMessageSink> forward = nullptr) : FForward(std::move(forward)) {}

  void Write(const TMessageEntry& entry) override;

  std::vector<TMessageEntry> Entries() const;
  std::vector<TMessageEntry> Entries(TEntryKind kind) const;
  // The texts of the entries of one kind, in order.
  std::vector<std::string> Texts(TEntryKind kind) const;
  size_t Count() const;
  size_t Count(const TPredicate& match) const;
  // The first entry that matches, if any.
  std::optional<TMessageEntry> Find(const TPredicate& match) const;
  // True when the text of some entry contains `part`.
  bool Contains(std::string_view part) const;

  // Waits until an entry that matches has been recorded (also one recorded before the call); false when
  // `timeout` passed first.
  bool WaitFor(const TPredicate& match, std::chrono::milliseconds timeout) const;
  bool WaitForText(std::string_view part, std::chrono::milliseconds timeout) const;

  void Clear();

  // Matchers for Count/Find/WaitFor.
  static TPredicate TextContains(std::string_view part);
  static TPredicate OfKind(TEntryKind kind, std::optional<int> msgType = std::nullopt);

 private:
  bool AnyLocked(const TPredicate& match) const;

  std::shared_ptr<TMessageSink> FForward;
  mutable std::mutex FMutex;
  mutable std::condition_variable FChanged;
  std::vector<TMessageEntry> FEntries;
};

}  // namespace refhost
