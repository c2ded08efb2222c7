// The reference host's network clients over loopback: the TCP client (exchange, connect time-out, a peer that
// closes or resets), the UDP client, and the ping client (ICMP echo where the system allows it, the TCP connect
// probe otherwise, and the asynchronous ping's thread and callback).
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <memory>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixIcmpClient.h"
#include "refhost/transport/PosixTcpClient.h"
#include "refhost/transport/PosixUdpClient.h"

namespace refhost {
namespace {

using namespace transporttest;

const std::string kTcpIp = "127.0.0.21", kUdpIp = "127.0.0.22", kIcmpIp = "127.0.0.23";

class TransportTcpTest : public ::testing::Test {
 protected:
  // Connects the client to the listener and returns the server side of the connection.
  TUniqueFd ConnectToListener() {
    FClient.SetRemoteHost(kTcpIp);
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
  TTcpListener FListener{kTcpIp};
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
  TSilentListener silent(kTcpIp);
  FClient.SetRemoteHost(kTcpIp);
  FClient.SetRemotePort(std::to_string(silent.Port()));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(FClient.Connect(300));
  // Left alone, the kernel would retry the connection for minutes; the upper bound only has to tell that apart.
  EXPECT_GE(ElapsedMs(start), 290);
  EXPECT_LT(ElapsedMs(start), 20000);
  EXPECT_NE(FClient.LastError().find("no answer from"), std::string::npos) << FClient.LastError();
}

TEST_F(TransportTcpTest, ConnectToARefusedPortFailsAndIsLoggedOnce) {
  FClient.SetRemoteHost(kTcpIp);
  FClient.SetRemotePort(std::to_string(ClosedPort(kTcpIp)));
  // The driver retries every period while the laser is off; the same failure is logged once.
  for (int attempt = 0; attempt < 3; ++attempt) EXPECT_FALSE(FClient.Connect(1000));
  EXPECT_EQ(FLog.CountContaining("refused"), 1u);
}

// ---- UDP ---------------------------------------------------------------------------------------------------------

class TransportUdpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(FLaser.Valid());
    FClient.SetRemoteHost(kUdpIp);
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

  TUniqueFd FLaser = BoundSocket(SOCK_DGRAM, kUdpIp);
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
  FClient.SetRemotePort(ClosedPort(kUdpIp, SOCK_DGRAM));
  ASSERT_TRUE(FClient.Open());
  // The first datagram finds no listener; the port-unreachable answer must not break later sends or waits.
  EXPECT_EQ(FClient.Send("ping"), 4);
  EXPECT_EQ(FClient.Receive(100), "");
  EXPECT_EQ(FClient.Send("ping"), 4);
  EXPECT_TRUE(FClient.Active());
}

// ---- ping --------------------------------------------------------------------------------------------------------

TEST(TransportIcmpTest, AsyncPingRunsTheFailureCallbackUntilTheClientIsDestroyed) {
  auto client = std::make_unique<TPosixIcmpClient>(TTransportLog{}, TReachabilityProbe::TcpConnect);
  TSilentListener silent(kIcmpIp);
  client->SetHost(kIcmpIp);
  client->SetProbePort(silent.Port());
  std::atomic<int> failures{0};
  const auto pingAndWait = [&](int32_t timeoutMs) {
    client->PingAsync(timeoutMs, [&] { ++failures; });
    return Eventually([&] { return !client->AsyncPingRunning(); }, 5000);
  };
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(pingAndWait(200));
  EXPECT_GE(ElapsedMs(start), 190);  // the silent host was given its full time-out
  EXPECT_EQ(failures, 1);
  // A host that answers runs no callback; the thread serves request after request.
  TTcpListener listener(kIcmpIp);
  client->SetProbePort(listener.Port());
  ASSERT_TRUE(pingAndWait(1000));
  EXPECT_EQ(failures, 1);

  // Destroying the client cuts a ping under way short, without its callback.
  client->SetProbePort(silent.Port());
  client->PingAsync(60000, [&] { ++failures; });
  ASSERT_TRUE(client->AsyncPingRunning());
  const auto destroyStart = std::chrono::steady_clock::now();
  client.reset();
  EXPECT_LT(ElapsedMs(destroyStart), 10000);  // far below the minute the ping would have waited
  EXPECT_EQ(failures, 1);
}

// Pings by echo in a child process with a private network namespace (only loopback, so no packet leaves the
// machine) where every group may send ICMP echo. The child's exit code: 0 it worked, 1 not, 77 no namespace allowed.
int EchoWorksInPrivateNetwork() {
  const pid_t child = ::fork();
  if (child < 0) return 77;
  if (child == 0) {
    ifreq loopback{};
    std::strcpy(loopback.ifr_name, "lo");
    const int control = ::unshare(CLONE_NEWNET) == 0 ? ::socket(AF_INET, SOCK_DGRAM, 0) : -1;
    if (control < 0 || ::ioctl(control, SIOCGIFFLAGS, &loopback) != 0) ::_exit(77);
    loopback.ifr_flags |= IFF_UP;
    std::ofstream range("/proc/sys/net/ipv4/ping_group_range");
    range << "0 2147483647" << std::endl;
    if (::ioctl(control, SIOCSIFFLAGS, &loopback) != 0 || !range) ::_exit(77);
    TPosixIcmpClient client(TTransportLog{});
    client.SetHost(kIcmpIp);
    client.SetProbePort(0);  // with no probe port only an echo reply can make a ping succeed
    ::_exit(client.Ping(1000) && !client.UsesTcpProbe() ? 0 : 1);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

TEST(TransportIcmpTest, PingsByEchoWhereAllowedAndByTheConnectProbeWhereNot) {
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback());
  client.SetHost(kIcmpIp);
  client.SetProbePort(ClosedPort(kIcmpIp));
  EXPECT_TRUE(client.Ping(1000));
  if (!client.UsesTcpProbe()) return;  // echo is allowed here and answered
  // Refused here: the client falls back to the connect probe and names the refusal once, however often it pings.
  EXPECT_TRUE(client.Ping(1000));
  EXPECT_EQ(log.CountContaining("ping_group_range"), 1u);

  const int result = EchoWorksInPrivateNetwork();
  if (result == 77) GTEST_SKIP() << "ICMP echo is not allowed here and no private network namespace could be made";
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace refhost
