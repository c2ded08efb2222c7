#include "sim/ipg/IpgYlrEngine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>
#include <vector>

#include "sim/ipg/IpgYlrStatus.h"

namespace lasersim {

namespace {

constexpr char kCR = '\r';

struct TSwitchCommand {
  std::string_view Name;
  uint32_t Bit;
  bool On;
  // A real laser refuses these while emission is on: the mode cannot change under a running beam.
  bool NeedsEmissionOff;
};

// Switches that set or clear one laser-state bit. "EMON", "SDS" and "RERR" have conditions of their own.
constexpr std::array<TSwitchCommand, 15> kSwitches{{
    {"EMOFF", ipgylr::kEmission | ipgylr::kEmissionStartup, false, false},
    {"ABN", ipgylr::kAimingBeam, true, false},
    {"ABF", ipgylr::kAimingBeam, false, false},
    {"EPM", ipgylr::kPulseMode, true, false},
    {"DPM", ipgylr::kPulseMode, false, false},
    {"EGM", ipgylr::kGateMode, true, false},
    {"DGM", ipgylr::kGateMode, false, false},
    {"EMOD", ipgylr::kModulation, true, true},
    {"DMOD", ipgylr::kModulation, false, true},
    {"EEC", ipgylr::kExternalControl, true, true},
    {"DEC", ipgylr::kExternalControl, false, true},
    {"EEABC", ipgylr::kExternalAimControl, true, false},
    {"DEABC", ipgylr::kExternalAimControl, false, false},
    {"ELE", ipgylr::kEmissionControl, true, false},
    {"DLE", ipgylr::kEmissionControl, false, false},
}};

const TSwitchCommand* FindSwitch(std::string_view name) {
  for (const auto& command : kSwitches)
    if (command.Name == name) return &command;
  return nullptr;
}

// Commands that only the hardware interface may give while the key switch is in remote.
bool IsLocalOnly(std::string_view name) { return name == "EMON" || name == "EMOFF"; }

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  for (auto candidate : names)
    if (candidate == name) return true;
  return false;
}

std::string_view Trim(std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\0'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

std::string Upper(std::string_view text) {
  std::string result(text);
  for (char& c : result)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return result;
}

// Numbers are written and read with a point as decimal separator whatever the process locale.
std::string Fixed(double value, int decimals) {
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
  return std::string(buffer, result.ptr);
}

// The laser keeps its current set point to a tenth of a percent.
double ToTenths(double value) { return std::round(value * 10.0) / 10.0; }

// The filter window goes in steps of 0.2 s; a value between steps is cut down to the step below. The small
// allowance keeps 2.4, which is 11.999... steps in binary, at 12 steps.
double ToFilterStep(double seconds) { return std::floor(seconds * 5.0 + 1e-9) / 5.0; }

bool ParseDouble(std::string_view text, double& value) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  double parsed = 0.0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(parsed)) return false;
  value = parsed;
  return true;
}

bool ParseInteger(std::string_view text, int64_t& value) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  int64_t parsed = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  value = parsed;
  return true;
}

std::string Line(std::string_view text) {
  std::string line(text);
  line += kCR;
  return line;
}

std::string Reply(std::string_view mnemonic, std::string_view value) {
  std::string line(mnemonic);
  line += ": ";
  line += value;
  line += kCR;
  return line;
}

const std::string kBadCommand = Line("BCMD");
const std::string kMissingParameter = Line("ERR: Missing parameter");
const std::string kInvalidParameter = Line("ERR: Invalid parameter");
const std::string kOutOfRange = Line("ERR: Out of Range");
const std::string kEmissionIsOn = Line("ERR: Emission is on");
const std::string kKeySwitchInRemote = Line("ERR: Keyswitch in remote");

}  // namespace

TIpgYlrEngine::TIpgYlrEngine() = default;

// FInput is touched only under FMutex, which Feed takes before it touches its input.
std::string TIpgYlrEngine::Feed(std::string_view bytes) { return Feed(FInput, bytes); }

