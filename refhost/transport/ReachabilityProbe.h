// The two ways the ping client learns whether a host answers: an ICMP echo through an unprivileged ICMP datagram
// socket, and a TCP connect to a port of the host.
#pragma once

#include <cstdint>
#include <string>

#include "refhost/transport/Sockets.h"

namespace refhost {

enum class TEchoResult {
  Answered,      // an echo reply came
  NoAnswer,      // none within the time-out, or the host is unreachable
  NotPermitted,  // the system refuses ICMP datagram sockets to this process
  Woken,         // the wake-up descriptor cut the wait short
};

// Sends one ICMP echo request to the IPv4 `address` and waits up to `timeoutMs` for its reply. `error` tells
// why when the result is not Answered.
TEchoResult SendEcho(const TSocketAddress& address, uint16_t sequence, int timeoutMs, int wakeFd, std::string& error);

// Connects to `address` (with its port) and closes again. A refused connection proves the host reachable as well
// as an accepted one; only a time-out or an unreachable network does not.
TConnectResult ProbeByConnect(const TSocketAddress& address, int timeoutMs, int wakeFd, std::string& error);

}  // namespace refhost
