#include "Commands.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>

namespace laserctl {
namespace {

enum class TArgument { None, Percent, Hertz, Ratio, Milliseconds, Seconds, CommandNumber };

struct TCommandForm {
  std::string_view Word;
  TCommandKind Kind;
  TArgument Argument;
};

constexpr TCommandForm kCommands[] = {
    {"power-on", TCommandKind::PowerOn, TArgument::None},
    {"power-off", TCommandKind::PowerOff, TArgument::None},
    {"laser-on", TCommandKind::LaserOn, TArgument::None},
    {"laser-off", TCommandKind::LaserOff, TArgument::None},
    {"emission-on", TCommandKind::EmissionOn, TArgument::None},
    {"emission-off", TCommandKind::EmissionOff, TArgument::None},
    {"aiming-on", TCommandKind::AimingOn, TArgument::None},
    {"aiming-off", TCommandKind::AimingOff, TArgument::None},
    {"diode", TCommandKind::Diode, TArgument::Percent},
    {"pwm-freq", TCommandKind::PwmFreq, TArgument::Hertz},
    {"pwm-ratio", TCommandKind::PwmRatio, TArgument::Ratio},
    {"wait", TCommandKind::Wait, TArgument::Milliseconds},
    {"exec", TCommandKind::Exec, TArgument::CommandNumber},
    {"status", TCommandKind::Status, TArgument::None},
    {"alarms", TCommandKind::Alarms, TArgument::None},
    {"watch", TCommandKind::Watch, TArgument::Seconds},
};

// A day is far beyond any sensible wait; a larger number is almost certainly a typo.
constexpr int64_t kMaxWaitMs = 24LL * 3600 * 1000;
constexpr int64_t kMaxWatchSeconds = 24LL * 3600;

const TCommandForm* FindForm(std::string_view word) {
  for (const auto& form : kCommands)
    if (form.Word == word) return &form;
  return nullptr;
}

// The whole word as a number, whatever the process locale; nothing for "12abc", "", "nan" or "inf".
std::optional<double> ParseReal(std::string_view text) {
  double value = 0.0;
  const char* first = text.data();
  if (!text.empty() && text.front() == '+') ++first;
  auto [end, ec] = std::from_chars(first, text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || first == end || !std::isfinite(value)) return {};
  return value;
}

std::optional<int64_t> ParseInteger(std::string_view text) {
  int64_t value = 0;
  const char* first = text.data();
  if (!text.empty() && text.front() == '+') ++first;
  auto [end, ec] = std::from_chars(first, text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || first == end) return {};
  return value;
}

// Edits (insert, delete, replace one character) that turn `a` into `b`.
size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

std::string Quoted(std::string_view word) { return "\"" + std::string(word) + "\""; }

class TParser {
 public:
  explicit TParser(const std::vector<std::string>& words) : FWords(words) {}

  TCommandList Run() {
    while (FNext < FWords.size()) ParseOne();
    return std::move(FResult);
  }

 private:
  void ParseOne() {
    const size_t index = FNext++;
    const std::string& word = FWords[index];
    const TCommandForm* form = FindForm(word);
    if (form == nullptr) {
      std::string text = "command word " + std::to_string(index + 1) + " " + Quoted(word) + " is not a command";
      if (!word.empty() && word.front() == '-' && !ParseReal(word))
        text += " (options go before the commands)";
      else
        text += "; the nearest command is " + Quoted(NearestCommand(word));
      Fail(index, text);
      return;
    }
    TCommand command;
    command.Kind = form->Kind;
    command.Word = word;
    command.Position = static_cast<int>(index + 1);
    if (ReadArgument(*form, command)) FResult.Commands.push_back(std::move(command));
  }

