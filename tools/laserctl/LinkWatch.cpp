#include "LinkWatch.h"

#include "sim/common/PrintableBytes.h"

namespace laserctl {

std::string TrafficText(const char* direction, const std::string& bytes) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string hex;
  hex.reserve(bytes.size() * 3);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (!hex.empty()) hex += ' ';
    hex += kHex[byte >> 4];
    hex += kHex[byte & 15];
  }
  return std::string(direction) + " " + std::to_string(bytes.size()) + (bytes.size() == 1 ? " byte: " : " bytes: ") +
         hex + "  \"" + lasersim::PrintableBytes(bytes) + "\"";
}

size_t TLinkWatch::Add(const std::string& name) {
  std::lock_guard lock(FMutex);
  FLinks.push_back({name, {}});
  return FLinks.size() - 1;
}

void TLinkWatch::Rename(size_t link, const std::string& name) {
  std::lock_guard lock(FMutex);
  FLinks.at(link).Name = name;
}

void TLinkWatch::Failed(size_t link, const std::string& why) {
  std::lock_guard lock(FMutex);
  FLinks.at(link).Failure = why;
}

void TLinkWatch::Sent(size_t link, const std::string& bytes) {
  if (!bytes.empty()) Trace(link, "->", bytes);
}

void TLinkWatch::Received(size_t link, const std::string& bytes) {
  if (bytes.empty()) return;
  Trace(link, "<-", bytes);
  std::lock_guard lock(FMutex);
  if (FUp) return;
  FUp = true;
  FAnswered.notify_all();
}

bool TLinkWatch::HasLinks() const {
  std::lock_guard lock(FMutex);
  return !FLinks.empty();
}

bool TLinkWatch::Up() const {
  std::lock_guard lock(FMutex);
  return FUp;
}

bool TLinkWatch::WaitUp(std::chrono::milliseconds duration) {
  std::unique_lock lock(FMutex);
  return FAnswered.wait_for(lock, duration, [this] { return FUp; });
}

std::vector<TLinkWatch::TLink> TLinkWatch::Links() const {
  std::lock_guard lock(FMutex);
  return FLinks;
}

void TLinkWatch::Trace(size_t link, const char* direction, const std::string& bytes) {
  if (!FTrace) return;
  std::string name;
  {
    std::lock_guard lock(FMutex);
    name = FLinks.at(link).Name;
  }
  FTrace(name + " " + TrafficText(direction, bytes));
}

}  // namespace laserctl
