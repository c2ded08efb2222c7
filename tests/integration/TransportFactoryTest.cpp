// The POSIX transport factory: what it creates shares the serial port map and the log.
#include <gtest/gtest.h>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixTransports.h"

namespace refhost {
namespace {

using namespace transporttest;

const std::string kIp = "127.0.0.24";

TEST(TransportFactoryTest, CreatesClientsThatShareTheSerialMapAndTheLog) {
  TLogRecorder log;
  TPosixTransports transports(log.Callback(), nullptr, TReachabilityProbe::TcpConnect);
  ASSERT_TRUE(transports.SerialPorts().SetFromText("7=/nonexistent/ttyLaser"));
  auto port = transports.CreateCommCtrl();
  port->SetPort(7);
  EXPECT_FALSE(port->SetActive(true));
  EXPECT_EQ(log.CountContaining("/nonexistent/ttyLaser"), 1u);

  auto ping = transports.CreateIcmpClient();
  ping->SetHost(kIp);
  ping->SetProbePort(ClosedPort(kIp));
  EXPECT_TRUE(ping->Ping(1000));
  EXPECT_NE(transports.CreateTcpClient(), nullptr);
  EXPECT_NE(transports.CreateUdpClient(), nullptr);
}

}  // namespace
}  // namespace refhost