std::string TIpgYlrEngine::Feed(TInput& input, std::string_view bytes) {
  std::string replies;
  std::vector<std::pair<std::string, std::string>> traces;
  TTraceHook hook;
  {
    std::lock_guard lock(FMutex);
    replies = FeedLocked(input, bytes, traces);
    if (!traces.empty()) hook = FTraceHook;
  }
  // Outside the lock: a hook that prints or reads the laser state must not deadlock.
  for (const auto& [command, reply] : traces) hook(command, reply);
  return replies;
}

std::string TIpgYlrEngine::FeedLocked(TInput& input, std::string_view bytes,
                                      std::vector<std::pair<std::string, std::string>>& traces) {
  std::string replies;
  for (char c : bytes) {
    if (c == kCR) {
      const std::string line(Trim(input.Pending));
      input.Pending.clear();
      input.DiscardingLongLine = false;
      if (line.empty()) continue;
      std::string reply = HandleLine(line);
      replies += reply;
      if (FTraceHook) traces.emplace_back(line, std::move(reply));
      continue;
    }
    if (input.DiscardingLongLine) continue;
    input.Pending += c;
    if (input.Pending.size() > kMaxLineLength) {
      // The command buffer of the laser is full: drop the line up to its CR and flag the overload.
      input.Pending.clear();
      input.DiscardingLongLine = true;
      if (FReplyMode == TReplyMode::Normal) {
        FAlarms |= ipgylr::kCommandBufferOverload;
        replies += Line("ERR: Command too long");
      }
    }
  }
  return replies;
}

void TIpgYlrEngine::ResetInput() {
  std::lock_guard lock(FMutex);
  FInput.Reset();
}

std::string TIpgYlrEngine::HandleLine(const std::string& line) {
  std::string reply;
  switch (FReplyMode) {
    case TReplyMode::Normal: {
      const auto blank = line.find_first_of(" \t");
      const std::string mnemonic = Upper(std::string_view(line).substr(0, blank));
      const std::string parameter(blank == std::string::npos ? "" : Trim(std::string_view(line).substr(blank)));
      reply = Execute(mnemonic, parameter);
      break;
    }
    case TReplyMode::Silent:
      break;
    case TReplyMode::GarbageBytes:
      reply = Garbage(false);
      break;
    case TReplyMode::GarbageLines:
      reply = Garbage(true);
      break;
  }
  // Logged after the command took effect, so that a test that waited for it also sees its effect.
  FLog.Add(line);
  return reply;
}

std::string TIpgYlrEngine::Execute(const std::string& mnemonic, const std::string& parameter) {
  if (mnemonic == "EMON" || mnemonic == "RERR" || mnemonic == "SDS" || FindSwitch(mnemonic))
    return Switch(mnemonic, parameter);
  if (IsOneOf(mnemonic, {"SDC", "SPRR", "SPW", "SFWS"})) return SetValue(mnemonic, parameter);
  return Read(mnemonic, parameter);
}

bool TIpgYlrEngine::Emitting() const { return (FState & ipgylr::kEmission) != 0; }

void TIpgYlrEngine::SettleStartup() const {
  if ((FState & ipgylr::kEmissionStartup) && FClock() - FEmissionStart >= FStartupTime)
    FState &= ~ipgylr::kEmissionStartup;
}

std::string TIpgYlrEngine::Switch(const std::string& mnemonic, const std::string& parameter) {
  if (!parameter.empty()) return kInvalidParameter;
  if ((FState & ipgylr::kKeySwitchRemote) && IsLocalOnly(mnemonic)) return kKeySwitchInRemote;
  if (mnemonic == "EMON") {
    if (FState & ipgylr::kPowerSupplyOff) return Line("ERR: Power supply off");
    if (FAlarms & ipgylr::kEmissionBlockingAlarms) return Line("ERR: Emission blocked by alarm");
    // A laser already emitting stays as it is; a new start begins its start-up phase.
    if (!Emitting() && FStartupTime.count() > 0) {
      FState |= ipgylr::kEmissionStartup;
      FEmissionStart = FClock();
    }
    FState |= ipgylr::kEmission;
  } else if (mnemonic == "RERR") {
    FAlarms = 0;
  } else if (mnemonic != "SDS") {
    const TSwitchCommand* command = FindSwitch(mnemonic);
    if (command == nullptr) return kBadCommand;
    if (command->NeedsEmissionOff && Emitting() && !FLenient) return kEmissionIsOn;
    if (command->On)
      FState |= command->Bit;
    else
      FState &= ~command->Bit;
  }
  return Line(mnemonic);
}

