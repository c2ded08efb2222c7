#include "ipg/IpgYlrDriver.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <thread>

#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserError.h"
#include "frame/LaserStrs.h"

namespace devlaser {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int32_t kYlrConnectTimeoutMs = 1000;
constexpr int32_t kReconnectPingMs = 100;
constexpr int32_t kKeepAlivePeriodMs = 5000;
constexpr int32_t kKeepAliveTimeoutMs = 1000;
constexpr int32_t kDrainMs = 20;
constexpr int32_t kReadTimeoutMs = 1000;
constexpr int32_t kSetterReplyMs = 100;
constexpr int32_t kSerialPollMs = 50;
constexpr int32_t kTcpPollMs = 100;
constexpr size_t kReceiveChunk = 1024;
constexpr size_t kMaxLateReads = 16;
constexpr int kUnconfirmedSends = 5;
constexpr auto kDiodeSendPause = milliseconds(5);
constexpr uint32_t kConnectedOkColor = 0x808000;
// A laser that refuses every poll would repeat the same error line ten times a second.
constexpr int64_t kRepeatedErrorLogMs = 10000;

bool TcpModeFor(TDataTransType type) {
  switch (type) {
    case dttNone:
    case dttNetTcp:
      return true;
    case dttSerial:
      return false;
    default:
      throw ELaserError("IPG.LaserType Error Message");
  }
}

void Trace(const std::string& msg) { LogMsg(msg, nchost::msgtype::kCommLog); }

int32_t RemainingMs(Clock::time_point deadline) {
  auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int32_t>(std::min<int64_t>(left, INT32_MAX)) : 0;
}

}  // namespace

TIPGYLRDriver::TIPGYLRDriver(const TLaserParams& params, TLaserPorts* ports)
    : TIPGYLRDriver(params, {kYlrConnectTimeoutMs, &ipg::YlrAlarmTable(), &ipg::YlrWarningTable()}, ports) {}

TIPGYLRDriver::TIPGYLRDriver(const TLaserParams& params, const TGeneration& generation, TLaserPorts* ports)
    : FParams(params),
      FGeneration(generation),
      FOwnPorts(ports ? nullptr : std::make_unique<TLaserPorts>()),
      FTcpMode(TcpModeFor(params.DefParams.DataTransType)),
      FIgnoreDiodeReply(params.CfgIPG.YLR.IgnoreDiodeReply) {
  TLaserPorts& opener = ports ? *ports : *FOwnPorts;
  if (FTcpMode) {
    FTcp = opener.TcpClient();
    FPing = opener.IcmpClient();
  } else {
    FComm = opener.CommCtrl();
  }
  const auto& def = FParams.DefParams;
  if (FTcp) {
    FTcp->SetRemoteHost(def.Net.TcpHost);
    FTcp->SetRemotePort(kRemotePort);
  }
  if (FPing) {
    FPing->SetHost(def.Net.TcpHost);
    FPing->SetProbePort(kProbePort);
  }
  if (FComm) {
    FComm->SetPort(def.Comm.CommPort);
    FComm->SetSettings(def.Comm.CommSettings);
  }
  if (FTcpMode ? !FTcp : !FComm)
    LogMsg(FTcpMode ? "IPGYLRDriver: the host offers no TCP client." : "IPGYLRDriver: the host offers no serial port.",
           nchost::msgtype::kLaserLog);
  StartMonitor();
}

TIPGYLRDriver::~TIPGYLRDriver() {
  FMonitor.Close();
  // The ping client's thread may be inside IcmpTimeout: destroying the client waits for it while the driver is
  // still whole. The transports go last.
  std::unique_ptr<nchost::TIcmpClient> ping;
  {
    std::lock_guard lock(FCommLock);
    ping = std::move(FPing);
  }
  ping.reset();
  std::lock_guard lock(FCommLock);
  FTcp.reset();
  FComm.reset();
}

void TIPGYLRDriver::Stop() { FMonitor.Close(); }

// ---- link --------------------------------------------------------------------------------------------------------

bool TIPGYLRDriver::LinkReadyLocked() {
  // A link found down ends the connection: the first reply on the next one tells the operator it is back.
  if (!FTcpMode) {
    const bool open = FComm && FComm->SetActive(true);
    if (!open) FConnectedOk = false;
    NoteLinkLocked(open);
    return open;
  }
  if (FConnecting || !FTcp || !FTcp->Connected()) {
    FConnectedOk = false;
    NoteLinkLocked(false);
    return false;
  }
  NoteLinkLocked(true);
  if (FPing && !FPingDelay.IsBusy()) {
    FPingDelay.Delay(kKeepAlivePeriodMs);
    FPing->PingAsync(kKeepAliveTimeoutMs, [this] { IcmpTimeout(); });
  }
  return true;
}

