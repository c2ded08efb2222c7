// The reference host's communication clients for programs: real serial ports, sockets and pings.
#pragma once

#include <memory>

#include "refhost/TransportFactory.h"
#include "refhost/transport/PosixIcmpClient.h"
#include "refhost/transport/SerialPortMap.h"
#include "refhost/transport/TransportLog.h"

namespace refhost {

class TPosixTransports final : public ITransportFactory {
 public:
  // `log` receives the clients' log lines (from several threads); `serialPorts` maps port numbers to devices and
  // is shared by every serial port created here (a new map with the default numbering when null). `probe`
  // chooses how ping clients probe.
  explicit TPosixTransports(TTransportLog log = {}, std::shared_ptr<TSerialPortMap> serialPorts = nullptr,
                            TReachabilityProbe probe = TReachabilityProbe::Automatic);

  // The shared map, for laserctl's --serial N=PATH; changes apply when a port next opens.
  TSerialPortMap& SerialPorts() { return *FSerialPorts; }

  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override;
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override;
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override;
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override;

 private:
  const TTransportLog FLog;
  const std::shared_ptr<TSerialPortMap> FSerialPorts;
  const TReachabilityProbe FProbe;
};

}  // namespace refhost
