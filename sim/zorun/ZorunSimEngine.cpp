#include "sim/zorun/ZorunSimEngine.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

#include "refhost/JsonObject.h"

namespace lasersim {

namespace {

using TBytes = TZorunSimEngine::TBytes;
using TJson = nchost::ISuperObject;

uint16_t Crc16(const uint8_t* data, size_t size) {
  uint16_t crc = 0xFFFF;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
  }
  return crc;
}

int64_t Int(const TJson& obj, const char* key) {
  auto v = obj.Get(key);
  return v ? v->AsInteger() : 0;
}
bool Bool(const TJson& obj, const char* key) {
  auto v = obj.Get(key);
  return v && v->AsBoolean();
}
std::string Text(const TJson& obj, const char* key) {
  auto v = obj.Get(key);
  return v ? v->AsString() : std::string();
}

bool ParseBytes(const std::string& text, bool hex, TBytes& out) {
  out.clear();
  if (!hex) {
    out.assign(text.begin(), text.end());
    return !out.empty();
  }
  std::string item;
  auto flush = [&]() {
    if (item.empty()) return true;
    std::string digits = item;
    if (digits[0] == '$') digits.erase(0, 1);
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) digits.erase(0, 2);
    if (digits.empty() || digits.size() > 2 || !std::all_of(digits.begin(), digits.end(), ::isxdigit)) return false;
    out.push_back(static_cast<uint8_t>(std::stoul(digits, nullptr, 16)));
    item.clear();
    return true;
  };
  for (char c : text) {
    if (c == ',' || std::isspace(static_cast<unsigned char>(c))) {
      if (!flush()) return false;
    } else {
      item += c;
    }
  }
  return flush() && !out.empty();
}

}  // namespace

std::string ZorunHex(const uint8_t* data, size_t size) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    if (i > 0) text += ' ';
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 0x0F];
  }
  return text;
}

// What one command looks like on the wire.
struct TZorunSimEngine::TFrameShape {
  int Type = 0;
  TBytes Expected;          // parameter bytes zero, CRC bytes as for parameter zero
  std::vector<bool> Fixed;  // bytes that must match
  bool Checked = false;
  size_t CrcBegin = 0, CrcEnd = 0;  // covered bytes; the CRC follows at CrcEnd + 1
  size_t ParamAt = 0, ParamLen = 0;
};

struct TZorunSimEngine::TReply {
  TBytes Pattern;
  int FlagIdx = 0;
  bool Checked = false;
  size_t CrcBegin = 0, CrcEnd = 0;
};

TZorunSimEngine::TZorunSimEngine() : FReplies(kTypeCount) {}
TZorunSimEngine::~TZorunSimEngine() = default;