  // Reads the command's argument(s) into `command`; false (and reported) when they are missing or bad.
  bool ReadArgument(const TCommandForm& form, TCommand& command) {
    switch (form.Argument) {
      case TArgument::None:
        return true;
      case TArgument::Percent:
        return ReadReal(command, "a diode current in percent", 0.0, 100.0, command.Value);
      case TArgument::Ratio:
        return ReadReal(command, "a PWM duty ratio", 0.0, 1.0, command.Value);
      case TArgument::Hertz:
        return ReadInteger(command, "a PWM frequency in Hz", 1, std::numeric_limits<int32_t>::max(), command.Number);
      case TArgument::Milliseconds:
        return ReadInteger(command, "a time in milliseconds", 0, kMaxWaitMs, command.Number);
      case TArgument::Seconds:
        return ReadInteger(command, "a time in whole seconds", 1, kMaxWatchSeconds, command.Number);
      case TArgument::CommandNumber:
        if (!ReadInteger(command, "a command number", std::numeric_limits<int32_t>::min(),
                         std::numeric_limits<int32_t>::max(), command.Number))
          return false;
        // The parameter is optional: the next word belongs to exec only when it is a number.
        if (FNext < FWords.size()) {
          if (auto param = ParseReal(FWords[FNext])) {
            command.Value = *param;
            command.HasParam = true;
            ++FNext;
          }
        }
        return true;
    }
    return false;
  }

  // The next word, or nothing (reported) when the commands end here or the next word is itself a command, which
  // is then left for the next round.
  const std::string* TakeArgumentWord(const TCommand& command, const char* what) {
    if (FNext >= FWords.size() || FindForm(FWords[FNext]) != nullptr) {
      Fail(static_cast<size_t>(command.Position - 1),
           "command word " + std::to_string(command.Position) + " " + Quoted(command.Word) + " needs " + what);
      return nullptr;
    }
    return &FWords[FNext++];
  }

  bool ReadReal(const TCommand& command, const char* what, double low, double high, double& out) {
    const std::string* word = TakeArgumentWord(command, what);
    if (word == nullptr) return false;
    const auto value = ParseReal(*word);
    if (!value || *value < low || *value > high) {
      BadArgument(command, *word, what, std::to_string(low), std::to_string(high));
      return false;
    }
    out = *value;
    return true;
  }

  bool ReadInteger(const TCommand& command, const char* what, int64_t low, int64_t high, int64_t& out) {
    const std::string* word = TakeArgumentWord(command, what);
    if (word == nullptr) return false;
    const auto value = ParseInteger(*word);
    if (!value || *value < low || *value > high) {
      BadArgument(command, *word, what, std::to_string(low), std::to_string(high));
      return false;
    }
    out = *value;
    return true;
  }

  void BadArgument(const TCommand& command, const std::string& word, const char* what, std::string low,
                   std::string high) {
    const size_t index = FNext - 1;
    Fail(index, "command word " + std::to_string(index + 1) + " " + Quoted(word) + " after " + Quoted(command.Word) +
                    " is not " + what + " from " + Trimmed(std::move(low)) + " to " + Trimmed(std::move(high)));
  }

  // "100.000000" reads better as "100".
  static std::string Trimmed(std::string number) {
    if (number.find('.') == std::string::npos) return number;
    while (!number.empty() && number.back() == '0') number.pop_back();
    if (!number.empty() && number.back() == '.') number.pop_back();
    return number;
  }

  void Fail(size_t index, std::string text) {
    FResult.Errors.push_back({static_cast<int>(index + 1), FWords[index], std::move(text)});
  }

  const std::vector<std::string>& FWords;
  size_t FNext = 0;
  TCommandList FResult;
};

std::string FormatReal(double value) {
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  return ec == std::errc() ? std::string(buffer, end) : "?";
}

}  // namespace

TCommandList ParseCommands(const std::vector<std::string>& words) { return TParser(words).Run(); }

std::string NearestCommand(std::string_view word) {
  std::string_view best = kCommands[0].Word;
  size_t bestDistance = EditDistance(word, best);
  for (const auto& form : kCommands)
    if (const size_t d = EditDistance(word, form.Word); d < bestDistance) {
      best = form.Word;
      bestDistance = d;
    }
  return std::string(best);
}

std::string CommandText(const TCommand& command) {
  switch (command.Kind) {
    case TCommandKind::Diode:
    case TCommandKind::PwmRatio:
      return command.Word + " " + FormatReal(command.Value);
    case TCommandKind::PwmFreq:
    case TCommandKind::Wait:
    case TCommandKind::Watch:
      return command.Word + " " + std::to_string(command.Number);
    case TCommandKind::Exec:
      return command.Word + " " + std::to_string(command.Number) +
             (command.HasParam ? " " + FormatReal(command.Value) : std::string());
    default:
      return command.Word;
  }
}

}  // namespace laserctl
