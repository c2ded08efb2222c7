// A transport factory that sits between the host and its real clients and counts, for lifecycle tests, how many
// links are open at once (serial ports active, TCP connections up, UDP sockets open), the most that ever were, and
// every byte written to any link. Two lasers on one port show up as two open links; a destroyed laser that still
// talks shows up as bytes written after its end.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>

#include "refhost/TransportFactory.h"

namespace testsupport {

class TPortCensus final : public refhost::ITransportFactory {
 public:
  struct TCounts {
    size_t Open = 0;
    size_t MostOpen = 0;
    size_t BytesWritten = 0;
    size_t Clients = 0;  // client objects alive
  };

  explicit TPortCensus(std::shared_ptr<refhost::ITransportFactory> inner);

  TCounts Counts() const;
  // Starts a new watermark of links open at once.
  void ResetMostOpen();

  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override;
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override;
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override;
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override;

  // Shared with the clients, which may outlive the factory.
  struct TState {
    std::mutex Lock;
    TCounts Counts;
    void SetOpen(bool& open, bool now);
    void Written(int count);
  };

 private:
  std::shared_ptr<refhost::ITransportFactory> FInner;
  std::shared_ptr<TState> FState = std::make_shared<TState>();
};

}  // namespace testsupport
