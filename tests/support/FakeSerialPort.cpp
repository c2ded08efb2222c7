#include "support/FakeSerialPort.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace testsupport {

std::string Hex(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X", c);
    if (!out.empty()) out += ' ';
    out += digits;
  }
  return out;
}

std::string Bytes(const std::string& hex) {
  std::istringstream in(hex);
  std::string out;
  std::string word;
  while (in >> word) out += static_cast<char>(std::stoi(word, nullptr, 16));
  return out;
}

std::vector<std::string> TFakeSerialPeer::Ops() const {
  std::lock_guard lock(FMutex);
  return FOps;
}

std::vector<std::string> TFakeSerialPeer::Writes() const {
  std::lock_guard lock(FMutex);
  return FWrites;
}

size_t TFakeSerialPeer::WriteCount() const {
  std::lock_guard lock(FMutex);
  return FWrites.size();
}

bool TFakeSerialPeer::WaitForWrites(size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(FMutex);
  return FWritten.wait_for(lock, timeout, [&] { return FWrites.size() >= count; });
}

void TFakeSerialPeer::SetOpenable(bool openable) {
  std::lock_guard lock(FMutex);
  FOpenable = openable;
  if (!openable) FOpen = false;
}

void TFakeSerialPeer::LoseWrites(int count) {
  std::lock_guard lock(FMutex);
  FLose = count;
}

void TFakeSerialPeer::ThrowNext(const std::string& what, int count) {
  std::lock_guard lock(FMutex);
  FThrow = count;
  FThrowWhat = what;
}

void TFakeSerialPeer::SetWriteHook(TWriteHook hook) {
  std::lock_guard lock(FMutex);
  FHook = std::move(hook);
}

void TFakeSerialPeer::Send(const std::string& chunk) {
  std::lock_guard lock(FMutex);
  FIncoming.push_back(chunk);
}

bool TFakeSerialPeer::IsOpen() const {
  std::lock_guard lock(FMutex);
  return FOpen;
}

std::string TFakeSerialPeer::Settings() const {
  std::lock_guard lock(FMutex);
  return FSettings;
}

int32_t TFakeSerialPeer::PortNumber() const {
  std::lock_guard lock(FMutex);
  return FPort;
}

void TFakeSerialPeer::Configure(int32_t port, const std::string& settings) {
  std::lock_guard lock(FMutex);
  FPort = port;
  FSettings = settings;
}

void TFakeSerialPeer::MaybeThrowLocked() {
  if (FThrow <= 0) return;
  --FThrow;
  throw std::runtime_error(FThrowWhat);
}

bool TFakeSerialPeer::Activate(bool active) {
  std::lock_guard lock(FMutex);
  MaybeThrowLocked();
  if (!active) {
    if (FOpen) FOps.push_back("close");
    FOpen = false;
    return false;
  }
  if (!FOpen && FOpenable) {
    FOpen = true;
    FOps.push_back("open");
  }
  return FOpen;
}

bool TFakeSerialPeer::Active() {
  std::lock_guard lock(FMutex);
  return FOpen;
}

std::string TFakeSerialPeer::Read(size_t maxBytes) {
  std::lock_guard lock(FMutex);
  MaybeThrowLocked();
  if (!FOpen || FIncoming.empty()) return {};
  std::string chunk = FIncoming.front().substr(0, maxBytes);
  FIncoming.pop_front();
  FOps.push_back("read:" + Hex(chunk));
  return chunk;
}

int TFakeSerialPeer::Write(const std::string& data) {
  TWriteHook hook;
  size_t index = 0;
  {
    std::lock_guard lock(FMutex);
    MaybeThrowLocked();
    if (!FOpen) return -1;
    if (FLose > 0) {
      --FLose;
      return 0;
    }
    FOps.push_back("write:" + Hex(data));
    FWrites.push_back(data);
    index = FWrites.size() - 1;
    hook = FHook;
  }
  FWritten.notify_all();
  if (hook) hook(data, index);
  return static_cast<int>(data.size());
}

}  // namespace testsupport
