// The host's communication clients: serial port, TCP, UDP and ICMP echo. Created through TAppSystem.
// A client object is used by one laser; its operations may be called from that laser's threads but never
// concurrently (the laser serialises them with its own lock), except where stated.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "HostDefs.h"

namespace nchost {

// A serial port, selected by number (the host maps numbers to devices) with settings such as "57600,n,8,1"
// (baud, parity n/e/o, data bits, stop bits).
class NCHOST_API TCommCtrl {
 public:
  virtual ~TCommCtrl() = default;
  virtual void SetPort(int32_t port) = 0;
  virtual void SetSettings(const std::string& settings) = 0;
  // Opens (true) or closes (false) the port; returns whether it is open afterwards. Opening an open port that
  // has failed (device gone) reopens it.
  virtual bool SetActive(bool active) = 0;
  virtual bool GetActive() = 0;
  // Returns what is waiting, up to `maxBytes`, without blocking; an empty string when nothing is.
  virtual std::string Read(size_t maxBytes) = 0;
  // Writes all of `data`; returns the count written, or -1 on failure (the port is then no longer active).
  virtual int Write(const std::string& data) = 0;
};

// A TCP client connection.
class NCHOST_API TVqTcpClient {
 public:
  virtual ~TVqTcpClient() = default;
  virtual void SetRemoteHost(const std::string& host) = 0;
  virtual void SetRemotePort(const std::string& port) = 0;
  virtual bool Connect(int32_t timeoutMs) = 0;
  virtual void Disconnect() = 0;
  // False once the peer has closed or reset the connection.
  virtual bool Connected() = 0;
  // True when data (or the peer's close) can be read within `timeoutMs`.
  virtual bool WaitForData(int32_t timeoutMs) = 0;
  // Receives up to `maxBytes` of what is waiting; empty when the connection is closed or nothing came.
  virtual std::string Receive(size_t maxBytes) = 0;
  // Sends all of `data`; returns the count sent or -1 (the client is then disconnected).
  virtual int Send(const std::string& data) = 0;
};

// A UDP socket bound to an ephemeral local port, sending to one remote address.
class NCHOST_API TUDPClient {
 public:
  virtual ~TUDPClient() = default;
  virtual void SetRemoteHost(const std::string& host) = 0;
  virtual void SetRemotePort(int32_t port) = 0;
  virtual bool Open() = 0;
  virtual void Close() = 0;
  virtual bool Active() = 0;
  virtual int Send(const std::string& datagram) = 0;
  // Waits up to `timeoutMs` for one datagram from the remote address; empty when none came.
  virtual std::string Receive(int32_t timeoutMs) = 0;
};

// An ICMP echo client. Where the system refuses ICMP to this process, it probes reachability with a TCP connect
// to the probe port instead (and says so once in the log).
class NCHOST_API TIcmpClient {
 public:
  virtual ~TIcmpClient() = default;
  virtual void SetHost(const std::string& host) = 0;
  virtual void SetProbePort(int32_t port) = 0;
  // Synchronous echo: true when the host answered within `timeoutMs`.
  virtual bool Ping(int32_t timeoutMs) = 0;
  // Asynchronous echo: returns at once; `onFailure` runs on the client's own thread when no answer came within
  // `timeoutMs`. A ping already under way makes this a no-op. Destroying the client waits for that thread.
  virtual void PingAsync(int32_t timeoutMs, std::function<void()> onFailure) = 0;
};

}  // namespace nchost
