// The own-brand laser's link: one of the host's TCP client, UDP client or serial port, with its connection probe.
// Not thread-safe: the driver serialises every call with its link lock. The one exception is the keep-alive ping's
// failure, which arrives on the ping client's thread and goes to the handler given at construction.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "core/LaserPorts.h"
#include "frame/LaserParams.h"
#include "host/DelayRec.h"
#include "host/Transports.h"
#include "zorun/ZorunProtocol.h"

namespace devlaser::zorun {

class TZorunLink {
 public:
  // Keep-alive ping period and time-out while a TCP connection is up; the ping before a reconnect.
  static constexpr int32_t kKeepAlivePeriodMs = 5000;
  static constexpr int32_t kKeepAliveTimeoutMs = 1000;
  static constexpr int32_t kReconnectPingMs = 100;
  static constexpr int32_t kConnectTimeoutMs = 1000;
  // A UDP laser that has not answered for this long (since the socket opened, at first) counts as gone. The driver
  // polls it several times a second.
  static constexpr int32_t kUdpSilenceMs = 3000;

  // Opens the client of `type` (dttNetTcp, dttNetUDP or dttSerial) through `ports`. `onPingLost` runs on the
  // ping client's thread when a keep-alive ping went unanswered.
  TZorunLink(TLaserPorts& ports, TDataTransType type, const TLaserParams& params, const std::string& commSettings,
             std::function<void()> onPingLost);
  ~TZorunLink();
  TZorunLink(const TZorunLink&) = delete;
  TZorunLink& operator=(const TZorunLink&) = delete;

  TDataTransType Type() const { return FType; }
  // Whether the host gave a client for the link.
  bool HasClient() const;

  // Writes one frame; false when the link is down or the write failed.
  bool Send(const TBytes& frame);
  // Gathers what the laser sends within `windowMs`. Waits on the socket for TCP and UDP; a serial port can only be
  // read without waiting, so it is read every couple of milliseconds until the window closes.
  TBytes Receive(int32_t windowMs);
  // Brings the link up if it can and tells whether it is up. TCP: while connected, a keep-alive ping every 5 s;
  // otherwise a short ping and, when the laser answers, a connect. Serial: opens the port. UDP: the socket is open
  // and the laser has not been silent for kUdpSilenceMs.
  bool Probe();
  // The keep-alive ping failed: drops the TCP connection so that the next probe reconnects.
  void DropTcp();
  bool TcpConnected();

  // Stops the ping client (waiting for its thread) and closes the port; later calls send and receive nothing.
  void Close();

 private:
  using Clock = std::chrono::steady_clock;

  const TDataTransType FType;
  std::function<void()> FOnPingLost;
  std::unique_ptr<nchost::TVqTcpClient> FTcp;
  std::unique_ptr<nchost::TIcmpClient> FPing;
  std::unique_ptr<nchost::TUDPClient> FUdp;
  std::unique_ptr<nchost::TCommCtrl> FComm;
  nchost::TDelayRec FLastPingTime;
  Clock::time_point FLastUdpReply{};  // or the time the socket opened
  bool FClosed = false;
};

}  // namespace devlaser::zorun