std::string TIpgYlrEngine::SetValue(const std::string& mnemonic, const std::string& parameter) {
  if (parameter.empty()) return kMissingParameter;
  if (mnemonic == "SPRR") {
    int64_t rate = 0;
    if (!ParseInteger(parameter, rate)) return kInvalidParameter;
    if (rate < 1 || rate > 9999999) return kOutOfRange;
    FPulseRate = static_cast<int32_t>(rate);
    return Reply(mnemonic, std::to_string(FPulseRate));
  }
  double value = 0.0;
  if (!ParseDouble(parameter, value)) return kInvalidParameter;
  if (mnemonic == "SDC") {
    if (value < 0.0 || value > 100.0) return kOutOfRange;
    FDiodeCurrent = ToTenths(value);
    return Reply(mnemonic, Fixed(FDiodeCurrent, 1));
  }
  if (mnemonic == "SPW") {
    if (value < 0.0 || value > 50.0) return kOutOfRange;
    FPulseWidth = value;
    return Reply(mnemonic, Fixed(FPulseWidth, 2));
  }
  // SFWS
  if (value < 0.2 || value > 5.0) return kOutOfRange;
  FFilterWindow = ToFilterStep(value);
  return Reply(mnemonic, Fixed(FFilterWindow, 1));
}

std::string TIpgYlrEngine::Read(const std::string& mnemonic, const std::string& parameter) {
  SettleStartup();
  std::string value;
  if (mnemonic == "STA")
    value = std::to_string(FState | FAlarms);
  else if (mnemonic == "RCS")
    value = Fixed(FDiodeCurrent, 1);
  else if (mnemonic == "RDC")
    value =
        Fixed(Emitting() && !(FState & ipgylr::kEmissionStartup) ? FFullDiodeCurrent * FDiodeCurrent / 100.0 : 0.0, 1);
  else if (mnemonic == "RPRR")
    value = std::to_string(FPulseRate);
  else if (mnemonic == "RPW")
    value = Fixed(FPulseWidth, 2);
  else if (mnemonic == "RFWS")
    value = Fixed(FFilterWindow, 1);
  else if (mnemonic == "RSN")
    value = FSerialNumber;
  else if (mnemonic == "RFV")
    value = FFirmwareRevision;
  else if (mnemonic == "RET")
    value = Fixed(FElapsedHours, 1);
  else if (mnemonic == "RCT")
    value = Fixed(FTemperature, 1);
  else if (mnemonic == "RNC")
    value = Fixed(FMinimumCurrent, 1);
  else if (mnemonic == "RMEC")
    value = std::to_string(FModuleErrorCode);
  else if (mnemonic == "ROP")
    value = OutputPower();
  else
    return kBadCommand;
  if (!parameter.empty()) return kInvalidParameter;
  return Reply(mnemonic, value);
}

std::string TIpgYlrEngine::OutputPower() const {
  if (!Emitting() || (FState & ipgylr::kEmissionStartup)) return "Off";
  if (FDiodeCurrent < FMinimumCurrent) return "Low";
  return Fixed(FNominalPower * FDiodeCurrent / 100.0, 0);
}

std::string TIpgYlrEngine::Garbage(bool asLine) {
  // Junk lines use lower case, digits and punctuation only, so that no mnemonic a driver looks for can appear.
  static constexpr std::string_view kJunk = "abcdefghijklmnopqrstuvwxyz0123456789 #*+-./:;<=>?@_~";
  std::uniform_int_distribution<size_t> length(asLine ? 4 : 8, asLine ? 30 : 40);
  const size_t count = length(FRandom);
  std::string junk;
  junk.reserve(count + 1);
  if (asLine) {
    std::uniform_int_distribution<size_t> pick(0, kJunk.size() - 1);
    for (size_t i = 0; i < count; ++i) junk += kJunk[pick(FRandom)];
    junk += kCR;
  } else {
    std::uniform_int_distribution<int> byte(0, 255);
    while (junk.size() < count) {
      const char c = static_cast<char>(byte(FRandom));
      if (c != kCR) junk += c;
    }
  }
  return junk;
}

