#include "sim/zorun/ZorunSimServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>
#include <vector>

#include "refhost/transport/Sockets.h"
#include "sim/common/FdIo.h"
#include "sim/zorun/ZorunSimEngine.h"

namespace lasersim {

namespace {

std::string SystemError(const std::string& what) { return what + ": " + refhost::ErrnoText(errno); }

// A bound socket of `type` on address:port; the port actually bound goes to `bound`.
refhost::TUniqueFd BindSocket(int type, const std::string& address, uint16_t port, uint16_t& bound,
                              std::string& error) {
  const std::string where = address + ":" + std::to_string(port);
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
    error = "invalid IPv4 address '" + address + "'";
    return {};
  }
  refhost::TUniqueFd fd(::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.Valid()) {
    error = SystemError("socket");
    return {};
  }
  const int on = 1;
  ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    error = SystemError("bind " + where);
    return {};
  }
  if (type == SOCK_STREAM && ::listen(fd.Get(), 4) != 0) {
    error = SystemError("listen " + where);
    return {};
  }
  sockaddr_in actual{};
  socklen_t length = sizeof actual;
  ::getsockname(fd.Get(), reinterpret_cast<sockaddr*>(&actual), &length);
  bound = ntohs(actual.sin_port);
  return fd;
}

struct TClient {
  refhost::TUniqueFd Fd;
  TZorunSimEngine::TInput Input;
  TReplyQueue Replies;
};

// A UDP reply held back by a slow line, with the sender it goes to.
struct TDatagram {
  TReplyQueue::Clock::time_point Due;
  std::string Bytes;
  sockaddr_storage To;
  socklen_t ToLength;
};

}  // namespace

TZorunSimServer::TZorunSimServer(TZorunSimEngine& engine, std::string ptyLinkPath)
    : FEngine(engine), FTerminal(std::move(ptyLinkPath)) {}

void TZorunSimServer::SetReplyShape(const TReplyShape& shape) {
  std::lock_guard lock(FShapeMutex);
  FShape = shape;
}

TReplyShape TZorunSimServer::ReplyShape() const {
  std::lock_guard lock(FShapeMutex);
  return FShape;
}

TZorunSimServer::~TZorunSimServer() { Stop(); }

bool TZorunSimServer::Start(const TZorunSimLinks& links) {
  if (Running()) {
    FLastError = "already running";
    return false;
  }
  auto fail = [this](std::string error) {
    FLastError = std::move(error);
    FUdp.Reset();
    FListener.Reset();
    FTerminal.Close();
    return false;
  };
  std::string error;
  if (links.UdpAddress) {
    FUdp = BindSocket(SOCK_DGRAM, *links.UdpAddress, links.UdpPort, FUdpPort, error);
    if (!FUdp.Valid()) return fail("UDP: " + error);
  }
  if (links.TcpAddress) {
    FListener = BindSocket(SOCK_STREAM, *links.TcpAddress, links.TcpPort, FTcpPort, error);
    if (!FListener.Valid()) return fail("TCP: " + error);
  }
  if (links.Pty && !FTerminal.Open()) return fail("pseudo-terminal: " + FTerminal.LastError());
  if (!FThread.Start(
          "ZorunSim", [this](TServiceThread& thread) { Serve(thread); }, error))
    return fail(error);
  FLastError.clear();
  return true;
}

void TZorunSimServer::Stop() {
  FThread.Stop();
  FUdp.Reset();
  FListener.Reset();
  FTerminal.Close();
}