void TIPGYLRDriver::NoteLinkLocked(bool up) {
  if (up == FLinkUp) return;
  FLinkUp = up;
  ++FConnection;
  // Replies owed on the old link never come; the laser on the new one may be another.
  FReplies.Reset();
  FSerialRead = false;
  std::lock_guard lock(FSerialLock);
  FSerialNumber.clear();
}

bool TIPGYLRDriver::Reconnect() {
  // A ping first: connecting to an absent address would cost the whole connect time-out.
  if (FPing && !FPing->Ping(kReconnectPingMs)) return false;
  return FTcp->Connect(FGeneration.ConnectTimeoutMs);
}

bool TIPGYLRDriver::CheckConnection() {
  {
    std::lock_guard lock(FCommLock);
    if (!FTcpMode || !FTcp) return LinkReadyLocked();
    if (FConnecting) return false;
    if (LinkReadyLocked()) return true;
    FConnecting = true;
  }
  bool connected = false;
  try {
    connected = Reconnect();
  } catch (...) {
    std::lock_guard lock(FCommLock);
    FConnecting = false;
    throw;
  }
  std::lock_guard lock(FCommLock);
  FConnecting = false;
  return connected && LinkReadyLocked();
}

void TIPGYLRDriver::IcmpTimeout() {
  try {
    std::lock_guard lock(FCommLock);
    if (FConnecting || !FTcp || !FTcp->Connected()) return;
    LogMsg("TCP Connection Closed.", nchost::msgtype::kWarning);
    FConnectedOk = false;
    FTcp->Disconnect();
  } catch (const std::exception& e) {
    LogMsg(std::string("IPGYLRDriver.IcmpTimeout Exception:") + e.what(), nchost::msgtype::kLaserLog);
  }
}

TIPGYLRDriver::TLock TIPGYLRDriver::OpenExchange() {
  if (!CheckConnection()) return {};
  TLock lock(FCommLock);
  if (!LinkReadyLocked()) lock.unlock();
  return lock;
}

// ---- exchanges ---------------------------------------------------------------------------------------------------

uint64_t TIPGYLRDriver::WriteLocked(const std::string& cmd) {
  if (cmd.empty()) return 0;
  std::string text = ipg::Terminated(cmd);
  if (!LinkReadyLocked()) return 0;
  if (GLaserDebugMode()) Trace("PC->Laser:" + ipg::ShowCR(text.substr(0, text.size() - 1)));
  if (FComm)
    FComm->Write(text);
  else
    FTcp->Send(text);
  return FReplies.Sent(text);
}

void TIPGYLRDriver::SendCmd(const std::string& cmd) {
  if (cmd.empty()) return;
  if (auto lock = OpenExchange()) WriteLocked(cmd);
}

TIPGYLRDriver::TReceived TIPGYLRDriver::ReceiveLocked(Clock::time_point deadline, const TLineTest& done) {
  TReceived received;
  auto take = [&](const std::string& chunk) {
    received.Text += chunk;
    for (auto& line : AnalyzeLocked(chunk))
      if (!received.Line && done && done(line)) received.Line = std::move(line.Text);
  };
  // Past the deadline only what had already arrived is read; a link that never stops talking cannot hold the
  // caller beyond this many further reads.
  size_t lateReads = 0;
  if (FComm) {
    if (!FComm->GetActive()) return received;
    // A serial port cannot be waited on through the host's interface: poll it, briefly, for this window only.
    while (!received.Line) {
      std::string chunk = FComm->Read(kReceiveChunk);
      const int32_t left = RemainingMs(deadline);
      if (!chunk.empty()) {
        take(chunk);
        if (left <= 0 && ++lateReads > kMaxLateReads) break;
        continue;
      }
      if (left <= 0) break;
      std::this_thread::sleep_for(milliseconds(1));
    }
  } else if (FTcp && !FConnecting) {
    while (!received.Line) {
      const int32_t left = RemainingMs(deadline);
      if (!FTcp->WaitForData(left)) break;
      std::string chunk = FTcp->Receive(kReceiveChunk);
      if (chunk.empty()) break;  // the peer has closed the connection
      take(chunk);
      if (left <= 0 && ++lateReads > kMaxLateReads) break;
    }
  }
  if (!received.Text.empty() && !FConnectedOk.exchange(true))
    ShowMsg(SLaserConnectedOk, nchost::msgtype::kInformation, kConnectedOkColor);
  return received;
}

