// The driver of IPG YLR fiber lasers on their text-command interface, over a serial port or TCP port 10001.
// It serialises every exchange with one re-entrant lock, keeps the laser's status word fresh by polling "STA"
// from a monitor thread of its own, and answers the laser classes' status questions from that cached word
// without traffic. The protocol itself (parsing, tables, command texts) lives in IpgYlrProtocol.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/LaserPorts.h"
#include "frame/LaserParams.h"
#include "frame/LaserThread.h"
#include "host/DelayRec.h"
#include "host/Transports.h"
#include "ipg/IpgYlrProtocol.h"

namespace devlaser {

class TIPGYLRDriver {
 public:
  // The laser listens on this port whatever the configuration says.
  static constexpr const char* kRemotePort = "10001";
  static constexpr int32_t kProbePort = 10001;
  static constexpr const char* kMonThreadName = "TIPGYLRDriver.TIPGMonThread";

  // TCP for dttNone and dttNetTcp, serial for dttSerial; any other transport throws ELaserError with
  // "IPG.LaserType Error Message". The transports are opened through `ports` (the laser's, which closes them when
  // the laser shuts down), or through ports of the driver's own when none are given. Starts the monitor thread.
  explicit TIPGYLRDriver(const TLaserParams& params, TLaserPorts* ports = nullptr);
  // Stops the monitor thread, then the ping client (its thread calls back into the driver), then the transports.
  virtual ~TIPGYLRDriver();

  // Stops the monitor for good; the transports stay until the laser closes its ports or the driver is freed.
  void Stop();
  TIPGYLRDriver(const TIPGYLRDriver&) = delete;
  TIPGYLRDriver& operator=(const TIPGYLRDriver&) = delete;

  bool IsTcp() const { return FTcpMode; }
  const TLaserParams& Params() const { return FParams; }

  // ---- link ----
  // Serial: opens the port. TCP: when connected, sends a keep-alive ping every 5 s without waiting for it; when
  // not, pings (100 ms) and connects. Returns whether the link is up. While one thread is connecting, the others
  // find the link down instead of waiting for it.
  bool CheckConnection();
  // The keep-alive ping went unanswered: drop the connection so that the next check reconnects.
  void IcmpTimeout();
  // True once a reply has come on the current connection.
  bool IsConnectedOk() const { return FConnectedOk.load(); }

  // ---- exchanges ----
  // Writes `cmd`, ended by a carriage return, when the link is up.
  void SendCmd(const std::string& cmd);
  // Collects what arrives within `timeoutMs` and parses it; returns the text.
  std::string ReceiveResponse(int32_t timeoutMs);
  // Drains what is pending (parsed, not returned), sends `cmd` and returns what arrives within `timeoutMs`.
  std::string SendAndReply(const std::string& cmd, int32_t timeoutMs);
  // Drains (unless an immediate send is under way) and sends; the reply is parsed by the next exchange's drain.
  void SendNoReply(const std::string& cmd);
  // Feeds received text to the line parser and applies every complete line to the cached values.
  void AnalyzeResponse(const std::string& text);

  // ---- commands ----
  void EnableEmissionControl() { SendNoReply("ELE"); }
  void DisableEmissionControl() { SendNoReply("DLE"); }
  void EnableExternalAimControl() { SendNoReply("EEABC"); }
  void DisableExternalAimControl() { SendNoReply("DEABC"); }
  void EnableExternalControl() { SendNoReply("EEC"); }
  void DisableExternalControl() { SendNoReply("DEC"); }
  void EnableGateMode() { SendNoReply("EGM"); }
  void DisableGateMode() { SendNoReply("DGM"); }
  void EnableModulation() { SendNoReply("EMOD"); }
  void DisableModulation() { SendNoReply("DMOD"); }
  void EnablePulseMode() { SendNoReply("EPM"); }
  void DisablePulseMode() { SendNoReply("DPM"); }
  void SetDigitalPowerSelect() { SendNoReply("SDS"); }
  // The status is requested in the same write, so that the next drain shows the new state.
  void StartAimingBeam() { SendNoReply("ABN\rSTA"); }
  void StopAimingBeam() { SendNoReply("ABF\rSTA"); }
  void StartEmission() { SendNoReply("EMON\rSTA"); }
  void StopEmission() { SendNoReply("EMOFF\rSTA"); }
  void ResetErrors();

  double GetElapsedTime();
  double GetFilterWndSz();
  double GetLaserTemperature();
  double GetMinimumCurrent();
  int32_t GetModuleErrorCode();
  std::string GetOutputPower();
  std::string GetSerialNumber();
  std::string GetSoftwareRevision();

