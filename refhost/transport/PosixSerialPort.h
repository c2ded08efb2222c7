// A serial port over the POSIX terminal interface (termios), in raw mode and non-blocking. Works with real
// UARTs, USB adapters and pseudo-terminals alike.
//
// The port number is turned into a device path through the shared TSerialPortMap when the port opens. A device
// that fails (a read or write error, or a hang-up such as a USB adapter pulled or a pseudo-terminal's master
// closed) makes the port inactive; the next SetActive(true) opens it again, so a link recovers by itself once
// the device is back. Failures are logged once per kind, not at every retry.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "host/Transports.h"
#include "refhost/transport/SerialPortMap.h"
#include "refhost/transport/SerialSettings.h"
#include "refhost/transport/TransportLog.h"
#include "refhost/transport/UniqueFd.h"

namespace refhost {

class TPosixSerialPort final : public nchost::TCommCtrl {
 public:
  explicit TPosixSerialPort(std::shared_ptr<const TSerialPortMap> portMap, TTransportLog log = {});
  ~TPosixSerialPort() override;

  // Selects the port by number; an open port on another number is closed (the next SetActive(true) opens the new
  // one).
  void SetPort(int32_t port) override;
  // Takes settings such as "57600,n,8,1" (see ParseSerialSettings). An open port applies valid settings at once.
  // A malformed text is logged and kept as the reason in LastError(): a closed port then refuses to open until
  // valid settings come, and an open port keeps running with the settings it has.
  void SetSettings(const std::string& settings) override;
  bool SetActive(bool active) override;
  // Whether the port is open; a device that has hung up is noticed here and closes the port.
  bool GetActive() override;
  std::string Read(size_t maxBytes) override;
  // Waits for the device only as long as sending the data at the configured baud rate needs (plus a margin); a
  // device that takes no data within that time gets the part that went out (a count below data.size()).
  int Write(const std::string& data) override;

  // Why the port last failed to open, lost its device or refused settings; empty when nothing failed since.
  std::string LastError() const;
  // The device path the port number maps to now (empty when it maps to none).
  std::string DevicePath() const;
  // The settings the port uses (the last valid ones).
  TSerialSettings Settings() const;

 private:
  bool OpenLocked();
  void CloseLocked();
  // Closes the port after its device failed, and logs why.
  void FailLocked(const std::string& why);
  // Closes the port when its device has hung up or reports an error; returns whether it is still open.
  bool CheckDeviceLocked();
  bool ApplySettingsLocked(int fd, const TSerialSettings& settings, std::string& error);
  std::string NameLocked() const;

  const std::shared_ptr<const TSerialPortMap> FPortMap;
  TLogOnChange FLog;
  mutable std::mutex FMutex;
  int32_t FPort = 0;
  TSerialSettings FSettings;
  bool FSettingsValid = true;
  std::string FDevicePath;  // the path opened, while the port is open
  TUniqueFd FFd;
  std::string FLastError;
};

}  // namespace refhost
