#include "zorun/ZorunLink.h"

#include <algorithm>
#include <thread>

namespace devlaser::zorun {
namespace {

constexpr size_t kReceiveChunk = 1024;
// Serial ports offer no wait: a read this often keeps replies prompt without spinning.
constexpr auto kSerialReadStep = std::chrono::milliseconds(2);

std::string AsText(const TBytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

void Append(TBytes& out, const std::string& chunk) { out.insert(out.end(), chunk.begin(), chunk.end()); }

}  // namespace

TZorunLink::TZorunLink(TLaserPorts& ports, TDataTransType type, const TLaserParams& params,
                       const std::string& commSettings, std::function<void()> onPingLost)
    : FType(type), FOnPingLost(std::move(onPingLost)) {
  const auto& def = params.DefParams;
  const std::string host = def.Net.TcpHost;
  switch (type) {
    case dttNetTcp:
      FTcp = ports.TcpClient();
      FPing = ports.IcmpClient();
      if (FTcp) {
        FTcp->SetRemoteHost(host);
        FTcp->SetRemotePort(std::to_string(def.Net.TcpPort));
      }
      if (FPing) {
        FPing->SetHost(host);
        FPing->SetProbePort(def.Net.TcpPort);
      }
      break;
    case dttNetUDP:
      // The laser is addressed at its host and port; its datagrams come back to a local port of our own. A
      // controller cannot bind the laser's address (it is another machine's), so the socket is bound to an
      // ephemeral port and connected to the laser, which also keeps out datagrams from anyone else.
      FUdp = ports.UdpClient();
      if (FUdp) {
        FUdp->SetRemoteHost(host);
        FUdp->SetRemotePort(def.Net.TcpPort);
        FUdp->Open();
        FLastUdpReply = Clock::now();
      }
      break;
    case dttSerial:
      FComm = ports.CommCtrl();
      if (FComm) {
        FComm->SetPort(def.Comm.CommPort);
        FComm->SetSettings(commSettings);
        FComm->SetActive(true);
      }
      break;
    default:
      break;
  }
}

TZorunLink::~TZorunLink() { Close(); }

bool TZorunLink::HasClient() const { return FTcp || FUdp || FComm; }

void TZorunLink::Close() {
  if (FClosed) return;
  FClosed = true;
  // The ping client's thread may be calling back; its destruction waits for that thread.
  FPing.reset();
  if (FTcp) FTcp->Disconnect();
  if (FUdp) FUdp->Close();
  if (FComm) FComm->SetActive(false);
  FTcp.reset();
  FUdp.reset();
  FComm.reset();
}

bool TZorunLink::Send(const TBytes& frame) {
  if (FClosed || frame.empty()) return false;
  if (FTcp) return FTcp->Connected() && FTcp->Send(AsText(frame)) == static_cast<int>(frame.size());
  if (FUdp) return FUdp->Active() && FUdp->Send(AsText(frame)) == static_cast<int>(frame.size());
  if (FComm) return FComm->GetActive() && FComm->Write(AsText(frame)) == static_cast<int>(frame.size());
  return false;
}

TBytes TZorunLink::Receive(int32_t windowMs) {
  TBytes data;
  if (FClosed) return data;
  const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(windowMs, 0));
  auto left = [deadline] {
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int32_t>(std::clamp<int64_t>(ms, 0, INT32_MAX));
  };
  if (FTcp) {
    if (!FTcp->Connected()) return data;
    for (int32_t ms = left(); ms > 0; ms = left()) {
      if (!FTcp->WaitForData(ms)) break;
      const std::string chunk = FTcp->Receive(kReceiveChunk);
      if (chunk.empty()) break;  // the laser closed the connection
      Append(data, chunk);
    }
  } else if (FUdp) {
    if (!FUdp->Active()) return data;
    for (int32_t ms = left(); ms > 0; ms = left()) {
      const std::string datagram = FUdp->Receive(ms);
      if (datagram.empty()) break;
      Append(data, datagram);
    }
    if (!data.empty()) FLastUdpReply = Clock::now();
  } else if (FComm) {
    if (!FComm->GetActive()) return data;
    for (;;) {
      Append(data, FComm->Read(kReceiveChunk));
      const int32_t ms = left();
      if (ms <= 0) break;
      std::this_thread::sleep_for(std::min<std::chrono::milliseconds>(kSerialReadStep, std::chrono::milliseconds(ms)));
    }
  }
  return data;
}

bool TZorunLink::Probe() {
  if (FClosed) return false;
  if (FTcp) {
    if (FTcp->Connected()) {
      if (FPing && !FLastPingTime.IsBusy()) {
        FLastPingTime.Delay(kKeepAlivePeriodMs);
        FPing->PingAsync(kKeepAliveTimeoutMs, FOnPingLost);
      }
      return true;
    }
    // A ping first: connecting to an absent address would cost the whole connect time-out.
    if (FPing && !FPing->Ping(kReconnectPingMs)) return false;
    return FTcp->Connect(kConnectTimeoutMs);
  }
  if (FUdp) {
    if (!FUdp->Active()) {
      if (!FUdp->Open()) return false;
      FLastUdpReply = Clock::now();
    }
    return Clock::now() - FLastUdpReply < std::chrono::milliseconds(kUdpSilenceMs);
  }
  if (FComm) return FComm->SetActive(true);
  return false;
}

void TZorunLink::DropTcp() {
  if (FTcp && FTcp->Connected()) FTcp->Disconnect();
}

bool TZorunLink::TcpConnected() { return FTcp && FTcp->Connected(); }

}  // namespace devlaser::zorun
