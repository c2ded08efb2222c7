// The laser side of the Raycus QCW frame protocol, without threads or descriptors: bytes in, answer bytes out. The
// pseudo-terminal front end feeds it what it reads and writes back what it returns; tests can feed it directly.
//
// Framing: a request is AA 55 | length (2) | 00 | FF | command | 00 | data | check word (2) | 55 AA, big-endian,
// the length counting the data plus 6 and the check word summing the bytes from offset 4 up to it. Bytes in front
// of a header are skipped, so the filler a controller writes after a short frame does no harm. Controllers write
// every request as one 16-byte block, which cuts the 19-byte SetLaserData frame after the high byte of its check
// word: a longer frame whose end does not follow is taken as complete after 16 bytes, and only the check byte
// that arrived is checked. A frame whose check word is wrong is logged as "BadFrame" and not answered.
//
// Answers (same layout): CheckStatus (225) gives the 32-byte status block (identification at 0, type at 10, module
// count in the last byte) and 13 alarm bytes per module; CheckBySuperMode (231) gives the status block alone with
// the mode byte in front of the frame; every other known command gives its result byte (1 = done unless set
// otherwise). Unknown commands are logged and not answered.
//
// The command log reads "CheckStatus", "SetLaserData 4 59 2000 20 1" (mode, power, frequency, duty, width),
// "CheckBySuperMode", "ReadErrorRecord", "LaserOn", "LaserOff", "ResetLaserMode", "Command 228", "BadFrame 233".
//
// Fault modes: CorruptCheck answers with a wrong check word; Double writes a stale answer in front of each answer,
// both at once: the last answer to the same command before Double was switched on (or this one again); Silent
// neither executes nor answers; Garbage executes and answers with as many bytes that hold no frame header (a noisy
// line). PowerCycle() is a laser switched off and on again: laser off, control mode and pulse settings 0.
//
// Thread safety: every member may be called from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sim/common/CommandLog.h"

namespace lasersim {

class TRayQcwEngine {
 public:
  enum class TReplyMode { Normal, CorruptCheck, Double, Silent, Garbage };
  // Called after each request with the command as logged and the bytes sent back (empty when none).
  using TTraceHook = std::function<void(const std::string& command, const std::string& reply)>;

  static constexpr size_t kAlarmBytesPerModule = 13;
  static constexpr size_t kWireRequestSize = 16;

  TRayQcwEngine();

  // Consumes bytes received from the controller; returns the answers to every request they complete.
  std::string Feed(std::string_view bytes);
  // Forgets an unfinished request.
  void ResetInput();

  TCommandLog& Log() { return FLog; }
  const TCommandLog& Log() const { return FLog; }

  // ---- what the laser reports ----
  void SetLaserId(std::string id);
  void SetLaserType(std::string type);
  // Keeps the alarm bytes of the modules that remain; new modules start without alarms.
  void SetModuleCount(uint8_t count);
  // Sets alarm byte `index` (0..12) of `module` (from 0); ignored outside the modules.
  void SetAlarm(size_t module, size_t index, uint8_t value);
  void ClearAlarms();
  // The result byte of a command's answer (1 means done).
  void SetResult(uint8_t cmd, uint8_t result);
  // The byte in front of a CheckBySuperMode answer.
  void SetModeByte(uint8_t mode);

  void SetReplyMode(TReplyMode mode);
  TReplyMode ReplyMode() const;
  void PowerCycle();
  void SetTraceHook(TTraceHook hook);

  // ---- what the laser holds ----
  bool LaserOn() const;
  uint8_t CtrlMode() const;
  uint8_t Power() const;
  uint16_t Freq() const;
  uint8_t Ratio() const;
  uint16_t PulseWidth() const;
  // SetLaserData frames that came cut after 16 bytes.
  size_t CutFrames() const;

 private:
  struct TRequest {
    uint8_t Cmd = 0;
    std::vector<uint8_t> Data;
    bool Cut = false;
    bool CheckOk = false;
  };
  // Takes the next whole request off the front of the input; false when more bytes are needed.
  bool NextRequestLocked(TRequest& request);
  std::string HandleLocked(const TRequest& request, std::string& logged);
  std::vector<uint8_t> StatusBlockLocked() const;
  std::string Frame(uint8_t cmd, const std::vector<uint8_t>& data) const;
  uint8_t ResultLocked(uint8_t cmd) const;

  mutable std::mutex FMutex;
  TCommandLog FLog;
  TTraceHook FTraceHook;
  std::string FInput;
  TReplyMode FReplyMode = TReplyMode::Normal;
  std::map<uint8_t, std::string> FLastAnswer;
  std::map<uint8_t, std::string> FStaleAnswer;

  std::string FLaserId = "RFL-QCW150";
  std::string FLaserType = "QCW";
  std::vector<uint8_t> FAlarms = std::vector<uint8_t>(kAlarmBytesPerModule, 0);
  std::map<uint8_t, uint8_t> FResults;
  uint8_t FModeByte = 1;

  bool FLaserOn = false;
  uint8_t FCtrlMode = 0;
  uint8_t FPower = 0;
  uint16_t FFreq = 0;
  uint8_t FRatio = 0;
  uint16_t FPulseWidth = 0;
  size_t FCutFrames = 0;
  uint32_t FGarbageSeed = 20240601;
};

}  // namespace lasersim
