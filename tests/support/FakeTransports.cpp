#include "support/FakeTransports.h"

#include <algorithm>

namespace testsupport {

std::string TFakePeer::Setting(const std::string& key) const {
  std::lock_guard lock(FMutex);
  auto it = FSettings.find(key);
  return it == FSettings.end() ? std::string() : it->second;
}

void TFakePeer::Configure(const std::string& key, std::string value) {
  std::lock_guard lock(FMutex);
  FSettings[key] = std::move(value);
}

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

void TFakeLinkPeer::ClearWrites() {
  std::lock_guard lock(FMutex);
  FWrites.clear();
}

bool TFakeLinkPeer::WaitForWrites(const std::function<bool(const std::vector<std::string>&)>& pred,
                                  std::chrono::milliseconds timeout) const {
  std::unique_lock lock(FMutex);
  return FCond.wait_for(lock, timeout, [&] { return pred(FWrites); });
}

bool TFakeLinkPeer::Open() {
  std::lock_guard lock(FMutex);
  if (!FOpen) {
    FOpen = true;
    FIncoming.clear();
    ++FOpenCount;
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

void TFakePingPeer::SetReachable(bool reachable) {
  std::lock_guard lock(FMutex);
  FReachable = reachable;
}

bool TFakePingPeer::FailLastAsyncPing() {
  std::lock_guard lock(FMutex);  // keeps the client alive while it queues
  if (!FClient || FAsyncPings == 0) return false;
  FClient->Post(nullptr);
  return true;
}

TFakeIcmpClient::TFakeIcmpClient(std::shared_ptr<TFakePingPeer> peer) : FPeer(std::move(peer)) {
  FThread = std::jthread([this](std::stop_token stop) {
    std::unique_lock lock(FMutex);
    while (FCond.wait(lock, stop, [&] { return !FQueue.empty(); })) {
      auto handler = std::move(FQueue.front());
      FQueue.pop_front();
      lock.unlock();
      if (handler) handler();
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

bool TFakeIcmpClient::Ping(int32_t) {
  std::lock_guard lock(FPeer->FMutex);
  ++FPeer->FSyncPings;
  return FPeer->FReachable;
}

void TFakeIcmpClient::PingAsync(int32_t, std::function<void()> onFailure) {
  bool reachable;
  {
    std::lock_guard lock(FPeer->FMutex);
    ++FPeer->FAsyncPings;
    reachable = FPeer->FReachable;
  }
  {
    std::lock_guard lock(FMutex);
    FLastFailure = onFailure;
  }
  if (!reachable) Post(std::move(onFailure));
}

void TFakeIcmpClient::Post(std::function<void()> handler) {
  {
    std::lock_guard lock(FMutex);
    FQueue.push_back(handler ? std::move(handler) : FLastFailure);
  }
  FCond.notify_all();
}

// ---- simulated laser ---------------------------------------------------------------------------------------------

void TSimulatedYlr::Attach(TFakeLinkPeer& peer) {
  peer.SetResponder([this](const std::string& written) { return Answer(written); });
}

void TSimulatedYlr::SetStatusReply(std::string reply) {
  std::lock_guard lock(FMutex);
  FStatusReply = std::move(reply);
}

std::string TSimulatedYlr::Answer(const std::string& written) {
  {
    std::lock_guard lock(FMutex);
    if (!FStatusReply.empty() && written == "STA\r") return FStatusReply;
  }
  std::string reply = Engine.Feed(written);  // the laser takes a current also when it does not echo it
  return EchoCurrent || written.rfind("SDC", 0) != 0 ? reply : std::string();
}

}  // namespace testsupport
