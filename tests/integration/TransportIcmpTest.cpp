// The ping client over loopback: ICMP echo where the system allows it, the TCP connect probe otherwise (forced
// here so that both ways are tested on any machine), and the asynchronous ping's thread and callback.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixIcmpClient.h"

namespace refhost {
namespace {

using namespace transporttest;

const std::string kIp = "127.0.0.23";

TEST(TransportIcmpTest, ConnectProbeTellsAnAnsweringHostFromASilentOrMissingOne) {
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback(), TReachabilityProbe::TcpConnect);
  client.SetHost(kIp);
  // An accepted and a refused connection both show the host is there.
  TTcpListener listener(kIp);
  client.SetProbePort(listener.Port());
  EXPECT_TRUE(client.Ping(1000));
  client.SetProbePort(ClosedPort(kIp));
  EXPECT_TRUE(client.Ping(1000));
  EXPECT_TRUE(client.UsesTcpProbe());

  TSilentListener silent(kIp);
  client.SetProbePort(silent.Port());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(client.Ping(200));
  EXPECT_GE(ElapsedMs(start), 190);
  EXPECT_FALSE(client.Ping(50));
  EXPECT_FALSE(client.Ping(50));
  EXPECT_EQ(log.CountContaining("within 50 ms"), 1u);  // a repeated failure is logged once

  client.SetProbePort(0);
  EXPECT_FALSE(client.Ping(100));
  client.SetHost("");
  EXPECT_FALSE(client.Ping(100));
}

TEST(TransportIcmpTest, AsyncPingRunsTheFailureCallbackOnItsOwnThreadUntilTheClientIsDestroyed) {
  auto client = std::make_unique<TPosixIcmpClient>(TTransportLog{}, TReachabilityProbe::TcpConnect);
  TSilentListener silent(kIp);
  client->SetHost(kIp);
  client->SetProbePort(silent.Port());
  std::atomic<int> failures{0};
  std::atomic<bool> onCallerThread{false};
  const auto caller = std::this_thread::get_id();
  const auto pingAndWait = [&](int32_t timeoutMs) {
    client->PingAsync(timeoutMs, [&] {
      onCallerThread = std::this_thread::get_id() == caller;
      ++failures;
    });
    client->PingAsync(timeoutMs, [&] { failures += 100; });  // one under way makes a second request a no-op
    return Eventually([&] { return !client->AsyncPingRunning(); }, 5000);
  };
  ASSERT_TRUE(pingAndWait(200));
  EXPECT_EQ(failures, 1);
  EXPECT_FALSE(onCallerThread);
  // A host that answers runs no callback; the thread serves request after request.
  TTcpListener listener(kIp);
  client->SetProbePort(listener.Port());
  ASSERT_TRUE(pingAndWait(1000));
  EXPECT_EQ(failures, 1);

  // Destroying the client cuts a ping under way short, without its callback.
  client->SetProbePort(silent.Port());
  client->PingAsync(60000, [&] { ++failures; });
  ASSERT_TRUE(client->AsyncPingRunning());
  const auto start = std::chrono::steady_clock::now();
  client.reset();
  EXPECT_LT(ElapsedMs(start), 10000);  // far below the minute the ping would have waited
  EXPECT_EQ(failures, 1);
}

// Whether this system lets the process's group use ICMP datagram sockets.
bool EchoAllowedHere() {
  std::ifstream range("/proc/sys/net/ipv4/ping_group_range");
  long low = 1, high = 0;
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

// The echo itself: with no probe port, only an echo reply can make a ping succeed, synchronously or not. Only
// `isolated` (inside the private namespace, where no packet can leave the machine) does it also ping a network
// without a route, which must fail and make the asynchronous ping report it.
bool EchoWorks(bool isolated) {
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback());
  client.SetHost(kIp);
  client.SetProbePort(0);
  std::atomic<int> failures{0};
  const auto pingAsyncAndWait = [&](int32_t timeoutMs) {
    client.PingAsync(timeoutMs, [&] { ++failures; });
    return Eventually([&] { return !client.AsyncPingRunning(); }, 5000);
  };
  bool held = client.Ping(1000) && pingAsyncAndWait(1000) && failures == 0 && log.CountContaining() == 0;
  if (isolated) {
    client.SetHost("192.0.2.1");
    held = held && !client.Ping(300) && pingAsyncAndWait(300) && failures == 1;
  }
  return held && !client.UsesTcpProbe();
}

TEST(TransportIcmpTest, PingsByEchoWhereAllowedAndByTheConnectProbeWhereNot) {
  if (EchoAllowedHere()) {
    EXPECT_TRUE(EchoWorks(false));
    return;
  }
  // Refused here: the client falls back to the connect probe and names the refusal once, however often it pings.
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback());
  client.SetHost(kIp);
  client.SetProbePort(ClosedPort(kIp));
  EXPECT_TRUE(client.Ping(1000));
  EXPECT_TRUE(client.Ping(1000));
  EXPECT_TRUE(client.UsesTcpProbe());
  EXPECT_EQ(log.CountContaining("ping_group_range"), 1u);

  // Try the echo where this test may allow it.
  const int result = RunWithEchoAllowedInPrivateNetwork([] { return EchoWorks(true); });
  if (result == 77) GTEST_SKIP() << "ICMP echo is not allowed here and no private network namespace could be made";
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace refhost