uint32_t TIpgYlrEngine::StatusWord() const {
  std::lock_guard lock(FMutex);
  SettleStartup();
  return FState | FAlarms;
}

uint32_t TIpgYlrEngine::AlarmWord() const { return Locked(FAlarms); }

void TIpgYlrEngine::SetAlarmWord(uint32_t word) {
  std::lock_guard lock(FMutex);
  ApplyAlarmWord(word);
}

void TIpgYlrEngine::RaiseAlarms(uint32_t bits) {
  std::lock_guard lock(FMutex);
  ApplyAlarmWord(FAlarms | bits);
}

void TIpgYlrEngine::ApplyAlarmWord(uint32_t word) {
  FAlarms = word & ~ipgylr::kLaserStateMask;
  if (FAlarms & ipgylr::kEmissionBlockingAlarms) FState &= ~(ipgylr::kEmission | ipgylr::kEmissionStartup);
}

void TIpgYlrEngine::SetPowerSupplyOff(bool off) {
  std::lock_guard lock(FMutex);
  if (off)
    FState = (FState | ipgylr::kPowerSupplyOff) & ~(ipgylr::kEmission | ipgylr::kEmissionStartup);
  else
    FState &= ~ipgylr::kPowerSupplyOff;
}

void TIpgYlrEngine::SetKeySwitchRemote(bool remote) {
  std::lock_guard lock(FMutex);
  if (remote)
    FState |= ipgylr::kKeySwitchRemote;
  else
    FState &= ~ipgylr::kKeySwitchRemote;
}

void TIpgYlrEngine::SetEmissionStartupTime(std::chrono::milliseconds time) {
  Store(FStartupTime, std::max(time, std::chrono::milliseconds(0)));
}

void TIpgYlrEngine::SetClock(TClock clock) { Store(FClock, std::move(clock)); }

void TIpgYlrEngine::SetLenient(bool lenient) { Store(FLenient, lenient); }

bool TIpgYlrEngine::Lenient() const { return Locked(FLenient); }

void TIpgYlrEngine::PowerCycle() {
  std::lock_guard lock(FMutex);
  FState &= ipgylr::kPowerSupplyOff | ipgylr::kKeySwitchRemote;
  FDiodeCurrent = 0.0;
  FInput.Reset();
}

void TIpgYlrEngine::SetReplyMode(TReplyMode mode) { Store(FReplyMode, mode); }

TIpgYlrEngine::TReplyMode TIpgYlrEngine::ReplyMode() const { return Locked(FReplyMode); }

void TIpgYlrEngine::SetTraceHook(TTraceHook hook) { Store(FTraceHook, std::move(hook)); }

double TIpgYlrEngine::DiodeCurrent() const { return Locked(FDiodeCurrent); }

int32_t TIpgYlrEngine::PulseRate() const { return Locked(FPulseRate); }

double TIpgYlrEngine::PulseWidth() const { return Locked(FPulseWidth); }

double TIpgYlrEngine::FilterWindow() const { return Locked(FFilterWindow); }

void TIpgYlrEngine::SetSerialNumber(std::string serial) { Store(FSerialNumber, std::move(serial)); }

void TIpgYlrEngine::SetFirmwareRevision(std::string revision) { Store(FFirmwareRevision, std::move(revision)); }

void TIpgYlrEngine::SetElapsedHours(double hours) { Store(FElapsedHours, hours); }

void TIpgYlrEngine::SetTemperature(double celsius) { Store(FTemperature, celsius); }

void TIpgYlrEngine::SetMinimumCurrent(double percent) { Store(FMinimumCurrent, percent); }

void TIpgYlrEngine::SetModuleErrorCode(int32_t code) { Store(FModuleErrorCode, code); }

void TIpgYlrEngine::SetNominalPower(double watts) { Store(FNominalPower, watts); }

void TIpgYlrEngine::SetFullDiodeCurrent(double amperes) { Store(FFullDiodeCurrent, amperes); }

}  // namespace lasersim