std::string TIPGYLRDriver::ReceiveResponse(int32_t timeoutMs) {
  std::lock_guard lock(FCommLock);
  return ReceiveLocked(Clock::now() + milliseconds(std::max(timeoutMs, 0))).Text;
}

std::optional<std::string> TIPGYLRDriver::ExchangeLocked(const std::string& cmd, int32_t timeoutMs) {
  DrainLocked();
  const auto deadline = Clock::now() + milliseconds(std::max(timeoutMs, 0));
  const uint64_t number = WriteLocked(cmd);
  if (number == 0) return std::nullopt;
  const std::string mnemonic = ipg::CommandMnemonic(cmd);
  return ReceiveLocked(deadline,
                       [&](const TReplyLine& line) {
                         return ipg::EchoesMnemonic(line.Text, mnemonic) ||
                                (line.Answers == number && ipg::IsRefusal(line.Text));
                       })
      .Line;
}

std::string TIPGYLRDriver::SendAndReply(const std::string& cmd, int32_t timeoutMs) {
  auto lock = OpenExchange();
  if (!lock) return {};
  return ExchangeLocked(cmd, timeoutMs).value_or(std::string());
}

void TIPGYLRDriver::SendNoReply(const std::string& cmd) {
  auto lock = OpenExchange();
  if (!lock) return;
  if (!FImmediate) DrainLocked();
  WriteLocked(cmd);
}

void TIPGYLRDriver::AnalyzeResponse(const std::string& text) {
  std::lock_guard lock(FCommLock);
  AnalyzeLocked(text);
}

std::vector<TIPGYLRDriver::TReplyLine> TIPGYLRDriver::AnalyzeLocked(const std::string& text) {
  const bool debug = GLaserDebugMode();
  if (debug) {
    Trace("ResponseCache = " + ipg::ShowCR(FCache.Pending()));
    Trace("Response      = " + ipg::ShowCR(text));
  }
  auto result = FCache.Feed(text);
  std::vector<TReplyLine> lines;
  lines.reserve(result.Lines.size());
  for (auto& line : result.Lines) {
    ApplyLine(line);
    const uint64_t answers = FReplies.Answer(line);
    lines.push_back({std::move(line), answers});
  }
  if (result.Overflow) LogMsg(SIPGCommCommunicationException, nchost::msgtype::kLaserLog);
  if (debug) Trace("ResponseCache2 = " + ipg::ShowCR(FCache.Pending()));
  return lines;
}

void TIPGYLRDriver::ApplyLine(const std::string& line) {
  switch (ipg::ClassifyLine(line)) {
    case ipg::ELineKind::Error:
      if (line != FLastErrorLine || !FErrorLogDelay.IsBusy()) {
        LogMsg("IPGLaser: " + line, nchost::msgtype::kLaserLog);
        FLastErrorLine = line;
        FErrorLogDelay.Delay(kRepeatedErrorLogMs);
      }
      break;
    case ipg::ELineKind::Status:
      if (auto status = ipg::ParseStatusLine(line)) FDeviceStatus = *status;
      break;
    case ipg::ELineKind::DiodeCurrent:
      if (auto current = ipg::ParseDouble(ipg::ExtractParam(line))) FDiodeCurrent = *current;
      break;
    case ipg::ELineKind::PulseRate:
      if (auto rate = ipg::ParseInt64(ipg::ExtractParam(line)); rate && *rate >= INT32_MIN && *rate <= INT32_MAX)
        FPulseRate = static_cast<int32_t>(*rate);
      break;
    case ipg::ELineKind::PulseWidth:
      if (auto width = ipg::ParseDouble(ipg::ExtractParam(line))) FPulseWidth = *width;
      break;
    case ipg::ELineKind::Other:
      break;
  }
}

// ---- commands ----------------------------------------------------------------------------------------------------

std::string TIPGYLRDriver::ReadParam(const char* cmd) {
  // A refusal answers the command too, but carries no value.
  const std::string line = SendAndReply(cmd, kReadTimeoutMs);
  return ipg::EchoesMnemonic(line, cmd) ? ipg::ExtractParam(line) : std::string();
}

void TIPGYLRDriver::ResetErrors() { SendAndReply("RERR", kReadTimeoutMs); }

