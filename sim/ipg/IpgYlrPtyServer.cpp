#include "sim/ipg/IpgYlrPtyServer.h"

#include <poll.h>

#include <cerrno>

#include "sim/common/FdIo.h"
#include "sim/ipg/IpgYlrEngine.h"

namespace lasersim {

TIpgYlrPtyServer::TIpgYlrPtyServer(TIpgYlrEngine& engine) : FEngine(engine) {}

TIpgYlrPtyServer::~TIpgYlrPtyServer() { Stop(); }

bool TIpgYlrPtyServer::Start() {
  if (Running()) {
    FLastError = "already running on " + SlavePath();
    return false;
  }
  if (!FTerminal.Open()) {
    FLastError = FTerminal.LastError();
    return false;
  }
  FEngine.ResetInput();
  if (!FThread.Start(
          "IpgYlrPtySim", [this](TServiceThread& thread) { Serve(thread); }, FLastError)) {
    Stop();
    return false;
  }
  FLastError.clear();
  return true;
}

void TIpgYlrPtyServer::Stop() {
  FThread.Stop();
  FTerminal.Close();
}

void TIpgYlrPtyServer::Serve(TServiceThread& thread) {
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
    const std::string replies = FEngine.Feed(received);
    if (!replies.empty() && !WriteAll(FTerminal.MasterFd(), replies, thread.WakeFd(), false)) return;
  }
}

}  // namespace lasersim