  // Out-of-range values are not sent.
  void SetFilterWndSz(double seconds);
  void SetPulseRate(int32_t hz);
  void SetPulseWidth(double width);
  // Sends the current and repeats until the laser echoes it (within 0.05) or DiodeSetTimeOut passes; with
  // IgnoreDiodeReply it sends five times without waiting for an echo. Tells the operator about an invalid value
  // and about a set that was never confirmed.
  void SetDiodeCurrent(double percent);
  // Sends the current five times without waiting for any reply.
  void SetDiodeCurrentAsynchronous(double percent);

  // ---- cached state (no traffic) ----
  uint32_t GetDeviceStatus() const { return FDeviceStatus.load(); }
  uint32_t GetLaserState() const;
  uint32_t GetLaserAlarm() const;
  uint32_t GetLaserWarning() const;
  bool HasAlarm() const;
  bool HasWarning() const;
  virtual bool GetStatusBit(int32_t n) const;
  bool GetIsImdState() const { return FImmediate.load(); }
  double GetDiodeCurrent() const { return FDiodeCurrent.load(); }
  int32_t GetPulseRate() const { return FPulseRate.load(); }
  double GetPulseWidth() const { return FPulseWidth.load(); }
  bool GetIgnoreDiodeReply() const { return FIgnoreDiodeReply; }
  uint32_t AlarmMask() const { return FAlarmMask.load(); }
  uint32_t WarningMask() const { return FWarningMask.load(); }

  // false: bits 6 and 9 are warnings; true: they count as alarms too.
  void SetAlarmMode(bool enable);
  virtual void SetQCWMode(bool on);
  bool GetQCWMode() const { return FQcw.load(); }

  // ---- alarm texts for the laser classes ----
  const ipg::TStatusBitTable& AlarmTable() const { return *FGeneration.Alarms; }
  const ipg::TStatusBitTable& WarningTable() const { return *FGeneration.Warnings; }
  // The alarm text of a status bit in the current language; empty when the bit is no alarm.
  std::string AlarmText(int32_t bit) const { return FGeneration.Alarms->Text(bit); }
  std::vector<int32_t> AlarmBits() const { return FGeneration.Alarms->Bits(); }

 protected:
  // What differs between the generations: the connect time-out and the two bit tables.
  struct TGeneration {
    int32_t ConnectTimeoutMs;
    const ipg::TStatusBitTable* Alarms;
    const ipg::TStatusBitTable* Warnings;
  };
  TIPGYLRDriver(const TLaserParams& params, const TGeneration& generation, TLaserPorts* ports);

  void SetMasks(uint32_t alarmMask, uint32_t warningMask);
  void SetAlarmMask(uint32_t alarmMask) { FAlarmMask.store(alarmMask); }

 private:
  using TLock = std::unique_lock<std::recursive_mutex>;

  void StartMonitor();
  void MonitorLoop(TLaserThread& thread);
  // Brings the link up if needed and returns the comm lock, owned only when the link is up.
  TLock OpenExchange();
  // Under the comm lock: whether the link is up, and the keep-alive ping on TCP.
  bool LinkReadyLocked();
  // Ping and connect, called without the comm lock while FConnecting keeps every other caller off the client.
  bool Reconnect();
  void WriteLocked(const std::string& cmd);
  std::string ReadReplyLocked(int32_t timeoutMs);
  std::string ReadParam(const char* cmd);
  void ApplyLine(const std::string& line);
  bool DiodeCurrentChecked(double percent);

  const TLaserParams FParams;
  const TGeneration FGeneration;
  std::unique_ptr<TLaserPorts> FOwnPorts;  // only when the driver was given none
  const bool FTcpMode;
  const bool FIgnoreDiodeReply;

  std::recursive_mutex FCommLock;
  // Guarded by FCommLock:
  std::unique_ptr<nchost::TCommCtrl> FComm;
  std::unique_ptr<nchost::TVqTcpClient> FTcp;
  std::unique_ptr<nchost::TIcmpClient> FPing;
  nchost::TDelayRec FPingDelay;
  ipg::TReplyCache FCache;
  bool FConnecting = false;
  std::string FLastErrorLine;
  nchost::TDelayRec FErrorLogDelay;

  // Read by other threads without the lock.
  std::atomic<uint32_t> FDeviceStatus{0};
  std::atomic<double> FDiodeCurrent{0.0};
  std::atomic<int32_t> FPulseRate{0};
  std::atomic<double> FPulseWidth{0.0};
  std::atomic<uint32_t> FAlarmMask{0};
  std::atomic<uint32_t> FWarningMask{0};
  std::atomic<bool> FConnectedOk{false};
  std::atomic<bool> FQcw{false};
  std::atomic<bool> FImmediate{false};

  TLaserThread FMonitor{kMonThreadName};
};

}  // namespace devlaser
