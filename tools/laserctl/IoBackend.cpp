#include "IoBackend.h"

#include "refhost/modbus/ModbusUri.h"

namespace laserctl {

bool CheckIoUri(const std::string& uri, std::string& error) {
  if (uri == kSimIo || uri.rfind(refhost::kModbusTcpScheme, 0) == 0) return true;
  error = "--io is sim or modbus-tcp://HOST[:PORT][?unit=N&scan-ms=M&map=FILE], not \"" + uri + "\"";
  return false;
}

std::shared_ptr<refhost::TModbusCtrlExtIO> OpenModbusIo(const std::string& uri,
                                                        std::shared_ptr<refhost::TMessageSink> sink,
                                                        std::shared_ptr<refhost::TMessageSink> print,
                                                        std::string& error) {
  refhost::TModbusIOOptions options;
  if (!refhost::ParseModbusUri(uri, options, error)) return nullptr;
  auto io = std::make_shared<refhost::TModbusCtrlExtIO>(std::move(options), std::move(sink));
  if (!io->Connect(error)) return nullptr;
  io->SetPrintSink(std::move(print), "IO");
  io->Start();
  return io;
}

}  // namespace laserctl
