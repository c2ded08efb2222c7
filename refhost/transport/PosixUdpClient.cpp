#include "refhost/transport/PosixUdpClient.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

#include "refhost/transport/Sockets.h"

namespace refhost {

namespace {

constexpr size_t kMaxDatagram = 65535;

}  // namespace

TPosixUdpClient::TPosixUdpClient(TTransportLog log) : FLog(std::move(log)) {}

TPosixUdpClient::~TPosixUdpClient() = default;

void TPosixUdpClient::SetRemoteHost(const std::string& host) {
  std::lock_guard lock(FMutex);
  FHost = host;
}

void TPosixUdpClient::SetRemotePort(int32_t port) {
  std::lock_guard lock(FMutex);
  FPort = port;
}

bool TPosixUdpClient::Open() {
  std::lock_guard lock(FMutex);
  FFd.Reset();
  std::string error;
  if (FPort < 1 || FPort > 65535) {
    error = "port " + std::to_string(FPort) + " is not a port number (1 to 65535)";
  } else {
    const auto addresses = ResolveAddresses(FHost, std::to_string(FPort), SOCK_DGRAM, error);
    for (const auto& address : addresses) {
      TUniqueFd fd(::socket(address.Family(), SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      // Connecting binds an ephemeral local port on the interface that leads to the remote address.
      if (fd.Valid() && ::connect(fd.Get(), address.Raw(), address.Length) == 0) {
        FFd = std::move(fd);
        FLastError.clear();
        FLog.Reset();
        return true;
      }
      error = "cannot open a socket to " + address.ToString() + ": " + ErrnoText(errno);
    }
  }
  FLastError = error;
  FLog.Log(NameLocked() + ": " + error);
  return false;
}

void TPosixUdpClient::Close() {
  std::lock_guard lock(FMutex);
  FFd.Reset();
}

bool TPosixUdpClient::Active() {
  std::lock_guard lock(FMutex);
  return FFd.Valid();
}

int TPosixUdpClient::Send(const std::string& datagram) {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid()) return -1;
  // An earlier datagram that found no listener leaves a pending "refused" on the socket; it belongs to that
  // datagram, so this one is sent again.
  for (int attempt = 0; attempt < 3; ++attempt) {
    const ssize_t n = ::send(FFd.Get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) return static_cast<int>(n);
    if (errno != EINTR && errno != ECONNREFUSED) break;
  }
  FLastError = "send failed: " + ErrnoText(errno);
  FLog.Log(NameLocked() + ": " + FLastError);
  return -1;
}

std::string TPosixUdpClient::Receive(int32_t timeoutMs) {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid()) return {};
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0);
  std::string datagram(kMaxDatagram, '\0');
  for (;;) {
    const ssize_t n = ::recv(FFd.Get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
    if (n >= 0) {
      datagram.resize(static_cast<size_t>(n));
      return datagram;
    }
    // "Refused" reports that an earlier datagram found no listener; it is no reason to stop waiting.
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNREFUSED) {
      FLastError = "receive failed: " + ErrnoText(errno);
      FLog.Log(NameLocked() + ": " + FLastError);
      return {};
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0 || WaitForEvents(FFd.Get(), POLLIN, static_cast<int>(left), -1) != TWaitResult::Ready) return {};
  }
}

std::string TPosixUdpClient::LastError() const {
  std::lock_guard lock(FMutex);
  return FLastError;
}

uint16_t TPosixUdpClient::LocalPort() const {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid()) return 0;
  sockaddr_storage local{};
  socklen_t length = sizeof local;
  if (::getsockname(FFd.Get(), reinterpret_cast<sockaddr*>(&local), &length) != 0) return 0;
  if (local.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in*>(&local)->sin_port);
  if (local.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6*>(&local)->sin6_port);
  return 0;
}

std::string TPosixUdpClient::NameLocked() const { return "UDP " + FHost + ":" + std::to_string(FPort); }

}  // namespace refhost
