#include "refhost/transport/PosixIcmpClient.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <exception>

#include "refhost/transport/ReachabilityProbe.h"

namespace refhost {

TPosixIcmpClient::TPosixIcmpClient(TTransportLog log, TReachabilityProbe probe)
    : FLog(log),
      FRawLog(std::move(log)),
      FWakeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      FUseTcpProbe(probe == TReachabilityProbe::TcpConnect) {}

TPosixIcmpClient::~TPosixIcmpClient() {
  if (!FThread.joinable()) return;
  {
    std::lock_guard lock(FAsyncMutex);
    FThread.request_stop();
  }
  const uint64_t one = 1;
  if (FWakeFd.Valid()) (void)!::write(FWakeFd.Get(), &one, sizeof one);
  FThread.join();
}

void TPosixIcmpClient::SetHost(const std::string& host) {
  std::lock_guard lock(FConfigMutex);
  FHost = host;
}

void TPosixIcmpClient::SetProbePort(int32_t port) {
  std::lock_guard lock(FConfigMutex);
  FProbePort = port;
}

bool TPosixIcmpClient::Ping(int32_t timeoutMs) { return Probe(timeoutMs); }

void TPosixIcmpClient::PingAsync(int32_t timeoutMs, std::function<void()> onFailure) {
  std::lock_guard lock(FAsyncMutex);
  if (FAsyncBusy) return;
  FAsyncBusy = true;
  FRequest = TRequest{timeoutMs, std::move(onFailure)};
  if (!FThread.joinable()) {
    FThread = std::jthread([this](std::stop_token stop) { RunPings(stop); });
  } else {
    FAsyncWake.notify_one();
  }
}

bool TPosixIcmpClient::UsesTcpProbe() const {
  std::lock_guard lock(FConfigMutex);
  return FUseTcpProbe;
}

bool TPosixIcmpClient::AsyncPingRunning() const {
  std::lock_guard lock(FAsyncMutex);
  return FAsyncBusy;
}

void TPosixIcmpClient::RunPings(std::stop_token stop) {
  ::pthread_setname_np(::pthread_self(), "IcmpPing");
  std::unique_lock lock(FAsyncMutex);
  for (;;) {
    FAsyncWake.wait(lock, stop, [this] { return FRequest.has_value(); });
    if (stop.stop_requested()) return;
    TRequest request = std::move(*FRequest);
    FRequest.reset();
    lock.unlock();
    const bool answered = Probe(request.TimeoutMs);
    if (!answered && !stop.stop_requested() && request.OnFailure) {
      try {
        request.OnFailure();
      } catch (const std::exception& e) {
        if (FRawLog) FRawLog(std::string("Ping failure callback raised an exception: ") + e.what());
      } catch (...) {
        if (FRawLog) FRawLog("Ping failure callback raised an exception");
      }
    }
    // Release what the callback holds before the next request can come.
    request = TRequest{};
    lock.lock();
    FAsyncBusy = false;
  }
}

std::optional<TSocketAddress> TPosixIcmpClient::ResolveHost(std::string& name) {
  std::lock_guard lock(FConfigMutex);
  name = FHost;
  if (FResolved && FResolvedHost == FHost) return FResolved;
  std::string error;
  const auto addresses = ResolveAddresses(FHost, {}, SOCK_STREAM, error);
  if (addresses.empty()) {
    FLog.Log("Ping " + FHost + ": " + error);
    return std::nullopt;
  }
  // Prefer IPv4, which can be pinged; otherwise the first address.
  FResolved = addresses.front();
  for (const auto& address : addresses) {
    if (address.Family() == AF_INET) {
      FResolved = address;
      break;
    }
  }
  FResolvedHost = FHost;
  return FResolved;
}

bool TPosixIcmpClient::Probe(int32_t timeoutMs) {
  std::string host;
  const auto address = ResolveHost(host);
  if (!address) return false;
  const int wakeFd = FWakeFd.Get();
  std::string error;

  bool useTcpProbe = false;
  int32_t probePort = kDefaultProbePort;
  {
    std::lock_guard lock(FConfigMutex);
    useTcpProbe = FUseTcpProbe;
    probePort = FProbePort;
  }
  if (!useTcpProbe && address->Family() == AF_INET) {
    const auto sequence = static_cast<uint16_t>(FSequence.fetch_add(1) + 1);
    switch (SendEcho(*address, sequence, timeoutMs, wakeFd, error)) {
      case TEchoResult::Answered:
        FLog.Reset();
        return true;
      case TEchoResult::NoAnswer:
        FLog.Log("Ping " + host + ": " + error);
        return false;
      case TEchoResult::Woken:
        return false;
      case TEchoResult::NotPermitted: {
        bool first = false;
        {
          std::lock_guard lock(FConfigMutex);
          first = !FUseTcpProbe;
          FUseTcpProbe = true;
        }
        if (first && FRawLog) {
          FRawLog("Ping: the system does not allow this process ICMP echo (" + error +
                  "; see net.ipv4.ping_group_range); reachability is probed with a TCP connect to the probe port "
                  "instead");
        }
        break;
      }
    }
  }

  if (probePort < 1 || probePort > 65535) {
    FLog.Log("Ping " + host + ": the probe port " + std::to_string(probePort) + " is not a port number");
    return false;
  }
  switch (ProbeByConnect(address->WithPort(static_cast<uint16_t>(probePort)), timeoutMs, wakeFd, error)) {
    case TConnectResult::Connected:
    case TConnectResult::Refused:
      FLog.Reset();
      return true;
    case TConnectResult::Woken:
      return false;
    default:
      FLog.Log("Ping " + host + ": " + error);
      return false;
  }
}

}  // namespace refhost
