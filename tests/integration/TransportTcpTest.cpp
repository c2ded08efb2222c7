// The POSIX TCP client over loopback: exchange, connect time-out, and a peer that closes or resets.
#include <gtest/gtest.h>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixTcpClient.h"

namespace refhost {
namespace {

using namespace transporttest;

const std::string kIp = "127.0.0.21";

class TransportTcpTest : public ::testing::Test {
 protected:
  // Connects the client to the listener and returns the server side of the connection.
  TUniqueFd ConnectToListener() {
    FClient.SetRemoteHost(kIp);
    FClient.SetRemotePort(std::to_string(FListener.Port()));
    if (!FClient.Connect(2000)) return {};
    return FListener.Accept();
  }
  // What the peer receives next (a short message comes in one piece over loopback).
  static std::string ReadFromPeer(int fd) {
    char buffer[256];
    const ssize_t n = Readable(fd, 2000) ? ::recv(fd, buffer, sizeof buffer, 0) : -1;
    return n >= 0 ? std::string(buffer, static_cast<size_t>(n)) : "(nothing came)";
  }

  TLogRecorder FLog;
  TTcpListener FListener{kIp};
  TPosixTcpClient FClient{FLog.Callback()};
};

TEST_F(TransportTcpTest, ExchangesDataUntilThePeerClosesOrResetsAndReconnects) {
  TUniqueFd peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid()) << FClient.LastError();
  EXPECT_EQ(FClient.Send("STA\r"), 4);
  EXPECT_EQ(ReadFromPeer(peer.Get()), "STA\r");
  ASSERT_EQ(::send(peer.Get(), "STA: 12\r", 8, 0), 8);
  peer.Reset();
  ASSERT_TRUE(FClient.WaitForData(2000));
  // What the peer sent before closing is still delivered, within the byte limit of each read.
  EXPECT_EQ(FClient.Receive(4), "STA:");
  EXPECT_EQ(FClient.Receive(64), " 12\r");
  EXPECT_EQ(FClient.Receive(64), "");
  EXPECT_FALSE(FClient.Connected());
  EXPECT_NE(FClient.LastError().find("closed by the peer"), std::string::npos) << FClient.LastError();

  // Connecting again gives a working link. A reset then surfaces in the send itself, without Connected() being
  // asked first, and no SIGPIPE kills the process.
  peer = ConnectToListener();
  ASSERT_TRUE(peer.Valid());
  EXPECT_EQ(FClient.Send("STA\r"), 4);
  EXPECT_EQ(ReadFromPeer(peer.Get()), "STA\r");
  const linger abort{1, 0};  // closing with a zero linger time sends a reset instead of an orderly close
  ASSERT_EQ(::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort), 0);
  peer.Reset();
  EXPECT_TRUE(Eventually([&] { return FClient.Send("STA\r") == -1; }));
  EXPECT_FALSE(FClient.Connected());
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
  EXPECT_NE(FClient.LastError().find("no answer from"), std::string::npos) << FClient.LastError();
}

TEST_F(TransportTcpTest, ConnectToARefusedPortFailsAndIsLoggedOnce) {
  FClient.SetRemoteHost(kIp);
  FClient.SetRemotePort(std::to_string(ClosedPort(kIp)));
  // The driver retries every period while the laser is off; the same failure is logged once.
  for (int attempt = 0; attempt < 3; ++attempt) EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_EQ(FLog.CountContaining("refused"), 1u);
}

}  // namespace
}  // namespace refhost
