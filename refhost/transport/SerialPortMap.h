// Which device a serial port number opens. The laser configuration names serial ports by number (1, 2, ...);
// the reference host turns a number into a device path here.
//
// Numbering rule: a number given explicitly (laserctl's --serial N=PATH) maps to that path. Any other number N
// maps to the N-th serial device of the machine, counting from 1, in this order: /dev/ttyS<n>, then
// /dev/ttyUSB<n>, then /dev/ttyACM<n>, each group ordered by its number n (ttyS2 before ttyS10). A ttyS device
// whose /sys/class/tty/<name>/type reads 0 has no UART behind it and is not counted. The devices are listed
// again at every lookup, so an adapter plugged in later is found.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace refhost {

class TSerialPortMap {
 public:
  // `deviceDir` and `sysTtyDir` are where devices and their kernel descriptions are looked up (tests use their
  // own folders).
  explicit TSerialPortMap(std::string deviceDir = "/dev", std::string sysTtyDir = "/sys/class/tty");

  // Maps port `number` (1 or more) to `path`, in place of the numbering rule. Returns false for a number < 1 or
  // an empty path.
  bool Set(int32_t number, std::string path);
  // Takes an assignment "N=PATH" as laserctl's --serial option gives it. On a malformed text returns false and
  // says why in `error`.
  bool SetFromText(std::string_view assignment, std::string* error = nullptr);

  // The device path of port `number`: the explicit mapping, else the numbering rule; empty when neither gives one.
  std::string PathFor(int32_t number) const;
  // The machine's serial devices in the order of the numbering rule.
  std::vector<std::string> ListSerialDevices() const;

 private:
  const std::string FDeviceDir;
  const std::string FSysTtyDir;
  mutable std::mutex FMutex;
  std::map<int32_t, std::string> FExplicit;
};

}  // namespace refhost
