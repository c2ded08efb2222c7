// The own-brand laser's frames, without threads or transports: command templates and reply patterns as the
// description file gives them, text-to-byte conversion, frame building with the CRC, and finding the alarm byte in
// what the laser sent. Byte vectors in, byte vectors out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace devlaser::zorun {

using TBytes = std::vector<uint8_t>;

// The command kinds; the description file carries them as integers 0..7.
enum TCmdType : uint8_t {
  ctInit = 0,
  ctEmissonOn = 1,
  ctEmissionOff = 2,
  ctDiodeSet = 3,  // the only command whose frame carries a parameter
  ctAlarmReply = 4,
  ctStateQuery = 5,
  ctAimingOn = 6,
  ctAimingOff = 7
};
inline constexpr int kCmdTypeCount = 8;
const char* CmdTypeName(TCmdType type);

// How the description file writes "Command" and "Reply": hexadecimal byte lists or plain ASCII text.
enum class TEncoding { Hex, Char, Unknown };
TEncoding ParseEncoding(std::string_view text);

// One command template from the description file, and also one queued command built from it.
struct TCommandData {
  int32_t FCmdLv = 0;  // at most FCmdLv + 1 commands of this type wait at once
  bool FCmdNeedReply = false;
  TBytes FCmdData;
  int32_t FInsertIdx = 0;  // where a diode set's parameter bytes go
  TCmdType FCmdType = ctInit;
  int32_t FParamLen = 0;
  int32_t FTotalLen = 0;  // working length of a frame without parameter
  int32_t FParamMax = 0;
  int32_t FParamMin = 0;
  bool FCmdNeedCheck = false;
  int32_t FCheckBeginIdx = 0;
  int32_t FCheckEndIdx = 0;  // inclusive; the CRC goes right after it
  int32_t FCheckLen = 0;     // declared only: the CRC is always two bytes
  std::string FCmdDesc;
  std::string FCmdRawData;
};

// One reply pattern. Only the alarm reply's pattern is used, to find the alarm byte.
struct TReplyData {
  std::string FReplyRawData;
  TBytes FReplyData;
  std::string FReplyDesc;
  TCmdType FCmdType = ctInit;
  int32_t FCheckBeginIdx = 0;
  int32_t FReplyFlagIdx = 0;
  int32_t FCheckEndIdx = 0;
  int32_t FCheckLen = 0;
};

struct TAlarmData {
  bool FAlarmState = false;
  std::string FAlarmDesc;
  int32_t FAlarmID = 0;  // the bit number in the alarm byte
};

// Converts a "Command" or "Reply" text. Hex: items separated by commas or blanks, each one byte in hexadecimal
// ("5A", "$5A" and "0x5A" alike). Char: the ASCII bytes of the text. Returns nothing with `error` set when the text
// is empty or a hexadecimal item is no byte; an unknown encoding gives an empty frame.
std::optional<TBytes> TextToBytes(std::string_view text, TEncoding encoding, std::string& error);

// CRC-16/MODBUS (start 0xFFFF, reflected polynomial 0xA001).
uint16_t Crc16Modbus(const uint8_t* data, size_t size);

// The parameter bytes of a diode set: `length` bytes of which only the last carries the low eight bits of the value;
// the others are zero. The laser's firmware reads it that way, so 300 in two bytes is 00 2C.
TBytes EncodeParam(int32_t value, int32_t length);

// The value a command carries, rounded half to even, saturated to int32.
int32_t RoundParam(double value);

// Builds the frame of `tmpl` for `value`. Nothing when the rounded value lies outside ParamMin..ParamMax, or when the
// check range does not fit the frame (the description loader refuses such templates beforehand). Only a checked
// template uses the working frame: an unchecked one sends its template bytes as they are, parameter or not.
std::optional<TBytes> BuildFrame(const TCommandData& tmpl, double value);

// Length of the working frame that the CRC range refers to: the template plus the parameter for a diode set, the
// declared working length otherwise.
int32_t WorkingLength(const TCommandData& tmpl);

// Why a template cannot produce a frame (an index outside its frame), or empty when it can.
std::string TemplateProblem(const TCommandData& tmpl);

// Finds the alarm byte in received bytes with the alarm reply's pattern: its bytes before the flag byte but one are
// searched for in the received bytes as hexadecimal text; the alarm byte lies ReplyFlagIdx bytes after the match.
// Without a match the search position counts as 0, and a match that starts inside a byte's two digits is taken as
// it falls; the laser's replies are laid out so that this finds the right byte. Nothing when the received bytes end
// before the alarm byte.
std::optional<uint8_t> FindAlarmCode(const TReplyData& alarmReply, const TBytes& data);

// "55AA01": upper-case hexadecimal pairs without separators; HexDump separates them by blanks.
std::string HexText(const uint8_t* data, size_t size);
inline std::string HexText(const TBytes& bytes) { return HexText(bytes.data(), bytes.size()); }
std::string HexDump(const TBytes& bytes);

}  // namespace devlaser::zorun
