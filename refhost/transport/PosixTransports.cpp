#include "refhost/transport/PosixTransports.h"

#include "refhost/transport/PosixSerialPort.h"
#include "refhost/transport/PosixTcpClient.h"
#include "refhost/transport/PosixUdpClient.h"

namespace refhost {

TPosixTransports::TPosixTransports(TTransportLog log, std::shared_ptr<TSerialPortMap> serialPorts,
                                   TReachabilityProbe probe)
    : FLog(std::move(log)),
      FSerialPorts(serialPorts ? std::move(serialPorts) : std::make_shared<TSerialPortMap>()),
      FProbe(probe) {}

std::unique_ptr<nchost::TCommCtrl> TPosixTransports::CreateCommCtrl() {
  return std::make_unique<TPosixSerialPort>(FSerialPorts, FLog);
}

std::unique_ptr<nchost::TVqTcpClient> TPosixTransports::CreateTcpClient() {
  return std::make_unique<TPosixTcpClient>(FLog);
}

std::unique_ptr<nchost::TUDPClient> TPosixTransports::CreateUdpClient() {
  return std::make_unique<TPosixUdpClient>(FLog);
}

std::unique_ptr<nchost::TIcmpClient> TPosixTransports::CreateIcmpClient() {
  return std::make_unique<TPosixIcmpClient>(FLog, FProbe);
}

}  // namespace refhost
