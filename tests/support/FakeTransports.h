// In-memory stand-ins for the host's serial port, TCP client and ping client. A test keeps the peer objects (the
// far end of the link) while the code under test owns the clients: the peer scripts the replies, records what was
// written and can close the link or make the address unreachable at any moment. Every peer is thread-safe.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/Transports.h"
#include "refhost/TransportFactory.h"

namespace testsupport {

// The far end of a byte link (serial line or TCP connection).
class TFakeLinkPeer {
 public:
  // Called with every write; what it returns becomes readable at once (nothing when empty).
  using TResponder = std::function<std::string(const std::string& written)>;

  void SetResponder(TResponder responder);
  // Makes `data` readable by the client.
  void Push(const std::string& data);

  // The peer hangs up: the client reads the close, writes fail, Connected() turns false.
  void Close();
  bool IsOpen() const;
  int OpenCount() const;

  // Every write, in order.
  std::vector<std::string> Writes() const;
  void ClearWrites();
  // Waits until `pred` holds for the writes so far; false when `timeout` passed first.
  bool WaitForWrites(const std::function<bool(const std::vector<std::string>&)>& pred,
                     std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;

  // What the client was configured with.
  std::string RemoteHost() const;
  std::string RemotePort() const;
  int32_t SerialPort() const;
  std::string SerialSettings() const;

 private:
  friend class TFakeTcpClient;
  friend class TFakeCommCtrl;

  bool Open();
  int Write(const std::string& data);
  std::string Take(size_t maxBytes);
  bool WaitReadable(int32_t timeoutMs);

  mutable std::mutex FMutex;
  mutable std::condition_variable FCond;
  TResponder FResponder;
  std::string FIncoming;
  std::vector<std::string> FWrites;
  bool FOpen = false;
  int FOpenCount = 0;
  std::string FRemoteHost, FRemotePort, FSerialSettings;
  int32_t FSerialPort = 0;
};

class TFakeTcpClient : public nchost::TVqTcpClient {
 public:
  explicit TFakeTcpClient(std::shared_ptr<TFakeLinkPeer> peer) : FPeer(std::move(peer)) {}
  void SetRemoteHost(const std::string& host) override;
  void SetRemotePort(const std::string& port) override;
  bool Connect(int32_t timeoutMs) override;
  void Disconnect() override;
  bool Connected() override;
  bool WaitForData(int32_t timeoutMs) override;
  std::string Receive(size_t maxBytes) override;
  int Send(const std::string& data) override;

 private:
  std::shared_ptr<TFakeLinkPeer> FPeer;
};

class TFakeCommCtrl : public nchost::TCommCtrl {
 public:
  explicit TFakeCommCtrl(std::shared_ptr<TFakeLinkPeer> peer) : FPeer(std::move(peer)) {}
  void SetPort(int32_t port) override;
  void SetSettings(const std::string& settings) override;
  bool SetActive(bool active) override;
  bool GetActive() override;
  std::string Read(size_t maxBytes) override;
  int Write(const std::string& data) override;

 private:
  std::shared_ptr<TFakeLinkPeer> FPeer;
};

class TFakeIcmpClient;

// The network as the ping client sees it.
class TFakePingPeer {
 public:
  // Whether pings, synchronous and asynchronous, are answered.
  void SetReachable(bool reachable);
  // Runs the failure handler of the last asynchronous ping on the client's thread, as if it had gone unanswered.
  // False when there is no client or it has not pinged asynchronously yet.
  bool FailLastAsyncPing();
  int SyncPings() const;
  int AsyncPings() const;
  std::string Host() const;
  int32_t ProbePort() const;

 private:
  friend class TFakeIcmpClient;

  mutable std::mutex FMutex;
  bool FReachable = true;
  int FSyncPings = 0, FAsyncPings = 0;
  std::string FHost;
  int32_t FProbePort = 0;
  TFakeIcmpClient* FClient = nullptr;
};

class TFakeIcmpClient : public nchost::TIcmpClient {
 public:
  explicit TFakeIcmpClient(std::shared_ptr<TFakePingPeer> peer);
  // Waits for the client's thread.
  ~TFakeIcmpClient() override;
  void SetHost(const std::string& host) override;
  void SetProbePort(int32_t port) override;
  bool Ping(int32_t timeoutMs) override;
  void PingAsync(int32_t timeoutMs, std::function<void()> onFailure) override;

 private:
  friend class TFakePingPeer;
  // Queues `handler` for the client's own thread; never blocks.
  void RunOnClientThread(std::function<void()> handler);
  void FireLastFailure();
  void Worker();

  std::shared_ptr<TFakePingPeer> FPeer;
  std::mutex FMutex;
  std::condition_variable FCond;
  std::deque<std::function<void()>> FQueue;
  std::function<void()> FLastFailure;
  bool FStopping = false;
  std::thread FThread;
};

// Hands out clients bound to the peers. A kind switched off is not offered (the factory returns null), as on a
// host without that transport.
class TFakeTransportFactory : public refhost::ITransportFactory {
 public:
  std::shared_ptr<TFakeLinkPeer> Tcp = std::make_shared<TFakeLinkPeer>();
  std::shared_ptr<TFakeLinkPeer> Serial = std::make_shared<TFakeLinkPeer>();
  std::shared_ptr<TFakePingPeer> Ping = std::make_shared<TFakePingPeer>();
  bool OfferTcp = true;

  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override;
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override;
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override { return nullptr; }
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override;
};

}  // namespace testsupport