bool TZorunSimEngine::Load(const std::string& path, int laserIdx, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    error = "cannot read " + path;
    return false;
  }
  std::ostringstream text;
  text << file.rdbuf();
  auto root = refhost::ParseJson(text.str(), error);
  if (!root) {
    error = path + ": " + error;
    return false;
  }
  auto lasers = root->Get("Lasers");
  if (!lasers || laserIdx < 0 || static_cast<size_t>(laserIdx) >= lasers->Length()) {
    error = path + " has no laser " + std::to_string(laserIdx);
    return false;
  }
  auto laser = lasers->At(static_cast<size_t>(laserIdx));
  const std::string encoding = Text(*laser, "InstructionEnCode");
  const bool hex = encoding.size() == 3 && ::tolower(encoding[0]) == 'h';

  std::vector<TFrameShape> shapes;
  std::vector<std::optional<TReply>> replies(kTypeCount);
  std::vector<bool> seen(kTypeCount, false);
  if (auto list = laser->Get("Instructions")) {
    for (size_t i = 0; i < list->Length(); ++i) {
      auto cmd = list->At(i);
      const int64_t type = Int(*cmd, "CmdType");
      if (type < 0 || type >= kTypeCount || seen[static_cast<size_t>(type)]) continue;
      seen[static_cast<size_t>(type)] = true;
      TFrameShape shape;
      shape.Type = static_cast<int>(type);
      TBytes tmpl;
      if (!ParseBytes(Text(*cmd, "Command"), hex, tmpl)) {
        error = path + ": Instructions[" + std::to_string(i) + "] has no usable Command";
        return false;
      }
      shape.Checked = Bool(*cmd, "CmdNeedCheck");
      if (!shape.Checked) {
        shape.Expected = tmpl;
        shape.Fixed.assign(tmpl.size(), true);
        shapes.push_back(std::move(shape));
        continue;
      }
      // The working frame the CRC is computed over.
      TBytes work;
      std::vector<bool> fixed;
      std::vector<bool> param;
      if (type == kDiodeSet) {
        const size_t at =
            std::min<size_t>(static_cast<size_t>(std::max<int64_t>(Int(*cmd, "ParamIdx"), 0)), tmpl.size());
        const size_t len = static_cast<size_t>(std::max<int64_t>(Int(*cmd, "ParamLen"), 0));
        work.assign(tmpl.begin(), tmpl.begin() + static_cast<long>(at));
        work.insert(work.end(), len, 0);
        work.insert(work.end(), tmpl.begin() + static_cast<long>(at), tmpl.end());
        param.assign(work.size(), false);
        std::fill(param.begin() + static_cast<long>(at), param.begin() + static_cast<long>(at + len), true);
      } else {
        work.assign(static_cast<size_t>(std::max<int64_t>(Int(*cmd, "CmdTotalLen"), 0)), 0);
        std::copy_n(tmpl.begin(), std::min(tmpl.size(), work.size()), work.begin());
        param.assign(work.size(), false);
      }
      const int64_t begin = Int(*cmd, "CheckBeginIdx");
      const int64_t end = Int(*cmd, "CheckEndIdx");
      if (begin < 0 || begin > end || end >= static_cast<int64_t>(work.size())) {
        error = path + ": Instructions[" + std::to_string(i) + "] has a check range outside its frame";
        return false;
      }
      shape.CrcBegin = static_cast<size_t>(begin);
      shape.CrcEnd = static_cast<size_t>(end);
      const uint16_t crc = Crc16(work.data() + begin, static_cast<size_t>(end - begin + 1));
      const uint8_t crcBytes[2] = {static_cast<uint8_t>(crc & 0xFF), static_cast<uint8_t>(crc >> 8)};
      const auto at = static_cast<long>(end + 1);
      work.insert(work.begin() + at, crcBytes, crcBytes + 2);
      param.insert(param.begin() + at, 2, false);
      fixed.assign(work.size(), true);
      for (size_t k = 0; k < work.size(); ++k) {
        if (param[k]) {
          fixed[k] = false;
          if (shape.ParamLen == 0) shape.ParamAt = k;
          ++shape.ParamLen;
        }
      }
      // The CRC is checked by computation, so that a frame with a wrong one is recognised and reported as such.
      fixed[static_cast<size_t>(at)] = fixed[static_cast<size_t>(at) + 1] = false;
      shape.Expected = std::move(work);
      shape.Fixed = std::move(fixed);
      shapes.push_back(std::move(shape));
    }
  }
  if (auto list = laser->Get("Replys")) {
    for (size_t i = 0; i < list->Length(); ++i) {
      auto item = list->At(i);
      const int64_t type = Int(*item, "CmdType");
      if (type < 0 || type >= kTypeCount || replies[static_cast<size_t>(type)]) continue;
      TReply reply;
      if (!ParseBytes(Text(*item, "Reply"), hex, reply.Pattern)) continue;
      reply.FlagIdx = static_cast<int>(Int(*item, "ReplyFlagIdx"));
      const int64_t begin = Int(*item, "CheckBeginIdx");
      const int64_t end = Int(*item, "CheckEndIdx");
      reply.Checked =
          Int(*item, "CheckLen") > 0 && begin >= 0 && begin <= end && end < static_cast<int64_t>(reply.Pattern.size());
      reply.CrcBegin = static_cast<size_t>(std::max<int64_t>(begin, 0));
      reply.CrcEnd = static_cast<size_t>(std::max<int64_t>(end, 0));
      replies[static_cast<size_t>(type)] = std::move(reply);
    }
  }
  // Longer frames first, so that a frame never passes for a shorter one that it starts with.
  std::stable_sort(shapes.begin(), shapes.end(),
                   [](const TFrameShape& a, const TFrameShape& b) { return a.Expected.size() > b.Expected.size(); });
  std::lock_guard lock(FMutex);
  FShapes = std::move(shapes);
  FReplies = std::move(replies);
  FDesc = Text(*laser, "Desc");
  return true;
}

std::string TZorunSimEngine::Description() const {
  std::lock_guard lock(FMutex);
  return FDesc;
}

