// The own-brand laser simulator's front ends: UDP, TCP and a pseudo-terminal, any of them at once, served by one
// thread that waits in poll() and stops at once. UDP answers each datagram to its sender; TCP serves up to
// kMaxClients connections, each framed on its own; the pseudo-terminal stands in for the serial cable (see
// TIpgYlrPtyServer for why the server keeps the slave open). Start() binds on the caller's thread, so an address
// in use is reported at once. The engine is not owned and must outlive the server.
//
// SetReplyShape() makes the links slow or choppy (ReplyQueue.h) for replies to what arrives from then on; a UDP
// reply is held back as a whole and never cut, as a datagram arrives whole or not at all.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "refhost/transport/PseudoTerminal.h"
#include "refhost/transport/UniqueFd.h"
#include "sim/common/ReplyQueue.h"
#include "sim/common/ServiceThread.h"

namespace lasersim {

class TZorunSimEngine;

struct TZorunSimLinks {
  std::optional<std::string> UdpAddress;  // dotted IPv4
  uint16_t UdpPort = 0;                   // 0 picks a free port
  std::optional<std::string> TcpAddress;
  uint16_t TcpPort = 0;
  bool Pty = false;
};

class TZorunSimServer {
 public:
  static constexpr size_t kMaxClients = 8;

  // `ptyLinkPath`: where the pseudo-terminal is also reachable under a name that survives a restart (see
  // TPseudoTerminal); empty for none.
  explicit TZorunSimServer(TZorunSimEngine& engine, std::string ptyLinkPath = {});
  ~TZorunSimServer();
  TZorunSimServer(const TZorunSimServer&) = delete;
  TZorunSimServer& operator=(const TZorunSimServer&) = delete;

  // Opens the links asked for and starts serving. False with LastError() when one cannot be opened (none is then
  // left open) or the server runs already.
  bool Start(const TZorunSimLinks& links);
  // Closes every link and joins the serving thread. Safe when not running.
  void Stop();

  bool Running() const { return FThread.Running(); }
  const std::string& LastError() const { return FLastError; }
  uint16_t UdpPort() const { return FUdpPort; }
  uint16_t TcpPort() const { return FTcpPort; }
  // The serial device a driver opens, e.g. "/dev/pts/7"; empty without a pseudo-terminal.
  const std::string& SlavePath() const { return FTerminal.SlavePath(); }
  // What a driver should open: the link path when there is one, else the slave device; empty without one.
  std::string PortPath() const { return FTerminal.IsOpen() ? FTerminal.PortPath() : std::string(); }
  void SetReplyShape(const TReplyShape& shape);
  // TCP connections open now.
  size_t OpenConnections() const { return FOpen.load(std::memory_order_acquire); }

 private:
  void Serve(TServiceThread& thread);
  TReplyShape ReplyShape() const;

  TZorunSimEngine& FEngine;
  refhost::TUniqueFd FUdp;
  refhost::TUniqueFd FListener;
  refhost::TPseudoTerminal FTerminal;
  uint16_t FUdpPort = 0;
  uint16_t FTcpPort = 0;
  std::string FLastError;
  std::atomic<size_t> FOpen{0};
  mutable std::mutex FShapeMutex;
  TReplyShape FShape;  // guarded by FShapeMutex
  TServiceThread FThread;
};

}  // namespace lasersim
