// The driver of Raycus QCW lasers on their serial frame protocol (RayQcwProtocol.h). It owns the serial port and a
// polling thread that keeps the port open and asks for the laser's status every 100 ms; the laser class sends its
// commands through it and reads the cached status, alarm bytes and pulse settings without traffic.
//
// Every request is written as one 16-byte block and followed by one answer step that reads only what is already
// waiting. The laser answers within a few milliseconds, so an answer is usually picked up by the next exchange,
// mostly the next status poll; every answer says which command it belongs to, so it is handled all the same.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/LaserPorts.h"
#include "frame/LaserParams.h"
#include "frame/LaserThread.h"
#include "host/Transports.h"
#include "raycus/RayQcwProtocol.h"

namespace devlaser {

class TRayQCWDriver {
 public:
  static constexpr const char* kThreadName = "TRayQCWDriver";
  static constexpr int32_t kPollPeriodMs = 100;
  // The pauses of a reopen: after closing the port and after opening it again.
  static constexpr int32_t kReopenPauseMs = 50;
  // Number of entries of the alarm table: one per alarm byte of a module.
  static constexpr int32_t kAlarmCount = static_cast<int32_t>(rayqcw::kAlarmBytesPerModule);

  using TBufEvent = std::function<void(const std::string& text)>;

  // Opens the serial port `Comm.CommPort` with `Comm.CommSettings` through `ports` (the laser's; null: ports of
  // the driver's own), starts the polling thread and resets the laser's control mode.
  explicit TRayQCWDriver(const TLaserParams& params, TLaserPorts* ports = nullptr);
  // Stop().
  ~TRayQCWDriver();
  TRayQCWDriver(const TRayQCWDriver&) = delete;
  TRayQCWDriver& operator=(const TRayQCWDriver&) = delete;

  // Stops and joins the polling thread for good and closes the port; from then on the driver sends nothing. Safe
  // to call more than once and from any thread but the polling thread.
  void Stop() noexcept;
  bool Stopped() const { return FStopped.load(); }

  // ---- link ----
  // Whether the port is open. On the polling thread a closed port is reopened first (close, 50 ms, open, 50 ms).
  bool CheckConnection();
  bool PortActive() const { return FPortActive.load(); }

  // ---- commands ----
  void CheckStatus() { SendCmd(rayqcw::kCheckStatus, {}, true); }
  void CheckBySuperMode() { SendCmd(rayqcw::kCheckBySuperMode, {}, true); }
  void ReadErrorRecord() { SendCmd(rayqcw::kReadErrorRecord, {}, true); }
  void LaserOn() { SendCmd(rayqcw::kLaserOn, {}, true); }
  void LaserOff() { SendCmd(rayqcw::kLaserOff, {}, true); }
  void ResetLaserMode() { SendCmd(rayqcw::kResetLaserMode, {}, true); }
  // Sends the stored pulse settings with the control mode; no answer is waited for.
  void SetLaserData();

  // Stores the mode sent with the pulse settings; a change resets the laser's mode.
  void SetControlMode(rayqcw::TCtrlMode mode);
  void EnableContinusCtrl() { SetControlMode(rayqcw::TCtrlMode::OuterContinusMode); }
  void EnableModulationCtrl() { SetControlMode(rayqcw::TCtrlMode::OuterModulationMode); }
  void DisableContinusCtrl() { SetControlMode(rayqcw::TCtrlMode::OFFMode); }
  void DisableModulationCtrl() { SetControlMode(rayqcw::TCtrlMode::OFFMode); }
  rayqcw::TCtrlMode GetControlMode() const;

  // Stores the pulse settings within the limits of the laser model (LimitPulseSettings); sends nothing.
  void SetLaserParam(uint8_t power, uint16_t freq, uint8_t ratio, uint16_t pulseWidth);
  rayqcw::TPulseSettings GetLaserParam() const;
  uint8_t GetLaserPower() const { return GetLaserParam().Power; }
  uint16_t GetLaserFreq() const { return GetLaserParam().Freq; }
  uint8_t GetLaserRatio() const { return GetLaserParam().Ratio; }
  uint16_t GetLaserPulseW() const { return GetLaserParam().Width; }

  // ---- what the laser reported (cached) ----
  std::string GetLaserID() const;
  std::string GetLaserType() const;
  bool GetIsQCW150() const;
  bool GetIsQCW450() const;
  // The mode byte of the last answer to a status-with-mode request (1 or 2); 0 before one came.
  uint8_t GetCurMode() const { return FCurMode.load(); }
  std::vector<uint8_t> GetStatusBlock() const;
  // 13 bytes per module, in module order; non-zero means raised.
  std::vector<uint8_t> GetAlarmBytes() const;
  // At least one module's alarm bytes are known, the port is open and one of them is raised.
  bool HasAlarm() const;
  // Bit i: alarm index i is raised in some module.
  uint16_t GetDeviceStatus() const { return FDevStatus.load(); }

  // The alarm text of index 0..12 in the current language; empty for any other index.
  static std::string AlarmText(int32_t index);

  // Receives the debug traffic text (debug mode only), on the thread that sent or received.
  void SetBufEvent(TBufEvent event);

 private:
  bool OnPollingThread() const { return std::this_thread::get_id() == FThreadId.load(); }
  void SendCmd(uint8_t cmd, const rayqcw::TBytes& data, bool waitAnswer);
  // Reads what is waiting on the port and handles the latest answer in it.
  void ReceiveResponse();
  void HandleAnswer(const rayqcw::TAnswer& answer);
  void Trace(const std::string& text);
  // Debug traces of the status poll repeat ten times a second: a poll's trace is sent only when it differs from
  // the previous poll's.
  bool PollTraceChanged(int direction, const std::string& text);
  void Poll(TLaserThread& thread);

  const TLaserParams FParams;
  const std::unique_ptr<TLaserPorts> FOwnPorts;

  // Guards the port: one write or one read of what is waiting at a time.
  std::mutex FCommLock;
  std::unique_ptr<nchost::TCommCtrl> FComm;

  // Guards what the laser reported and the settings to send.
  mutable std::mutex FDataLock;
  rayqcw::TBytes FStatusBlock;
  rayqcw::TBytes FAlarmBytes;
  rayqcw::TPulseSettings FSettings;
  rayqcw::TCtrlMode FCtrlMode = rayqcw::TCtrlMode::OFFMode;
  TBufEvent FBufEvent;

  std::atomic<uint8_t> FCurMode{0};
  std::atomic<uint16_t> FDevStatus{0};
  std::atomic<bool> FPortActive{false};
  std::atomic<bool> FStopped{false};
  std::atomic<std::thread::id> FThreadId{};
  // Used by the polling thread only.
  std::string FLastPollTrace[2];

  TLaserThread FThread{kThreadName};
};

}  // namespace devlaser
