#include "sim/rayqcw/RayQcwPtyServer.h"

#include <poll.h>

#include <cerrno>

#include "sim/common/FdIo.h"
#include "sim/rayqcw/RayQcwEngine.h"

namespace lasersim {

TRayQcwPtyServer::TRayQcwPtyServer(TRayQcwEngine& engine, std::string linkPath)
    : FEngine(engine), FTerminal(std::move(linkPath)) {}

TRayQcwPtyServer::~TRayQcwPtyServer() { Stop(); }

bool TRayQcwPtyServer::Start() {
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
          "RayQcwPtySim", [this](TServiceThread& thread) { Serve(thread); }, FLastError)) {
    Stop();
    return false;
  }
  FLastError.clear();
  return true;
}

void TRayQcwPtyServer::Stop() {
  FThread.Stop();
  FTerminal.Close();
}

void TRayQcwPtyServer::Serve(TServiceThread& thread) {
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
    const TReadResult result = ReadAvailable(FTerminal.MasterFd(), received);
    if (result == TReadResult::Closed) return;
    if (result == TReadResult::WouldBlock) continue;
    const std::string answers = FEngine.Feed(received);
    if (!answers.empty() && !WriteAll(FTerminal.MasterFd(), answers, thread.WakeFd(), false)) return;
  }
}

}  // namespace lasersim
