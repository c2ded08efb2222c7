// The frame protocol of the Raycus quasi-continuous-wave (QCW) lasers, without transports or threads: request
// frames, answer validation and the meaning of the answers' data. Byte vectors in and out.
//
// A frame is AA 55 | length (2) | CTN 0 | channel FF | command | 0 | data (n) | check word (2) | 55 AA, with every
// multi-byte value big-endian. The length counts the data plus 6; the check word is the 16-bit sum of the bytes
// from the CTN byte up to the check word. A frame without data is 12 bytes long. Answers have the same layout; the
// answer to a status-with-mode request (231) carries one extra byte, the laser's mode, in front of its frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace devlaser::rayqcw {

using TBytes = std::vector<uint8_t>;

// Command codes.
enum TCmdCode : uint8_t {
  kCheckStatus = 225,
  kSetLaserData = 226,
  kCheckBySuperMode = 231,
  kReadErrorRecord = 232,
  kLaserOn = 233,
  kLaserOff = 234,
  kResetLaserMode = 237,
};

// How the laser is driven; sent with the pulse settings.
enum class TCtrlMode : uint8_t {
  OFFMode = 0,
  InterContinusMode = 1,
  InterModulationMode = 2,
  OuterContinusMode = 3,
  OuterModulationMode = 4,
};

inline constexpr uint8_t kHeader[2] = {0xAA, 0x55};
inline constexpr uint8_t kFooter[2] = {0x55, 0xAA};
inline constexpr uint8_t kChannel = 0xFF;
inline constexpr size_t kFrameOverhead = 12;
inline constexpr size_t kDataOffset = 8;
// The laser's firmware takes exactly this many bytes per request: shorter frames are followed by filler, and the
// pulse-settings frame (19 bytes) goes out without its last three bytes. Lasers in the field accept it so.
inline constexpr size_t kWireRequestSize = 16;
inline constexpr size_t kStatusBlockSize = 32;
inline constexpr size_t kAlarmBytesPerModule = 13;
inline constexpr size_t kLaserTextSize = 10;
inline constexpr size_t kLaserIdOffset = 0;
inline constexpr size_t kLaserTypeOffset = 10;
inline constexpr size_t kModuleCountOffset = kStatusBlockSize - 1;

// The 16-bit sum of `bytes[from, to)`.
uint16_t SumWord(const TBytes& bytes, size_t from, size_t to);

// The whole request frame of `cmd` with `data`.
TBytes BuildRequest(uint8_t cmd, const TBytes& data = {});
// What goes on the line for a request frame: its first kWireRequestSize bytes, zero-filled when shorter.
TBytes WireRequest(const TBytes& frame);

// ---- answers -----------------------------------------------------------------------------------------------------

struct TAnswer {
  uint8_t Cmd = 0;
  TBytes Data;
  // The byte in front of a 231 answer's frame, when there is one.
  std::optional<uint8_t> ModeByte;
};

// A whole frame checked by header, footer, length and check word; nothing when any of them is wrong.
std::optional<TAnswer> ParseFrame(const TBytes& frame);

// The latest answer in what was waiting on the line. Everything waiting is read at once, so it may hold an older
// answer before the latest one; that older state is stale, and only the last frame counts. Frames are found from
// the front by their header and length so that data bytes that look like a header do not split one. A byte in front
// of a 231 frame (not part of an earlier frame) is its mode byte. Nothing when the last frame fails its checks or
// bytes follow it, or there is no frame: a corrupted answer never yields an older one instead.
std::optional<TAnswer> LastAnswer(const TBytes& received);

// Whether the answer reports success: commands with a result byte succeed when it is 1 (SetLaserData only when it
// answers with exactly one byte); the others always do.
bool AnswerSucceeded(const TAnswer& answer);

// A status answer's data: the 32-byte status block, then 13 alarm bytes per module, the module count being the
// block's last byte. Fewer alarm bytes than the count asks for are taken as they come.
struct TStatusReply {
  TBytes Block;
  TBytes Alarms;
};
std::optional<TStatusReply> ParseStatusData(const TBytes& data);

// Up to 10 bytes of the status block from `offset`, each byte a character, ending at the first zero byte.
std::string LaserText(const TBytes& block, size_t offset);

// Bit i set when alarm index i (0..12) is raised in any module.
uint16_t AlarmSummary(const TBytes& alarms);

// ---- pulse settings ----------------------------------------------------------------------------------------------

// What the laser model allows of the pulse settings.
enum class TQcwModel { QCW150, QCW450, Other };
TQcwModel ModelOfLaserId(const std::string& laserId);

struct TPulseSettings {
  uint8_t Power = 0;   // percent
  uint16_t Freq = 0;   // Hz
  uint8_t Ratio = 0;   // duty, percent
  uint16_t Width = 0;  // pulse-width setting
  bool operator==(const TPulseSettings&) const = default;
};

// The settings limited to what `model` takes: power 1..100; duty and frequency 10..30 % and 500..5000 Hz on a
// QCW450, 1..50 % and 0..5000 Hz on a QCW150, fixed 20 % and 2000 Hz on any other; pulse width 1..6; and the power
// lowered so that duty x power stays within 1000.
TPulseSettings LimitPulseSettings(TQcwModel model, const TPulseSettings& asked);

// The 7 data bytes of SetLaserData: mode, power, frequency (2), duty, pulse width (2).
TBytes PulseSettingsData(TCtrlMode mode, const TPulseSettings& settings);

// Two upper-case hexadecimal digits and a blank per byte.
std::string HexDump(const TBytes& bytes);

}  // namespace devlaser::rayqcw
