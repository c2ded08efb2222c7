#include "sim/ipg/IpgYlrPtyServer.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>

#include <cerrno>
#include <cstring>

#include "sim/common/FdIo.h"
#include "sim/ipg/IpgYlrEngine.h"

namespace lasersim {

namespace {

std::string SystemError(const std::string& what) { return what + ": " + std::strerror(errno); }

}  // namespace

TIpgYlrPtyServer::TIpgYlrPtyServer(TIpgYlrEngine& engine) : FEngine(engine) {}

TIpgYlrPtyServer::~TIpgYlrPtyServer() { Stop(); }

bool TIpgYlrPtyServer::Start() {
  if (Running()) {
    FLastError = "already running on " + FSlavePath;
    return false;
  }
  TUniqueFd master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!master.Valid()) {
    FLastError = SystemError("posix_openpt");
    return false;
  }
  if (::grantpt(master.Get()) != 0 || ::unlockpt(master.Get()) != 0) {
    FLastError = SystemError("unlockpt");
    return false;
  }
  char name[128];
  if (::ptsname_r(master.Get(), name, sizeof name) != 0) {
    FLastError = SystemError("ptsname");
    return false;
  }
  TUniqueFd slave(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!slave.Valid()) {
    FLastError = SystemError(std::string("open ") + name);
    return false;
  }
  termios settings{};
  if (::tcgetattr(slave.Get(), &settings) == 0) {
    ::cfmakeraw(&settings);
    ::tcsetattr(slave.Get(), TCSANOW, &settings);
  }
  if (!SetNonBlocking(master.Get())) {
    FLastError = SystemError("fcntl");
    return false;
  }
  FMaster = std::move(master);
  FSlaveKeeper = std::move(slave);
  FSlavePath = name;
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
  FMaster.Reset();
  FSlaveKeeper.Reset();
  FSlavePath.clear();
}

void TIpgYlrPtyServer::Serve(TServiceThread& thread) {
  std::string received;
  while (!thread.StopRequested()) {
    pollfd fds[2] = {{thread.WakeFd(), POLLIN, 0}, {FMaster.Get(), POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents != 0) return;
    if (fds[1].revents == 0) continue;
    received.clear();
    // The slave stays open on our side, so the master reports an end only when something is badly wrong.
    const TReadResult result = ReadAvailable(FMaster.Get(), received);
    if (result == TReadResult::Closed) return;
    if (result == TReadResult::WouldBlock) continue;
    const std::string replies = FEngine.Feed(received);
    if (!replies.empty() && !WriteAll(FMaster.Get(), replies, thread.WakeFd(), false)) return;
  }
}

}  // namespace lasersim
