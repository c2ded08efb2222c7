// The ping client over loopback: ICMP echo where the system allows it, the TCP connect probe otherwise, and the
// asynchronous ping's thread and callback (over the probe, forced here, with a silent and an answering host).
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

namespace refhost {
namespace {

using namespace transporttest;

const std::string kIp = "127.0.0.23";

TEST(TransportIcmpTest, AsyncPingRunsTheFailureCallbackUntilTheClientIsDestroyed) {
  auto client = std::make_unique<TPosixIcmpClient>(TTransportLog{}, TReachabilityProbe::TcpConnect);
  TSilentListener silent(kIp);
  client->SetHost(kIp);
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
  TTcpListener listener(kIp);
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
    client.SetHost(kIp);
    client.SetProbePort(0);  // with no probe port only an echo reply can make a ping succeed
    ::_exit(client.Ping(1000) && !client.UsesTcpProbe() ? 0 : 1);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

TEST(TransportIcmpTest, PingsByEchoWhereAllowedAndByTheConnectProbeWhereNot) {
  TLogRecorder log;
  TPosixIcmpClient client(log.Callback());
  client.SetHost(kIp);
  client.SetProbePort(ClosedPort(kIp));
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
