// The IPG YLR simulator on TCP: listens on one address and port (the laser's port is 10001) and serves the engine
// to up to kMaxClients connections at once, each with its own command framing. A driver's reachability probe
// connects to the same port and closes again; that must not disturb the driver's own connection, so a new client
// never replaces an old one. A connection beyond the limit is closed at once.
// Tests give each server its own loopback address (127.0.0.x) because the driver always connects to 10001.
//
// Start() binds on the caller's thread, so "address in use" is reported at once; the serving thread then waits in
// poll() and a Stop() ends it immediately, closing the listener and every client (drivers see the laser vanish).
// The listener uses SO_REUSEADDR, so a stopped server can be started again on the same address at once. The
// engine is not owned and must outlive the server; its state survives a stop and start, like a laser whose network
// link was cut.
//
// For tests of a driver's reply handling the link can be made slow or choppy (TLinkShape): every reply held back
// for a while, sent in pieces of a few bytes, or followed some time later by an unrequested status line, as a laser
// whose controller answers late would send.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "refhost/transport/UniqueFd.h"
#include "sim/common/ServiceThread.h"

namespace lasersim {

using refhost::TUniqueFd;

class TIpgYlrEngine;

class TIpgYlrTcpServer {
 public:
  static constexpr uint16_t kDefaultPort = 10001;
  static constexpr size_t kMaxClients = 8;

  // How replies travel; the default sends each one at once and whole.
  struct TLinkShape {
    std::chrono::milliseconds ReplyDelay{0};  // every reply is sent this long after its command arrived
    size_t PieceBytes = 0;                    // > 0: replies go out in pieces of this many bytes ...
    std::chrono::milliseconds PieceGap{1};    // ... this far apart
    // > 0: this long after each reply, an unrequested "STA: <status word>" line follows.
    std::chrono::milliseconds StrayStatusAfter{0};
    bool Shaped() const { return ReplyDelay.count() > 0 || PieceBytes > 0 || StrayStatusAfter.count() > 0; }
  };

  explicit TIpgYlrTcpServer(TIpgYlrEngine& engine);
  ~TIpgYlrTcpServer();
  TIpgYlrTcpServer(const TIpgYlrTcpServer&) = delete;
  TIpgYlrTcpServer& operator=(const TIpgYlrTcpServer&) = delete;

  // Listens on `address` (dotted IPv4) and `port` (0 picks a free one). False with LastError() set when the address
  // is invalid or in use, or the server is already running.
  bool Start(const std::string& address = "127.0.0.1", uint16_t port = kDefaultPort);
  // Closes the client and the listener and joins the serving thread. Safe when not running.
  void Stop();

  bool Running() const { return FThread.Running(); }
  const std::string& LastError() const { return FLastError; }
  // The port actually bound (useful after Start with port 0).
  uint16_t Port() const { return FPort; }
  // Connections accepted since construction; lets a test wait until a driver has (re)connected.
  size_t AcceptedConnections() const { return FAccepted.load(std::memory_order_acquire); }
  // Connections open now.
  size_t OpenConnections() const { return FOpen.load(std::memory_order_acquire); }
  // Applies to replies to commands received from now on.
  void SetLinkShape(const TLinkShape& shape);

 private:
  struct TClient;
  using TClock = std::chrono::steady_clock;
  void Serve(TServiceThread& thread);
  // Queues shaped replies on `client`; false when the connection is to be closed.
  void QueueShaped(TClient& client, const std::string& replies, const TLinkShape& shape);
  // Sends what is due; false when the connection is to be closed.
  bool SendDue(TServiceThread& thread, TClient& client);
  // Milliseconds until the first queued item of any client is due; -1 when none is queued.
  static int NextDueMs(const std::vector<TClient>& clients);
  void AcceptClient(std::vector<TClient>& clients);
  // Reads what `client` sent and answers it; false when the connection is to be closed.
  bool ServeClient(TServiceThread& thread, TClient& client);

  TIpgYlrEngine& FEngine;
  TUniqueFd FListener;
  uint16_t FPort = 0;
  std::string FLastError;
  std::atomic<size_t> FAccepted{0};
  std::atomic<size_t> FOpen{0};
  mutable std::mutex FShapeMutex;
  TLinkShape FShape;  // guarded by FShapeMutex
  TServiceThread FThread;
};

}  // namespace lasersim
