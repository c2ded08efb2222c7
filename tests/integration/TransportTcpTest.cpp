// The POSIX TCP client over loopback: exchange, connect time-out, and a peer that closes or resets.
#include <gtest/gtest.h>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixTcpClient.h"

namespace refhost {
namespace {

using namespace transporttest;

const std::string kIp = "127.0.0.21";

// What the peer receives next (a short message comes in one piece over loopback); empty when the client closed.
std::string ReadFromPeer(int fd) {
  char buffer[256];
  if (!Readable(fd, 2000)) return "(nothing came)";
  const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
  return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
}

// Closing with a zero linger time sends a reset instead of an orderly close.
void ResetConnection(TUniqueFd& peer) {
  const linger abort{1, 0};
  ASSERT_EQ(::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort), 0);
  peer.Reset();
}

class TransportTcpTest : public ::testing::Test {
 protected:
  // Connects the client to the listener and returns the server side of the connection.
  TUniqueFd ConnectToListener() {
    FClient.SetRemoteHost(kIp);
    FClient.SetRemotePort(std::to_string(FListener.Port()));
    if (!FClient.Connect(2000)) return {};
    return FListener.Accept();
  }

  TLogRecorder FLog;
  TTcpListener FListener{kIp};
  TPosixTcpClient FClient{FLog.Callback()};
};

TEST_F(TransportTcpTest, ExchangesDataBothWaysWithinTheByteLimitUntilDisconnected) {
  EXPECT_FALSE(FClient.Connected());
  const TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid()) << FClient.LastError();
  EXPECT_EQ(FLog.CountContaining("connected"), 1u);
  EXPECT_EQ(FClient.Send("STA\r"), 4);
  EXPECT_EQ(ReadFromPeer(peer.Get()), "STA\r");

  EXPECT_FALSE(FClient.WaitForData(50));  // nothing sent yet
  EXPECT_EQ(FClient.Receive(64), "");
  ASSERT_EQ(::send(peer.Get(), "STA: 12\r", 8, 0), 8);
  ASSERT_TRUE(FClient.WaitForData(2000));
  EXPECT_EQ(FClient.Receive(4), "STA:");
  EXPECT_EQ(FClient.Receive(64), " 12\r");
  EXPECT_TRUE(FClient.Connected());

  FClient.Disconnect();
  EXPECT_FALSE(FClient.Connected());
  EXPECT_EQ(FClient.Send("x"), -1);
  EXPECT_EQ(ReadFromPeer(peer.Get()), "");  // the peer sees the close
}

TEST_F(TransportTcpTest, APeerThatClosesIsSeenAsDisconnectedAfterItsLastDataAndTheClientReconnects) {
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

  // A close without data is noticed by Connected() alone; connecting again gives a working link.
  peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  peer.Reset();
  EXPECT_TRUE(Eventually([&] { return !FClient.Connected(); }));
  const TUniqueFd again = ConnectToListener();
  ASSERT_TRUE(again.Valid());
  EXPECT_EQ(FClient.Send("STA\r"), 4);
  EXPECT_EQ(ReadFromPeer(again.Get()), "STA\r");
}

TEST_F(TransportTcpTest, APeerThatResetsIsSeenAsDisconnected) {
  // Without asking Connected() first: the reset surfaces in the send itself (no SIGPIPE kills the process).
  TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  ResetConnection(peer);
  EXPECT_TRUE(Eventually([&] { return FClient.Send("STA\r") == -1; }));
  EXPECT_FALSE(FClient.Connected());

  peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  ResetConnection(peer);
  EXPECT_TRUE(Eventually([&] { return !FClient.Connected(); }));
  EXPECT_EQ(FClient.Send("STA\r"), -1);
  EXPECT_EQ(FClient.Receive(64), "");
  EXPECT_FALSE(FClient.WaitForData(0));
}

TEST_F(TransportTcpTest, ConnectToASilentHostGivesUpAfterItsTimeOut) {
  TSilentListener silent(kIp);
  FClient.SetRemoteHost(kIp);
  FClient.SetRemotePort(std::to_string(silent.Port()));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(FClient.Connect(300));
  // Left alone, the kernel would retry the connection for minutes; the upper bound only has to tell that apart.
  EXPECT_GE(ElapsedMs(start), 290);
  EXPECT_LT(ElapsedMs(start), 20000);
  EXPECT_FALSE(FClient.Connected());
  EXPECT_NE(FClient.LastError().find("no answer from"), std::string::npos) << FClient.LastError();
}

TEST_F(TransportTcpTest, ConnectFailsOnARefusedPortAndABadAddress) {
  FClient.SetRemoteHost(kIp);
  FClient.SetRemotePort(std::to_string(ClosedPort(kIp)));
  // The driver retries every period while the laser is off; the same failure is logged once.
  for (int attempt = 0; attempt < 3; ++attempt) EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_NE(FClient.LastError().find("refused"), std::string::npos) << FClient.LastError();
  EXPECT_EQ(FLog.CountContaining("refused"), 1u);

  FClient.SetRemotePort("not-a-service-name");
  EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_NE(FClient.LastError().find("cannot resolve"), std::string::npos) << FClient.LastError();
  FClient.SetRemoteHost("");
  EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_FALSE(FClient.Connected());
}

}  // namespace
}  // namespace refhost
