// The reference host's transports with a watch on each link the laser opens: every client the factory makes
// reports its name, its failures and its traffic to one TLinkWatch, and otherwise behaves exactly as the client it
// wraps. Ping clients pass through unwatched: they probe reachability, they carry no laser traffic.
#pragma once

#include <memory>

#include "LinkWatch.h"
#include "refhost/TransportFactory.h"

namespace laserctl {

class TWatchedTransports final : public refhost::ITransportFactory {
 public:
  TWatchedTransports(std::shared_ptr<refhost::ITransportFactory> inner, std::shared_ptr<TLinkWatch> watch)
      : FInner(std::move(inner)), FWatch(std::move(watch)) {}

  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override;
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override;
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override;
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override { return FInner->CreateIcmpClient(); }

 private:
  const std::shared_ptr<refhost::ITransportFactory> FInner;
  const std::shared_ptr<TLinkWatch> FWatch;
};

}  // namespace laserctl
