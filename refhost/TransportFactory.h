// Where the reference host's application object gets its communication clients: the POSIX implementation for
// programs, in-memory fakes for tests.
#pragma once

#include <memory>

#include "host/Transports.h"

namespace refhost {

class ITransportFactory {
 public:
  virtual ~ITransportFactory() = default;
  virtual std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() = 0;
  virtual std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() = 0;
  virtual std::unique_ptr<nchost::TUDPClient> CreateUdpClient() = 0;
  virtual std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() = 0;
};

}  // namespace refhost
