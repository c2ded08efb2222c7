#include "zorun/ZorunProtocol.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "frame/TextCompare.h"

namespace devlaser::zorun {

const char* CmdTypeName(TCmdType type) {
  static constexpr const char* kNames[kCmdTypeCount] = {"ctInit",       "ctEmissonOn",  "ctEmissionOff", "ctDiodeSet",
                                                        "ctAlarmReply", "ctStateQuery", "ctAimingOn",    "ctAimingOff"};
  return type < kCmdTypeCount ? kNames[type] : "unknown";
}

TEncoding ParseEncoding(std::string_view text) {
  if (SameText(text, "Hex")) return TEncoding::Hex;
  if (SameText(text, "Char")) return TEncoding::Char;
  return TEncoding::Unknown;
}

namespace {

bool IsSeparator(char c) { return c == ',' || c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::optional<uint8_t> HexByte(std::string_view item) {
  if (!item.empty() && item.front() == '$')
    item.remove_prefix(1);
  else if (item.size() > 2 && item[0] == '0' && (item[1] == 'x' || item[1] == 'X'))
    item.remove_prefix(2);
  if (item.empty() || item.size() > 2) return std::nullopt;
  unsigned value = 0;
  for (char c : item) {
    int digit;
    if (c >= '0' && c <= '9')
      digit = c - '0';
    else if (c >= 'a' && c <= 'f')
      digit = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
      digit = c - 'A' + 10;
    else
      return std::nullopt;
    value = value * 16 + static_cast<unsigned>(digit);
  }
  return static_cast<uint8_t>(value);
}

}  // namespace

std::optional<TBytes> TextToBytes(std::string_view text, TEncoding encoding, std::string& error) {
  if (text.empty()) {
    error = "ZorunLaser CommandRawData is nil";
    return std::nullopt;
  }
  TBytes bytes;
  switch (encoding) {
    case TEncoding::Char:
      bytes.assign(text.begin(), text.end());
      break;
    case TEncoding::Hex: {
      size_t i = 0;
      while (i < text.size()) {
        while (i < text.size() && IsSeparator(text[i])) ++i;
        size_t end = i;
        while (end < text.size() && !IsSeparator(text[end])) ++end;
        if (end == i) break;
        std::string_view item = text.substr(i, end - i);
        auto byte = HexByte(item);
        if (!byte) {
          error = "\"" + std::string(item) + "\" is not a hexadecimal byte";
          return std::nullopt;
        }
        bytes.push_back(*byte);
        i = end;
      }
      if (bytes.empty()) {
        error = "ZorunLaser CommandRawData is nil";
        return std::nullopt;
      }
      break;
    }
    case TEncoding::Unknown:
      break;
  }
  return bytes;
}

uint16_t Crc16Modbus(const uint8_t* data, size_t size) {
  uint16_t crc = 0xFFFF;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) {
      const bool carry = (crc & 1) != 0;
      crc >>= 1;
      if (carry) crc ^= 0xA001;
    }
  }
  return crc;
}

TBytes EncodeParam(int32_t value, int32_t length) {
  TBytes bytes(length > 0 ? static_cast<size_t>(length) : 0, 0);
  for (int32_t i = 0; i < length; ++i) {
    // Byte i is the value's low byte masked by the low byte of 0xFF shifted left by 8 * (length - 1 - i): only
    // the last byte's mask is not zero.
    const int64_t shift = 8LL * (length - 1 - i);
    const uint32_t mask = shift == 0 ? 0xFFu : 0u;
    bytes[static_cast<size_t>(i)] = static_cast<uint8_t>(static_cast<uint32_t>(value) & 0xFFu & mask);
  }
  return bytes;
}

int32_t RoundParam(double value) {
  if (std::isnan(value)) return 0;
  const double rounded = std::nearbyint(value);  // the default rounding mode: half to even
  if (rounded >= static_cast<double>(std::numeric_limits<int32_t>::max())) return std::numeric_limits<int32_t>::max();
  if (rounded <= static_cast<double>(std::numeric_limits<int32_t>::min())) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(rounded);
}

int32_t WorkingLength(const TCommandData& tmpl) {
  if (tmpl.FCmdType == ctDiodeSet) return static_cast<int32_t>(tmpl.FCmdData.size()) + std::max(tmpl.FParamLen, 0);
  return tmpl.FTotalLen;
}

