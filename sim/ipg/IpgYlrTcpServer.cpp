#include "sim/ipg/IpgYlrTcpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <optional>

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
  // Something to send when it is due. A reply in pieces stays first in the queue until its last piece is out, so
  // that nothing is ever sent into the middle of a line.
  struct TOutgoing {
    TClock::time_point Due;
    std::string Bytes;  // empty for a stray status line until it is sent: it reports the status of that moment
    bool Stray = false;
    size_t Sent = 0;
    size_t PieceBytes = 0;
    std::chrono::milliseconds PieceGap{0};
  };
  TUniqueFd Fd;
  TIpgYlrEngine::TInput Input;
  std::vector<TOutgoing> Queue;  // ordered by Due; equal times keep their order
};

void TIpgYlrTcpServer::SetLinkShape(const TLinkShape& shape) {
  std::lock_guard lock(FShapeMutex);
  FShape = shape;
}

void TIpgYlrTcpServer::QueueShaped(TClient& client, const std::string& replies, const TLinkShape& shape) {
  auto& queue = client.Queue;
  auto insert = [&queue](TClient::TOutgoing item) {
    const auto from = queue.begin() + (!queue.empty() && queue.front().Sent > 0 ? 1 : 0);
    const auto at = std::upper_bound(from, queue.end(), item.Due,
                                     [](TClock::time_point t, const auto& queued) { return t < queued.Due; });
    queue.insert(at, std::move(item));
  };
  // Replies never overtake each other.
  TClock::time_point due = TClock::now() + shape.ReplyDelay;
  for (const auto& queued : queue)
    if (!queued.Stray) due = std::max(due, queued.Due);
  insert({due, replies, false, 0, shape.PieceBytes, shape.PieceGap});
  if (shape.StrayStatusAfter.count() > 0) insert({due + shape.StrayStatusAfter, {}, true, 0, 0, {}});
}

bool TIpgYlrTcpServer::SendDue(TServiceThread& thread, TClient& client) {
  auto& queue = client.Queue;
  while (!queue.empty() && queue.front().Due <= TClock::now()) {
    auto& item = queue.front();
    if (item.Stray && item.Bytes.empty()) item.Bytes = "STA: " + std::to_string(FEngine.StatusWord()) + "\r";
    const size_t left = item.Bytes.size() - item.Sent;
    const size_t count = item.PieceBytes > 0 ? std::min(item.PieceBytes, left) : left;
    if (!WriteAll(client.Fd.Get(), std::string_view(item.Bytes).substr(item.Sent, count), thread.WakeFd(), true))
      return false;
    item.Sent += count;
    if (item.Sent < item.Bytes.size()) {
      item.Due = TClock::now() + item.PieceGap;
      break;
    }
    queue.erase(queue.begin());
  }
  return true;
}

int TIpgYlrTcpServer::NextDueMs(const std::vector<TClient>& clients) {
  // Only the first item of each queue can be next: the others wait behind it.
  std::optional<TClock::time_point> first;
  for (const auto& client : clients)
    if (!client.Queue.empty() && (!first || client.Queue.front().Due < *first)) first = client.Queue.front().Due;
  if (!first) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*first - TClock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, 60000));
}

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
  clients.push_back({std::move(accepted), {}, {}});
}

bool TIpgYlrTcpServer::ServeClient(TServiceThread& thread, TClient& client) {
  std::string received;
  const TReadResult result = ReadAvailable(client.Fd.Get(), received);
  if (result == TReadResult::Closed) return false;
  if (result != TReadResult::Data) return true;
  const std::string replies = FEngine.Feed(client.Input, received);
  if (replies.empty()) return true;
  TLinkShape shape;
  {
    std::lock_guard lock(FShapeMutex);
    shape = FShape;
  }
  if (!shape.Shaped() && client.Queue.empty()) return WriteAll(client.Fd.Get(), replies, thread.WakeFd(), true);
  QueueShaped(client, replies, shape);
  return true;
}

void TIpgYlrTcpServer::Serve(TServiceThread& thread) {
  std::vector<TClient> clients;  // owned by this thread; closed when it ends
  std::vector<pollfd> fds;
  while (!thread.StopRequested()) {
    FOpen.store(clients.size(), std::memory_order_release);
    fds.assign({{thread.WakeFd(), POLLIN, 0}, {FListener.Get(), POLLIN, 0}});
    for (const auto& client : clients) fds.push_back({client.Fd.Get(), POLLIN, 0});
    if (::poll(fds.data(), fds.size(), NextDueMs(clients)) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[0].revents != 0) break;
    // Serve the clients polled before accepting, so that the indices of fds and clients still agree.
    std::vector<TClient> open;
    open.reserve(clients.size() + 1);
    for (size_t i = 0; i < clients.size(); ++i) {
      if ((fds[i + 2].revents == 0 || ServeClient(thread, clients[i])) && SendDue(thread, clients[i])) {
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
