#include "refhost/transport/Sockets.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace refhost {

namespace {

using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

TConnectResult ClassifyConnectError(int error) {
  switch (error) {
    case ECONNREFUSED:
      return TConnectResult::Refused;
    case ETIMEDOUT:
      return TConnectResult::TimedOut;
    case ENETUNREACH:
    case EHOSTUNREACH:
    case ENETDOWN:
    case EHOSTDOWN:
      return TConnectResult::Unreachable;
    default:
      return TConnectResult::Failed;
  }
}

}  // namespace

std::string ErrnoText(int error) {
  char buffer[256];
  // The GNU strerror_r returns the text, which may or may not be in `buffer`.
  return ::strerror_r(error, buffer, sizeof buffer);
}

TSocketAddress TSocketAddress::WithPort(uint16_t port) const {
  TSocketAddress copy = *this;
  if (Family() == AF_INET) {
    reinterpret_cast<sockaddr_in*>(&copy.Storage)->sin_port = htons(port);
  } else if (Family() == AF_INET6) {
    reinterpret_cast<sockaddr_in6*>(&copy.Storage)->sin6_port = htons(port);
  }
  return copy;
}

std::string TSocketAddress::ToString() const {
  char text[INET6_ADDRSTRLEN] = {};
  if (Family() == AF_INET) {
    const auto* in = reinterpret_cast<const sockaddr_in*>(&Storage);
    ::inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(in->sin_port));
  }
  if (Family() == AF_INET6) {
    const auto* in6 = reinterpret_cast<const sockaddr_in6*>(&Storage);
    ::inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof text);
    return "[" + std::string(text) + "]:" + std::to_string(ntohs(in6->sin6_port));
  }
  return "(unknown address family)";
}

std::vector<TSocketAddress> ResolveAddresses(const std::string& host, const std::string& service, int socketType,
                                             std::string& error) {
  std::vector<TSocketAddress> result;
  if (host.empty()) {
    error = "no host is set";
    return result;
  }
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = socketType;
  addrinfo* list = nullptr;
  const int status = ::getaddrinfo(host.c_str(), service.empty() ? nullptr : service.c_str(), &hints, &list);
  if (status != 0) {
    error = "cannot resolve \"" + host + "\"" + (service.empty() ? "" : " port \"" + service + "\"") + ": " +
            (status == EAI_SYSTEM ? ErrnoText(errno) : ::gai_strerror(status));
    return result;
  }
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_addrlen > sizeof(sockaddr_storage)) continue;
    TSocketAddress address;
    std::memcpy(&address.Storage, entry->ai_addr, entry->ai_addrlen);
    address.Length = entry->ai_addrlen;
    result.push_back(address);
  }
  ::freeaddrinfo(list);
  if (result.empty()) error = "\"" + host + "\" has no usable address";
  return result;
}

TWaitResult WaitForEvents(int fd, short events, int timeoutMs, int wakeFd, short* revents) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0);
  pollfd fds[2] = {{fd, events, 0}, {wakeFd, POLLIN, 0}};
  const nfds_t count = wakeFd >= 0 ? 2 : 1;
  for (;;) {
    fds[0].revents = 0;
    fds[1].revents = 0;
    const int ready = ::poll(fds, count, RemainingMs(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (revents != nullptr) *revents = fds[0].revents;
    if (ready < 0) {
      // A bad descriptor: report it as ready so that the caller's next operation meets the error.
      if (revents != nullptr) *revents = POLLERR;
      return TWaitResult::Ready;
    }
    if (count == 2 && fds[1].revents != 0) return TWaitResult::Woken;
    if (fds[0].revents != 0) return TWaitResult::Ready;
    if (ready == 0) return TWaitResult::TimedOut;
  }
}

TConnectResult ConnectWithin(const TSocketAddress& address, int timeoutMs, int wakeFd, TUniqueFd& fd,
                             std::string& error) {
  fd.Reset();
  TUniqueFd socket(::socket(address.Family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket.Valid()) {
    error = "cannot create a socket: " + ErrnoText(errno);
    return TConnectResult::Failed;
  }
  if (::connect(socket.Get(), address.Raw(), address.Length) == 0) {
    fd = std::move(socket);
    return TConnectResult::Connected;
  }
  if (errno != EINPROGRESS) {
    const int connectError = errno;
    error = "cannot connect to " + address.ToString() + ": " + ErrnoText(connectError);
    return ClassifyConnectError(connectError);
  }
  switch (WaitForEvents(socket.Get(), POLLOUT, timeoutMs, wakeFd)) {
    case TWaitResult::Woken:
      error = "connecting to " + address.ToString() + " was cancelled";
      return TConnectResult::Woken;
    case TWaitResult::TimedOut:
      error = "no answer from " + address.ToString() + " within " + std::to_string(timeoutMs) + " ms";
      return TConnectResult::TimedOut;
    case TWaitResult::Ready:
      break;
  }
  int socketError = 0;
  socklen_t length = sizeof socketError;
  if (::getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &socketError, &length) != 0) socketError = errno;
  if (socketError != 0) {
    error = "cannot connect to " + address.ToString() + ": " + ErrnoText(socketError);
    return ClassifyConnectError(socketError);
  }
  fd = std::move(socket);
  return TConnectResult::Connected;
}

}  // namespace refhost
