// A UDP socket bound to an ephemeral local port and connected to one remote address, so that it receives only
// that address's datagrams.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "host/Transports.h"
#include "refhost/transport/TransportLog.h"
#include "refhost/transport/UniqueFd.h"

namespace refhost {

class TPosixUdpClient final : public nchost::TUDPClient {
 public:
  explicit TPosixUdpClient(TTransportLog log = {});
  ~TPosixUdpClient() override;

  // Host and port take effect at the next Open.
  void SetRemoteHost(const std::string& host) override;
  void SetRemotePort(int32_t port) override;
  bool Open() override;
  void Close() override;
  bool Active() override;
  // Sends one datagram; returns its size, or -1 when it could not be sent (the socket stays open: the remote
  // may come back).
  int Send(const std::string& datagram) override;
  std::string Receive(int32_t timeoutMs) override;

  // Why the last Open or Send failed; empty when nothing failed since.
  std::string LastError() const;
  // The local port the socket is bound to (0 when closed).
  uint16_t LocalPort() const;

 private:
  std::string NameLocked() const;

  TLogOnChange FLog;
  mutable std::mutex FMutex;
  std::string FHost;
  int32_t FPort = 0;
  TUniqueFd FFd;
  std::string FLastError;
};

}  // namespace refhost
