// One Modbus TCP connection to an IO module (a libmodbus context), used by one thread at a time. It tells a
// request the module refused (an exception reply: the link is fine) from a link that failed (time-out, reset,
// garbage: the connection is closed and must be made again).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "refhost/modbus/ModbusMap.h"

struct _modbus;

namespace refhost {

struct TModbusIOOptions;

enum class TLinkResult { Ok, Refused, Lost };

class TModbusLink {
 public:
  explicit TModbusLink(const TModbusIOOptions& options);
  ~TModbusLink();
  TModbusLink(const TModbusLink&) = delete;
  TModbusLink& operator=(const TModbusLink&) = delete;

  // False with the system's reason in `error` ("Connection refused", "Connection timed out").
  bool Connect(std::string& error);
  void Close();
  bool IsOpen() const { return FOpen; }

  // Writes one coil (0 or 1) or one holding register. A failed link is closed before Lost is returned.
  TLinkResult Write(const TModbusPoint& point, uint16_t raw, std::string& error);
  // Reads the block; `values` gets one entry per address from block.Start (a bit as 0 or 1).
  TLinkResult Read(const TModbusReadBlock& block, std::vector<uint16_t>& values, std::string& error);

 private:
  // After a request returned `rc` other than its count: Refused for an exception reply, else closes and Lost.
  TLinkResult Failed(int rc, std::string& error);

  _modbus* FContext = nullptr;
  bool FOpen = false;
};

}  // namespace refhost