std::string TemplateProblem(const TCommandData& tmpl) {
  if (!tmpl.FCmdNeedCheck) return {};  // the template's bytes go out as they are
  const int32_t size = static_cast<int32_t>(tmpl.FCmdData.size());
  if (tmpl.FCmdType == ctDiodeSet) {
    if (tmpl.FParamLen < 0) return "ParamLen " + std::to_string(tmpl.FParamLen) + " is negative";
    if (tmpl.FInsertIdx < 0 || tmpl.FInsertIdx > size)
      return "ParamIdx " + std::to_string(tmpl.FInsertIdx) + " lies outside the " + std::to_string(size) +
             "-byte command";
  } else {
    if (tmpl.FTotalLen < size)
      return "CmdTotalLen " + std::to_string(tmpl.FTotalLen) + " is shorter than the " + std::to_string(size) +
             "-byte command";
  }
  const int32_t length = WorkingLength(tmpl);
  if (tmpl.FCheckBeginIdx < 0 || tmpl.FCheckBeginIdx > tmpl.FCheckEndIdx || tmpl.FCheckEndIdx >= length)
    return "check range " + std::to_string(tmpl.FCheckBeginIdx) + ".." + std::to_string(tmpl.FCheckEndIdx) +
           " lies outside the " + std::to_string(length) + "-byte frame";
  return {};
}

std::optional<TBytes> BuildFrame(const TCommandData& tmpl, double value) {
  const int32_t p = RoundParam(value);
  if (p < tmpl.FParamMin || p > tmpl.FParamMax) return std::nullopt;
  if (!tmpl.FCmdNeedCheck) return tmpl.FCmdData;

  TBytes work;
  if (tmpl.FCmdType == ctDiodeSet) {
    const TBytes param = EncodeParam(p, tmpl.FParamLen);
    const auto at =
        tmpl.FCmdData.begin() + std::clamp<int64_t>(tmpl.FInsertIdx, 0, static_cast<int64_t>(tmpl.FCmdData.size()));
    work.assign(tmpl.FCmdData.begin(), at);
    work.insert(work.end(), param.begin(), param.end());
    work.insert(work.end(), at, tmpl.FCmdData.end());
  } else {
    work.assign(static_cast<size_t>(std::max(tmpl.FTotalLen, 0)), 0);
    std::copy_n(tmpl.FCmdData.begin(), std::min(tmpl.FCmdData.size(), work.size()), work.begin());
  }
  if (tmpl.FCheckBeginIdx < 0 || tmpl.FCheckBeginIdx > tmpl.FCheckEndIdx ||
      tmpl.FCheckEndIdx >= static_cast<int32_t>(work.size()))
    return std::nullopt;
  const uint16_t crc =
      Crc16Modbus(work.data() + tmpl.FCheckBeginIdx, static_cast<size_t>(tmpl.FCheckEndIdx - tmpl.FCheckBeginIdx + 1));
  const uint8_t crcBytes[2] = {static_cast<uint8_t>(crc & 0xFF), static_cast<uint8_t>(crc >> 8)};
  work.insert(work.begin() + tmpl.FCheckEndIdx + 1, crcBytes, crcBytes + 2);
  return work;
}

std::string HexText(const uint8_t* data, size_t size) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(size * 2);
  for (size_t i = 0; i < size; ++i) {
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 0x0F];
  }
  return text;
}

std::string HexDump(const TBytes& bytes) {
  std::string text;
  const std::string hex = HexText(bytes);
  for (size_t i = 0; i < hex.size(); i += 2) {
    if (i > 0) text += ' ';
    text.append(hex, i, 2);
  }
  return text;
}

std::optional<uint8_t> FindAlarmCode(const TReplyData& alarmReply, const TBytes& data) {
  const int64_t flagIdx = alarmReply.FReplyFlagIdx;
  const int64_t k = flagIdx - 1;
  int64_t m = 0;
  if (k >= 0 && k <= static_cast<int64_t>(data.size()) && k <= static_cast<int64_t>(alarmReply.FReplyData.size())) {
    const std::string pattern = HexText(alarmReply.FReplyData.data(), static_cast<size_t>(k));
    const std::string text = HexText(data);
    const size_t found = text.find(pattern);
    // A 1-based character position halved: a match at byte b gives b.
    if (found != std::string::npos) m = static_cast<int64_t>(found + 1) / 2;
  }
  const int64_t at = m + flagIdx;
  if (at < 0 || at >= static_cast<int64_t>(data.size())) return std::nullopt;
  return data[static_cast<size_t>(at)];
}

}  // namespace devlaser::zorun
