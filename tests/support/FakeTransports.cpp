#include "support/FakeTransports.h"

#include <algorithm>

namespace testsupport {

// ---- link peer ---------------------------------------------------------------------------------------------------

void TFakeLinkPeer::SetResponder(TResponder responder) {
  std::lock_guard lock(FMutex);
  FResponder = std::move(responder);
}

void TFakeLinkPeer::Push(const std::string& data) {
  {
    std::lock_guard lock(FMutex);
    if (!FOpen) return;  // nobody is listening on a closed link
    FIncoming += data;
  }
  FCond.notify_all();
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

int TFakeLinkPeer::OpenCount() const {
  std::lock_guard lock(FMutex);
  return FOpenCount;
}

std::vector<std::string> TFakeLinkPeer::Writes() const {
  std::lock_guard lock(FMutex);
  return FWrites;
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

std::string TFakeLinkPeer::RemoteHost() const {
  std::lock_guard lock(FMutex);
  return FRemoteHost;
}

std::string TFakeLinkPeer::RemotePort() const {
  std::lock_guard lock(FMutex);
  return FRemotePort;
}

int32_t TFakeLinkPeer::SerialPort() const {
  std::lock_guard lock(FMutex);
  return FSerialPort;
}

std::string TFakeLinkPeer::SerialSettings() const {
  std::lock_guard lock(FMutex);
  return FSerialSettings;
}

bool TFakeLinkPeer::Open() {
  std::lock_guard lock(FMutex);
  if (FOpen) return true;
  FOpen = true;
  FIncoming.clear();
  ++FOpenCount;
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
  // The responder runs unlocked: it may push, close or inspect the peer.
  if (responder) {
    std::string reply = responder(data);
    if (!reply.empty()) Push(reply);
  }
  return static_cast<int>(data.size());
}

std::string TFakeLinkPeer::Take(size_t maxBytes) {
  std::lock_guard lock(FMutex);
  size_t n = std::min(maxBytes, FIncoming.size());
  std::string out = FIncoming.substr(0, n);
  FIncoming.erase(0, n);
  return out;
}

bool TFakeLinkPeer::WaitReadable(int32_t timeoutMs) {
  std::unique_lock lock(FMutex);
  // A closed link is "readable": the read then returns the close (nothing).
  return FCond.wait_for(lock, std::chrono::milliseconds(std::max(timeoutMs, 0)),
                        [&] { return !FIncoming.empty() || !FOpen; });
}

// ---- TCP client --------------------------------------------------------------------------------------------------

void TFakeTcpClient::SetRemoteHost(const std::string& host) {
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FRemoteHost = host;
}

void TFakeTcpClient::SetRemotePort(const std::string& port) {
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FRemotePort = port;
}

bool TFakeTcpClient::Connect(int32_t) { return FPeer->Open(); }
void TFakeTcpClient::Disconnect() { FPeer->Close(); }
bool TFakeTcpClient::Connected() { return FPeer->IsOpen(); }
bool TFakeTcpClient::WaitForData(int32_t timeoutMs) { return FPeer->WaitReadable(timeoutMs); }
std::string TFakeTcpClient::Receive(size_t maxBytes) { return FPeer->Take(maxBytes); }
int TFakeTcpClient::Send(const std::string& data) { return FPeer->Write(data); }

// ---- serial port -------------------------------------------------------------------------------------------------

void TFakeCommCtrl::SetPort(int32_t port) {
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FSerialPort = port;
}

void TFakeCommCtrl::SetSettings(const std::string& settings) {
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FSerialSettings = settings;
}

bool TFakeCommCtrl::SetActive(bool active) {
  if (active) return FPeer->Open();
  FPeer->Close();
  return false;
}

bool TFakeCommCtrl::GetActive() { return FPeer->IsOpen(); }
std::string TFakeCommCtrl::Read(size_t maxBytes) { return FPeer->Take(maxBytes); }
int TFakeCommCtrl::Write(const std::string& data) { return FPeer->Write(data); }

// ---- ping --------------------------------------------------------------------------------------------------------

void TFakePingPeer::SetReachable(bool reachable) {
  std::lock_guard lock(FMutex);
  FReachable = reachable;
}

bool TFakePingPeer::FailLastAsyncPing() {
  std::lock_guard lock(FMutex);
  if (!FClient || FAsyncPings == 0) return false;
  FClient->FireLastFailure();
  return true;
}

int TFakePingPeer::SyncPings() const {
  std::lock_guard lock(FMutex);
  return FSyncPings;
}

int TFakePingPeer::AsyncPings() const {
  std::lock_guard lock(FMutex);
  return FAsyncPings;
}

std::string TFakePingPeer::Host() const {
  std::lock_guard lock(FMutex);
  return FHost;
}

int32_t TFakePingPeer::ProbePort() const {
  std::lock_guard lock(FMutex);
  return FProbePort;
}

TFakeIcmpClient::TFakeIcmpClient(std::shared_ptr<TFakePingPeer> peer) : FPeer(std::move(peer)) {
  FThread = std::thread([this] { Worker(); });
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FClient = this;
}

TFakeIcmpClient::~TFakeIcmpClient() {
  {
    std::lock_guard lock(FPeer->FMutex);
    if (FPeer->FClient == this) FPeer->FClient = nullptr;
  }
  {
    std::lock_guard lock(FMutex);
    FStopping = true;
  }
  FCond.notify_all();
  FThread.join();
}

void TFakeIcmpClient::SetHost(const std::string& host) {
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FHost = host;
}

void TFakeIcmpClient::SetProbePort(int32_t port) {
  std::lock_guard lock(FPeer->FMutex);
  FPeer->FProbePort = port;
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
  if (!reachable) RunOnClientThread(std::move(onFailure));
}

void TFakeIcmpClient::RunOnClientThread(std::function<void()> handler) {
  {
    std::lock_guard lock(FMutex);
    if (FStopping || !handler) return;
    FQueue.push_back(std::move(handler));
  }
  FCond.notify_all();
}

void TFakeIcmpClient::FireLastFailure() {
  std::function<void()> handler;
  {
    std::lock_guard lock(FMutex);
    handler = FLastFailure;
  }
  RunOnClientThread(std::move(handler));
}

void TFakeIcmpClient::Worker() {
  std::unique_lock lock(FMutex);
  for (;;) {
    FCond.wait(lock, [&] { return FStopping || !FQueue.empty(); });
    if (FStopping) return;
    auto handler = std::move(FQueue.front());
    FQueue.pop_front();
    lock.unlock();
    handler();
    lock.lock();
  }
}

// ---- factory -----------------------------------------------------------------------------------------------------

std::unique_ptr<nchost::TCommCtrl> TFakeTransportFactory::CreateCommCtrl() {
  return std::make_unique<TFakeCommCtrl>(Serial);
}

std::unique_ptr<nchost::TVqTcpClient> TFakeTransportFactory::CreateTcpClient() {
  if (!OfferTcp) return nullptr;
  return std::make_unique<TFakeTcpClient>(Tcp);
}

std::unique_ptr<nchost::TIcmpClient> TFakeTransportFactory::CreateIcmpClient() {
  return std::make_unique<TFakeIcmpClient>(Ping);
}

}  // namespace testsupport
