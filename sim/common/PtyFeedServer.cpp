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

void TPtyFeedServer::SetReplyShape(const TReplyShape& shape) {
  std::lock_guard lock(FShapeMutex);
  FShape = shape;
}

TReplyShape TPtyFeedServer::ReplyShape() const {
  std::lock_guard lock(FShapeMutex);
  return FShape;
}

void TPtyFeedServer::Serve(TServiceThread& thread) {
  std::string received;
  TReplyQueue queue;
  while (!thread.StopRequested()) {
    pollfd fds[2] = {{thread.WakeFd(), POLLIN, 0}, {FTerminal.MasterFd(), POLLIN, 0}};
    if (::poll(fds, 2, queue.NextDueMs(TReplyQueue::Clock::now())) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents != 0) return;
    if (fds[1].revents != 0) {
      received.clear();
      // The slave stays open on our side, so the master reports an end only when something is badly wrong.
      const TReadResult result = ReadAvailable(FTerminal.MasterFd(), received);
      if (result == TReadResult::Closed) return;
      if (result == TReadResult::Data) {
        std::string replies = FFeed(received);
        const TReplyShape shape = ReplyShape();
        if (!shape.Shaped() && queue.Empty()) {
          if (!replies.empty() && !WriteAll(FTerminal.MasterFd(), replies, thread.WakeFd(), false)) return;
        } else {
          queue.Add(std::move(replies), shape, TReplyQueue::Clock::now());
        }
      }
    }
    const std::string due = queue.TakeDue(TReplyQueue::Clock::now());
    if (!due.empty() && !WriteAll(FTerminal.MasterFd(), due, thread.WakeFd(), false)) return;
  }
}

}  // namespace lasersim
