#include "refhost/RecordingSink.h"

#include <algorithm>

namespace refhost {

void TRecordingSink::Write(const TMessageEntry& entry) {
  {
    std::lock_guard lock(FMutex);
    FEntries.push_back(entry);
  }
  FChanged.notify_all();
  if (FForward) FForward->Write(entry);
}

std::vector<TMessageEntry> TRecordingSink::Entries() const {
  std::lock_guard lock(FMutex);
  return FEntries;
}

std::vector<TMessageEntry> TRecordingSink::Entries(TEntryKind kind) const {
  std::lock_guard lock(FMutex);
  std::vector<TMessageEntry> result;
  for (const auto& e : FEntries)
    if (e.Kind == kind) result.push_back(e);
  return result;
}

std::vector<std::string> TRecordingSink::Texts(TEntryKind kind) const {
  std::lock_guard lock(FMutex);
  std::vector<std::string> result;
  for (const auto& e : FEntries)
    if (e.Kind == kind) result.push_back(e.Text);
  return result;
}

size_t TRecordingSink::Count() const {
  std::lock_guard lock(FMutex);
  return FEntries.size();
}

size_t TRecordingSink::Count(const TPredicate& match) const {
  std::lock_guard lock(FMutex);
  return static_cast<size_t>(std::count_if(FEntries.begin(), FEntries.end(), match));
}

std::optional<TMessageEntry> TRecordingSink::Find(const TPredicate& match) const {
  std::lock_guard lock(FMutex);
  auto it = std::find_if(FEntries.begin(), FEntries.end(), match);
  if (it == FEntries.end()) return std::nullopt;
  return *it;
}

bool TRecordingSink::Contains(std::string_view part) const { return Find(TextContains(part)).has_value(); }

bool TRecordingSink::WaitFor(const TPredicate& match, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(FMutex);
  return FChanged.wait_for(lock, timeout, [&] { return AnyLocked(match); });
}

bool TRecordingSink::WaitForText(std::string_view part, std::chrono::milliseconds timeout) const {
  return WaitFor(TextContains(part), timeout);
}

void TRecordingSink::Clear() {
  std::lock_guard lock(FMutex);
  FEntries.clear();
}

TRecordingSink::TPredicate TRecordingSink::TextContains(std::string_view part) {
  return [p = std::string(part)](const TMessageEntry& e) { return e.Text.find(p) != std::string::npos; };
}

TRecordingSink::TPredicate TRecordingSink::OfKind(TEntryKind kind, std::optional<int> msgType) {
  return [kind, msgType](const TMessageEntry& e) { return e.Kind == kind && (!msgType || e.Type == *msgType); };
}

bool TRecordingSink::AnyLocked(const TPredicate& match) const {
  return std::any_of(FEntries.begin(), FEntries.end(), match);
}

}  // namespace refhost
