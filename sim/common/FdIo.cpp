#include "sim/common/FdIo.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace lasersim {

TReadResult ReadAvailable(int fd, std::string& out) {
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
      out.append(buffer, static_cast<size_t>(n));
      return TReadResult::Data;
    }
    if (n == 0) return TReadResult::Closed;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return TReadResult::WouldBlock;
    return TReadResult::Closed;
  }
}

bool WriteAll(int fd, std::string_view data, int wakeFd, bool isSocket) {
  while (!data.empty()) {
    const ssize_t n =
        isSocket ? ::send(fd, data.data(), data.size(), MSG_NOSIGNAL) : ::write(fd, data.data(), data.size());
    if (n > 0) {
      data.remove_prefix(static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return false;
    // The peer is not reading: wait for room, but let a stop cut the wait short.
    pollfd fds[2] = {{fd, POLLOUT, 0}, {wakeFd, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (fds[1].revents != 0) return false;
    if (fds[0].revents & (POLLERR | POLLHUP | POLLNVAL)) return false;
  }
  return true;
}

}  // namespace lasersim
