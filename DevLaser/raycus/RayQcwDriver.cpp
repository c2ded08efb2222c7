#include "raycus/RayQcwDriver.h"

#include <array>
#include <exception>

#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"

namespace devlaser {

using rayqcw::TBytes;

namespace {

constexpr size_t kReadChunk = 1024;
// A line that never stops delivering must not keep the answer step reading: what is waiting beyond this is left
// for the next exchange.
constexpr int kMaxReadsPerAnswer = 16;

constexpr std::array<TMessage, TRayQCWDriver::kAlarmCount> kAlarmTexts = {
    STemperature1Err,     STemperature2Err,    STemperature3Err,    STemperature4Err,     SLaserOnStatus1Err,
    SLaserOnStatus2Err,   SPowerStatus1Err,    SPowerStatus2Err,    SPowerPanelStatusErr, SCurrentPanelStatusErr,
    SLaserOnBtnStatusErr, SInterLockStatusErr, SPulseWidthStatusErr};

enum { kSendTrace = 0, kReceiveTrace = 1 };

}  // namespace

TRayQCWDriver::TRayQCWDriver(const TLaserParams& params, TLaserPorts* ports)
    : FParams(params), FOwnPorts(ports ? nullptr : std::make_unique<TLaserPorts>()) {
  FComm = (ports ? *ports : *FOwnPorts).CommCtrl();
  if (FComm) {
    FComm->SetSettings(FParams.DefParams.Comm.CommSettings);
    FComm->SetPort(FParams.DefParams.Comm.CommPort);
    FPortActive = FComm->SetActive(true);
  } else {
    LogMsg("RayQCWDriver: the host offers no serial port.", nchost::msgtype::kLaserLog);
  }
  FThread.Start([this](TLaserThread& thread) { Poll(thread); });
  ResetLaserMode();
}

TRayQCWDriver::~TRayQCWDriver() { Stop(); }

void TRayQCWDriver::Stop() noexcept {
  FStopped = true;
  FThread.Close();
  try {
    std::lock_guard lock(FCommLock);
    if (FComm) FComm->SetActive(false);
    FComm.reset();
  } catch (...) {
    // A port that fails to close is gone with its object all the same.
  }
  FPortActive = false;
}

// ---- link --------------------------------------------------------------------------------------------------------

bool TRayQCWDriver::CheckConnection() {
  const bool pollingThread = OnPollingThread();
  // Only the polling thread brings a closed port back; a host call then does not even wait for the port's lock.
  if (!pollingThread && !FPortActive) return false;
  {
    std::lock_guard lock(FCommLock);
    if (FStopped || !FComm) return false;
    FPortActive = FComm->GetActive();
    if (FPortActive || !pollingThread) return FPortActive;
    FComm->SetActive(false);
  }
  // The reopen with its pauses runs on the polling thread only, and without the lock, because a host call must
  // return at once: a host call that finds the port closed drops its command, just as a command is dropped when a
  // reopen fails, and the polling thread retries the reopen every period anyway.
  if (!FThread.SleepA(kReopenPauseMs)) return false;
  {
    std::lock_guard lock(FCommLock);
    if (FStopped || !FComm) return false;
    FComm->SetActive(true);
  }
  if (!FThread.SleepA(kReopenPauseMs)) return false;
  std::lock_guard lock(FCommLock);
  if (FStopped || !FComm) return false;
  FPortActive = FComm->SetActive(true);
  return FPortActive;
}

// ---- exchanges ---------------------------------------------------------------------------------------------------

void TRayQCWDriver::SendCmd(uint8_t cmd, const TBytes& data, bool waitAnswer) {
  if (!CheckConnection()) return;
  const TBytes frame = rayqcw::BuildRequest(cmd, data);
  const TBytes wire = rayqcw::WireRequest(frame);
  {
    std::lock_guard lock(FCommLock);
    if (FStopped || !FComm) return;
    if (FComm->Write(std::string(wire.begin(), wire.end())) == -1) {
      FComm->SetActive(false);
      FPortActive = false;
    }
  }
  if (GLaserDebugMode()) {
    const std::string text = "RayQCW.SendCmd: " + rayqcw::HexDump(frame);
    if (!(cmd == rayqcw::kCheckStatus && OnPollingThread()) || PollTraceChanged(kSendTrace, text)) Trace(text);
  }
  if (waitAnswer) ReceiveResponse();
}

void TRayQCWDriver::ReceiveResponse() {
  TBytes received;
  {
    std::lock_guard lock(FCommLock);
    if (FStopped || !FComm || !FPortActive) return;
    for (int reads = 0; reads < kMaxReadsPerAnswer; ++reads) {
      const std::string chunk = FComm->Read(kReadChunk);
      if (chunk.empty()) break;
      received.insert(received.end(), chunk.begin(), chunk.end());
    }
  }
  if (received.empty()) return;
  if (auto answer = rayqcw::LastAnswer(received)) HandleAnswer(*answer);
  if (GLaserDebugMode()) {
    const std::string text = "RayQCW.Recevied:" + rayqcw::HexDump(received);
    if (!OnPollingThread() || PollTraceChanged(kReceiveTrace, text)) Trace(text);
  }
}

void TRayQCWDriver::HandleAnswer(const rayqcw::TAnswer& answer) {
  switch (answer.Cmd) {
    case rayqcw::kCheckStatus:
      if (auto status = rayqcw::ParseStatusData(answer.Data)) {
        std::lock_guard lock(FDataLock);
        FStatusBlock = std::move(status->Block);
        FAlarmBytes = std::move(status->Alarms);
        FDevStatus = rayqcw::AlarmSummary(FAlarmBytes);
      }
      break;
    case rayqcw::kCheckBySuperMode:
      if (answer.ModeByte && (*answer.ModeByte == 1 || *answer.ModeByte == 2)) FCurMode = *answer.ModeByte;
      if (answer.Data.size() == rayqcw::kStatusBlockSize) {
        std::lock_guard lock(FDataLock);
        FStatusBlock = answer.Data;
      }
      break;
    default:
      break;
  }
  if (!rayqcw::AnswerSucceeded(answer) && GLaserDebugMode()) Trace("ErrorCode" + std::to_string(answer.Cmd));
}

void TRayQCWDriver::SetLaserData() {
  TBytes data;
  {
    std::lock_guard lock(FDataLock);
    data = rayqcw::PulseSettingsData(FCtrlMode, FSettings);
  }
  SendCmd(rayqcw::kSetLaserData, data, false);
}

// ---- settings ----------------------------------------------------------------------------------------------------

void TRayQCWDriver::SetControlMode(rayqcw::TCtrlMode mode) {
  {
    std::lock_guard lock(FDataLock);
    if (mode == FCtrlMode) return;
    FCtrlMode = mode;
  }
  ResetLaserMode();
}

rayqcw::TCtrlMode TRayQCWDriver::GetControlMode() const {
  std::lock_guard lock(FDataLock);
  return FCtrlMode;
}

void TRayQCWDriver::SetLaserParam(uint8_t power, uint16_t freq, uint8_t ratio, uint16_t pulseWidth) {
  std::lock_guard lock(FDataLock);
  const auto model = rayqcw::ModelOfLaserId(rayqcw::LaserText(FStatusBlock, rayqcw::kLaserIdOffset));
  FSettings = rayqcw::LimitPulseSettings(model, {power, freq, ratio, pulseWidth});
}

rayqcw::TPulseSettings TRayQCWDriver::GetLaserParam() const {
  std::lock_guard lock(FDataLock);
  return FSettings;
}

// ---- cached state ------------------------------------------------------------------------------------------------

std::string TRayQCWDriver::GetLaserID() const {
  std::lock_guard lock(FDataLock);
  return rayqcw::LaserText(FStatusBlock, rayqcw::kLaserIdOffset);
}

std::string TRayQCWDriver::GetLaserType() const {
  std::lock_guard lock(FDataLock);
  return rayqcw::LaserText(FStatusBlock, rayqcw::kLaserTypeOffset);
}

bool TRayQCWDriver::GetIsQCW150() const { return GetLaserID().find("QCW150") != std::string::npos; }
bool TRayQCWDriver::GetIsQCW450() const { return GetLaserID().find("QCW450") != std::string::npos; }

std::vector<uint8_t> TRayQCWDriver::GetStatusBlock() const {
  std::lock_guard lock(FDataLock);
  return FStatusBlock;
}

std::vector<uint8_t> TRayQCWDriver::GetAlarmBytes() const {
  std::lock_guard lock(FDataLock);
  return FAlarmBytes;
}

bool TRayQCWDriver::HasAlarm() const {
  if (!FPortActive) return false;
  std::lock_guard lock(FDataLock);
  if (FAlarmBytes.size() < rayqcw::kAlarmBytesPerModule) return false;
  for (uint8_t b : FAlarmBytes)
    if (b != 0) return true;
  return false;
}

std::string TRayQCWDriver::AlarmText(int32_t index) {
  if (index < 0 || index >= kAlarmCount) return {};
  return kAlarmTexts[static_cast<size_t>(index)].Text();
}

// ---- debug traces ------------------------------------------------------------------------------------------------

void TRayQCWDriver::SetBufEvent(TBufEvent event) {
  std::lock_guard lock(FDataLock);
  FBufEvent = std::move(event);
}

void TRayQCWDriver::Trace(const std::string& text) {
  TBufEvent event;
  {
    std::lock_guard lock(FDataLock);
    event = FBufEvent;
  }
  if (event) event(text);
  LogMsg(text, nchost::msgtype::kCommLog);
}

bool TRayQCWDriver::PollTraceChanged(int direction, const std::string& text) {
  if (FLastPollTrace[direction] == text) return false;
  FLastPollTrace[direction] = text;
  return true;
}

// ---- polling thread ----------------------------------------------------------------------------------------------

void TRayQCWDriver::Poll(TLaserThread& thread) {
  FThreadId = std::this_thread::get_id();
  TLaserConnCheck connCheck;
  connCheck.Initialize(static_cast<int32_t>(FParams.DefParams.ConnCheck.ConnCheckTimeIntv));
  bool reportException = true;
  while (thread.WaitForWake(kPollPeriodMs)) {
    try {
      connCheck.CheckConnection(CheckConnection());
      CheckStatus();
    } catch (const std::exception& e) {
      // Once per thread life: a broken port would otherwise repeat the same line ten times a second.
      if (reportException) LogMsg(std::string(kThreadName) + " Exception: " + e.what(), nchost::msgtype::kLaserLog);
      reportException = false;
    }
  }
}

}  // namespace devlaser
