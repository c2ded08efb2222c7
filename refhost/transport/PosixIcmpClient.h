// A ping client: tells whether a host answers, synchronously or on a thread of its own.
//
// It sends ICMP echo requests through an unprivileged ICMP datagram socket. Where the system refuses such
// sockets to this process (net.ipv4.ping_group_range does not include its group), it says so once in the log and
// probes with a TCP connect to the probe port instead: an accepted or refused connection means the host is
// there, a time-out or an unreachable network means it is not. Hosts with only IPv6 addresses are always probed
// by connect.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "host/Transports.h"
#include "refhost/transport/Sockets.h"
#include "refhost/transport/TransportLog.h"
#include "refhost/transport/UniqueFd.h"

namespace refhost {

enum class TReachabilityProbe {
  Automatic,   // ICMP echo where the system allows it, else a TCP connect
  TcpConnect,  // always a TCP connect to the probe port
};

class TPosixIcmpClient final : public nchost::TIcmpClient {
 public:
  // The port probed when none is set: the echo service, which a host without it refuses (and so answers).
  static constexpr int32_t kDefaultProbePort = 7;

  explicit TPosixIcmpClient(TTransportLog log = {}, TReachabilityProbe probe = TReachabilityProbe::Automatic);
  // Cuts a ping under way short (its failure callback does not run) and joins the ping thread.
  ~TPosixIcmpClient() override;
  TPosixIcmpClient(const TPosixIcmpClient&) = delete;
  TPosixIcmpClient& operator=(const TPosixIcmpClient&) = delete;

  void SetHost(const std::string& host) override;
  void SetProbePort(int32_t port) override;
  bool Ping(int32_t timeoutMs) override;
  // `onFailure` runs on the client's thread, named "IcmpPing". It must not wait for anything that the client's
  // owner holds while it destroys the client, since the destructor waits for the callback to return.
  void PingAsync(int32_t timeoutMs, std::function<void()> onFailure) override;

  // Whether pings go by TCP connect (forced, or because the system refused ICMP).
  bool UsesTcpProbe() const;
  // Whether an asynchronous ping is under way (its callback included).
  bool AsyncPingRunning() const;

 private:
  struct TRequest {
    int32_t TimeoutMs = 0;
    std::function<void()> OnFailure;
  };

  // One probe of the current host; false also when the wake-up descriptor cut it short.
  bool Probe(int32_t timeoutMs);
  std::optional<TSocketAddress> ResolveHost(std::string& name);
  void RunPings(std::stop_token stop);

  TLogOnChange FLog;
  TTransportLog FRawLog;
  const TUniqueFd FWakeFd;  // an eventfd made readable by the destructor: cuts every wait short
  std::atomic<uint16_t> FSequence{0};

  mutable std::mutex FConfigMutex;
  std::string FHost;
  int32_t FProbePort = kDefaultProbePort;
  std::string FResolvedHost;  // the host FResolved belongs to
  std::optional<TSocketAddress> FResolved;
  bool FUseTcpProbe = false;

  mutable std::mutex FAsyncMutex;
  std::condition_variable_any FAsyncWake;
  std::optional<TRequest> FRequest;
  bool FAsyncBusy = false;
  std::jthread FThread;  // declared last: joined before the members it uses are destroyed
};

}  // namespace refhost
