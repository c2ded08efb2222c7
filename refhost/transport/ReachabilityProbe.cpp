#include "refhost/transport/ReachabilityProbe.h"

#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace refhost {

namespace {

constexpr char kEchoPayload[] = "laser link probe";

bool IsRefusal(int error) {
  return error == EACCES || error == EPERM || error == EPROTONOSUPPORT || error == EAFNOSUPPORT ||
         error == ESOCKTNOSUPPORT;
}

}  // namespace

TEchoResult SendEcho(const TSocketAddress& address, uint16_t sequence, int timeoutMs, int wakeFd, std::string& error) {
  if (address.Family() != AF_INET) {
    error = "ICMP echo is sent to IPv4 addresses only";
    return TEchoResult::NoAnswer;
  }
  TUniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_ICMP));
  if (!socket.Valid()) {
    const int socketError = errno;
    error = "cannot open an ICMP socket: " + ErrnoText(socketError);
    return IsRefusal(socketError) ? TEchoResult::NotPermitted : TEchoResult::NoAnswer;
  }

  // The kernel fills in the identifier (the socket's own) and the checksum of a datagram-socket echo.
  std::array<unsigned char, sizeof(icmphdr) + sizeof kEchoPayload> request{};
  icmphdr header{};
  header.type = ICMP_ECHO;
  header.un.echo.sequence = htons(sequence);
  std::memcpy(request.data(), &header, sizeof header);
  std::memcpy(request.data() + sizeof header, kEchoPayload, sizeof kEchoPayload);
  if (::sendto(socket.Get(), request.data(), request.size(), 0, address.Raw(), address.Length) < 0) {
    error = "cannot send an echo request to " + address.ToString() + ": " + ErrnoText(errno);
    return TEchoResult::NoAnswer;
  }

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0);
  std::array<unsigned char, 1500> reply{};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    const auto waited =
        left > 0 ? WaitForEvents(socket.Get(), POLLIN, static_cast<int>(left), wakeFd) : TWaitResult::TimedOut;
    if (waited == TWaitResult::Woken) {
      error = "the echo request was cancelled";
      return TEchoResult::Woken;
    }
    if (waited == TWaitResult::TimedOut) {
      error = "no echo reply from " + address.ToString() + " within " + std::to_string(timeoutMs) + " ms";
      return TEchoResult::NoAnswer;
    }
    const ssize_t n = ::recv(socket.Get(), reply.data(), reply.size(), MSG_DONTWAIT);
    if (n < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) continue;
      error = "no echo reply from " + address.ToString() + ": " + ErrnoText(errno);
      return TEchoResult::NoAnswer;
    }
    if (static_cast<size_t>(n) < sizeof(icmphdr)) continue;
    icmphdr answer{};
    std::memcpy(&answer, reply.data(), sizeof answer);
    if (answer.type == ICMP_ECHOREPLY && ntohs(answer.un.echo.sequence) == sequence) return TEchoResult::Answered;
  }
}

TConnectResult ProbeByConnect(const TSocketAddress& address, int timeoutMs, int wakeFd, std::string& error) {
  TUniqueFd connection;
  return ConnectWithin(address, timeoutMs, wakeFd, connection, error);
}

}  // namespace refhost
