#include "support/FakeTransports.h"

#include <algorithm>
#include <chrono>

namespace testsupport {

// ---- link peer ---------------------------------------------------------------------------------------------------

void TFakeLinkPeer::SetResponder(TResponder responder) {
  std::lock_guard lock(FMutex);
  FResponder = std::move(responder);
}

void TFakeLinkPeer::Close() {
  {
    std::lock_guard lock(FMutex);
    FOpen = false;
    FIncoming.clear();
  }
  FCond.notify_all();
}

bool TFakeLinkPeer::IsOpen() const {
  std::lock_guard lock(FMutex);
  return FOpen;
}

std::vector<std::string> TFakeLinkPeer::Writes() const {
  std::lock_guard lock(FMutex);
  return FWrites;
}

bool TFakeLinkPeer::Open() {
  std::lock_guard lock(FMutex);
  if (!FOpen) {
    FOpen = true;
    FIncoming.clear();
  }
  return true;
}

int TFakeLinkPeer::Write(const std::string& data) {
  TResponder responder;
  {
    std::lock_guard lock(FMutex);
    if (!FOpen) return -1;
    FWrites.push_back(data);
    responder = FResponder;
  }
  FCond.notify_all();
  // The responder runs unlocked: it may close or inspect the peer.
  std::string reply = responder ? responder(data) : std::string();
  {
    std::lock_guard lock(FMutex);
    if (FOpen) FIncoming += reply;  // nobody is listening on a closed link
  }
  FCond.notify_all();
  return static_cast<int>(data.size());
}

std::string TFakeLinkPeer::Take(size_t maxBytes) {
  std::lock_guard lock(FMutex);
  std::string out = FIncoming.substr(0, std::min(maxBytes, FIncoming.size()));
  FIncoming.erase(0, out.size());
  return out;
}

bool TFakeLinkPeer::WaitReadable(int32_t timeoutMs) {
  std::unique_lock lock(FMutex);
  return FCond.wait_for(lock, std::chrono::milliseconds(std::max(timeoutMs, 0)),
                        [&] { return !FIncoming.empty() || !FOpen; });
}

// ---- ping --------------------------------------------------------------------------------------------------------

bool TFakePingPeer::FailLastAsyncPing() {
  std::lock_guard lock(FMutex);  // keeps the client alive while it queues
  return FClient && FClient->PostLastFailure();
}

TFakeIcmpClient::TFakeIcmpClient(std::shared_ptr<TFakePingPeer> peer) : FPeer(std::move(peer)) {
  FThread = std::jthread([this](std::stop_token stop) {
    std::unique_lock lock(FMutex);
    while (FCond.wait(lock, stop, [&] { return !FQueue.empty(); })) {
      auto handler = std::move(FQueue.front());
      FQueue.pop_front();
      lock.unlock();
      handler();
      lock.lock();
    }
  });
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FClient = this;
}

TFakeIcmpClient::~TFakeIcmpClient() {
  std::lock_guard lock(FPeer->FMutex);
  if (FPeer->FClient == this) FPeer->FClient = nullptr;
}

void TFakeIcmpClient::PingAsync(int32_t, std::function<void()> onFailure) {
  std::lock_guard lock(FMutex);
  FLastFailure = std::move(onFailure);
}

bool TFakeIcmpClient::PostLastFailure() {
  {
    std::lock_guard lock(FMutex);
    if (!FLastFailure) return false;
    FQueue.push_back(FLastFailure);
  }
  FCond.notify_all();
  return true;
}

}  // namespace testsupport
