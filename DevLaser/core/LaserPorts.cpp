#include "core/LaserPorts.h"

#include <atomic>
#include <shared_mutex>
#include <utility>

#include "frame/HostServices.h"

namespace devlaser {
namespace {

// One host client and the lock that keeps CloseAll from freeing it under a call. Calls share the lock, so that
// a client whose calls may overlap (a receive waiting while a send goes out) keeps doing so; closing takes it
// alone, after turning new calls away, and so waits at most for the calls already under way.
template <class TClient>
class TGuardCore final : public TLaserPorts::TGuardState {
 public:
  using TCloser = void (*)(TClient&);
  TGuardCore(std::unique_ptr<TClient> client, TCloser closer) : FClient(std::move(client)), FCloser(closer) {}
  ~TGuardCore() override { Close(); }

  template <class R, class F>
  R Call(R whenClosed, F&& call) {
    if (FClosing.load()) return whenClosed;
    std::shared_lock lock(FLock);
    if (!FClient) return whenClosed;
    return call(*FClient);
  }

  template <class F>
  void Do(F&& call) {
    Call(0, [&](TClient& client) {
      call(client);
      return 0;
    });
  }

  void Close() noexcept override {
    FClosing.store(true);
    std::unique_ptr<TClient> client;
    {
      std::unique_lock lock(FLock);
      client = std::move(FClient);
    }
    if (!client) return;
    try {
      FCloser(*client);
    } catch (...) {
      // The client is freed below all the same.
    }
    client.reset();  // a ping client joins its thread here, outside the lock
  }

 private:
  std::atomic<bool> FClosing{false};
  std::shared_mutex FLock;
  std::unique_ptr<TClient> FClient;
  const TCloser FCloser;
};

template <class TClient>
using TCorePtr = std::shared_ptr<TGuardCore<TClient>>;

class TGuardedComm final : public nchost::TCommCtrl {
 public:
  explicit TGuardedComm(TCorePtr<nchost::TCommCtrl> core) : FCore(std::move(core)) {}
  ~TGuardedComm() override { FCore->Close(); }
  void SetPort(int32_t port) override {
    FCore->Do([&](auto& c) { c.SetPort(port); });
  }
  void SetSettings(const std::string& s) override {
    FCore->Do([&](auto& c) { c.SetSettings(s); });
  }
  bool SetActive(bool active) override {
    return FCore->Call(false, [&](auto& c) { return c.SetActive(active); });
  }
  bool GetActive() override {
    return FCore->Call(false, [](auto& c) { return c.GetActive(); });
  }
  std::string Read(size_t n) override {
    return FCore->Call(std::string(), [&](auto& c) { return c.Read(n); });
  }
  int Write(const std::string& d) override {
    return FCore->Call(-1, [&](auto& c) { return c.Write(d); });
  }

 private:
  TCorePtr<nchost::TCommCtrl> FCore;
};

class TGuardedTcp final : public nchost::TVqTcpClient {
 public:
  explicit TGuardedTcp(TCorePtr<nchost::TVqTcpClient> core) : FCore(std::move(core)) {}
  ~TGuardedTcp() override { FCore->Close(); }
  void SetRemoteHost(const std::string& h) override {
    FCore->Do([&](auto& c) { c.SetRemoteHost(h); });
  }
  void SetRemotePort(const std::string& p) override {
    FCore->Do([&](auto& c) { c.SetRemotePort(p); });
  }
  bool Connect(int32_t ms) override {
    return FCore->Call(false, [&](auto& c) { return c.Connect(ms); });
  }
  void Disconnect() override {
    FCore->Do([](auto& c) { c.Disconnect(); });
  }
  bool Connected() override {
    return FCore->Call(false, [](auto& c) { return c.Connected(); });
  }
  bool WaitForData(int32_t ms) override {
    return FCore->Call(false, [&](auto& c) { return c.WaitForData(ms); });
  }
  std::string Receive(size_t n) override {
    return FCore->Call(std::string(), [&](auto& c) { return c.Receive(n); });
  }
  int Send(const std::string& d) override {
    return FCore->Call(-1, [&](auto& c) { return c.Send(d); });
  }

