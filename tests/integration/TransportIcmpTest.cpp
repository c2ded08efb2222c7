// The ping client over loopback: ICMP echo where the system allows it, the TCP connect probe otherwise (forced
// here so that both ways are tested on any machine), and the asynchronous ping's thread and callback.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixIcmpClient.h"

namespace refhost {
namespace {

using transporttest::ClosedPort;
using transporttest::ElapsedMs;
using transporttest::Eventually;
using transporttest::TLogRecorder;
using transporttest::TSilentListener;
using transporttest::TTcpListener;

const std::string kIp = "127.0.0.23";

TEST(TransportIcmpTest, PingsTheLoopbackHostByEchoOrByItsFallback) {
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback());
  client.SetHost("127.0.0.1");
  client.SetProbePort(ClosedPort("127.0.0.1"));
  EXPECT_TRUE(client.Ping(1000));
  EXPECT_TRUE(client.Ping(1000));
  // A system that refuses ICMP to this process is named once, however often the client pings.
  if (client.UsesTcpProbe()) {
    EXPECT_EQ(log.CountContaining("ping_group_range"), 1u);
  } else {
    EXPECT_EQ(log.CountContaining("ping_group_range"), 0u);
  }
}

TEST(TransportIcmpTest, ConnectProbeCountsAcceptedAndRefusedConnectionsAsReachable) {
  TPosixIcmpClient client({}, TReachabilityProbe::TcpConnect);
  EXPECT_TRUE(client.UsesTcpProbe());
  client.SetHost(kIp);
  TTcpListener listener(kIp);
  client.SetProbePort(listener.Port());
  EXPECT_TRUE(client.Ping(1000));
  client.SetProbePort(ClosedPort(kIp));
  EXPECT_TRUE(client.Ping(1000));
}

TEST(TransportIcmpTest, ConnectProbeFailsOnASilentHostAndOnNoHost) {
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback(), TReachabilityProbe::TcpConnect);
  TSilentListener silent(kIp);
  client.SetHost(kIp);
  client.SetProbePort(silent.Port());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(client.Ping(200));
  EXPECT_GE(ElapsedMs(start), 190);
  EXPECT_FALSE(client.Ping(50));
  EXPECT_FALSE(client.Ping(50));
  EXPECT_EQ(log.CountContaining("within 50 ms"), 1u);  // a repeated failure is logged once

  client.SetHost("");
  EXPECT_FALSE(client.Ping(100));
  client.SetHost(kIp);
  client.SetProbePort(0);
  EXPECT_FALSE(client.Ping(100));
}

TEST(TransportIcmpTest, AsyncPingRunsTheFailureCallbackOnItsOwnThread) {
  TPosixIcmpClient client({}, TReachabilityProbe::TcpConnect);
  TSilentListener silent(kIp);
  client.SetHost(kIp);
  client.SetProbePort(silent.Port());
  std::atomic<int> failures{0};
  std::atomic<bool> onCallerThread{false};
  const auto caller = std::this_thread::get_id();
  client.PingAsync(200, [&] {
    onCallerThread = std::this_thread::get_id() == caller;
    ++failures;
  });
  // A ping already under way makes a second request a no-op.
  client.PingAsync(200, [&] { failures += 100; });
  ASSERT_TRUE(Eventually([&] { return !client.AsyncPingRunning(); }, 5000));
  EXPECT_EQ(failures, 1);
  EXPECT_FALSE(onCallerThread);

  // A host that answers runs no callback; the thread serves request after request.
  TTcpListener listener(kIp);
  client.SetProbePort(listener.Port());
  client.PingAsync(1000, [&] { ++failures; });
  ASSERT_TRUE(Eventually([&] { return !client.AsyncPingRunning(); }, 5000));
  EXPECT_EQ(failures, 1);
}

TEST(TransportIcmpTest, DestroyingTheClientCutsAPingShortWithoutItsCallback) {
  TSilentListener silent(kIp);
  std::atomic<int> failures{0};
  auto client = std::make_unique<TPosixIcmpClient>(TTransportLog{}, TReachabilityProbe::TcpConnect);
  client->SetHost(kIp);
  client->SetProbePort(silent.Port());
  client->PingAsync(60000, [&] { ++failures; });
  ASSERT_TRUE(client->AsyncPingRunning());
  const auto start = std::chrono::steady_clock::now();
  client.reset();
  EXPECT_LT(ElapsedMs(start), 10000);  // far below the minute the ping would have waited
  EXPECT_EQ(failures, 0);
}

// Whether this system lets the process's group use ICMP datagram sockets.
bool EchoAllowedHere() {
  std::ifstream range("/proc/sys/net/ipv4/ping_group_range");
  long low = 1;
  long high = 0;
  range >> low >> high;
  const long group = static_cast<long>(::getgid());
  return group >= low && group <= high;
}

// Runs `body` in a child process with a network namespace of its own (only a loopback interface), in which ICMP
// echo is allowed to every group. Returns the child's exit code: 0 when `body` held, 1 when not, 77 when the
// namespace could not be made (no privilege).
int RunWithEchoAllowedInPrivateNetwork(const std::function<bool()>& body) {
  const pid_t child = ::fork();
  if (child < 0) return 77;
  if (child == 0) {
    if (::unshare(CLONE_NEWNET) != 0) ::_exit(77);
    const int control = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{};
    std::strcpy(loopback.ifr_name, "lo");
    if (::ioctl(control, SIOCGIFFLAGS, &loopback) != 0) ::_exit(77);
    loopback.ifr_flags |= IFF_UP;
    if (::ioctl(control, SIOCSIFFLAGS, &loopback) != 0) ::_exit(77);
    std::ofstream range("/proc/sys/net/ipv4/ping_group_range");
    range << "0 2147483647" << std::endl;
    if (!range) ::_exit(77);
    ::_exit(body() ? 0 : 1);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

// The echo itself: with no probe port, only an echo reply can make a ping succeed.
bool EchoAnswers() {
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback());
  client.SetHost(kIp);
  client.SetProbePort(0);
  std::atomic<int> failures{0};
  client.PingAsync(1000, [&] { ++failures; });
  const bool answered = client.Ping(1000);
  const bool asyncDone = Eventually([&] { return !client.AsyncPingRunning(); }, 5000);
  return answered && !client.UsesTcpProbe() && asyncDone && failures == 0 && log.Lines().empty();
}

// An echo to a network this namespace has no route to fails, and the asynchronous ping reports it. (Only run
// inside the private namespace, where no packet can leave the machine.)
bool EchoFailureIsReported() {
  TPosixIcmpClient client;
  client.SetHost("192.0.2.1");
  client.SetProbePort(0);
  std::atomic<int> failures{0};
  client.PingAsync(300, [&] { ++failures; });
  const bool asyncDone = Eventually([&] { return !client.AsyncPingRunning(); }, 5000);
  return !client.Ping(300) && asyncDone && failures == 1 && !client.UsesTcpProbe();
}

TEST(TransportIcmpTest, EchoAnswersAndFailuresByIcmp) {
  if (EchoAllowedHere()) {
    EXPECT_TRUE(EchoAnswers());
    return;
  }
  // The system refuses ICMP to this process: try it where this test may allow it.
  const int result = RunWithEchoAllowedInPrivateNetwork([] { return EchoAnswers() && EchoFailureIsReported(); });
  if (result == 77) GTEST_SKIP() << "ICMP echo is not allowed here and no private network namespace could be made";
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace refhost
