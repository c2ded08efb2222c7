// The command words that follow laserctl's options: parsed and checked as a whole before any of them runs, so that
// a typo at the end of a long sequence is reported at once rather than after the laser has already been switched.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace laserctl {

enum class TCommandKind {
  PowerOn,
  PowerOff,
  LaserOn,
  LaserOff,
  EmissionOn,
  EmissionOff,
  AimingOn,
  AimingOff,
  Diode,     // percent
  PwmFreq,   // Hz
  PwmRatio,  // 0..1
  Wait,      // milliseconds
  Exec,      // command number, optional parameter
  Status,
  Alarms,
  Watch,  // seconds
};

struct TCommand {
  TCommandKind Kind = TCommandKind::Status;
  std::string Word;       // the command word as given
  int Position = 0;       // of the command word among the command words, counted from 1
  double Value = 0.0;     // the argument of diode, pwm-ratio and exec's parameter
  int64_t Number = 0;     // the argument of pwm-freq, wait, watch and exec's command number
  bool HasParam = false;  // exec was given a parameter
};

struct TCommandError {
  int Position = 0;  // of the offending word, counted from 1
  std::string Word;
  std::string Text;  // complete sentence naming the word and its position
};

struct TCommandList {
  std::vector<TCommand> Commands;  // the valid ones, in order
  std::vector<TCommandError> Errors;
};

// Parses the command words. A bad word is reported and skipped; parsing goes on with the next word, so that every
// mistake is reported at once and the valid commands are kept.
TCommandList ParseCommands(const std::vector<std::string>& words);

// The command word closest to `word` (fewest edits), to suggest for a mistyped one.
std::string NearestCommand(std::string_view word);

// The command as the user would type it again ("diode 60", "exec 27 1.5").
std::string CommandText(const TCommand& command);

}  // namespace laserctl