 private:
  TCorePtr<nchost::TVqTcpClient> FCore;
};

class TGuardedUdp final : public nchost::TUDPClient {
 public:
  explicit TGuardedUdp(TCorePtr<nchost::TUDPClient> core) : FCore(std::move(core)) {}
  ~TGuardedUdp() override { FCore->Close(); }
  void SetRemoteHost(const std::string& h) override {
    FCore->Do([&](auto& c) { c.SetRemoteHost(h); });
  }
  void SetRemotePort(int32_t p) override {
    FCore->Do([&](auto& c) { c.SetRemotePort(p); });
  }
  bool Open() override {
    return FCore->Call(false, [](auto& c) { return c.Open(); });
  }
  void Close() override {
    FCore->Do([](auto& c) { c.Close(); });
  }
  bool Active() override {
    return FCore->Call(false, [](auto& c) { return c.Active(); });
  }
  int Send(const std::string& d) override {
    return FCore->Call(-1, [&](auto& c) { return c.Send(d); });
  }
  std::string Receive(int32_t ms) override {
    return FCore->Call(std::string(), [&](auto& c) { return c.Receive(ms); });
  }

 private:
  TCorePtr<nchost::TUDPClient> FCore;
};

class TGuardedIcmp final : public nchost::TIcmpClient {
 public:
  explicit TGuardedIcmp(TCorePtr<nchost::TIcmpClient> core) : FCore(std::move(core)) {}
  ~TGuardedIcmp() override { FCore->Close(); }
  void SetHost(const std::string& h) override {
    FCore->Do([&](auto& c) { c.SetHost(h); });
  }
  void SetProbePort(int32_t p) override {
    FCore->Do([&](auto& c) { c.SetProbePort(p); });
  }
  bool Ping(int32_t ms) override {
    return FCore->Call(false, [&](auto& c) { return c.Ping(ms); });
  }
  void PingAsync(int32_t ms, std::function<void()> onFailure) override {
    FCore->Do([&](auto& c) { c.PingAsync(ms, std::move(onFailure)); });
  }

 private:
  TCorePtr<nchost::TIcmpClient> FCore;
};

void CloseComm(nchost::TCommCtrl& c) { c.SetActive(false); }
void CloseTcp(nchost::TVqTcpClient& c) { c.Disconnect(); }
void CloseUdp(nchost::TUDPClient& c) { c.Close(); }
void CloseIcmp(nchost::TIcmpClient&) {}  // freeing it waits for its thread

template <class TClient>
struct TGuardOf;
template <>
struct TGuardOf<nchost::TCommCtrl> {
  using Type = TGuardedComm;
  static constexpr auto Closer = &CloseComm;
};
template <>
struct TGuardOf<nchost::TVqTcpClient> {
  using Type = TGuardedTcp;
  static constexpr auto Closer = &CloseTcp;
};
template <>
struct TGuardOf<nchost::TUDPClient> {
  using Type = TGuardedUdp;
  static constexpr auto Closer = &CloseUdp;
};
template <>
struct TGuardOf<nchost::TIcmpClient> {
  using Type = TGuardedIcmp;
  static constexpr auto Closer = &CloseIcmp;
};

}  // namespace

TLaserPorts::~TLaserPorts() { CloseAll(); }

template <class TClient>
std::unique_ptr<TClient> TLaserPorts::Guard(std::unique_ptr<TClient> client) {
  if (!client) return nullptr;
  auto core = std::make_shared<TGuardCore<TClient>>(std::move(client), TGuardOf<TClient>::Closer);
  {
    std::lock_guard lock(FLock);
    if (FClosed) return nullptr;  // the core closes the client as it goes
    std::erase_if(FOpened, [](const auto& weak) { return weak.expired(); });
    FOpened.push_back(core);
  }
  return std::make_unique<typename TGuardOf<TClient>::Type>(std::move(core));
}

std::unique_ptr<nchost::TCommCtrl> TLaserPorts::CommCtrl() {
  auto* app = Host();
  return app ? Guard<nchost::TCommCtrl>(app->CreateCommCtrl()) : nullptr;
}

std::unique_ptr<nchost::TVqTcpClient> TLaserPorts::TcpClient() {
  auto* app = Host();
  return app ? Guard<nchost::TVqTcpClient>(app->CreateTcpClient()) : nullptr;
}

std::unique_ptr<nchost::TUDPClient> TLaserPorts::UdpClient() {
  auto* app = Host();
  return app ? Guard<nchost::TUDPClient>(app->CreateUdpClient()) : nullptr;
}

std::unique_ptr<nchost::TIcmpClient> TLaserPorts::IcmpClient() {
  auto* app = Host();
  return app ? Guard<nchost::TIcmpClient>(app->CreateIcmpClient()) : nullptr;
}

void TLaserPorts::CloseAll() noexcept {
  std::vector<std::weak_ptr<TGuardState>> opened;
  {
    std::lock_guard lock(FLock);
    if (FClosed) return;
    FClosed = true;
    opened.swap(FOpened);
  }
  for (auto it = opened.rbegin(); it != opened.rend(); ++it)
    if (auto state = it->lock()) state->Close();
}

bool TLaserPorts::Closed() const {
  std::lock_guard lock(FLock);
  return FClosed;
}

}  // namespace devlaser
