#include "refhost/transport/PosixTcpClient.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

#include "refhost/transport/Sockets.h"

namespace refhost {

TPosixTcpClient::TPosixTcpClient(TTransportLog log) : FLog(std::move(log)) {}

TPosixTcpClient::~TPosixTcpClient() = default;

void TPosixTcpClient::SetRemoteHost(const std::string& host) {
  std::lock_guard lock(FMutex);
  FHost = host;
}

void TPosixTcpClient::SetRemotePort(const std::string& port) {
  std::lock_guard lock(FMutex);
  FPort = port;
}

bool TPosixTcpClient::Connect(int32_t timeoutMs) {
  std::lock_guard lock(FMutex);
  FFd.Reset();
  FPeer.clear();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0);
  std::string error;
  const auto addresses = ResolveAddresses(FHost, FPort, SOCK_STREAM, error);
  for (const auto& address : addresses) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0 && &address != &addresses.front()) break;
    TUniqueFd fd;
    if (ConnectWithin(address, static_cast<int>(left > 0 ? left : 0), -1, fd, error) == TConnectResult::Connected) {
      // Commands are a few bytes each and wait for their replies: send them at once.
      const int on = 1;
      ::setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      FFd = std::move(fd);
      FPeer = address.ToString();
      FLastError.clear();
      FLog.LogAlways(NameLocked() + ": connected");
      return true;
    }
  }
  FLastError = error;
  FLog.Log("TCP " + FHost + ":" + FPort + ": " + error);
  return false;
}

void TPosixTcpClient::Disconnect() {
  std::lock_guard lock(FMutex);
  FFd.Reset();
}

bool TPosixTcpClient::Connected() {
  std::lock_guard lock(FMutex);
  if (FFd.Valid()) CheckPeerLocked();
  return FFd.Valid();
}

bool TPosixTcpClient::WaitForData(int32_t timeoutMs) {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid()) return false;
  return WaitForEvents(FFd.Get(), POLLIN | POLLRDHUP, timeoutMs, -1) == TWaitResult::Ready;
}

std::string TPosixTcpClient::Receive(size_t maxBytes) {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid() || maxBytes == 0) return {};
  std::string received(maxBytes, '\0');
  for (;;) {
    const ssize_t n = ::recv(FFd.Get(), received.data(), maxBytes, MSG_DONTWAIT);
    if (n > 0) {
      received.resize(static_cast<size_t>(n));
      return received;
    }
    if (n == 0) {
      DropLocked("closed by the peer");
      return {};
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) DropLocked(ErrnoText(errno));
    return {};
  }
}

int TPosixTcpClient::Send(const std::string& data) {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid()) return -1;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kSendTimeoutMs);
  size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t n = ::send(FFd.Get(), data.data() + sent, data.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) {
      sent += static_cast<size_t>(n);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      DropLocked(ErrnoText(errno));
      return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0 || WaitForEvents(FFd.Get(), POLLOUT, static_cast<int>(left), -1) != TWaitResult::Ready) {
      DropLocked("the peer took no data for " + std::to_string(kSendTimeoutMs) + " ms");
      return -1;
    }
  }
  return static_cast<int>(sent);
}

std::string TPosixTcpClient::LastError() const {
  std::lock_guard lock(FMutex);
  return FLastError;
}

void TPosixTcpClient::DropLocked(const std::string& why) {
  FLastError = why;
  FLog.LogAlways(NameLocked() + ": connection lost: " + why);
  FFd.Reset();
}

void TPosixTcpClient::CheckPeerLocked() {
  pollfd state{FFd.Get(), POLLRDHUP, 0};
  while (::poll(&state, 1, 0) < 0 && errno == EINTR) {
  }
  if ((state.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
    int socketError = 0;
    socklen_t length = sizeof socketError;
    ::getsockopt(FFd.Get(), SOL_SOCKET, SO_ERROR, &socketError, &length);
    DropLocked(socketError != 0 ? ErrnoText(socketError) : "closed by the peer");
  } else if ((state.revents & POLLRDHUP) != 0) {
    // The peer has closed its side. What it sent before is still readable; the connection ends once that is read.
    int pending = 0;
    if (::ioctl(FFd.Get(), FIONREAD, &pending) != 0 || pending == 0) DropLocked("closed by the peer");
  }
}

std::string TPosixTcpClient::NameLocked() const {
  return "TCP " + FHost + ":" + FPort + (FPeer.empty() ? "" : " (" + FPeer + ")");
}

}  // namespace refhost
