// The POSIX TCP client over loopback: exchange, connect time-out, and a peer that closes or resets.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <string>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixTcpClient.h"

namespace refhost {
namespace {

using transporttest::ClosedPort;
using transporttest::ElapsedMs;
using transporttest::TLogRecorder;
using transporttest::TSilentListener;
using transporttest::TTcpListener;

const std::string kIp = "127.0.0.21";

std::string ReceiveAll(TPosixTcpClient& client, size_t count) {
  std::string received;
  while (received.size() < count && client.WaitForData(2000)) {
    const std::string part = client.Receive(count - received.size());
    if (part.empty()) break;
    received += part;
  }
  return received;
}

std::string ReadFromPeer(int fd, size_t count) {
  std::string received;
  char buffer[256];
  while (received.size() < count && transporttest::Readable(fd, 2000)) {
    const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
    if (n <= 0) break;
    received.append(buffer, static_cast<size_t>(n));
  }
  return received;
}

class TransportTcpTest : public ::testing::Test {
 protected:
  // Connects the client to the listener and returns the server side of the connection.
  TUniqueFd ConnectToListener() {
    FClient.SetRemoteHost(kIp);
    FClient.SetRemotePort(FListener.PortText());
    if (!FClient.Connect(2000)) return {};
    return FListener.Accept();
  }

  TLogRecorder FLog;
  TTcpListener FListener{kIp};
  TPosixTcpClient FClient{FLog.Callback()};
};

TEST_F(TransportTcpTest, ExchangesDataBothWays) {
  EXPECT_FALSE(FClient.Connected());
  const TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid()) << FClient.LastError();
  EXPECT_TRUE(FClient.Connected());

  EXPECT_EQ(FClient.Send("STA\r"), 4);
  EXPECT_EQ(ReadFromPeer(peer.Get(), 4), "STA\r");

  EXPECT_FALSE(FClient.WaitForData(50));  // nothing sent yet
  EXPECT_EQ(FClient.Receive(64), "");
  ASSERT_EQ(::send(peer.Get(), "STA: 12\r", 8, 0), 8);
  EXPECT_EQ(ReceiveAll(FClient, 8), "STA: 12\r");
  EXPECT_TRUE(FClient.Connected());
  EXPECT_EQ(FLog.CountContaining("connected"), 1u);
}

TEST_F(TransportTcpTest, ReceiveHonoursTheByteLimit) {
  const TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  ASSERT_EQ(::send(peer.Get(), "0123456789", 10, 0), 10);
  ASSERT_TRUE(FClient.WaitForData(2000));
  EXPECT_EQ(FClient.Receive(4), "0123");
  EXPECT_EQ(ReceiveAll(FClient, 6), "456789");
}

TEST_F(TransportTcpTest, APeerThatClosesIsSeenAsDisconnectedAfterItsLastData) {
  TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  ASSERT_EQ(::send(peer.Get(), "bye\r", 4, 0), 4);
  peer.Reset();

  ASSERT_TRUE(FClient.WaitForData(2000));
  // What the peer sent before closing is still delivered.
  EXPECT_TRUE(FClient.Connected());
  EXPECT_EQ(FClient.Receive(64), "bye\r");
  EXPECT_TRUE(FClient.WaitForData(0));  // the close itself is readable
  EXPECT_EQ(FClient.Receive(64), "");
  EXPECT_FALSE(FClient.Connected());
  EXPECT_EQ(FClient.Send("STA\r"), -1);
  EXPECT_NE(FClient.LastError().find("closed by the peer"), std::string::npos) << FClient.LastError();
}

TEST_F(TransportTcpTest, APeerThatClosesIsNoticedByConnectedAlone) {
  TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  peer.Reset();
  EXPECT_TRUE(transporttest::Eventually([&] { return !FClient.Connected(); }));
}

TEST_F(TransportTcpTest, APeerThatResetsIsSeenAsDisconnected) {
  TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  const linger abort{1, 0};  // closing with a zero linger time sends a reset
  ASSERT_EQ(::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort), 0);
  peer.Reset();

  EXPECT_TRUE(transporttest::Eventually([&] { return !FClient.Connected(); }));
  EXPECT_EQ(FClient.Send("STA\r"), -1);
  EXPECT_EQ(FClient.Receive(64), "");
  EXPECT_FALSE(FClient.WaitForData(0));
}

TEST_F(TransportTcpTest, SendingIntoAResetConnectionFailsAndDisconnects) {
  TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  const linger abort{1, 0};
  ASSERT_EQ(::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort), 0);
  peer.Reset();
  // Without asking Connected() first: the reset surfaces in the send itself (no SIGPIPE kills the process).
  EXPECT_TRUE(transporttest::Eventually([&] { return FClient.Send("STA\r") == -1; }));
  EXPECT_FALSE(FClient.Connected());
}

TEST_F(TransportTcpTest, ReconnectsAfterALostConnection) {
  TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  peer.Reset();
  ASSERT_TRUE(transporttest::Eventually([&] { return !FClient.Connected(); }));

  const TUniqueFd again = ConnectToListener();
  ASSERT_TRUE(again.Valid());
  EXPECT_EQ(FClient.Send("STA\r"), 4);
  EXPECT_EQ(ReadFromPeer(again.Get(), 4), "STA\r");
}

TEST_F(TransportTcpTest, ConnectToASilentHostGivesUpAfterItsTimeOut) {
  TSilentListener silent(kIp);
  FClient.SetRemoteHost(kIp);
  FClient.SetRemotePort(silent.PortText());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(FClient.Connect(300));
  EXPECT_GE(ElapsedMs(start), 290);
  EXPECT_FALSE(FClient.Connected());
  EXPECT_NE(FClient.LastError().find("within 300 ms"), std::string::npos) << FClient.LastError();

  // The driver retries every period; the same failure is logged once.
  EXPECT_FALSE(FClient.Connect(50));
  EXPECT_FALSE(FClient.Connect(50));
  EXPECT_EQ(FLog.CountContaining("within 50 ms"), 1u);
}

TEST_F(TransportTcpTest, ConnectFailsOnARefusedPortAndABadAddress) {
  FClient.SetRemoteHost(kIp);
  FClient.SetRemotePort(std::to_string(ClosedPort(kIp)));
  EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_NE(FClient.LastError().find("refused"), std::string::npos) << FClient.LastError();

  FClient.SetRemotePort("not-a-service-name");
  EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_NE(FClient.LastError().find("cannot resolve"), std::string::npos) << FClient.LastError();

  FClient.SetRemoteHost("");
  EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_FALSE(FClient.Connected());
}

TEST_F(TransportTcpTest, DisconnectEndsTheConnection) {
  const TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  FClient.Disconnect();
  EXPECT_FALSE(FClient.Connected());
  EXPECT_EQ(FClient.Send("x"), -1);
  // The peer sees the close.
  char byte = 0;
  ASSERT_TRUE(transporttest::Readable(peer.Get(), 2000));
  EXPECT_EQ(::recv(peer.Get(), &byte, 1, 0), 0);
}

}  // namespace
}  // namespace refhost
