// Socket helpers shared by the TCP, UDP and ping clients: name resolution, waits with a time-out that a wake-up
// descriptor can cut short, and a non-blocking connect with a time-out.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

#include "refhost/transport/UniqueFd.h"

namespace refhost {

struct TSocketAddress {
  sockaddr_storage Storage{};
  socklen_t Length = 0;

  int Family() const { return Storage.ss_family; }
  const sockaddr* Raw() const { return reinterpret_cast<const sockaddr*>(&Storage); }
  // The same address with another port (IPv4 and IPv6).
  TSocketAddress WithPort(uint16_t port) const;
  // "192.0.2.1:10001" or "[2001:db8::1]:10001".
  std::string ToString() const;
};

// Resolves `host` (a name or a numeric address) and `service` (a port number or a service name) for sockets of
// `socketType`. Returns the addresses in the resolver's order; empty with `error` set when there are none.
std::vector<TSocketAddress> ResolveAddresses(const std::string& host, const std::string& service, int socketType,
                                             std::string& error);

// The outcome of waiting on a descriptor.
enum class TWaitResult { Ready, TimedOut, Woken };

// Waits until `fd` reports one of `events` (or an error or hang-up, which poll always reports), `timeoutMs`
// passes, or `wakeFd` (when not -1) becomes readable. `revents` receives what `fd` reported.
TWaitResult WaitForEvents(int fd, short events, int timeoutMs, int wakeFd, short* revents = nullptr);

enum class TConnectResult {
  Connected,    // the connection is up
  Refused,      // the host answered with a reset: it is reachable, but nothing listens on that port
  TimedOut,     // no answer within the time-out
  Unreachable,  // the network or host is unreachable
  Failed,       // any other error
  Woken,        // the wake-up descriptor cut the wait short
};

// Connects a new non-blocking stream socket to `address` within `timeoutMs`. On Connected `fd` holds the socket
// (still non-blocking); otherwise `fd` is left empty and `error` says why.
TConnectResult ConnectWithin(const TSocketAddress& address, int timeoutMs, int wakeFd, TUniqueFd& fd,
                             std::string& error);

// The text of an errno value.
std::string ErrnoText(int error);

}  // namespace refhost
