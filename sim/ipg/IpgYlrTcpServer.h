// The IPG YLR simulator on TCP: listens on one address and port (the laser's port is 10001) and serves the engine
// to one client at a time; a new connection replaces the old one, as the laser's single command channel does.
// Tests give each server its own loopback address (127.0.0.x) because the driver always connects to 10001.
//
// Start() binds on the caller's thread, so "address in use" is reported at once; the serving thread then waits in
// poll() and a Stop() ends it immediately, closing the listener and the client (the driver sees the laser vanish).
// The listener uses SO_REUSEADDR, so a stopped server can be started again on the same address at once. The
// engine is not owned and must outlive the server; its state survives a stop and start, like a laser whose network
// link was cut.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/common/ServiceThread.h"
#include "sim/common/UniqueFd.h"

namespace lasersim {

class TIpgYlrEngine;

class TIpgYlrTcpServer {
 public:
  static constexpr uint16_t kDefaultPort = 10001;

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

 private:
  void Serve(TServiceThread& thread);
  void AcceptClient(TUniqueFd& client);

  TIpgYlrEngine& FEngine;
  TUniqueFd FListener;
  uint16_t FPort = 0;
  std::string FLastError;
  std::atomic<size_t> FAccepted{0};
  TServiceThread FThread;
};

}  // namespace lasersim
