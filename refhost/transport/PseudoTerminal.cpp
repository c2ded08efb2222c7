#include "refhost/transport/PseudoTerminal.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "refhost/transport/Sockets.h"

namespace refhost {

namespace {

constexpr int kWriteTimeoutMs = 1000;

int RemainingMs(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

TPseudoTerminal::TPseudoTerminal(std::string linkPath) : FLinkPath(std::move(linkPath)) {}

TPseudoTerminal::~TPseudoTerminal() { Close(); }

bool TPseudoTerminal::Open() {
  Close();
  auto fail = [this](const std::string& what) {
    FLastError = what + ": " + ErrnoText(errno);
    Close();
    return false;
  };
  FMaster.Reset(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!FMaster.Valid()) return fail("cannot open a pseudo-terminal");
  if (::grantpt(FMaster.Get()) != 0 || ::unlockpt(FMaster.Get()) != 0) return fail("cannot unlock the pseudo-terminal");
  char name[128] = {};
  if (::ptsname_r(FMaster.Get(), name, sizeof name) != 0) return fail("cannot name the pseudo-terminal");
  FSlavePath = name;
  FSlave.Reset(::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!FSlave.Valid()) return fail("cannot open " + FSlavePath);
  // Terminal settings given through the master apply to the slave side: raw, so that bytes pass unchanged.
  termios attributes{};
  if (::tcgetattr(FMaster.Get(), &attributes) != 0) return fail("cannot read the terminal settings");
  ::cfmakeraw(&attributes);
  if (::tcsetattr(FMaster.Get(), TCSANOW, &attributes) != 0) return fail("cannot set raw mode");
  const int flags = ::fcntl(FMaster.Get(), F_GETFL);
  if (flags < 0 || ::fcntl(FMaster.Get(), F_SETFL, flags | O_NONBLOCK) != 0) return fail("cannot make it non-blocking");
  if (!FLinkPath.empty()) {
    // Replace the link in one step, so that a port never finds the name missing while the terminal is open.
    const std::string temporary = FLinkPath + ".new";
    ::unlink(temporary.c_str());
    if (::symlink(FSlavePath.c_str(), temporary.c_str()) != 0) return fail("cannot link " + temporary);
    if (::rename(temporary.c_str(), FLinkPath.c_str()) != 0) return fail("cannot link " + FLinkPath);
  }
  FLastError.clear();
  return true;
}

void TPseudoTerminal::Close() {
  if (!FLinkPath.empty() && FMaster.Valid()) ::unlink(FLinkPath.c_str());
  FMaster.Reset();
  FSlave.Reset();
  FSlavePath.clear();
}

bool TPseudoTerminal::Reopen() {
  Close();
  return Open();
}

std::string TPseudoTerminal::Read(size_t maxBytes, int timeoutMs) {
  if (!FMaster.Valid() || maxBytes == 0) return {};
  if (WaitForEvents(FMaster.Get(), POLLIN, timeoutMs, -1) != TWaitResult::Ready) return {};
  std::string received(maxBytes, '\0');
  for (;;) {
    const ssize_t n = ::read(FMaster.Get(), received.data(), maxBytes);
    if (n < 0 && errno == EINTR) continue;
    received.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return received;
  }
}

std::string TPseudoTerminal::ReadExactly(size_t count, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  std::string received;
  while (received.size() < count) {
    const int left = RemainingMs(deadline);
    if (left == 0) break;
    received += Read(count - received.size(), left);
  }
  return received;
}

bool TPseudoTerminal::Write(std::string_view data) {
  if (!FMaster.Valid()) return false;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWriteTimeoutMs);
  while (!data.empty()) {
    const ssize_t n = ::write(FMaster.Get(), data.data(), data.size());
    if (n > 0) {
      data.remove_prefix(static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      FLastError = "write failed: " + ErrnoText(errno);
      return false;
    }
    const int left = RemainingMs(deadline);
    if (left == 0 || WaitForEvents(FMaster.Get(), POLLOUT, left, -1) != TWaitResult::Ready) {
      FLastError = "the slave side took no data for " + std::to_string(kWriteTimeoutMs) + " ms";
      return false;
    }
  }
  return true;
}

}  // namespace refhost
