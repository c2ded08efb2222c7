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
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
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

 private:
  struct TClient;
  void Serve(TServiceThread& thread);
  void AcceptClient(std::vector<TClient>& clients);
  // Reads what `client` sent and answers it; false when the connection is to be closed.
  bool ServeClient(TServiceThread& thread, TClient& client);

  TIpgYlrEngine& FEngine;
  TUniqueFd FListener;
  uint16_t FPort = 0;
  std::string FLastError;
  std::atomic<size_t> FAccepted{0};
  std::atomic<size_t> FOpen{0};
  TServiceThread FThread;
};

}  // namespace lasersim
