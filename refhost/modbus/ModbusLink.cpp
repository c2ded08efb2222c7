#include "refhost/modbus/ModbusLink.h"

#include <modbus/modbus.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>

#include "refhost/modbus/ModbusCtrlExtIO.h"

namespace refhost {
namespace {

// An exception reply: the module understood the request and said no. A gateway that cannot reach the module
// behind it says so with an exception too, but that is a lost link, not a refusal.
bool IsRefusal(int error) { return error >= EMBXILFUN && error <= EMBXGTAR && error != EMBXGPATH && error != EMBXGTAR; }

void SetTimeout(modbus_t* context, std::chrono::milliseconds timeout, int (*set)(modbus_t*, uint32_t, uint32_t)) {
  const auto ms = std::max<int64_t>(timeout.count(), 1);
  set(context, static_cast<uint32_t>(ms / 1000), static_cast<uint32_t>((ms % 1000) * 1000));
}

}  // namespace

TModbusLink::TModbusLink(const TModbusIOOptions& options) {
  FContext = modbus_new_tcp_pi(options.Host.c_str(), std::to_string(options.Port).c_str());
  if (FContext == nullptr) throw std::runtime_error("cannot make a Modbus TCP context for " + options.Address());
  modbus_set_slave(FContext, options.Unit);
  // The same limit for the connection, the first byte of a reply and the gap between its bytes.
  SetTimeout(FContext, options.ResponseTimeout, modbus_set_response_timeout);
  SetTimeout(FContext, options.ResponseTimeout, modbus_set_byte_timeout);
}

TModbusLink::~TModbusLink() {
  Close();
  modbus_free(FContext);
}

bool TModbusLink::Connect(std::string& error) {
  Close();
  if (modbus_connect(FContext) != 0) {
    error = modbus_strerror(errno);
    modbus_close(FContext);
    return false;
  }
  FOpen = true;
  return true;
}

void TModbusLink::Close() {
  if (!FOpen) return;
  modbus_close(FContext);
  FOpen = false;
}

TLinkResult TModbusLink::Failed(int rc, std::string& error) {
  if (rc >= 0) {
    error = "short reply";
    Close();
    return TLinkResult::Lost;
  }
  const int code = errno;
  error = modbus_strerror(code);
  if (IsRefusal(code)) return TLinkResult::Refused;
  // A reply that timed out may still arrive and would be taken for the next one: start on a fresh connection.
  Close();
  return TLinkResult::Lost;
}

TLinkResult TModbusLink::Write(const TModbusPoint& point, uint16_t raw, std::string& error) {
  if (!FOpen) {
    error = "not connected";
    return TLinkResult::Lost;
  }
  const int rc = point.Table == TModbusTable::Coil ? modbus_write_bit(FContext, point.Address, raw != 0 ? 1 : 0)
                                                   : modbus_write_register(FContext, point.Address, raw);
  return rc == 1 ? TLinkResult::Ok : Failed(rc, error);
}

TLinkResult TModbusLink::Read(const TModbusReadBlock& block, std::vector<uint16_t>& values, std::string& error) {
  if (!FOpen) {
    error = "not connected";
    return TLinkResult::Lost;
  }
  values.assign(block.Count, 0);
  int rc = -1;
  if (IsBitTable(block.Table)) {
    std::vector<uint8_t> bits(block.Count);
    rc = block.Table == TModbusTable::Coil ? modbus_read_bits(FContext, block.Start, block.Count, bits.data())
                                           : modbus_read_input_bits(FContext, block.Start, block.Count, bits.data());
    for (size_t i = 0; rc == block.Count && i < bits.size(); ++i) values[i] = bits[i] != 0 ? 1 : 0;
  } else {
    rc = block.Table == TModbusTable::HoldingRegister
             ? modbus_read_registers(FContext, block.Start, block.Count, values.data())
             : modbus_read_input_registers(FContext, block.Start, block.Count, values.data());
  }
  return rc == block.Count ? TLinkResult::Ok : Failed(rc, error);
}

}  // namespace refhost
