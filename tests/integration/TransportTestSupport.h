// Helpers of the transport tests: a log that records, and loopback sockets that accept, or that never answer.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "refhost/transport/TransportLog.h"
#include "refhost/transport/UniqueFd.h"

namespace transporttest {

// Records every log line; safe from several threads.
class TLogRecorder {
 public:
  refhost::TTransportLog Callback() {
    return [this](const std::string& line) {
      std::lock_guard lock(FMutex);
      FLines.push_back(line);
    };
  }
  size_t CountContaining(const std::string& text) const {
    std::lock_guard lock(FMutex);
    return static_cast<size_t>(std::count_if(
        FLines.begin(), FLines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; }));
  }

 private:
  mutable std::mutex FMutex;
  std::vector<std::string> FLines;
};

inline sockaddr_in LoopbackAddress(const std::string& ip, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  ::inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
  return address;
}

inline uint16_t LocalPort(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

// A socket of `type` bound to `ip` and a free port.
inline refhost::TUniqueFd BoundSocket(int type, const std::string& ip) {
  refhost::TUniqueFd fd(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
  const sockaddr_in address = LoopbackAddress(ip, 0);
  if (::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fd.Reset();
  return fd;
}

inline bool Readable(int fd, int timeoutMs) {
  pollfd state{fd, POLLIN, 0};
  return ::poll(&state, 1, timeoutMs) > 0;
}

// A TCP listener on a loopback address and a free port.
class TTcpListener {
 public:
  explicit TTcpListener(const std::string& ip, int backlog = 8) : FFd(BoundSocket(SOCK_STREAM, ip)) {
    if (FFd.Valid()) ::listen(FFd.Get(), backlog);
  }
  uint16_t Port() const { return LocalPort(FFd.Get()); }
  // The next connection, or an empty descriptor after `timeoutMs`.
  refhost::TUniqueFd Accept(int timeoutMs = 2000) {
    if (!Readable(FFd.Get(), timeoutMs)) return {};
    return refhost::TUniqueFd(::accept4(FFd.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  int Fd() const { return FFd.Get(); }

 private:
  refhost::TUniqueFd FFd;
};

// A listener that never answers a connection attempt: its backlog is zero and one connection that is never
// accepted fills it, so the kernel drops every further SYN and a client waits for its time-out. The filler must be
// queued before the listener is used, or a busy machine lets the client's connection in first.
class TSilentListener {
 public:
  explicit TSilentListener(const std::string& ip) : FListener(ip, 0) {
    const sockaddr_in address = LoopbackAddress(ip, FListener.Port());
    ::connect(FFiller.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    Readable(FListener.Fd(), 5000);
  }
  uint16_t Port() const { return FListener.Port(); }

 private:
  TTcpListener FListener;
  refhost::TUniqueFd FFiller{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

// A port on `ip` where nothing listens: bound and closed again, so what is sent to it is refused.
inline uint16_t ClosedPort(const std::string& ip, int type = SOCK_STREAM) {
  return LocalPort(BoundSocket(type, ip).Get());
}

// Calls `poll` until it returns true or `timeoutMs` pass; returns its last result.
inline bool Eventually(const std::function<bool()>& poll, int timeoutMs = 2000) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!poll()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

inline int64_t ElapsedMs(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace transporttest
