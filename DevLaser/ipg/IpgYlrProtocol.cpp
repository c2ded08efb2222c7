#include "ipg/IpgYlrProtocol.h"

#include <charconv>
#include <cmath>

#include "frame/Format.h"

namespace devlaser::ipg {

// ---- status word -------------------------------------------------------------------------------------------------

uint32_t MaskedStatus(uint32_t status, uint32_t mask) { return status == kStatusUnknown ? 0 : status & mask; }

bool AnyStatusBit(uint32_t status, uint32_t mask) { return MaskedStatus(status, mask) != 0; }

bool StatusBit(uint32_t status, int32_t n) {
  if (status == kStatusUnknown) return false;
  if (n > 0) return static_cast<int32_t>(status & (1u << (static_cast<uint32_t>(n) & 31u))) > 0;
  return (status & (1u << ((0u - static_cast<uint32_t>(n)) & 31u))) == 0;
}

// ---- bit tables --------------------------------------------------------------------------------------------------

std::string TStatusBitTable::Text(int32_t bit) const {
  auto it = FRows.find(bit);
  return it == FRows.end() ? std::string() : it->second.Text();
}

std::vector<int32_t> TStatusBitTable::Bits() const {
  std::vector<int32_t> bits;
  bits.reserve(FRows.size());
  for (const auto& row : FRows) bits.push_back(row.first);
  return bits;
}

const TStatusBitTable& YlrAlarmTable() {
  static const TStatusBitTable table{{0, SIPGCommBUfferOverload},      {1, SIPGOverheat},
                                     {3, SIPGHighBackReflectionLevel}, {5, SIPGPulseTooLong},
                                     {17, SIPGHighPulseEnergy},        {19, SIPGPowerSupplyFailure},
                                     {23, SIPGHighDutyCycle},          {24, SIPGLowTemperature},
                                     {25, SIPGPowerSupplyFailure2},    {29, SIPGCriticalError},
                                     {30, SIPGOpticalInterlockactive}, {31, SIPGAveragePowertooHigh}};
  return table;
}

const TStatusBitTable& YlrWarningTable() {
  static const TStatusBitTable table{{6, SIPGModuleDisconnected}, {9, SIPGPulseTooShort}};
  return table;
}

const TStatusBitTable& Ylr2AlarmTable() {
  static const TStatusBitTable table{{1, SIPGOverheat},
                                     {3, SIPGHighBackReflectionLevel},
                                     {19, SIPGPowerSupplyFailure},
                                     {24, SIPGLowTemperature},
                                     {25, SIPGPowerSupplyFailure2},
                                     {29, SIPGCriticalError},
                                     {30, SIPGOpticalInterlockactive}};
  return table;
}

const TStatusBitTable& Ylr2WarningTable() {
  static const TStatusBitTable table{{0, SIPGCommBUfferOverload}, {5, SIPGPulseTooLong},
                                     {9, SIPGPulseTooShort},      {17, SIPGHighPulseEnergy},
                                     {23, SIPGHighDutyCycle},     {31, SIPGAveragePowertooHigh}};
  return table;
}

// ---- replies -----------------------------------------------------------------------------------------------------

namespace {

bool IsBlank(char c) { return static_cast<unsigned char>(c) <= ' '; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

bool Contains(std::string_view s, std::string_view part) { return s.find(part) != std::string_view::npos; }

// from_chars takes no leading '+'; the laser may write one.
std::string_view DropPlus(std::string_view s) {
  if (s.size() > 1 && s.front() == '+' && s[1] != '-') s.remove_prefix(1);
  return s;
}

}  // namespace

std::string ExtractParam(std::string_view s) {
  auto colon = s.find(':');
  if (colon == std::string_view::npos) return {};
  return std::string(Trim(s.substr(colon + 1)));
}

std::optional<int64_t> ParseInt64(std::string_view s) {
  s = DropPlus(s);
  int64_t value = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return value;
}

std::optional<double> ParseDouble(std::string_view s) {
  s = DropPlus(s);
  double value = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value, std::chars_format::general);
  // "nan" and "inf" parse, but no laser value is one: a set point must stay a number.
  if (s.empty() || ec != std::errc() || end != s.data() + s.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

ELineKind ClassifyLine(std::string_view line) {
  if (Contains(line, "ERR")) return ELineKind::Error;
  if (Contains(line, "STA")) return ELineKind::Status;
  if (Contains(line, "RCS") || Contains(line, "SDC")) return ELineKind::DiodeCurrent;
  if (Contains(line, "RPRR") || Contains(line, "SPRR")) return ELineKind::PulseRate;
  if (Contains(line, "RPW") || Contains(line, "SPW")) return ELineKind::PulseWidth;
  return ELineKind::Other;
}

std::optional<uint32_t> ParseStatusLine(std::string_view line) {
  auto value = ParseInt64(ExtractParam(line));
  if (!value) return std::nullopt;
  return static_cast<uint32_t>(static_cast<uint64_t>(*value) & 0xFFFFFFFFu);
}

TReplyCache::TResult TReplyCache::Feed(std::string_view text) {
  TResult result;
  FCache.append(text);
  size_t lineStart = 0;
  size_t lastCR = std::string::npos;
  for (size_t i = 0; i < FCache.size(); ++i) {
    if (FCache[i] != '\r') continue;
    result.Lines.emplace_back(FCache, lineStart, i - lineStart);
    lineStart = i + 1;
    lastCR = i;
  }
  if (FCache.size() > kMaxCache) {
    result.Overflow = true;
    FCache.clear();
  } else if (lastCR != std::string::npos) {
    FCache.erase(0, lastCR + 1);
  }
  return result;
}

// ---- which command a reply answers ---------------------------------------------------------------------------------

namespace {

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool SameTextAscii(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Upper(a[i]) != Upper(b[i])) return false;
  return true;
}

}  // namespace

std::string CommandMnemonic(std::string_view cmd) {
  cmd = Trim(cmd);
  std::string mnemonic;
  for (char c : cmd) {
    if (IsBlank(c)) break;
    mnemonic += Upper(c);
  }
  return mnemonic;
}

bool EchoesMnemonic(std::string_view line, std::string_view mnemonic) {
  if (mnemonic.empty()) return false;
  return SameTextAscii(Trim(line.substr(0, line.find(':'))), mnemonic);
}

bool IsRefusal(std::string_view line) { return ClassifyLine(line) == ELineKind::Error || Contains(line, "BCMD"); }

uint64_t TReplyTracker::Sent(std::string_view text) {
  uint64_t last = 0;
  while (!text.empty()) {
    const size_t end = text.find('\r');
    std::string mnemonic = CommandMnemonic(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (mnemonic.empty()) continue;
    last = FNext++;
    FOwed.push_back({last, std::move(mnemonic)});
    if (FOwed.size() > kMaxOwed) FOwed.pop_front();
  }
  return last;
}

uint64_t TReplyTracker::Answer(std::string_view line) {
  if (FOwed.empty() || Trim(line).empty()) return 0;
  auto answered = FOwed.begin();
  for (auto it = FOwed.begin(); it != FOwed.end(); ++it) {
    if (EchoesMnemonic(line, it->Mnemonic)) {
      answered = it;
      break;
    }
  }
  const uint64_t number = answered->Number;
  FOwed.erase(FOwed.begin(), answered + 1);
  return number;
}

std::string ShowCR(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\r')
      out += "#13";
    else
      out += c;
  }
  return out;
}

std::string ShortTextParam(std::string_view param) { return param.size() > 30 ? std::string() : std::string(param); }

std::string SerialNumberParam(std::string_view param) {
  if (param.size() >= 31 || !ParseInt64(param)) return {};
  return std::string(param);
}

// ---- commands ----------------------------------------------------------------------------------------------------

std::string Terminated(std::string_view cmd) {
  std::string out(cmd);
  if (out.empty() || out.back() != '\r') out += '\r';
  return out;
}

std::optional<std::string> FilterWndSzCmd(double seconds) {
  if (!(seconds >= 0.2 && seconds <= 5.0)) return std::nullopt;
  return Format("SFWS %.1f", seconds);
}

std::optional<std::string> PulseRateCmd(int32_t hz) {
  if (hz < 1 || hz > 9999999) return std::nullopt;
  return Format("SPRR %d", hz);
}

std::optional<std::string> PulseWidthCmd(double width) {
  if (!(width >= 0.0 && width <= 50.0)) return std::nullopt;
  return Format("SPW %.2f", width);
}

bool DiodeCurrentValid(double percent) { return percent >= 0.0 && percent <= 100.0; }

std::string DiodeCurrentCmd(double percent) { return Format("SDC %d", static_cast<int64_t>(std::lround(percent))); }

}  // namespace devlaser::ipg