std::optional<TBytes> TZorunSimEngine::ExpectedFrame(int type, int64_t parameter) const {
  std::lock_guard lock(FMutex);
  for (const auto& shape : FShapes) {
    if (shape.Type != type) continue;
    TBytes frame = shape.Expected;
    if (shape.ParamLen == 0) return frame;
    for (size_t k = 0; k < shape.ParamLen; ++k)
      frame[shape.ParamAt + k] = static_cast<uint8_t>(parameter >> (8 * (shape.ParamLen - 1 - k)));
    const uint16_t crc = Crc16(frame.data() + shape.CrcBegin, shape.CrcEnd - shape.CrcBegin + 1);
    frame[shape.CrcEnd + 1] = static_cast<uint8_t>(crc & 0xFF);
    frame[shape.CrcEnd + 2] = static_cast<uint8_t>(crc >> 8);
    return frame;
  }
  return std::nullopt;
}

std::string TZorunSimEngine::ReplyFor(int type) const {
  if (type == kAlarmReply) return {};
  const int source = type == kStateQuery ? kAlarmReply : type;
  const auto& reply = FReplies[static_cast<size_t>(source)];
  if (!reply) return {};
  TBytes bytes = reply->Pattern;
  if (reply->FlagIdx >= 0 && static_cast<size_t>(reply->FlagIdx) < bytes.size())
    bytes[static_cast<size_t>(reply->FlagIdx)] = FAlarmByte;
  if (reply->Checked) {
    const uint16_t crc = Crc16(bytes.data() + reply->CrcBegin, reply->CrcEnd - reply->CrcBegin + 1);
    const uint8_t crcBytes[2] = {static_cast<uint8_t>(crc & 0xFF), static_cast<uint8_t>(crc >> 8)};
    bytes.insert(bytes.begin() + static_cast<long>(reply->CrcEnd + 1), crcBytes, crcBytes + 2);
  }
  return std::string(bytes.begin(), bytes.end());
}

std::string TZorunSimEngine::Handle(const TFrameShape& shape, const TBytes& frame, std::vector<TTrace>& traces) {
  const std::string hex = ZorunHex(frame);
  if (shape.Checked) {
    const uint16_t crc = Crc16(frame.data() + shape.CrcBegin, shape.CrcEnd - shape.CrcBegin + 1);
    if (frame[shape.CrcEnd + 1] != (crc & 0xFF) || frame[shape.CrcEnd + 2] != (crc >> 8)) {
      ++FBadFrames;
      FLog.Add("BAD CRC " + hex);
      traces.push_back({shape.Type, "BAD CRC " + hex, {}});
      return {};
    }
  }
  if (FReplyMode == TReplyMode::Silent) {
    FLog.Add(hex);
    traces.push_back({shape.Type, hex, {}});
    return {};
  }
  TFrame received{shape.Type, hex, std::nullopt};
  if (shape.ParamLen > 0) {
    int64_t value = 0;
    for (size_t k = 0; k < shape.ParamLen; ++k) value = (value << 8) | frame[shape.ParamAt + k];
    received.Parameter = value;
  }
  switch (shape.Type) {
    case kEmissionOn:
      FEmission = true;
      break;
    case kEmissionOff:
      FEmission = false;
      break;
    case kAimingOn:
      FAiming = true;
      break;
    case kAimingOff:
      FAiming = false;
      break;
    case kDiodeSet:
      FDiode = received.Parameter;
      break;
    case kStateQuery:
      FAlarmReported = FAlarmByte != 0;
      if (FAlarmReported) FAlarmAcknowledged = false;
      break;
    case kAlarmReply:
      if (FAlarmReported) FAlarmAcknowledged = true;
      break;
    default:
      break;
  }
  if (FFrames.size() >= TCommandLog::kCapacity) FFrames.erase(FFrames.begin());
  FFrames.push_back(received);
  FLog.Add(hex);
  std::string reply = ReplyFor(shape.Type);
  if (FReplyMode == TReplyMode::Garbage && !reply.empty()) {
    // As long as the real reply, in bytes that no frame starts with.
    for (auto& byte : reply) {
      FGarbageSeed = FGarbageSeed * 1103515245u + 12345u;
      byte = static_cast<char>(0x80 | ((FGarbageSeed >> 16) & 0x3F));
    }
  }
  traces.push_back({shape.Type, hex, reply.empty() ? std::string() : ZorunHex(TBytes(reply.begin(), reply.end()))});
  return reply;
}