double TIPGYLRDriver::GetElapsedTime() { return ipg::ParseDouble(ReadParam("RET")).value_or(0.0); }
double TIPGYLRDriver::GetFilterWndSz() { return ipg::ParseDouble(ReadParam("RFWS")).value_or(0.0); }
double TIPGYLRDriver::GetLaserTemperature() { return ipg::ParseDouble(ReadParam("RCT")).value_or(0.0); }
double TIPGYLRDriver::GetMinimumCurrent() { return ipg::ParseDouble(ReadParam("RNC")).value_or(10.0); }

int32_t TIPGYLRDriver::GetModuleErrorCode() {
  auto code = ipg::ParseInt64(ReadParam("RMEC"));
  return code && *code >= INT32_MIN && *code <= INT32_MAX ? static_cast<int32_t>(*code) : 0;
}

std::string TIPGYLRDriver::GetOutputPower() { return ipg::ShortTextParam(ReadParam("ROP")); }
std::string TIPGYLRDriver::GetSerialNumber() { return ipg::SerialNumberParam(ReadParam("RSN")); }
std::string TIPGYLRDriver::GetSoftwareRevision() { return ipg::ShortTextParam(ReadParam("RFV")); }

std::string TIPGYLRDriver::KnownSerialNumber() {
  if (!FSerialRead.load() && !FSerialWanted.exchange(true)) FMonitor.Wake();
  std::lock_guard lock(FSerialLock);
  return FSerialNumber;
}

void TIPGYLRDriver::ReadSerialNumberOnce() {
  uint64_t connection = 0;
  {
    std::lock_guard lock(FCommLock);
    if (!FLinkUp) return;  // asked again once the link is up
    connection = FConnection;
  }
  FSerialWanted = false;
  std::string serial = GetSerialNumber();
  std::lock_guard lock(FCommLock);
  if (connection != FConnection) return;  // the link changed meanwhile: that laser's number is not this one's
  FSerialRead = true;
  std::lock_guard serialLock(FSerialLock);
  FSerialNumber = std::move(serial);
}

void TIPGYLRDriver::SetFilterWndSz(double seconds) {
  if (auto cmd = ipg::FilterWndSzCmd(seconds)) SendNoReply(*cmd);
}

void TIPGYLRDriver::SetPulseRate(int32_t hz) {
  if (auto cmd = ipg::PulseRateCmd(hz)) SendAndReply(*cmd, kSetterReplyMs);
}

void TIPGYLRDriver::SetPulseWidth(double width) {
  if (auto cmd = ipg::PulseWidthCmd(width)) SendAndReply(*cmd, kSetterReplyMs);
}

bool TIPGYLRDriver::DiodeCurrentChecked(double percent) {
  if (ipg::DiodeCurrentValid(percent)) return true;
  ShowMsg(Format(SSetDiodeParamsInValid.Text(), percent), nchost::msgtype::kWarning);
  return false;
}

void TIPGYLRDriver::SetDiodeCurrent(double percent) {
  if (!DiodeCurrentChecked(percent)) return;
  nchost::TDelayRec timeout;
  timeout.Delay(FParams.DefParams.DiodeSetTimeOut);
  const std::string cmd = ipg::DiodeCurrentCmd(percent);
  auto confirmed = [&] { return std::fabs(FDiodeCurrent.load() - percent) < ipg::kDiodeEchoTolerance; };

  if (FIgnoreDiodeReply) {
    for (int i = 0; i < kUnconfirmedSends; ++i) {
      // A no-reply send with the immediate flag: no drain before it. The lock is held across the flag so that
      // the monitor's poll never skips its own drain because of this send.
      if (auto lock = OpenExchange()) {
        FImmediate = true;
        WriteLocked(cmd);
        FImmediate = false;
      }
      std::this_thread::sleep_for(kDiodeSendPause);
    }
    return;
  }

  // The echo is compared with the request, not with the whole percent sent, so a fractional request is never
  // confirmed and ends in the message below; the laser classes rely on that to flag such a set.
  const TLineTest confirming = [&](const TReplyLine& line) {
    return ipg::EchoesMnemonic(line.Text, "SDC") && confirmed();
  };
  for (bool first = true;; first = false) {
    {
      auto lock = OpenExchange();
      if (!lock) break;  // no link: repeating cannot help, and the caller is the host's control thread
      if (!first) {
        // An unconfirmed repeat keeps the pace it always had (a pause for late replies before each send), so a
        // laser that never confirms gets as many sets as it always did; a late confirming echo ends the set here.
        ReceiveLocked(Clock::now() + milliseconds(kDrainMs), confirming);
        if (confirmed() || !timeout.IsBusy()) break;
      }
      DrainLocked();
      const auto window = Clock::now() + milliseconds(kSetterReplyMs);
      if (WriteLocked(cmd) == 0) break;
      // The window ends at a confirming echo; an echo of another value leaves it open until its end.
      if (ReceiveLocked(window, confirming).Line) break;
    }
    std::this_thread::sleep_for(kDiodeSendPause);
  }
  if (!confirmed())
    ShowMsg(Format(SSetDiodeParamsFaild.Text(), FDiodeCurrent.load(), percent), nchost::msgtype::kWarning);
}

