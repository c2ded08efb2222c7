// The text form of a Modbus TCP IO module's address, as laserctl's --io takes it:
//   modbus-tcp://HOST[:PORT][?unit=N&scan-ms=M&map=FILE]
// HOST is a name, an IPv4 address or an IPv6 address in brackets; PORT defaults to 502. The map file's unit is
// used unless the address names one; without either the unit is 1.
#pragma once

#include <string>

#include "refhost/modbus/ModbusCtrlExtIO.h"

namespace refhost {

inline constexpr const char* kModbusTcpScheme = "modbus-tcp://";

// False with `error` saying what is wrong ("modbus-tcp://host:70000: the port is a number from 1 to 65535"), or
// what is wrong in the map file (naming the file and the entry).
bool ParseModbusUri(const std::string& uri, TModbusIOOptions& options, std::string& error);

}  // namespace refhost
