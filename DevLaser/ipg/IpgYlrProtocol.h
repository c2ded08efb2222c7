// The IPG YLR text-command protocol without transports or threads: status-word masks and bit tables, reply-line
// splitting and classification, parameter parsing and command formatting with the setters' valid ranges.
//
// The laser answers short mnemonics ended by a carriage return with lines such as "STA: 4096" or "SDC: 40",
// also ended by a carriage return. A line may arrive in pieces and several lines may arrive in one read.
#pragma once

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frame/LaserStrs.h"

namespace devlaser::ipg {

// ---- status word -------------------------------------------------------------------------------------------------

// The status word before the laser has said otherwise is 0; this value means that the status is unknown.
inline constexpr uint32_t kStatusUnknown = 0xFFFFFFFF;

// Bits that describe what the laser is doing (emission, aiming, modes ...).
inline constexpr uint32_t kLaserStateMask = 0x08759D14;
// First generation: alarms and warnings; with warnings counted as alarms, bits 6 and 9 join the alarms.
inline constexpr uint32_t kYlrAlarmMask = 0xE38A002B;
inline constexpr uint32_t kYlrWarningMask = 0x00000240;
inline constexpr uint32_t kYlrAlarmMaskWithWarnings = 0xE38A026B;
// Second generation: in CW several first-generation alarms only warn; in QCW they are alarms again.
inline constexpr uint32_t kYlr2AlarmMaskCw = 0x6308000A;
inline constexpr uint32_t kYlr2WarningMaskCw = 0x80820221;
inline constexpr uint32_t kYlr2AlarmMaskQcw = 0xE38A022B;

// `status` AND `mask`, or 0 when the status is unknown.
uint32_t MaskedStatus(uint32_t status, uint32_t mask);
// True when a bit of `mask` is set in a known status.
bool AnyStatusBit(uint32_t status, uint32_t mask);
// The laser classes' bit query. For n > 0: bit n is set, judged on the word as a signed 32-bit value, so that
// bit 31 never reads as set. For n <= 0: bit |n| is clear (n = 0 asks whether bit 0 is clear). False when the
// status is unknown. Both asymmetries are relied on by the laser classes' configuration tables.
bool StatusBit(uint32_t status, int32_t n);

// ---- bit tables --------------------------------------------------------------------------------------------------

// Status bit number -> message variable. The text is read when asked for, so a language switch applies at once.
class TStatusBitTable {
 public:
  TStatusBitTable() = default;
  TStatusBitTable(std::initializer_list<std::pair<const int32_t, TMessage>> rows) : FRows(rows) {}

  bool Contains(int32_t bit) const { return FRows.count(bit) != 0; }
  // The current text of the bit's message, empty when the bit has no entry.
  std::string Text(int32_t bit) const;
  // The bit numbers in ascending order.
  std::vector<int32_t> Bits() const;
  size_t Size() const { return FRows.size(); }

 private:
  std::map<int32_t, TMessage> FRows;
};

const TStatusBitTable& YlrAlarmTable();
const TStatusBitTable& YlrWarningTable();
const TStatusBitTable& Ylr2AlarmTable();
const TStatusBitTable& Ylr2WarningTable();

// ---- replies -----------------------------------------------------------------------------------------------------

// The text after the first ':' with surrounding blanks and control characters removed; empty without a ':'.
std::string ExtractParam(std::string_view s);

// Numbers as the laser writes them: the whole text must be the number (an optional sign, decimal digits, for
// floating values a decimal point and exponent); anything else does not parse.
std::optional<int64_t> ParseInt64(std::string_view s);
std::optional<double> ParseDouble(std::string_view s);

// What a reply line reports. Tested in this order, by substring, so a line with "ERR" and "STA" is an error.
enum class ELineKind { Error, Status, DiodeCurrent, PulseRate, PulseWidth, Other };
ELineKind ClassifyLine(std::string_view line);

// The new status word from a status line: the low 32 bits of its 64-bit parameter; nothing when it is no number.
std::optional<uint32_t> ParseStatusLine(std::string_view line);

// Collects received text into lines ended by a carriage return. An unfinished line waits for the next text.
class TReplyCache {
 public:
  // The cache is given up when it holds more than this after a reception: the link is producing garbage.
  static constexpr size_t kMaxCache = 1000;

  struct TResult {
    std::vector<std::string> Lines;  // completed lines, without their carriage return, line feeds kept
    bool Overflow = false;           // the cache grew past kMaxCache and was emptied
  };

  TResult Feed(std::string_view text);
  const std::string& Pending() const { return FCache; }
  void Clear() { FCache.clear(); }

 private:
  std::string FCache;
};

// ---- which command a reply answers ---------------------------------------------------------------------------------

// The mnemonic of a command ("SDC 40" -> "SDC"), upper case; empty for an empty command.
std::string CommandMnemonic(std::string_view cmd);
// Whether a reply line echoes `mnemonic`: the text before its ':' (the whole line without one) is that mnemonic,
// in any case and between blanks. "SDC: 40.0" echoes "SDC", "EMON" echoes "EMON", "RSN: 1" does not echo "RS".
bool EchoesMnemonic(std::string_view line, std::string_view mnemonic);
// A refusal: an error line or "BCMD" (a command the laser does not know). Neither names the refused command.
bool IsRefusal(std::string_view line);

// Which written command each reply line answers. The laser answers every command with one line, in order, and
// most replies echo their mnemonic: a line that echoes a command still owed answers that command (those owed
// before it lost their replies), and any other line (a refusal, say) answers the oldest command owed.
class TReplyTracker {
 public:
  // Replies owed beyond this many are forgotten, oldest first: a laser that stopped answering owes no history.
  static constexpr size_t kMaxOwed = 64;

  // Notes the commands of one write (several when separated by carriage returns); returns the number given to
  // its last command, 0 when it held none. Numbers start at 1 and only grow.
  uint64_t Sent(std::string_view text);
  // Attributes one reply line; returns the number of the command it answers, 0 when none was owed or the line
  // is blank.
  uint64_t Answer(std::string_view line);
  // Forgets every reply owed (a new connection owes none).
  void Reset() { FOwed.clear(); }
  size_t Owed() const { return FOwed.size(); }

 private:
  struct TOwed {
    uint64_t Number;
    std::string Mnemonic;
  };
  std::deque<TOwed> FOwed;
  uint64_t FNext = 1;
};

// Shows carriage returns as "#13" in trace lines.
std::string ShowCR(std::string_view text);

// Reading commands' values. The output power and firmware texts are dropped when longer than 30 characters;
// the serial number only counts when it is shorter than 31 characters and an integer.
std::string ShortTextParam(std::string_view param);
std::string SerialNumberParam(std::string_view param);

// ---- commands ----------------------------------------------------------------------------------------------------

// Appends the carriage return that ends a command unless it is there already.
std::string Terminated(std::string_view cmd);

// The setters' commands, or nothing when the value is outside the range the laser accepts.
std::optional<std::string> FilterWndSzCmd(double seconds);  // "SFWS %.1f", 0.2 .. 5.0
std::optional<std::string> PulseRateCmd(int32_t hz);        // "SPRR %d", 1 .. 9999999
std::optional<std::string> PulseWidthCmd(double width);     // "SPW %.2f", 0 .. 50
// Diode current in percent, 0 .. 100; the laser takes whole percents.
bool DiodeCurrentValid(double percent);
std::string DiodeCurrentCmd(double percent);  // "SDC %d" with the value rounded to the nearest integer

// An echoed current confirms a request when it is this close to it.
inline constexpr double kDiodeEchoTolerance = 0.05;

}  // namespace devlaser::ipg