void TZorunSimServer::Serve(TServiceThread& thread) {
  using Clock = TReplyQueue::Clock;
  std::vector<TClient> clients;  // owned by this thread; closed when it ends
  TZorunSimEngine::TInput serial;
  TReplyQueue serialReplies;
  std::vector<TDatagram> datagrams;  // ordered by Due
  std::vector<pollfd> fds;
  std::string received;
  // Sends `reply` at once when the line is not shaped and nothing waits before it, else queues it.
  auto answer = [this](TReplyQueue& queue, std::string reply, int fd, int wakeFd, bool isSocket) {
    const TReplyShape shape = ReplyShape();
    if (!shape.Shaped() && queue.Empty()) return reply.empty() || WriteAll(fd, reply, wakeFd, isSocket);
    queue.Add(std::move(reply), shape, Clock::now());
    return true;
  };
  auto nextDueMs = [&] {
    const auto now = Clock::now();
    int next = serialReplies.NextDueMs(now);
    auto sooner = [&next](int ms) {
      if (ms >= 0 && (next < 0 || ms < next)) next = ms;
    };
    for (const auto& client : clients) sooner(client.Replies.NextDueMs(now));
    if (!datagrams.empty())
      sooner(static_cast<int>(
          std::max<int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(datagrams.front().Due - now).count())));
    return next;
  };
  while (!thread.StopRequested()) {
    FOpen.store(clients.size(), std::memory_order_release);
    fds.assign({{thread.WakeFd(), POLLIN, 0},
                {FUdp.Get(), POLLIN, 0},
                {FListener.Get(), POLLIN, 0},
                {FTerminal.MasterFd(), POLLIN, 0}});
    for (const auto& client : clients) fds.push_back({client.Fd.Get(), POLLIN, 0});
    if (::poll(fds.data(), fds.size(), nextDueMs()) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[0].revents != 0) break;

    if (fds[1].revents & POLLIN) {
      uint8_t datagram[2048];
      sockaddr_storage from{};
      socklen_t fromLength = sizeof from;
      const ssize_t n =
          ::recvfrom(FUdp.Get(), datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
      if (n > 0) {
        std::string reply =
            FEngine.FeedDatagram(std::string_view(reinterpret_cast<const char*>(datagram), static_cast<size_t>(n)));
        const TReplyShape shape = ReplyShape();
        if (!reply.empty() && shape.FirstByteDelay.count() == 0 && datagrams.empty()) {
          ::sendto(FUdp.Get(), reply.data(), reply.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&from),
                   fromLength);
        } else if (!reply.empty()) {
          datagrams.push_back({Clock::now() + shape.FirstByteDelay, std::move(reply), from, fromLength});
        }
      }
    }
    while (!datagrams.empty() && datagrams.front().Due <= Clock::now()) {
      const TDatagram& d = datagrams.front();
      ::sendto(FUdp.Get(), d.Bytes.data(), d.Bytes.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&d.To),
               d.ToLength);
      datagrams.erase(datagrams.begin());
    }
    if (fds[3].revents != 0) {
      received.clear();
      // The slave stays open on our side, so the master reports an end only when something is badly wrong.
      if (ReadAvailable(FTerminal.MasterFd(), received) == TReadResult::Data &&
          !answer(serialReplies, FEngine.Feed(serial, received), FTerminal.MasterFd(), thread.WakeFd(), false))
        break;
    }
    if (FTerminal.IsOpen()) {
      const std::string due = serialReplies.TakeDue(Clock::now());
      if (!due.empty() && !WriteAll(FTerminal.MasterFd(), due, thread.WakeFd(), false)) break;
    }
    std::vector<TClient> open;
    for (size_t i = 0; i < clients.size(); ++i) {
      TClient& client = clients[i];
      bool keep = true;
      if (fds[i + 4].revents != 0) {
        received.clear();
        const TReadResult result = ReadAvailable(client.Fd.Get(), received);
        if (result == TReadResult::Closed) {
          keep = false;
        } else if (result == TReadResult::Data) {
          keep = answer(client.Replies, FEngine.Feed(client.Input, received), client.Fd.Get(), thread.WakeFd(), true);
        }
      }
      if (keep) {
        const std::string due = client.Replies.TakeDue(Clock::now());
        keep = due.empty() || WriteAll(client.Fd.Get(), due, thread.WakeFd(), true);
      }
      if (keep) open.push_back(std::move(client));
    }
    clients = std::move(open);
    if (fds[2].revents & POLLIN) {
      refhost::TUniqueFd accepted(::accept4(FListener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      // Beyond the limit the connection is closed at once: the laser is busy.
      if (accepted.Valid() && clients.size() < kMaxClients) {
        const int on = 1;
        ::setsockopt(accepted.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        clients.push_back({std::move(accepted), {}, {}});
      }
    }
  }
  FOpen.store(0, std::memory_order_release);
}

}  // namespace lasersim
