// The communication ports a laser opens. Every client handed out here wraps the host's client and forwards each
// call until CloseAll(), which closes the host's client (the connection dropped, the serial port or socket closed,
// the ping client's thread joined) and leaves the wrapper inert for good: writes are dropped, opens and connects
// fail, reads return nothing. A laser shuts its ports this way after stopping its threads, so that whatever still
// holds a driver of a destroyed laser can no longer put a byte on a link. Nothing here throws from CloseAll.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "host/Transports.h"

namespace devlaser {

class TLaserPorts {
 public:
  TLaserPorts() = default;
  // Closes what is still open.
  ~TLaserPorts();
  TLaserPorts(const TLaserPorts&) = delete;
  TLaserPorts& operator=(const TLaserPorts&) = delete;

  // The host's clients, guarded; null when there is no host, the host offers none, or the ports are closed.
  std::unique_ptr<nchost::TCommCtrl> CommCtrl();
  std::unique_ptr<nchost::TVqTcpClient> TcpClient();
  std::unique_ptr<nchost::TUDPClient> UdpClient();
  std::unique_ptr<nchost::TIcmpClient> IcmpClient();

  // Closes every client handed out, in the reverse order of opening, once; later calls do nothing.
  void CloseAll() noexcept;
  bool Closed() const;

  // What a guard shares with the ports that closed it; public for the guards only.
  class TGuardState {
   public:
    virtual ~TGuardState() = default;
    virtual void Close() noexcept = 0;
  };

 private:
  template <class TClient>
  std::unique_ptr<TClient> Guard(std::unique_ptr<TClient> client);

  mutable std::mutex FLock;
  bool FClosed = false;
  std::vector<std::weak_ptr<TGuardState>> FOpened;
};

}  // namespace devlaser
