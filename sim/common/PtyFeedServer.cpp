#include "sim/common/PtyFeedServer.h"

#include <poll.h>

#include <cerrno>

#include "sim/common/FdIo.h"

namespace lasersim {

TPtyFeedServer::TPtyFeedServer(std::string threadName, TFeed feed, TResetInput resetInput, std::string linkPath)
    : FThreadName(std::move(threadName)),
      FFeed(std::move(feed)),
      FResetInput(std::move(resetInput)),
      FTerminal(std::move(linkPath)) {}

TPtyFeedServer::~TPtyFeedServer() { Stop(); }

bool TPtyFeedServer::Start() {
  if (Running()) {
    FLastError = "already running on " + PortPath();
    return false;
  }
  if (!FTerminal.Open()) {
    FLastError = FTerminal.LastError();
    return false;
  }
  FResetInput();
  if (!FThread.Start(
          FThreadName, [this](TServiceThread& thread) { Serve(thread); }, FLastError)) {
    Stop();
    return false;
  }
  FLastError.clear();
  return true;
}

void TPtyFeedServer::Stop() {
  FThread.Stop();
  FTerminal.Close();
}

void TPtyFeedServer::Serve(TServiceThread& thread) {
  std::string received;
  while (!thread.StopRequested()) {
    pollfd fds[2] = {{thread.WakeFd(), POLLIN, 0}, {FTerminal.MasterFd(), POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents != 0) return;
    if (fds[1].revents == 0) continue;
    received.clear();
    // The slave stays open on our side, so the master reports an end only when something is badly wrong.
    const TReadResult result = ReadAvailable(FTerminal.MasterFd(), received);
    if (result == TReadResult::Closed) return;
    if (result == TReadResult::WouldBlock) continue;
    const std::string replies = FFeed(received);
    if (!replies.empty() && !WriteAll(FTerminal.MasterFd(), replies, thread.WakeFd(), false)) return;
  }
}

}  // namespace lasersim
