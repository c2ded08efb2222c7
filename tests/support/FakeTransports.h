// In-memory stand-ins for the host's TCP client and ping client. A test keeps the peer objects (the far end of the
// link) while the code under test owns the clients: the peer scripts the replies, records what was written and can
// close the link or fail a keep-alive ping at any moment. Every peer is thread-safe.
#pragma once

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
  // The peer hangs up: the client reads the close, writes fail, Connected() turns false.
  void Close();
  bool IsOpen() const;
  // Every write, in order.
  std::vector<std::string> Writes() const;

  // The client's side.
  bool Open();
  int Write(const std::string& data);
  std::string Take(size_t maxBytes);
  // A closed link counts as readable: the read then returns the close (nothing).
  bool WaitReadable(int32_t timeoutMs);

 private:
  mutable std::mutex FMutex;
  mutable std::condition_variable FCond;
  TResponder FResponder;
  std::string FIncoming;
  std::vector<std::string> FWrites;
  bool FOpen = false;
};

class TFakeTcpClient : public nchost::TVqTcpClient {
 public:
  explicit TFakeTcpClient(std::shared_ptr<TFakeLinkPeer> peer) : FPeer(std::move(peer)) {}
  void SetRemoteHost(const std::string&) override {}
  void SetRemotePort(const std::string&) override {}
  bool Connect(int32_t) override { return FPeer->Open(); }
  void Disconnect() override { FPeer->Close(); }
  bool Connected() override { return FPeer->IsOpen(); }
  bool WaitForData(int32_t timeoutMs) override { return FPeer->WaitReadable(timeoutMs); }
  std::string Receive(size_t maxBytes) override { return FPeer->Take(maxBytes); }
  int Send(const std::string& data) override { return FPeer->Write(data); }

 private:
  std::shared_ptr<TFakeLinkPeer> FPeer;
};

class TFakeIcmpClient;

// The network as the ping client sees it: synchronous pings are answered, asynchronous ones fail on request.
class TFakePingPeer {
 public:
  // Runs the failure handler of the last asynchronous ping on the client's thread, as if it had gone unanswered.
  // False when there is no client or it has not pinged asynchronously yet.
  bool FailLastAsyncPing();

 private:
  friend class TFakeIcmpClient;
  std::mutex FMutex;
  TFakeIcmpClient* FClient = nullptr;
};

class TFakeIcmpClient : public nchost::TIcmpClient {
 public:
  explicit TFakeIcmpClient(std::shared_ptr<TFakePingPeer> peer);
  // Waits for a failure handler still running on the client's thread.
  ~TFakeIcmpClient() override;
  void SetHost(const std::string&) override {}
  void SetProbePort(int32_t) override {}
  bool Ping(int32_t) override { return true; }
  void PingAsync(int32_t timeoutMs, std::function<void()> onFailure) override;

 private:
  friend class TFakePingPeer;
  // Queues the last failure handler for the client's own thread; never blocks. False before the first one.
  bool PostLastFailure();

  std::shared_ptr<TFakePingPeer> FPeer;
  std::mutex FMutex;
  std::condition_variable_any FCond;
  std::deque<std::function<void()>> FQueue;
  std::function<void()> FLastFailure;
  std::jthread FThread;  // last: stopped and joined before the queue it serves goes
};

// Hands out clients bound to the peers. With OfferTcp off the factory has no TCP client, as on a host without one;
// it never has a serial port.
class TFakeTransportFactory : public refhost::ITransportFactory {
 public:
  std::shared_ptr<TFakeLinkPeer> Tcp = std::make_shared<TFakeLinkPeer>();
  std::shared_ptr<TFakePingPeer> Ping = std::make_shared<TFakePingPeer>();
  bool OfferTcp = true;

  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override { return nullptr; }
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override {
    return OfferTcp ? std::make_unique<TFakeTcpClient>(Tcp) : nullptr;
  }
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override { return nullptr; }
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override { return std::make_unique<TFakeIcmpClient>(Ping); }
};

}  // namespace testsupport
