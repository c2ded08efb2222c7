#include "sim/raycus/RaycusEscEngine.h"

#include <algorithm>
#include <array>
#include <utility>

namespace lasersim {
namespace {
constexpr char kEsc = 0x1B;
constexpr char kCr = 0x0D;
// A log that grows for days keeps only its newest entries.
constexpr size_t kLogCapacity = 100000;
}  // namespace

TRaycusEscEngine::TRaycusEscEngine() : FStarted(Clock::now()) {}

size_t TRaycusEscEngine::CommandLength(uint8_t letter) {
  switch (letter) {
    case 'O':
    case 'S':
      return 3;
    case 'C':
      return 5;
    case 'F':
      return 9;
    default:
      return 0;
  }
}

std::string TRaycusEscEngine::Feed(std::string_view bytes) {
  std::vector<std::pair<TEntry, std::string>> traced;
  std::string replies;
  TTraceHook trace;
  {
    std::lock_guard lock(FMutex);
    FPending.append(bytes);
    const auto junk = [&](size_t from, size_t end) {
      AddLocked(FPending.substr(from, end - from), true);
      if (FTrace) traced.emplace_back(FLog.back(), std::string());
    };
    size_t pos = 0;
    while (pos < FPending.size()) {
      if (FPending[pos] != kEsc) {
        const size_t next = FPending.find(kEsc, pos);
        const size_t end = next == std::string::npos ? FPending.size() : next;
        junk(pos, end);
        pos = end;
        continue;
      }
      if (pos + 1 >= FPending.size()) break;  // the letter has not come yet
      const size_t length = CommandLength(static_cast<uint8_t>(FPending[pos + 1]));
      if (length == 0) {
        const size_t next = FPending.find(kEsc, pos + 1);
        const size_t end = next == std::string::npos ? FPending.size() : next;
        junk(pos, end);
        pos = end;
        continue;
      }
      if (pos + length > FPending.size()) break;  // cut short: wait for the rest
      std::string command = FPending.substr(pos, length);
      const bool wellFormed = command.back() == kCr && (command[1] != 'C' || command[2] == 'P') &&
                              (command[1] != 'F' || (command[4] == 'D' && command[6] == 'P'));
      if (!wellFormed) {
        // Resynchronise on the next ESC; the bytes up to it are junk.
        const size_t next = FPending.find(kEsc, pos + 1);
        const size_t end = next == std::string::npos ? FPending.size() : next;
        junk(pos, end);
        pos = end;
        continue;
      }
      const std::string reply = ExecuteLocked(command);
      AddLocked(command, false);
      replies += reply;
      if (FTrace) traced.emplace_back(FLog.back(), reply);
      pos += length;
    }
    FPending.erase(0, pos);
    trace = FTrace;
  }
  FArrived.notify_all();
  if (trace)
    for (const auto& [entry, reply] : traced) trace(entry, reply);
  return replies;
}

std::string TRaycusEscEngine::ExecuteLocked(const std::string& command) {
  if (FMode == TReplyMode::Silent) return {};
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(command[i]); };
  switch (command[1]) {
    case 'O':
      FState.EmissionOn = true;
      break;
    case 'S':
      FState.EmissionOn = false;
      break;
    case 'C':
      FState.DiodeCurrent = byte(3);
      break;
    case 'F':
      FState.PulseFreq = byte(2) << 8 | byte(3);
      FState.PulseRatio = byte(5);
      FState.PulsePower = byte(7);
      break;
    default:
      break;
  }
  switch (FMode) {
    case TReplyMode::AlwaysTS:
      return "TS\r";
    case TReplyMode::FirstTS:
      if (FAnswered) return {};
      FAnswered = true;
      return "TS\r";
    case TReplyMode::Error:
      return "TE" + std::to_string(FErrorCode) + "\r";
    case TReplyMode::Garbage:
      // Lone continuation bytes and a byte no UTF-8 text contains.
      return std::string("\x80\xBF\xFE\x9F\x81", 5);
    default:
      return {};
  }
}

void TRaycusEscEngine::AddLocked(std::string bytes, bool junk) {
  if (FLog.size() >= kLogCapacity) FLog.erase(FLog.begin(), FLog.begin() + kLogCapacity / 10);
  FLog.push_back({Clock::now(), std::move(bytes), junk});
  ++FReceived;
}

size_t TRaycusEscEngine::Received() const {
  std::lock_guard lock(FMutex);
  return FReceived;
}

void TRaycusEscEngine::ResetInput() {
  std::lock_guard lock(FMutex);
  FPending.clear();
  FAnswered = false;
}

void TRaycusEscEngine::PowerCycle() {
  std::lock_guard lock(FMutex);
  FState = {};
  FAnswered = false;
  FPending.clear();
}

void TRaycusEscEngine::SetReplyMode(TReplyMode mode) {
  std::lock_guard lock(FMutex);
  FMode = mode;
}

void TRaycusEscEngine::SetErrorCode(int code) {
  std::lock_guard lock(FMutex);
  FErrorCode = code;
}

void TRaycusEscEngine::SetTraceHook(TTraceHook hook) {
  std::lock_guard lock(FMutex);
  FTrace = std::move(hook);
}

TRaycusEscEngine::TState TRaycusEscEngine::State() const {
  std::lock_guard lock(FMutex);
  return FState;
}

std::vector<TRaycusEscEngine::TEntry> TRaycusEscEngine::Log() const {
  std::lock_guard lock(FMutex);
  return FLog;
}

std::vector<std::string> TRaycusEscEngine::Commands() const {
  std::lock_guard lock(FMutex);
  std::vector<std::string> out;
  for (const auto& e : FLog)
    if (!e.Junk) out.push_back(e.Bytes);
  return out;
}

size_t TRaycusEscEngine::Count(std::string_view command) const {
  std::lock_guard lock(FMutex);
  return CountLocked(command);
}

size_t TRaycusEscEngine::CountLocked(std::string_view command) const {
  return static_cast<size_t>(
      std::count_if(FLog.begin(), FLog.end(), [&](const TEntry& e) { return !e.Junk && e.Bytes == command; }));
}

void TRaycusEscEngine::ClearLog() {
  std::lock_guard lock(FMutex);
  FLog.clear();
}

bool TRaycusEscEngine::WaitFor(std::string_view command, std::chrono::milliseconds timeout, size_t times) const {
  std::unique_lock lock(FMutex);
  return FArrived.wait_for(lock, timeout, [&] { return CountLocked(command) >= times; });
}

namespace {
constexpr std::array<std::pair<TRaycusEscEngine::TReplyMode, const char*>, 6> kModeNames = {{
    {TRaycusEscEngine::TReplyMode::AlwaysTS, "always"},
    {TRaycusEscEngine::TReplyMode::FirstTS, "first"},
    {TRaycusEscEngine::TReplyMode::NeverTS, "never"},
    {TRaycusEscEngine::TReplyMode::Error, "error"},
    {TRaycusEscEngine::TReplyMode::Garbage, "garbage"},
    {TRaycusEscEngine::TReplyMode::Silent, "silent"},
}};
}  // namespace

const char* ReplyModeName(TRaycusEscEngine::TReplyMode mode) {
  for (const auto& [m, name] : kModeNames)
    if (m == mode) return name;
  return "?";
}

bool ParseReplyMode(std::string_view text, TRaycusEscEngine::TReplyMode& mode) {
  for (const auto& [m, name] : kModeNames)
    if (text == name) {
      mode = m;
      return true;
    }
  return false;
}

}  // namespace lasersim
