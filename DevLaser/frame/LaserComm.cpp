#include "frame/LaserComm.h"

#include <atomic>

#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserStrs.h"

namespace devlaser {

// ---- library logger ----------------------------------------------------------------------------------------------

TCSLogger::TCSLogger() {
  if (auto* app = Host()) {
    FLogger = app->CreateLogger(kCategory);
    auto* hostLog = app->CSLog();
    if (FLogger) FLogger->SetEnabled(hostLog != nullptr && hostLog->Enabled());
  }
}

TCSLogger::~TCSLogger() = default;

void TCSLogger::Check(bool condition, const std::string& msg) {
  if (!condition && FLogger) FLogger->SendError(msg);
}

void TCSLogger::ShowMsg(const std::string& msg, int msgType) {
  if (!FLogger) return;
  switch (msgType) {
    case nchost::msgtype::kInformation:
      FLogger->SendMsg(msg);
      break;
    case nchost::msgtype::kWarning:
      FLogger->SendWarning(msg);
      break;
    case nchost::msgtype::kError:
      FLogger->SendError(msg);
      break;
    default:
      FLogger->Send(msg);
      break;
  }
}

bool TCSLogger::Enabled() const { return FLogger && FLogger->Enabled(); }

void TCSLogger::SetEnabled(bool enabled) {
  if (FLogger) FLogger->SetEnabled(enabled);
}

namespace {
std::atomic<TCSLogger*> GLogger{nullptr};
std::atomic<bool> GDebugMode{false};
std::atomic<std::thread::id> GMonThread{};
}  // namespace

TCSLogger* CSLogger() { return GLogger.load(std::memory_order_acquire); }
void SetCSLogger(TCSLogger* logger) { GLogger.store(logger, std::memory_order_release); }

void CSLog(const std::string& msg, int msgType) {
  if (auto* logger = CSLogger()) logger->ShowMsg(msg, msgType);
}

// ---- debug mode --------------------------------------------------------------------------------------------------

void SetLaserDebugMode(bool on) { GDebugMode.store(on, std::memory_order_relaxed); }
void SetLaserMonThreadID(std::thread::id id) { GMonThread.store(id, std::memory_order_relaxed); }
bool GLaserDebugMode() {
  return GDebugMode.load(std::memory_order_relaxed) &&
         GMonThread.load(std::memory_order_relaxed) != std::this_thread::get_id();
}

// ---- simulated IO board ------------------------------------------------------------------------------------------

std::string PortText(uint8_t port) {
  if (auto* app = Host()) return app->PortToStr(port);
  return std::to_string(port);
}

void TSimIOExtBoard::SetOutputbit(uint8_t port, bool value) {
  CSLog(Format("SetOutputbit: %s, %s", PortText(port), BoolToStr(value)), nchost::msgtype::kInformation);
}

void TSimIOExtBoard::CloseAllOutports() { CSLog("CloseAllOutports", nchost::msgtype::kInformation); }

void TSimIOExtBoard::SetPwmEn(uint8_t port, bool value) {
  CSLog(Format("SetPwmEn: %s, %s", PortText(port), BoolToStr(value)), nchost::msgtype::kInformation);
}

void TSimIOExtBoard::SetPwmFreq(uint8_t port, double value) {
  CSLog(Format("SetPwmFreq: %s, %.3f", PortText(port), value), nchost::msgtype::kInformation);
}

void TSimIOExtBoard::SetPwmRatio(uint8_t port, double value) {
  CSLog(Format("SetPwmRatio: %s, %.3f", PortText(port), value), nchost::msgtype::kInformation);
}

void TSimIOExtBoard::SetDAValue(uint8_t port, double value) {
  CSLog(Format("SetDAValue: %s, %.3f", PortText(port), value), nchost::msgtype::kInformation);
}

// ---- connection check --------------------------------------------------------------------------------------------

void TLaserConnCheck::Initialize(int32_t intervalMinutes) {
  IntervalMinutes = intervalMinutes;
  Timer.Delay(0);
}

bool TLaserConnCheck::CheckConnection(bool connected) {
  if (connected) {
    if (Timer.IsBusy()) Timer.Delay(0);  // the next loss is reported at once
  } else if (!Timer.IsBusy()) {
    ShowMsg(SLaserConnectedFail, nchost::msgtype::kWarning);
    Timer.Delay(static_cast<int64_t>(IntervalMinutes) * 60000);
  }
  return connected;
}

}  // namespace devlaser
