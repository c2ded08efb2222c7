#include "zorun/ZorunDriver.h"

#include <cmath>
#include <exception>

#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserError.h"
#include "frame/LaserStrs.h"

namespace devlaser {

using namespace zorun;

namespace {

constexpr uint32_t kConnectedOkColor = 0x808000;
// Diode-current changes smaller than this are not sent.
constexpr double kDiodeChangeFilter = 0.1;
// A pass whose send found the link down waits this long before the next, instead of spinning every millisecond.
constexpr int32_t kLinkDownPassMs = 20;
// How long the send thread sleeps when nothing can be sent; an AddCmd wakes it earlier.
constexpr int32_t kIdleWaitMs = 1000;

// The driver's entries in the application log, message type 0.
void ShowDebugZorunLaser(const std::string& msg) { LogMsg("ZorunLaser:" + msg, 0); }

void Trace(const std::string& msg) { CSLog(msg, nchost::msgtype::kTrace); }

// State queries and their acknowledgements go out several times a second: they are never logged.
bool IsPolling(TCmdType type) { return type == ctStateQuery || type == ctAlarmReply; }

}  // namespace

TZorunDriver::TZorunDriver(const TLaserParams& params, TLaserPorts* ports)
    : FDefLaserCfg(params), FOwnPorts(ports ? nullptr : std::make_unique<TLaserPorts>()) {
  auto* app = Host();
  if (app == nullptr) throw ELaserError("Zorun.DataTransType Error: there is no host to read the description from");
  const TDataTransType type = params.DefParams.DataTransType;
  if (type != dttNone && type != dttSerial && type != dttNetTcp && type != dttNetUDP)
    throw ELaserError(
        Format("Zorun.DataTransType Error: transport %d is none of none, serial, TCP and UDP", static_cast<int>(type)));
  FDescriptionFile = DescriptionPath(*app);
  FDescription = LoadDescription(*app, FDescriptionFile, params.CfgZorun.LaserIdx, type == dttSerial);
  if (FDescription.Encoding == TEncoding::Unknown)
    ShowDebugZorunLaser("EncodeType Error: " + FDescriptionFile + " InstructionEnCode \"" +
                        FDescription.Cfg.InstructionEncode + "\" is neither Hex nor Char; every command is empty");
  for (const auto& skipped : FDescription.Skipped) ShowDebugZorunLaser(FDescriptionFile + ", skipped " + skipped);
  FAlarmDict = FDescription.Alarms;
  for (const auto& [cmdType, tmpl] : FDescription.Commands) {
    if (cmdType == ctDiodeSet) continue;
    if (auto frame = BuildFrame(tmpl, 0.0)) FFixedFrames.emplace(cmdType, std::move(*frame));
  }
  // The connection warning repeats at the configured interval, not on every failed probe.
  FLaserConnet.Initialize(static_cast<int32_t>(std::lround(params.DefParams.ConnCheck.ConnCheckTimeIntv)));

  if (type == dttNone) {
    LogMsg(SDataTransTypeNone, nchost::msgtype::kWarning);
  } else {
    // A description without serial settings leaves them to the laser's configuration.
    const std::string& commSettings =
        FDescription.Cfg.CommSettings.empty() ? params.DefParams.Comm.CommSettings : FDescription.Cfg.CommSettings;
    FLink = std::make_unique<TZorunLink>(ports ? *ports : *FOwnPorts, type, params, commSettings,
                                         [this] { IcmpTimeout(); });
    if (!FLink->HasClient()) LogMsg("ZorunLaser: the host offers no client for the configured link", 8);
    StartThreads();
  }
  AddCmd(ctInit, 0);
}

TZorunDriver::~TZorunDriver() { Stop(); }

void TZorunDriver::Stop() {
  std::lock_guard stopLock(FStopLock);
  if (FStopped.exchange(true)) return;
  // Closed, not only stopped: a stopped driver never starts them again.
  FRecvThread.Close();
  FSendThread.Close();
  try {
    FlushSwitchOffs();
  } catch (const std::exception& e) {
    LogMsg(std::string("ZorunLaser.Stop Exception:") + e.what(), nchost::msgtype::kLaserLog);
  }
  // The ping client's thread may be in IcmpTimeout, which takes the link lock: the link is taken out under the
  // lock and closed outside it.
  std::unique_ptr<TZorunLink> link;
  {
    std::lock_guard lock(FLinkLock);
    link = std::move(FLink);
  }
  link.reset();
  std::lock_guard lock(FListLock);
  FCmdList.clear();
  FCmdFifo.Clear();
}

// ---- commands ----------------------------------------------------------------------------------------------------

bool TZorunDriver::CheckAllowCmd(TCmdType type) const {
  auto it = FDescription.Commands.find(type);
  if (it == FDescription.Commands.end()) return true;  // nothing is queued for it anyway
  std::lock_guard lock(FListLock);
  int32_t count = 0;
  for (const TCommand* cmd : FCmdList)
    if (cmd->FCmdType == type) ++count;
  return !(count > 0 && count > it->second.FCmdLv);
}

void TZorunDriver::AddCmd(TCmdType type, double value) {
  if (FStopped.load() || !CheckAllowCmd(type)) return;
  auto it = FDescription.Commands.find(type);
  if (it == FDescription.Commands.end()) return;
  const TCommand& tmpl = it->second;

  std::optional<TBytes> frame;
  if (auto fixed = FFixedFrames.find(type); fixed != FFixedFrames.end() && RoundParam(value) == 0)
    frame = fixed->second;
  else
    frame = BuildFrame(tmpl, value);
  if (!frame) {
    ShowDebugZorunLaser(SParamInvaild.Text());
    return;
  }
  auto cmd = std::make_unique<TCommand>(tmpl);
  cmd->FCmdData = std::move(*frame);
  {
    // Checked again under the lock: the host, the send and the receive thread all queue commands.
    std::lock_guard lock(FListLock);
    int32_t count = 0;
    for (const TCommand* queued : FCmdList)
      if (queued->FCmdType == type) ++count;
    if (count > 0 && count > tmpl.FCmdLv) return;
    FCmdList.push_back(cmd.get());
    FCmdFifo.Push(cmd.release());
  }
  FSendThread.Wake();
}

void TZorunDriver::SetDiodeCurrent(double value) {
  auto it = FDescription.Commands.find(ctDiodeSet);
  if (it == FDescription.Commands.end()) return;
  const TCommand& tmpl = it->second;
  if (!(value <= tmpl.FParamMax && value >= tmpl.FParamMin)) {
    ShowMsg(Format(SSetDiodeParamsInValid.Text(), value), nchost::msgtype::kWarning);
    return;
  }
  if (std::fabs(FDiodeCurrent.load() - value) < kDiodeChangeFilter) return;
  // The laser may miss a frame: a diode set goes out CmdLv + 1 times.
  for (int32_t i = 0; i <= tmpl.FCmdLv; ++i) AddCmd(ctDiodeSet, value);
  FDiodeCurrent.store(value);
}

std::vector<TBytes> TZorunDriver::QueuedFrames() const {
  std::lock_guard lock(FListLock);
  std::vector<TBytes> frames;
  for (const TCommand* cmd : FCmdList) frames.push_back(cmd->FCmdData);
  return frames;
}

std::vector<TCmdType> TZorunDriver::QueuedTypes() const {
  std::lock_guard lock(FListLock);
  std::vector<TCmdType> types;
  for (const TCommand* cmd : FCmdList) types.push_back(cmd->FCmdType);
  return types;
}

void TZorunDriver::Unlist(const TCommand* cmd) {
  std::lock_guard lock(FListLock);
  for (auto it = FCmdList.begin(); it != FCmdList.end(); ++it) {
    if (*it == cmd) {
      FCmdList.erase(it);
      return;
    }
  }
}

// ---- sending and receiving ---------------------------------------------------------------------------------------

bool TZorunDriver::HeadSendable() {
  TCommand* head = nullptr;
  return FCmdFifo.Peek(head) && head != nullptr && !head->FCmdData.empty();
}

void TZorunDriver::SendFrame(const TCommand& cmd) {
  std::lock_guard lock(FLinkLock);
  if (!IsPolling(cmd.FCmdType) && GLaserDebugMode()) Trace("Send Data: " + HexDump(cmd.FCmdData));
  FLastSendFailed = !FLink || !FLink->Send(cmd.FCmdData);
}

bool TZorunDriver::SendFifoCmd() {
  TCommand* head = nullptr;
  if (FCmdFifo.Empty() || !FCmdFifo.Peek(head) || head == nullptr) return false;
  if (head->FCmdData.empty()) return false;  // holds up the queue until the driver stops
  if (!FCmdFifo.Pop(head)) return false;
  std::unique_ptr<TCommand> cmd(head);
  Unlist(cmd.get());
  SendFrame(*cmd);
  if (!IsPolling(cmd->FCmdType) && !cmd->FCmdDesc.empty()) ShowDebugZorunLaser(cmd->FCmdDesc);
  if (cmd->FCmdNeedReply && !FLastSendFailed) ReceiveResponse(kReplyWindowMs, !IsPolling(cmd->FCmdType));
  return true;
}

TBytes TZorunDriver::ReceiveResponse(int32_t timeoutMs) { return ReceiveResponse(timeoutMs, true); }

TBytes TZorunDriver::ReceiveResponse(int32_t timeoutMs, bool trace) {
  TBytes data;
  {
    std::lock_guard lock(FLinkLock);
    if (!FLink) return data;
    data = FLink->Receive(timeoutMs);
  }
  if (data.empty()) return data;
  if (trace && GLaserDebugMode()) Trace("Rev Data: " + HexDump(data));
  AnalyzeResponse(data);
  if (!FConnected.exchange(true)) ShowMsg(SLaserConnectedOk, nchost::msgtype::kInformation, kConnectedOkColor);
  return data;
}

void TZorunDriver::AnalyzeResponse(const TBytes& data) {
  auto it = FDescription.Replies.find(ctAlarmReply);
  if (it == FDescription.Replies.end()) return;
  const auto code = FindAlarmCode(it->second, data);
  if (!code) return;
  UpdateAlarmCode(*code);
  AddCmd(ctAlarmReply, 0);
}

void TZorunDriver::UpdateAlarmCode(int32_t code) {
  std::lock_guard lock(FAlarmLock);
  for (auto& [id, alarm] : FAlarmDict) alarm.FAlarmState = ((code >> (alarm.FAlarmID & 31)) & 1) != 0;
  if (code != FLastAlarmCode) {
    FLastAlarmCode = code;
    ShowDebugZorunLaser(Format("alarm byte %02X", code));
  }
}

bool TZorunDriver::CheckAlarm(int32_t id) const {
  std::lock_guard lock(FAlarmLock);
  auto it = FAlarmDict.find(id);
  return it != FAlarmDict.end() && it->second.FAlarmState;
}

std::string TZorunDriver::GetAlarmDesc(int32_t id) const {
  std::lock_guard lock(FAlarmLock);
  auto it = FAlarmDict.find(id);
  return it != FAlarmDict.end() && it->second.FAlarmState ? it->second.FAlarmDesc : std::string();
}

std::vector<int32_t> TZorunDriver::AlarmIds() const {
  std::lock_guard lock(FAlarmLock);
  std::vector<int32_t> ids;
  for (const auto& entry : FAlarmDict) ids.push_back(entry.first);
  return ids;
}

// ---- link ----------------------------------------------------------------------------------------------------------

bool TZorunDriver::CheckConnection() {
  bool up = false;
  {
    std::lock_guard lock(FLinkLock);
    up = FLink && FLink->Probe();
  }
  // The next reply tells the operator that the laser is back.
  if (!up && FConnected.exchange(false)) LogMsg("Net Connection Closed.", nchost::msgtype::kWarning);
  if (up) FSendThread.Wake();
  return up;
}

void TZorunDriver::IcmpTimeout() {
  try {
    std::lock_guard lock(FLinkLock);
    if (!FLink || !FLink->TcpConnected()) return;
    LogMsg("Net Connection Closed.", nchost::msgtype::kWarning);
    FConnected.store(false);
    FLink->DropTcp();
  } catch (const std::exception& e) {
    LogMsg(std::string("ZorunLaser.IcmpTimeout Exception:") + e.what(), nchost::msgtype::kLaserLog);
  }
}

void TZorunDriver::FlushSwitchOffs() {
  // Emission and aiming switched off on the way out are a safe state the laser must still hear of; everything else
  // queued is dropped.
  TCommand* item = nullptr;
  while (FCmdFifo.Pop(item)) {
    std::unique_ptr<TCommand> cmd(item);
    Unlist(cmd.get());
    if ((cmd->FCmdType == ctEmissionOff || cmd->FCmdType == ctAimingOff) && !cmd->FCmdData.empty()) {
      SendFrame(*cmd);
      if (!cmd->FCmdDesc.empty()) ShowDebugZorunLaser(cmd->FCmdDesc);
    }
  }
}

// ---- threads -------------------------------------------------------------------------------------------------------

namespace {
void ReportPassException(TLaserThread& thread, bool& reported, const char* what) {
  if (reported) return;
  reported = true;
  ShowMsg(thread.Name() + "Exception:" + what, nchost::msgtype::kLaserLog);
}
}  // namespace

void TZorunDriver::StartThreads() {
  FRecvThread.Start([this](TLaserThread& thread) { RecvLoop(thread); });
  FSendThread.Start([this](TLaserThread& thread) { SendLoop(thread); });
}

void TZorunDriver::SendLoop(TLaserThread& thread) {
  bool reported = false;
  // The init command must not go to a TCP link that is not connected yet: connect before the first pass. Later a
  // lost link drops what is sent meanwhile, so a reconnect never replays an emission switch.
  try {
    CheckConnection();
  } catch (const std::exception& e) {
    ReportPassException(thread, reported, e.what());
  }
  while (!thread.Terminated()) {
    try {
      FLastSendFailed = false;
      SendFifoCmd();
      AddCmd(ctStateQuery, 0);
    } catch (const std::exception& e) {
      ReportPassException(thread, reported, e.what());
    } catch (...) {
      ReportPassException(thread, reported, "unknown");
    }
    // One pass per millisecond while there is something to send, as the laser expects to be polled; nothing to
    // send (or a head that can never be sent) waits for the next command instead of spinning.
    bool go = true;
    if (FLastSendFailed)
      go = thread.SleepA(kLinkDownPassMs);
    else if (HeadSendable())
      go = thread.SleepA(kSendGapMs);
    else
      go = thread.WaitForWake(kIdleWaitMs);
    if (!go) break;
  }
}

void TZorunDriver::RecvLoop(TLaserThread& thread) {
  bool reported = false;
  do {
    try {
      FLaserConnet.CheckConnection(CheckConnection());
      ReceiveResponse(kReplyWindowMs);
    } catch (const std::exception& e) {
      ReportPassException(thread, reported, e.what());
    } catch (...) {
      ReportPassException(thread, reported, "unknown");
    }
  } while (thread.SleepA(kRecvGapMs));
}

}  // namespace devlaser
