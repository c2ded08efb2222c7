// A TCP client connection over POSIX sockets. The socket is non-blocking: connect, wait and send all have
// time-outs, and a peer that closes or resets the connection is seen as disconnected at the next call.
//
// The calls are serialised by an internal lock, so Disconnect() may come from another thread (a ping client's
// failure callback); it then waits for a WaitForData() under way to finish its time-out.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "host/Transports.h"
#include "refhost/transport/TransportLog.h"
#include "refhost/transport/UniqueFd.h"

namespace refhost {

class TPosixTcpClient final : public nchost::TVqTcpClient {
 public:
  explicit TPosixTcpClient(TTransportLog log = {});
  ~TPosixTcpClient() override;

  // Host name or numeric address (IPv4 or IPv6); takes effect at the next Connect.
  void SetRemoteHost(const std::string& host) override;
  // Port number or service name, as text; takes effect at the next Connect.
  void SetRemotePort(const std::string& port) override;
  // Drops a connection that is up and connects anew, trying each address of the host within the one time-out.
  bool Connect(int32_t timeoutMs) override;
  void Disconnect() override;
  bool Connected() override;
  bool WaitForData(int32_t timeoutMs) override;
  std::string Receive(size_t maxBytes) override;
  // A peer that takes no data for kSendTimeoutMs counts as lost.
  int Send(const std::string& data) override;

  // Why the last connect failed or the connection was lost; empty while connected.
  std::string LastError() const;

  static constexpr int kSendTimeoutMs = 3000;

 private:
  // Closes the connection after a failure, and logs why.
  void DropLocked(const std::string& why);
  // Notices a peer that has closed or reset the connection.
  void CheckPeerLocked();
  std::string NameLocked() const;

  TLogOnChange FLog;
  mutable std::mutex FMutex;
  std::string FHost;
  std::string FPort;
  std::string FPeer;  // the address connected to, for log lines
  TUniqueFd FFd;
  std::string FLastError;
};

}  // namespace refhost