void TIPGYLRDriver::SetDiodeCurrentAsynchronous(double percent) {
  if (!DiodeCurrentChecked(percent)) return;
  const std::string cmd = ipg::DiodeCurrentCmd(percent);
  for (int i = 0; i < kUnconfirmedSends; ++i) SendNoReply(cmd);
}

// ---- cached state ------------------------------------------------------------------------------------------------

uint32_t TIPGYLRDriver::GetLaserState() const { return ipg::MaskedStatus(FDeviceStatus, ipg::kLaserStateMask); }
uint32_t TIPGYLRDriver::GetLaserAlarm() const { return ipg::MaskedStatus(FDeviceStatus, FAlarmMask); }
uint32_t TIPGYLRDriver::GetLaserWarning() const { return ipg::MaskedStatus(FDeviceStatus, FWarningMask); }
bool TIPGYLRDriver::HasAlarm() const { return ipg::AnyStatusBit(FDeviceStatus, FAlarmMask); }
// Warnings count only in QCW mode.
bool TIPGYLRDriver::HasWarning() const { return FQcw && ipg::AnyStatusBit(FDeviceStatus, FWarningMask); }
bool TIPGYLRDriver::GetStatusBit(int32_t n) const { return ipg::StatusBit(FDeviceStatus, n); }

void TIPGYLRDriver::SetAlarmMode(bool enable) {
  if (enable)
    SetAlarmMask(ipg::kYlrAlarmMaskWithWarnings);
  else
    SetMasks(ipg::kYlrAlarmMask, ipg::kYlrWarningMask);
}

void TIPGYLRDriver::SetQCWMode(bool on) { FQcw = on; }

void TIPGYLRDriver::SetMasks(uint32_t alarmMask, uint32_t warningMask) {
  FAlarmMask = alarmMask;
  FWarningMask = warningMask;
}

// ---- monitor thread ----------------------------------------------------------------------------------------------

namespace {
// Pauses after a failed poll and logs the first failure of the thread's life; false when a stop cut the pause.
bool ReportMonitorException(TLaserThread& thread, bool& report, const char* what) {
  if (!thread.SleepA(10)) return false;
  if (report) {
    report = false;
    LogMsg(std::string("IPGYLRDriver.TIPGMonThread Exception:") + what, nchost::msgtype::kLaserLog);
  }
  return true;
}
}  // namespace

void TIPGYLRDriver::StartMonitor() {
  FMonitor.Start([this](TLaserThread& thread) { MonitorLoop(thread); });
}

void TIPGYLRDriver::MonitorLoop(TLaserThread& thread) {
  // Its polls would flood the debug trace.
  SetLaserMonThreadID(std::this_thread::get_id());
  const int32_t period = FTcp ? kTcpPollMs : kSerialPollMs;
  TLaserConnCheck connCheck;
  connCheck.Initialize(static_cast<int32_t>(FParams.DefParams.ConnCheck.ConnCheckTimeIntv));
  bool reportException = true;
  while (thread.WaitForWake(period)) {
    try {
      // Sent without waiting: the reply is parsed by the next exchange's drain.
      SendNoReply("STA");
      connCheck.CheckConnection(CheckConnection());
      // Read here, once per connection, so that no caller ever waits for it. A caller that asked while the read
      // was under way has its answer once it is done: no second read.
      if (FSerialWanted.load() && !FSerialRead.load() && FConnectedOk.load()) ReadSerialNumberOnce();
    } catch (const std::exception& e) {
      if (!ReportMonitorException(thread, reportException, e.what())) break;
    } catch (...) {
      if (!ReportMonitorException(thread, reportException, "unknown")) break;
    }
  }
  SetLaserMonThreadID(std::thread::id());
}

}  // namespace devlaser
