#include "sim/raycus/RaycusPtyServer.h"

#include <poll.h>

#include <cerrno>

#include "sim/common/FdIo.h"
#include "sim/raycus/RaycusEscEngine.h"

namespace lasersim {

TRaycusPtyServer::TRaycusPtyServer(TRaycusEscEngine& engine, std::string linkPath)
    : FEngine(engine), FTerminal(std::move(linkPath)) {}

TRaycusPtyServer::~TRaycusPtyServer() { Stop(); }

bool TRaycusPtyServer::Start() {
  if (Running()) {
    FLastError = "already running on " + PortPath();
    return false;
  }
  if (!FTerminal.Open()) {
    FLastError = FTerminal.LastError();
    return false;
  }
  FEngine.ResetInput();
  if (!FThread.Start(
          "RaycusPtySim", [this](TServiceThread& thread) { Serve(thread); }, FLastError)) {
    Stop();
    return false;
  }
  FLastError.clear();
  return true;
}

void TRaycusPtyServer::Stop() {
  FThread.Stop();
  FTerminal.Close();
}

void TRaycusPtyServer::Serve(TServiceThread& thread) {
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
    // The terminal keeps its own slave descriptor open, so the master reports an end only when something broke.
    const TReadResult result = ReadAvailable(FTerminal.MasterFd(), received);
    if (result == TReadResult::Closed) return;
    if (result == TReadResult::WouldBlock) continue;
    const std::string replies = FEngine.Feed(received);
    if (!replies.empty() && !WriteAll(FTerminal.MasterFd(), replies, thread.WakeFd(), false)) return;
  }
}

}  // namespace lasersim
