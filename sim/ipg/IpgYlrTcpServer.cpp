#include "sim/ipg/IpgYlrTcpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "refhost/transport/Sockets.h"
#include "sim/common/FdIo.h"
#include "sim/ipg/IpgYlrEngine.h"

namespace lasersim {

namespace {

std::string SystemError(const std::string& what) { return what + ": " + refhost::ErrnoText(errno); }

}  // namespace

TIpgYlrTcpServer::TIpgYlrTcpServer(TIpgYlrEngine& engine) : FEngine(engine) {}

TIpgYlrTcpServer::~TIpgYlrTcpServer() { Stop(); }

bool TIpgYlrTcpServer::Start(const std::string& address, uint16_t port) {
  if (Running()) {
    FLastError = "already running on port " + std::to_string(FPort);
    return false;
  }
  const std::string where = address + ":" + std::to_string(port);
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
    FLastError = "invalid IPv4 address '" + address + "'";
    return false;
  }
  TUniqueFd listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener.Valid()) {
    FLastError = SystemError("socket");
    return false;
  }
  const int on = 1;
  ::setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    FLastError = SystemError("bind " + where);
    return false;
  }
  if (::listen(listener.Get(), 4) != 0) {
    FLastError = SystemError("listen " + where);
    return false;
  }
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  ::getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&bound), &length);
  FPort = ntohs(bound.sin_port);
  FListener = std::move(listener);
  if (!FThread.Start(
          "IpgYlrTcpSim", [this](TServiceThread& thread) { Serve(thread); }, FLastError)) {
    FListener.Reset();
    return false;
  }
  FLastError.clear();
  return true;
}

void TIpgYlrTcpServer::Stop() {
  FThread.Stop();
  FListener.Reset();
}

struct TIpgYlrTcpServer::TClient {
  TUniqueFd Fd;
  TIpgYlrEngine::TInput Input;
};

void TIpgYlrTcpServer::AcceptClient(std::vector<TClient>& clients) {
  TUniqueFd accepted(::accept4(FListener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!accepted.Valid()) return;  // the peer gave up before we took it, or a transient error: keep listening
  FAccepted.fetch_add(1, std::memory_order_acq_rel);
  if (clients.size() >= kMaxClients) return;  // closing it tells the peer that the laser is busy
  const int on = 1;
  ::setsockopt(accepted.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  // Replies are a few bytes each: a bounded send queue makes a client that stops reading stall the laser after a
  // few thousand replies, as a real command channel would, instead of after megabytes.
  const int sendBuffer = 64 * 1024;
  ::setsockopt(accepted.Get(), SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
  clients.push_back({std::move(accepted), {}});
}

bool TIpgYlrTcpServer::ServeClient(TServiceThread& thread, TClient& client) {
  std::string received;
  const TReadResult result = ReadAvailable(client.Fd.Get(), received);
  if (result == TReadResult::Closed) return false;
  if (result != TReadResult::Data) return true;
  const std::string replies = FEngine.Feed(client.Input, received);
  return replies.empty() || WriteAll(client.Fd.Get(), replies, thread.WakeFd(), true);
}

void TIpgYlrTcpServer::Serve(TServiceThread& thread) {
  std::vector<TClient> clients;  // owned by this thread; closed when it ends
  std::vector<pollfd> fds;
  while (!thread.StopRequested()) {
    FOpen.store(clients.size(), std::memory_order_release);
    fds.assign({{thread.WakeFd(), POLLIN, 0}, {FListener.Get(), POLLIN, 0}});
    for (const auto& client : clients) fds.push_back({client.Fd.Get(), POLLIN, 0});
    if (::poll(fds.data(), fds.size(), -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[0].revents != 0) break;
    // Serve the clients polled before accepting, so that the indices of fds and clients still agree.
    std::vector<TClient> open;
    open.reserve(clients.size() + 1);
    for (size_t i = 0; i < clients.size(); ++i) {
      if (fds[i + 2].revents == 0 || ServeClient(thread, clients[i])) {
        open.push_back(std::move(clients[i]));
      } else if (thread.StopRequested()) {
        break;
      }
    }
    clients = std::move(open);
    if (fds[1].revents & POLLIN) AcceptClient(clients);
  }
  FOpen.store(0, std::memory_order_release);
}

}  // namespace lasersim
