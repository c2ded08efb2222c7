#include "refhost/transport/PosixSerialPort.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "refhost/transport/Sockets.h"

namespace refhost {

namespace {

// Time allowed beyond the line time of a write, for the driver's and the device's buffering.
constexpr int kWriteMarginMs = 500;

tcflag_t CharacterSizeFlag(int dataBits) {
  switch (dataBits) {
    case 5:
      return CS5;
    case 6:
      return CS6;
    case 7:
      return CS7;
    default:
      return CS8;
  }
}

// Milliseconds the line needs to send `bytes` characters: start bit, data bits, parity bit, stop bits.
int LineTimeMs(const TSerialSettings& settings, size_t bytes) {
  const int bitsPerCharacter = 1 + settings.DataBits + (settings.Parity == 'n' ? 0 : 1) + settings.StopBits;
  const double ms = static_cast<double>(bytes) * bitsPerCharacter * 1000.0 / settings.Baud;
  return static_cast<int>(ms) + 1;
}

}  // namespace

TPosixSerialPort::TPosixSerialPort(std::shared_ptr<const TSerialPortMap> portMap, TTransportLog log)
    : FPortMap(portMap ? std::move(portMap) : std::make_shared<const TSerialPortMap>()), FLog(std::move(log)) {}

TPosixSerialPort::~TPosixSerialPort() {
  std::lock_guard lock(FMutex);
  CloseLocked();
}

void TPosixSerialPort::SetPort(int32_t port) {
  std::lock_guard lock(FMutex);
  if (port == FPort) return;
  if (FFd.Valid()) CloseLocked();
  FPort = port;
  FLog.Reset();
}

void TPosixSerialPort::SetSettings(const std::string& settings) {
  std::lock_guard lock(FMutex);
  std::string error;
  const auto parsed = ParseSerialSettings(settings, &error);
  if (!parsed) {
    FSettingsValid = false;
    FLastError = error;
    FLog.Log(NameLocked() + ": " + error + (FFd.Valid() ? "; the port keeps its current settings" : ""));
    return;
  }
  FSettings = *parsed;
  FSettingsValid = true;
  if (FFd.Valid() && !ApplySettingsLocked(FFd.Get(), FSettings, error)) FailLocked(error);
}

bool TPosixSerialPort::SetActive(bool active) {
  std::lock_guard lock(FMutex);
  if (!active) {
    CloseLocked();
    return false;
  }
  if (FFd.Valid() && CheckDeviceLocked()) return true;
  return OpenLocked();
}

bool TPosixSerialPort::GetActive() {
  std::lock_guard lock(FMutex);
  return FFd.Valid() && CheckDeviceLocked();
}

std::string TPosixSerialPort::Read(size_t maxBytes) {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid() || maxBytes == 0 || !CheckDeviceLocked()) return {};
  std::string received(maxBytes, '\0');
  size_t count = 0;
  while (count < maxBytes) {
    const ssize_t n = ::read(FFd.Get(), received.data() + count, maxBytes - count);
    if (n > 0) {
      count += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    // With VMIN = VTIME = 0 an empty terminal reads 0 (or EAGAIN); a hang-up was ruled out by the check above.
    if (n == 0 || errno == EAGAIN || errno == EWOULDBLOCK) break;
    const int readError = errno;
    received.resize(count);
    FailLocked("read failed: " + ErrnoText(readError));
    return received;
  }
  received.resize(count);
  return received;
}

int TPosixSerialPort::Write(const std::string& data) {
  std::lock_guard lock(FMutex);
  if (!FFd.Valid() || !CheckDeviceLocked()) return -1;
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(LineTimeMs(FSettings, data.size()) + kWriteMarginMs);
  size_t written = 0;
  while (written < data.size()) {
    const ssize_t n = ::write(FFd.Get(), data.data() + written, data.size() - written);
    if (n >= 0) {
      written += static_cast<size_t>(n);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      FailLocked("write failed: " + ErrnoText(errno));
      return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    short revents = 0;
    if (left <= 0 || WaitForEvents(FFd.Get(), POLLOUT, static_cast<int>(left), -1, &revents) != TWaitResult::Ready) {
      FLog.Log(NameLocked() + ": the device took " + std::to_string(written) + " of " + std::to_string(data.size()) +
               " bytes in time; the rest is dropped");
      break;
    }
    if ((revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
      FailLocked("the device hung up");
      return -1;
    }
  }
  return static_cast<int>(written);
}

std::string TPosixSerialPort::LastError() const {
  std::lock_guard lock(FMutex);
  return FLastError;
}

std::string TPosixSerialPort::DevicePath() const {
  std::lock_guard lock(FMutex);
  return FFd.Valid() ? FDevicePath : FPortMap->PathFor(FPort);
}

TSerialSettings TPosixSerialPort::Settings() const {
  std::lock_guard lock(FMutex);
  return FSettings;
}

bool TPosixSerialPort::OpenLocked() {
  CloseLocked();
  // The malformed settings were logged when they came.
  if (!FSettingsValid) return false;
  const std::string path = FPortMap->PathFor(FPort);
  if (path.empty()) {
    FLastError = "serial port " + std::to_string(FPort) + " maps to no device";
    FLog.Log(NameLocked() + ": not opened: no device has this number (map it with --serial N=PATH)");
    return false;
  }
  TUniqueFd fd(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  std::string error;
  if (!fd.Valid()) {
    error = "cannot open " + path + ": " + ErrnoText(errno);
  } else if (!::isatty(fd.Get())) {
    error = path + " is not a terminal device";
  } else {
    // Keep other programs off the line while the laser uses it (root is not kept off; failure is harmless).
    ::ioctl(fd.Get(), TIOCEXCL);
    if (ApplySettingsLocked(fd.Get(), FSettings, error)) {
      // Bytes that arrived before the port opened answer nothing the laser driver asked.
      ::tcflush(fd.Get(), TCIFLUSH);
    }
  }
  if (!error.empty()) {
    FLastError = error;
    FLog.Log("Serial port " + std::to_string(FPort) + ": " + error);
    return false;
  }
  FFd = std::move(fd);
  FDevicePath = path;
  FLastError.clear();
  FLog.LogAlways(NameLocked() + ": opened with " + FSettings.ToString());
  return true;
}

void TPosixSerialPort::CloseLocked() {
  FFd.Reset();
  FDevicePath.clear();
}

void TPosixSerialPort::FailLocked(const std::string& why) {
  FLastError = why;
  FLog.LogAlways(NameLocked() + ": " + why + "; the port is closed until it is activated again");
  CloseLocked();
}

bool TPosixSerialPort::CheckDeviceLocked() {
  pollfd state{FFd.Get(), POLLIN, 0};
  while (::poll(&state, 1, 0) < 0 && errno == EINTR) {
  }
  if ((state.revents & POLLNVAL) != 0) {
    FailLocked("the device is no longer valid");
  } else if ((state.revents & POLLHUP) != 0) {
    FailLocked("the device hung up (unplugged or closed)");
  } else if ((state.revents & POLLERR) != 0) {
    FailLocked("the device reports an error");
  }
  return FFd.Valid();
}

bool TPosixSerialPort::ApplySettingsLocked(int fd, const TSerialSettings& settings, std::string& error) {
  termios attributes{};
  if (::tcgetattr(fd, &attributes) != 0) {
    error = "cannot read the line settings: " + ErrnoText(errno);
    return false;
  }
  ::cfmakeraw(&attributes);
  attributes.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | INPCK);
  attributes.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS);
  attributes.c_cflag |= CLOCAL | CREAD | CharacterSizeFlag(settings.DataBits);
  switch (settings.Parity) {
    case 'e':
      attributes.c_cflag |= PARENB;
      break;
    case 'o':
      attributes.c_cflag |= PARENB | PARODD;
      break;
    case 'm':
      attributes.c_cflag |= PARENB | CMSPAR | PARODD;
      break;
    case 's':
      attributes.c_cflag |= PARENB | CMSPAR;
      break;
    default:
      break;
  }
  if (settings.StopBits == 2) attributes.c_cflag |= CSTOPB;
  // Reads return at once with what is waiting.
  attributes.c_cc[VMIN] = 0;
  attributes.c_cc[VTIME] = 0;
  const speed_t speed = BaudToSpeed(settings.Baud);
  if (::cfsetispeed(&attributes, speed) != 0 || ::cfsetospeed(&attributes, speed) != 0 ||
      ::tcsetattr(fd, TCSANOW, &attributes) != 0) {
    error = "cannot apply " + settings.ToString() + ": " + ErrnoText(errno);
    return false;
  }
  return true;
}

std::string TPosixSerialPort::NameLocked() const {
  std::string name = "Serial port " + std::to_string(FPort);
  if (!FDevicePath.empty()) name += " (" + FDevicePath + ")";
  return name;
}

}  // namespace refhost
