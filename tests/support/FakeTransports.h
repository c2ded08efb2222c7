// In-memory stand-ins for the host's serial port, TCP client and ping client. A test keeps the peer objects (the
// far end of the link) while the code under test owns the clients: the peer scripts the replies, records what was
// written and can close the link or make the address unreachable at any moment. Every peer is thread-safe.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/Transports.h"
#include "refhost/TransportFactory.h"
#include "sim/ipg/IpgYlrEngine.h"

namespace testsupport {

// What both peers share: the lock, and the settings their client was given ("host", "port", "settings").
class TFakePeer {
 public:
  std::string Setting(const std::string& key) const;
  void Configure(const std::string& key, std::string value);

 protected:
  template <class T>
  T Locked(const T& field) const {
    std::lock_guard lock(FMutex);
    return field;
  }
  mutable std::mutex FMutex;

 private:
  std::map<std::string, std::string> FSettings;
};

// The far end of a byte link (serial line or TCP connection).
class TFakeLinkPeer : public TFakePeer {
 public:
  // Called with every write; what it returns becomes readable at once (nothing when empty).
  using TResponder = std::function<std::string(const std::string& written)>;
  void SetResponder(TResponder responder);
  // The peer hangs up: the client reads the close, writes fail, Connected() turns false.
  void Close();
  bool IsOpen() const { return Locked(FOpen); }
  int OpenCount() const { return Locked(FOpenCount); }
  // Every write, in order.
  std::vector<std::string> Writes() const { return Locked(FWrites); }
  void ClearWrites();
  // Waits until `pred` holds for the writes so far; false when `timeout` passed first.
  bool WaitForWrites(const std::function<bool(const std::vector<std::string>&)>& pred,
                     std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;

  // The client's side.
  bool Open();
  int Write(const std::string& data);
  std::string Take(size_t maxBytes);
  // A closed link counts as readable: the read then returns the close (nothing).
  bool WaitReadable(int32_t timeoutMs);

 private:
  mutable std::condition_variable FCond;
  TResponder FResponder;
  std::string FIncoming;
  std::vector<std::string> FWrites;
  bool FOpen = false;
  int FOpenCount = 0;
};

class TFakeTcpClient : public nchost::TVqTcpClient {
 public:
  explicit TFakeTcpClient(std::shared_ptr<TFakeLinkPeer> peer) : FPeer(std::move(peer)) {}
  void SetRemoteHost(const std::string& host) override { FPeer->Configure("host", host); }
  void SetRemotePort(const std::string& port) override { FPeer->Configure("port", port); }
  bool Connect(int32_t) override { return FPeer->Open(); }
  void Disconnect() override { FPeer->Close(); }
  bool Connected() override { return FPeer->IsOpen(); }
  bool WaitForData(int32_t timeoutMs) override { return FPeer->WaitReadable(timeoutMs); }
  std::string Receive(size_t maxBytes) override { return FPeer->Take(maxBytes); }
  int Send(const std::string& data) override { return FPeer->Write(data); }

 private:
  std::shared_ptr<TFakeLinkPeer> FPeer;
};

class TFakeCommCtrl : public nchost::TCommCtrl {
 public:
  explicit TFakeCommCtrl(std::shared_ptr<TFakeLinkPeer> peer) : FPeer(std::move(peer)) {}
  void SetPort(int32_t port) override { FPeer->Configure("port", std::to_string(port)); }
  void SetSettings(const std::string& settings) override { FPeer->Configure("settings", settings); }
  bool SetActive(bool active) override { return active ? FPeer->Open() : (FPeer->Close(), false); }
  bool GetActive() override { return FPeer->IsOpen(); }
  std::string Read(size_t maxBytes) override { return FPeer->Take(maxBytes); }
  int Write(const std::string& data) override { return FPeer->Write(data); }

 private:
  std::shared_ptr<TFakeLinkPeer> FPeer;
};

class TFakeIcmpClient;

// The network as the ping client sees it.
class TFakePingPeer : public TFakePeer {
 public:
  // Whether pings, synchronous and asynchronous, are answered.
  void SetReachable(bool reachable);
  // Runs the failure handler of the last asynchronous ping on the client's thread, as if it had gone unanswered.
  // False when there is no client or it has not pinged asynchronously yet.
  bool FailLastAsyncPing();
  int SyncPings() const { return Locked(FSyncPings); }
  int AsyncPings() const { return Locked(FAsyncPings); }

 private:
  friend class TFakeIcmpClient;
  bool FReachable = true;
  int FSyncPings = 0, FAsyncPings = 0;
  TFakeIcmpClient* FClient = nullptr;
};

class TFakeIcmpClient : public nchost::TIcmpClient {
 public:
  explicit TFakeIcmpClient(std::shared_ptr<TFakePingPeer> peer);
  // Waits for a failure handler still running on the client's thread.
  ~TFakeIcmpClient() override;
  void SetHost(const std::string& host) override { FPeer->Configure("host", host); }
  void SetProbePort(int32_t port) override { FPeer->Configure("port", std::to_string(port)); }
  bool Ping(int32_t timeoutMs) override;
  void PingAsync(int32_t timeoutMs, std::function<void()> onFailure) override;

 private:
  friend class TFakePingPeer;
  // Queues `handler` (the last failure handler when null) for the client's own thread; never blocks.
  void Post(std::function<void()> handler);

  std::shared_ptr<TFakePingPeer> FPeer;
  std::mutex FMutex;
  std::condition_variable_any FCond;
  std::deque<std::function<void()>> FQueue;
  std::function<void()> FLastFailure;
  std::jthread FThread;  // last: stopped and joined before the queue it serves goes
};

// Hands out clients bound to the peers. With OfferTcp off the factory has no TCP client, as on a host without one.
class TFakeTransportFactory : public refhost::ITransportFactory {
 public:
  std::shared_ptr<TFakeLinkPeer> Tcp = std::make_shared<TFakeLinkPeer>();
  std::shared_ptr<TFakeLinkPeer> Serial = std::make_shared<TFakeLinkPeer>();
  std::shared_ptr<TFakePingPeer> Ping = std::make_shared<TFakePingPeer>();
  bool OfferTcp = true;

  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override { return std::make_unique<TFakeCommCtrl>(Serial); }
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override {
    return OfferTcp ? std::make_unique<TFakeTcpClient>(Tcp) : nullptr;
  }
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override { return nullptr; }
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override { return std::make_unique<TFakeIcmpClient>(Ping); }
};

// A far end that behaves like a YLR laser: the simulator's engine answers every write, unless the test replaced the
// status reply or the laser takes diode currents without echoing them.
class TSimulatedYlr {
 public:
  lasersim::TIpgYlrEngine Engine;
  std::atomic<bool> EchoCurrent{true};

  // Lets the client of `peer` talk to this laser; the laser must outlive the client's traffic.
  void Attach(TFakeLinkPeer& peer);
  // "STA" gets `reply` instead of the engine's status line; empty: the engine answers again.
  void SetStatusReply(std::string reply);

 private:
  std::string Answer(const std::string& written);
  std::mutex FMutex;
  std::string FStatusReply;
};

}  // namespace testsupport
