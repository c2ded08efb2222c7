// The IO extension that laserctl gives the laser: the simulated one ("sim", the default) or a Modbus TCP IO module
// ("modbus-tcp://HOST[:PORT][?unit=N&scan-ms=M&map=FILE]"), which drives a real hard-wired laser.
#pragma once

#include <memory>
#include <string>

#include "host/CtrlExtIO.h"
#include "refhost/MessageSink.h"
#include "refhost/modbus/ModbusCtrlExtIO.h"

namespace laserctl {

inline constexpr const char* kSimIo = "sim";

// Checks the form of --io before anything starts; false with `error` for anything but sim or a modbus-tcp URI.
bool CheckIoUri(const std::string& uri, std::string& error);

// Reads the map file, connects to the module (within its response time-out), switches its mapped outputs off and
// starts its scan. Every write of the host is printed to `print` as the simulated extension prints them. Null
// with `error` when the address or map is wrong or the module does not answer.
std::shared_ptr<refhost::TModbusCtrlExtIO> OpenModbusIo(const std::string& uri,
                                                        std::shared_ptr<refhost::TMessageSink> sink,
                                                        std::shared_ptr<refhost::TMessageSink> print,
                                                        std::string& error);

}  // namespace laserctl
