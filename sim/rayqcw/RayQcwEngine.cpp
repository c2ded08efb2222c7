#include "sim/rayqcw/RayQcwEngine.h"

#include <algorithm>

namespace lasersim {

namespace {

constexpr uint8_t kCheckStatus = 225;
constexpr uint8_t kSetLaserData = 226;
constexpr uint8_t kCheckBySuperMode = 231;
constexpr uint8_t kReadErrorRecord = 232;
constexpr uint8_t kLaserOn = 233;
constexpr uint8_t kLaserOff = 234;
constexpr uint8_t kResetLaserMode = 237;
constexpr size_t kStatusBlockSize = 32;
constexpr size_t kTextSize = 10;
constexpr size_t kHeaderSize = 8;
constexpr size_t kMinFrame = 12;
// Longer requests are junk: the largest real one is 19 bytes.
constexpr size_t kMaxFrame = 64;

uint16_t Word(const std::string& bytes, size_t at) {
  return static_cast<uint16_t>((static_cast<uint8_t>(bytes[at]) << 8) | static_cast<uint8_t>(bytes[at + 1]));
}

uint16_t Sum(const std::string& bytes, size_t from, size_t to) {
  uint32_t sum = 0;
  for (size_t i = from; i < to; ++i) sum += static_cast<uint8_t>(bytes[i]);
  return static_cast<uint16_t>(sum);
}

bool KnownWithResult(uint8_t cmd) { return cmd >= kSetLaserData && cmd <= kResetLaserMode && cmd != kCheckBySuperMode; }

std::string CommandName(uint8_t cmd) {
  switch (cmd) {
    case kCheckStatus:
      return "CheckStatus";
    case kCheckBySuperMode:
      return "CheckBySuperMode";
    case kReadErrorRecord:
      return "ReadErrorRecord";
    case kLaserOn:
      return "LaserOn";
    case kLaserOff:
      return "LaserOff";
    case kResetLaserMode:
      return "ResetLaserMode";
    default:
      return "Command " + std::to_string(cmd);
  }
}

}  // namespace

TRayQcwEngine::TRayQcwEngine() = default;

// ---- framing -----------------------------------------------------------------------------------------------------

bool TRayQcwEngine::NextRequestLocked(TRequest& request) {
  for (;;) {
    // Skip to a header; a lone 0xAA at the end may be the first half of one.
    const size_t start = FInput.find("\xAA\x55");
    if (start == std::string::npos) {
      const bool halfHeader = !FInput.empty() && static_cast<uint8_t>(FInput.back()) == 0xAA;
      FInput.erase(0, halfHeader ? FInput.size() - 1 : FInput.size());
      return false;
    }
    FInput.erase(0, start);
    if (FInput.size() < kHeaderSize) return false;

    const size_t total = static_cast<size_t>(Word(FInput, 2)) + 6;
    if (total < kMinFrame || total > kMaxFrame) {
      FInput.erase(0, 1);  // not a header after all
      continue;
    }
    const bool whole = FInput.size() >= total && static_cast<uint8_t>(FInput[total - 2]) == 0x55 &&
                       static_cast<uint8_t>(FInput[total - 1]) == 0xAA;
    const bool cut = !whole && total > kWireRequestSize && FInput.size() >= kWireRequestSize;
    if (!whole && !cut) {
      if (FInput.size() >= total) {
        FInput.erase(0, 1);  // the footer is not where the length says
        continue;
      }
      return false;
    }
    const size_t checkAt = total - 4;
    const uint16_t sum = Sum(FInput, 4, checkAt);
    request.Cmd = static_cast<uint8_t>(FInput[6]);
    request.Cut = cut;
    if (whole) {
      request.CheckOk = Word(FInput, checkAt) == sum;
    } else {
      // Only the check word's high byte made it onto the line (or none of it, for a longer frame).
      request.CheckOk = checkAt >= kWireRequestSize || static_cast<uint8_t>(FInput[checkAt]) == (sum >> 8);
    }
    const size_t dataEnd = std::min(checkAt, cut ? kWireRequestSize : total);
    request.Data.assign(FInput.begin() + kHeaderSize, FInput.begin() + static_cast<std::ptrdiff_t>(dataEnd));
    FInput.erase(0, cut ? kWireRequestSize : total);
    return true;
  }
}

std::string TRayQcwEngine::Feed(std::string_view bytes) {
  std::string replies;
  std::vector<std::pair<std::string, std::string>> traces;
  TTraceHook hook;
  {
    std::lock_guard lock(FMutex);
    FInput.append(bytes);
    TRequest request;
    while (NextRequestLocked(request)) {
      std::string logged;
      std::string reply = HandleLocked(request, logged);
      FLog.Add(logged);
      traces.emplace_back(std::move(logged), reply);
      replies += reply;
    }
    hook = FTraceHook;
  }
  if (hook)
    for (auto& [command, reply] : traces) hook(command, reply);
  return replies;
}

void TRayQcwEngine::ResetInput() {
  std::lock_guard lock(FMutex);
  FInput.clear();
}

// ---- requests ----------------------------------------------------------------------------------------------------

std::string TRayQcwEngine::HandleLocked(const TRequest& request, std::string& logged) {
  if (!request.CheckOk) {
    logged = "BadFrame " + std::to_string(request.Cmd);
    return {};
  }
  logged = CommandName(request.Cmd);
  if (request.Cmd == kSetLaserData) {
    const auto& d = request.Data;
    if (d.size() < 7) {
      logged = "BadFrame " + std::to_string(request.Cmd);
      return {};
    }
    logged = "SetLaserData " + std::to_string(d[0]) + " " + std::to_string(d[1]) + " " +
             std::to_string((d[2] << 8) | d[3]) + " " + std::to_string(d[4]) + " " + std::to_string((d[5] << 8) | d[6]);
  }
  if (request.Cut) FCutFrames += 1;
  if (FReplyMode == TReplyMode::Silent) return {};

  std::string answer;
  const uint8_t result = ResultLocked(request.Cmd);
  if (request.Cmd == kCheckStatus) {
    auto data = StatusBlockLocked();
    data.insert(data.end(), FAlarms.begin(), FAlarms.end());
    answer = Frame(request.Cmd, data);
  } else if (request.Cmd == kCheckBySuperMode) {
    answer = std::string(1, static_cast<char>(FModeByte)) + Frame(request.Cmd, StatusBlockLocked());
  } else if (KnownWithResult(request.Cmd)) {
    answer = Frame(request.Cmd, {result});
  } else {
    return {};
  }

  if (result == 1) {
    const auto& d = request.Data;
    switch (request.Cmd) {
      case kSetLaserData:
        FCtrlMode = d[0];
        FPower = d[1];
        FFreq = static_cast<uint16_t>((d[2] << 8) | d[3]);
        FRatio = d[4];
        FPulseWidth = static_cast<uint16_t>((d[5] << 8) | d[6]);
        break;
      case kLaserOn:
        FLaserOn = true;
        break;
      case kLaserOff:
        FLaserOn = false;
        break;
      default:
        break;
    }
  }

  if (FReplyMode == TReplyMode::CorruptCheck) {
    const size_t checkAt = answer.size() - 4;
    answer[checkAt + 1] = static_cast<char>(static_cast<uint8_t>(answer[checkAt + 1]) ^ 0x5A);
  }
  if (FReplyMode == TReplyMode::Garbage) {
    // Bytes below 0x80 hold no 0xAA, so no frame header (AA 55) among them.
    for (auto& byte : answer) {
      FGarbageSeed = FGarbageSeed * 1103515245u + 12345u;
      byte = static_cast<char>((FGarbageSeed >> 16) & 0x7F);
    }
    return answer;
  }
  std::string sent = answer;
  if (FReplyMode == TReplyMode::Double) {
    const std::string& stale = FStaleAnswer[request.Cmd];
    sent = (stale.empty() ? answer : stale) + answer;
  }
  FLastAnswer[request.Cmd] = answer;
  return sent;
}

std::vector<uint8_t> TRayQcwEngine::StatusBlockLocked() const {
  std::vector<uint8_t> block(kStatusBlockSize, 0);
  std::copy_n(FLaserId.begin(), std::min(FLaserId.size(), kTextSize), block.begin());
  std::copy_n(FLaserType.begin(), std::min(FLaserType.size(), kTextSize), block.begin() + kTextSize);
  block[kStatusBlockSize - 1] = static_cast<uint8_t>(FAlarms.size() / kAlarmBytesPerModule);
  return block;
}

std::string TRayQcwEngine::Frame(uint8_t cmd, const std::vector<uint8_t>& data) const {
  std::string frame = {'\xAA', '\x55'};
  const size_t length = data.size() + 6;
  frame += static_cast<char>(length >> 8);
  frame += static_cast<char>(length & 0xFF);
  frame += {'\x00', '\xFF', static_cast<char>(cmd), '\x00'};
  frame.append(data.begin(), data.end());
  const uint16_t sum = Sum(frame, 4, frame.size());
  frame += static_cast<char>(sum >> 8);
  frame += static_cast<char>(sum & 0xFF);
  frame += {'\x55', '\xAA'};
  return frame;
}

uint8_t TRayQcwEngine::ResultLocked(uint8_t cmd) const {
  auto it = FResults.find(cmd);
  return it == FResults.end() ? 1 : it->second;
}

// ---- settings ----------------------------------------------------------------------------------------------------

void TRayQcwEngine::SetLaserId(std::string id) {
  std::lock_guard lock(FMutex);
  FLaserId = std::move(id);
}

void TRayQcwEngine::SetLaserType(std::string type) {
  std::lock_guard lock(FMutex);
  FLaserType = std::move(type);
}

void TRayQcwEngine::SetModuleCount(uint8_t count) {
  std::lock_guard lock(FMutex);
  FAlarms.resize(static_cast<size_t>(count) * kAlarmBytesPerModule, 0);
}

void TRayQcwEngine::SetAlarm(size_t module, size_t index, uint8_t value) {
  std::lock_guard lock(FMutex);
  const size_t at = module * kAlarmBytesPerModule + index;
  if (index < kAlarmBytesPerModule && at < FAlarms.size()) FAlarms[at] = value;
}

void TRayQcwEngine::ClearAlarms() {
  std::lock_guard lock(FMutex);
  std::fill(FAlarms.begin(), FAlarms.end(), 0);
}

void TRayQcwEngine::SetResult(uint8_t cmd, uint8_t result) {
  std::lock_guard lock(FMutex);
  FResults[cmd] = result;
}

void TRayQcwEngine::SetModeByte(uint8_t mode) {
  std::lock_guard lock(FMutex);
  FModeByte = mode;
}

void TRayQcwEngine::PowerCycle() {
  std::lock_guard lock(FMutex);
  FLaserOn = false;
  FCtrlMode = 0;
  FPower = 0;
  FFreq = 0;
  FRatio = 0;
  FPulseWidth = 0;
  FInput.clear();
}

void TRayQcwEngine::SetReplyMode(TReplyMode mode) {
  std::lock_guard lock(FMutex);
  if (mode == TReplyMode::Double && FReplyMode != TReplyMode::Double) FStaleAnswer = FLastAnswer;
  FReplyMode = mode;
}

TRayQcwEngine::TReplyMode TRayQcwEngine::ReplyMode() const {
  std::lock_guard lock(FMutex);
  return FReplyMode;
}

void TRayQcwEngine::SetTraceHook(TTraceHook hook) {
  std::lock_guard lock(FMutex);
  FTraceHook = std::move(hook);
}

// ---- state -------------------------------------------------------------------------------------------------------

#define RAYQCW_GETTER(type, name, field) \
  type TRayQcwEngine::name() const {     \
    std::lock_guard lock(FMutex);        \
    return field;                        \
  }
RAYQCW_GETTER(bool, LaserOn, FLaserOn)
RAYQCW_GETTER(uint8_t, CtrlMode, FCtrlMode)
RAYQCW_GETTER(uint8_t, Power, FPower)
RAYQCW_GETTER(uint16_t, Freq, FFreq)
RAYQCW_GETTER(uint8_t, Ratio, FRatio)
RAYQCW_GETTER(uint16_t, PulseWidth, FPulseWidth)
RAYQCW_GETTER(size_t, CutFrames, FCutFrames)
#undef RAYQCW_GETTER

}  // namespace lasersim
