#include "support/PortCensus.h"

#include <algorithm>

namespace testsupport {
namespace {

using TState = TPortCensus::TState;

// The common part of a counted client: whether its link is open, and its share of the census.
class TCounted {
 public:
  explicit TCounted(std::shared_ptr<TState> state) : FState(std::move(state)) {
    std::lock_guard lock(FState->Lock);
    ++FState->Counts.Clients;
  }
  ~TCounted() {
    FState->SetOpen(FOpen, false);
    std::lock_guard lock(FState->Lock);
    --FState->Counts.Clients;
  }
  TCounted(const TCounted&) = delete;
  TCounted& operator=(const TCounted&) = delete;

 protected:
  void Open(bool now) { FState->SetOpen(FOpen, now); }
  int Written(int count) {
    FState->Written(count);
    return count;
  }

 private:
  std::shared_ptr<TState> FState;
  bool FOpen = false;  // the client's calls are serialised by its user
};

class TCountedComm final : public nchost::TCommCtrl, TCounted {
 public:
  TCountedComm(std::unique_ptr<nchost::TCommCtrl> inner, std::shared_ptr<TState> state)
      : TCounted(std::move(state)), FInner(std::move(inner)) {}
  void SetPort(int32_t port) override { FInner->SetPort(port); }
  void SetSettings(const std::string& settings) override { FInner->SetSettings(settings); }
  bool SetActive(bool active) override {
    bool now = FInner->SetActive(active);
    Open(now);
    return now;
  }
  bool GetActive() override { return FInner->GetActive(); }
  std::string Read(size_t maxBytes) override { return FInner->Read(maxBytes); }
  int Write(const std::string& data) override { return Written(FInner->Write(data)); }

 private:
  std::unique_ptr<nchost::TCommCtrl> FInner;
};

class TCountedTcp final : public nchost::TVqTcpClient, TCounted {
 public:
  TCountedTcp(std::unique_ptr<nchost::TVqTcpClient> inner, std::shared_ptr<TState> state)
      : TCounted(std::move(state)), FInner(std::move(inner)) {}
  void SetRemoteHost(const std::string& host) override { FInner->SetRemoteHost(host); }
  void SetRemotePort(const std::string& port) override { FInner->SetRemotePort(port); }
  bool Connect(int32_t timeoutMs) override {
    bool up = FInner->Connect(timeoutMs);
    Open(up);
    return up;
  }
  void Disconnect() override {
    FInner->Disconnect();
    Open(false);
  }
  bool Connected() override { return FInner->Connected(); }
  bool WaitForData(int32_t timeoutMs) override { return FInner->WaitForData(timeoutMs); }
  std::string Receive(size_t maxBytes) override { return FInner->Receive(maxBytes); }
  int Send(const std::string& data) override { return Written(FInner->Send(data)); }

 private:
  std::unique_ptr<nchost::TVqTcpClient> FInner;
};

class TCountedUdp final : public nchost::TUDPClient, TCounted {
 public:
  TCountedUdp(std::unique_ptr<nchost::TUDPClient> inner, std::shared_ptr<TState> state)
      : TCounted(std::move(state)), FInner(std::move(inner)) {}
  void SetRemoteHost(const std::string& host) override { FInner->SetRemoteHost(host); }
  void SetRemotePort(int32_t port) override { FInner->SetRemotePort(port); }
  bool Open() override {
    bool open = FInner->Open();
    TCounted::Open(open);
    return open;
  }
  void Close() override {
    FInner->Close();
    TCounted::Open(false);
  }
  bool Active() override { return FInner->Active(); }
  int Send(const std::string& datagram) override { return Written(FInner->Send(datagram)); }
  std::string Receive(int32_t timeoutMs) override { return FInner->Receive(timeoutMs); }

 private:
  std::unique_ptr<nchost::TUDPClient> FInner;
};

// A ping is no link; it is counted only as a client object (its thread must go with the laser too).
class TCountedIcmp final : public nchost::TIcmpClient, TCounted {
 public:
  TCountedIcmp(std::unique_ptr<nchost::TIcmpClient> inner, std::shared_ptr<TState> state)
      : TCounted(std::move(state)), FInner(std::move(inner)) {}
  void SetHost(const std::string& host) override { FInner->SetHost(host); }
  void SetProbePort(int32_t port) override { FInner->SetProbePort(port); }
  bool Ping(int32_t timeoutMs) override { return FInner->Ping(timeoutMs); }
  void PingAsync(int32_t timeoutMs, std::function<void()> onFailure) override {
    FInner->PingAsync(timeoutMs, std::move(onFailure));
  }

 private:
  std::unique_ptr<nchost::TIcmpClient> FInner;
};

template <class TWrapper, class TClient>
std::unique_ptr<TClient> Counted(std::unique_ptr<TClient> inner, const std::shared_ptr<TState>& state) {
  if (!inner) return nullptr;
  return std::make_unique<TWrapper>(std::move(inner), state);
}

}  // namespace

void TState::SetOpen(bool& open, bool now) {
  std::lock_guard lock(Lock);
  if (open == now) return;
  open = now;
  if (now) {
    ++Counts.Open;
    Counts.MostOpen = std::max(Counts.MostOpen, Counts.Open);
  } else {
    --Counts.Open;
  }
}

void TState::Written(int count) {
  if (count <= 0) return;
  std::lock_guard lock(Lock);
  Counts.BytesWritten += static_cast<size_t>(count);
}

TPortCensus::TPortCensus(std::shared_ptr<refhost::ITransportFactory> inner) : FInner(std::move(inner)) {}

TPortCensus::TCounts TPortCensus::Counts() const {
  std::lock_guard lock(FState->Lock);
  return FState->Counts;
}

void TPortCensus::ResetMostOpen() {
  std::lock_guard lock(FState->Lock);
  FState->Counts.MostOpen = FState->Counts.Open;
}

std::unique_ptr<nchost::TCommCtrl> TPortCensus::CreateCommCtrl() {
  return Counted<TCountedComm>(FInner->CreateCommCtrl(), FState);
}
std::unique_ptr<nchost::TVqTcpClient> TPortCensus::CreateTcpClient() {
  return Counted<TCountedTcp>(FInner->CreateTcpClient(), FState);
}
std::unique_ptr<nchost::TUDPClient> TPortCensus::CreateUdpClient() {
  return Counted<TCountedUdp>(FInner->CreateUdpClient(), FState);
}
std::unique_ptr<nchost::TIcmpClient> TPortCensus::CreateIcmpClient() {
  return Counted<TCountedIcmp>(FInner->CreateIcmpClient(), FState);
}

}  // namespace testsupport