std::string TZorunSimEngine::FeedLocked(TInput& input, bool endOfData, std::vector<TTrace>& traces) {
  std::string replies;
  TBytes& buf = input.Pending;
  TBytes unknown;
  auto flushUnknown = [&] {
    if (unknown.empty()) return;
    FLog.Add("UNKNOWN " + ZorunHex(unknown));
    traces.push_back({-1, "UNKNOWN " + ZorunHex(unknown), {}});
    unknown.clear();
  };
  while (!buf.empty()) {
    const TFrameShape* match = nullptr;
    bool couldGrow = false;
    for (const auto& shape : FShapes) {
      const size_t n = std::min(buf.size(), shape.Expected.size());
      bool same = true;
      for (size_t k = 0; k < n && same; ++k) same = !shape.Fixed[k] || buf[k] == shape.Expected[k];
      if (!same) continue;
      if (buf.size() >= shape.Expected.size()) {
        match = &shape;
        break;
      }
      couldGrow = true;
    }
    if (match != nullptr) {
      flushUnknown();
      const TBytes frame(buf.begin(), buf.begin() + static_cast<long>(match->Expected.size()));
      buf.erase(buf.begin(), buf.begin() + static_cast<long>(match->Expected.size()));
      replies += Handle(*match, frame, traces);
      continue;
    }
    if (couldGrow && !endOfData) break;  // the rest of a frame is still on its way
    unknown.push_back(buf.front());
    buf.erase(buf.begin());
  }
  flushUnknown();
  return replies;
}

std::string TZorunSimEngine::Feed(TInput& input, std::string_view bytes) {
  std::vector<TTrace> traces;
  std::string replies;
  TTraceHook hook;
  {
    std::lock_guard lock(FMutex);
    input.Pending.insert(input.Pending.end(), bytes.begin(), bytes.end());
    replies = FeedLocked(input, false, traces);
    hook = FTraceHook;
  }
  if (hook)
    for (const auto& trace : traces) hook(trace.Type, trace.Entry, trace.Reply);
  return replies;
}

std::string TZorunSimEngine::FeedDatagram(std::string_view bytes) {
  TInput input;
  input.Pending.assign(bytes.begin(), bytes.end());
  std::vector<TTrace> traces;
  std::string replies;
  TTraceHook hook;
  {
    std::lock_guard lock(FMutex);
    replies = FeedLocked(input, true, traces);
    hook = FTraceHook;
  }
  if (hook)
    for (const auto& trace : traces) hook(trace.Type, trace.Entry, trace.Reply);
  return replies;
}

std::vector<TZorunSimEngine::TFrame> TZorunSimEngine::Frames() const {
  std::lock_guard lock(FMutex);
  return FFrames;
}

void TZorunSimEngine::ClearLog() {
  std::lock_guard lock(FMutex);
  FFrames.clear();
  FFrames.shrink_to_fit();
  FLog.Clear();
}

size_t TZorunSimEngine::BadFrames() const {
  std::lock_guard lock(FMutex);
  return FBadFrames;
}

void TZorunSimEngine::SetAlarmByte(uint8_t alarms) {
  std::lock_guard lock(FMutex);
  FAlarmByte = alarms;
}

uint8_t TZorunSimEngine::AlarmByte() const {
  std::lock_guard lock(FMutex);
  return FAlarmByte;
}

bool TZorunSimEngine::AlarmAcknowledged() const {
  std::lock_guard lock(FMutex);
  return FAlarmAcknowledged;
}

bool TZorunSimEngine::EmissionOn() const {
  std::lock_guard lock(FMutex);
  return FEmission;
}

bool TZorunSimEngine::AimingOn() const {
  std::lock_guard lock(FMutex);
  return FAiming;
}

std::optional<int64_t> TZorunSimEngine::DiodeParameter() const {
  std::lock_guard lock(FMutex);
  return FDiode;
}

void TZorunSimEngine::SetReplyMode(TReplyMode mode) {
  std::lock_guard lock(FMutex);
  FReplyMode = mode;
}

TZorunSimEngine::TReplyMode TZorunSimEngine::ReplyMode() const {
  std::lock_guard lock(FMutex);
  return FReplyMode;
}

void TZorunSimEngine::PowerCycle() {
  std::lock_guard lock(FMutex);
  FEmission = false;
  FAiming = false;
  FDiode.reset();
}

void TZorunSimEngine::SetTraceHook(TTraceHook hook) {
  std::lock_guard lock(FMutex);
  FTraceHook = std::move(hook);
}

}  // namespace lasersim
