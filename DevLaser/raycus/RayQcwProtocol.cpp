#include "raycus/RayQcwProtocol.h"

#include <algorithm>

namespace devlaser::rayqcw {

namespace {

uint16_t BigEndianAt(const TBytes& bytes, size_t offset) {
  return static_cast<uint16_t>((bytes[offset] << 8) | bytes[offset + 1]);
}

void AppendBigEndian(TBytes& bytes, uint16_t value) {
  bytes.push_back(static_cast<uint8_t>(value >> 8));
  bytes.push_back(static_cast<uint8_t>(value & 0xFF));
}

bool HasHeaderAt(const TBytes& bytes, size_t offset) {
  return offset + 1 < bytes.size() && bytes[offset] == kHeader[0] && bytes[offset + 1] == kHeader[1];
}

bool HasFooterAt(const TBytes& bytes, size_t offset) {
  return offset + 1 < bytes.size() && bytes[offset] == kFooter[0] && bytes[offset + 1] == kFooter[1];
}

// The total length a frame starting at `offset` declares, when its header is there and the frame fits in `bytes`
// and ends with the footer.
std::optional<size_t> FrameLengthAt(const TBytes& bytes, size_t offset) {
  if (!HasHeaderAt(bytes, offset) || offset + kFrameOverhead > bytes.size()) return std::nullopt;
  const size_t total = static_cast<size_t>(BigEndianAt(bytes, offset + 2)) + 6;
  if (total < kFrameOverhead || offset + total > bytes.size()) return std::nullopt;
  if (!HasFooterAt(bytes, offset + total - 2)) return std::nullopt;
  return total;
}

bool HasResultByte(uint8_t cmd) {
  switch (cmd) {
    case kReadErrorRecord:
    case kLaserOn:
    case kLaserOff:
    case kResetLaserMode:
      return true;
    default:
      return false;
  }
}

template <class T>
T Clamped(T value, T low, T high) {
  return std::min(std::max(value, low), high);
}

}  // namespace

uint16_t SumWord(const TBytes& bytes, size_t from, size_t to) {
  uint32_t sum = 0;
  for (size_t i = from; i < to && i < bytes.size(); ++i) sum += bytes[i];
  return static_cast<uint16_t>(sum & 0xFFFF);
}

TBytes BuildRequest(uint8_t cmd, const TBytes& data) {
  TBytes frame{kHeader[0], kHeader[1]};
  AppendBigEndian(frame, static_cast<uint16_t>(data.size() + 6));
  frame.insert(frame.end(), {0x00, kChannel, cmd, 0x00});
  frame.insert(frame.end(), data.begin(), data.end());
  AppendBigEndian(frame, SumWord(frame, 4, frame.size()));
  frame.insert(frame.end(), {kFooter[0], kFooter[1]});
  return frame;
}

TBytes WireRequest(const TBytes& frame) {
  TBytes wire(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(std::min(frame.size(), kWireRequestSize)));
  wire.resize(kWireRequestSize, 0x00);
  return wire;
}

// ---- answers -----------------------------------------------------------------------------------------------------

std::optional<TAnswer> ParseFrame(const TBytes& frame) {
  const auto total = FrameLengthAt(frame, 0);
  if (!total || *total != frame.size()) return std::nullopt;
  const size_t checkAt = frame.size() - 4;
  if (BigEndianAt(frame, checkAt) != SumWord(frame, 4, checkAt)) return std::nullopt;
  TAnswer answer;
  answer.Cmd = frame[6];
  answer.Data.assign(frame.begin() + kDataOffset, frame.begin() + static_cast<std::ptrdiff_t>(checkAt));
  return answer;
}

std::optional<TAnswer> LastAnswer(const TBytes& received) {
  std::optional<size_t> lastStart;
  size_t lastLength = 0;
  size_t previousEnd = 0;
  size_t lastPreviousEnd = 0;
  for (size_t at = 0; at + kFrameOverhead <= received.size();) {
    if (auto length = FrameLengthAt(received, at)) {
      lastStart = at;
      lastLength = *length;
      lastPreviousEnd = previousEnd;
      at += *length;
      previousEnd = at;
    } else {
      ++at;
    }
  }
  // Bytes after the last frame are the start of a broken one: the latest answer is unusable.
  if (!lastStart || previousEnd != received.size()) return std::nullopt;
  auto begin = received.begin() + static_cast<std::ptrdiff_t>(*lastStart);
  auto answer = ParseFrame(TBytes(begin, begin + static_cast<std::ptrdiff_t>(lastLength)));
  if (answer && answer->Cmd == kCheckBySuperMode && *lastStart > lastPreviousEnd)
    answer->ModeByte = received[*lastStart - 1];
  return answer;
}

bool AnswerSucceeded(const TAnswer& answer) {
  if (answer.Cmd == kSetLaserData) return answer.Data.size() != 1 || answer.Data[0] == 1;
  if (HasResultByte(answer.Cmd)) return !answer.Data.empty() && answer.Data[0] == 1;
  return true;
}

std::optional<TStatusReply> ParseStatusData(const TBytes& data) {
  if (data.size() < kStatusBlockSize) return std::nullopt;
  TStatusReply reply;
  reply.Block.assign(data.begin(), data.begin() + kStatusBlockSize);
  const size_t wanted = static_cast<size_t>(reply.Block[kModuleCountOffset]) * kAlarmBytesPerModule;
  const size_t count = std::min(wanted, data.size() - kStatusBlockSize);
  reply.Alarms.assign(data.begin() + kStatusBlockSize,
                      data.begin() + static_cast<std::ptrdiff_t>(kStatusBlockSize + count));
  return reply;
}

std::string LaserText(const TBytes& block, size_t offset) {
  std::string text;
  for (size_t i = offset; i < offset + kLaserTextSize && i < block.size() && block[i] != 0; ++i)
    text.push_back(static_cast<char>(block[i]));
  return text;
}

uint16_t AlarmSummary(const TBytes& alarms) {
  uint16_t summary = 0;
  for (size_t i = 0; i < alarms.size(); ++i)
    if (alarms[i] != 0) summary |= static_cast<uint16_t>(1u << (i % kAlarmBytesPerModule));
  return summary;
}

// ---- pulse settings ----------------------------------------------------------------------------------------------

TQcwModel ModelOfLaserId(const std::string& laserId) {
  if (laserId.find("QCW450") != std::string::npos) return TQcwModel::QCW450;
  if (laserId.find("QCW150") != std::string::npos) return TQcwModel::QCW150;
  return TQcwModel::Other;
}

TPulseSettings LimitPulseSettings(TQcwModel model, const TPulseSettings& asked) {
  TPulseSettings out = asked;
  out.Power = Clamped<uint8_t>(asked.Power, 1, 100);
  switch (model) {
    case TQcwModel::QCW450:
      out.Ratio = Clamped<uint8_t>(asked.Ratio, 10, 30);
      out.Freq = Clamped<uint16_t>(asked.Freq, 500, 5000);
      break;
    case TQcwModel::QCW150:
      out.Ratio = Clamped<uint8_t>(asked.Ratio, 1, 50);
      out.Freq = Clamped<uint16_t>(asked.Freq, 0, 5000);
      break;
    case TQcwModel::Other:
      // These lasers take only their factory pulse.
      out.Ratio = 20;
      out.Freq = 2000;
      break;
  }
  out.Width = Clamped<uint16_t>(asked.Width, 1, 6);
  // The average power (duty x peak) must stay within what the laser's cooling takes.
  if (out.Ratio * out.Power > 1000) out.Power = static_cast<uint8_t>(1000 / out.Ratio);
  return out;
}

TBytes PulseSettingsData(TCtrlMode mode, const TPulseSettings& settings) {
  TBytes data{static_cast<uint8_t>(mode), settings.Power};
  AppendBigEndian(data, settings.Freq);
  data.push_back(settings.Ratio);
  AppendBigEndian(data, settings.Width);
  return data;
}

std::string HexDump(const TBytes& bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 3);
  for (uint8_t b : bytes) {
    text.push_back(kDigits[b >> 4]);
    text.push_back(kDigits[b & 0x0F]);
    text.push_back(' ');
  }
  return text;
}

}  // namespace devlaser::rayqcw
