// The POSIX UDP client over loopback.
#include <gtest/gtest.h>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixUdpClient.h"

namespace refhost {
namespace {

using namespace transporttest;

const std::string kIp = "127.0.0.22";

class TransportUdpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(FLaser.Valid());
    FClient.SetRemoteHost(kIp);
    FClient.SetRemotePort(LocalPort(FLaser.Get()));
  }

  // Receives one datagram at the laser's socket and answers it with `reply` to the sender.
  std::string AnswerOne(const std::string& reply) {
    if (!Readable(FLaser.Get(), 2000)) return "(nothing came)";
    char buffer[2048];
    sockaddr_storage from{};
    socklen_t length = sizeof from;
    const ssize_t n = ::recvfrom(FLaser.Get(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
    ::sendto(FLaser.Get(), reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from), length);
    return n >= 0 ? std::string(buffer, static_cast<size_t>(n)) : "(receive failed)";
  }

  TUniqueFd FLaser = BoundSocket(SOCK_DGRAM, kIp);
  TPosixUdpClient FClient;
};

TEST_F(TransportUdpTest, RoundTripKeepsBinaryBytesAndDatagramBoundaries) {
  ASSERT_TRUE(FClient.Open()) << FClient.LastError();
  const std::string request("\xAA\x55\x01\x00\x55\xAA", 6);
  EXPECT_EQ(FClient.Send(request), 6);
  EXPECT_EQ(AnswerOne("one"), request);
  EXPECT_EQ(FClient.Send("b"), 1);
  EXPECT_EQ(AnswerOne("two"), "b");
  // Each Receive gives one datagram.
  EXPECT_EQ(FClient.Receive(2000), "one");
  EXPECT_EQ(FClient.Receive(2000), "two");
}

TEST_F(TransportUdpTest, AMissingListenerDoesNotEndTheSocket) {
  FClient.SetRemotePort(ClosedPort(kIp, SOCK_DGRAM));
  ASSERT_TRUE(FClient.Open());
  // The first datagram finds no listener; the port-unreachable answer must not break later sends or waits.
  EXPECT_EQ(FClient.Send("ping"), 4);
  EXPECT_EQ(FClient.Receive(100), "");
  EXPECT_EQ(FClient.Send("ping"), 4);
  EXPECT_TRUE(FClient.Active());
}

}  // namespace
}  // namespace refhost
