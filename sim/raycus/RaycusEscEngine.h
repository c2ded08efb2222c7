// The laser side of the Raycus serial ESC commands, without threads or descriptors: bytes in, reply bytes out.
// The pseudo-terminal front end feeds it what it reads and writes back what it returns; tests feed it directly.
//
// Framing: a command starts with ESC (0x1B) and has a fixed length set by its letter: 'O' (emission on) and 'S'
// (emission off) 3 bytes, 'C' 'P' p (diode current) 5 bytes, 'F' fH fL 'D' r 'P' w (QCW pulse settings) 9 bytes,
// each ended by CR (0x0D). Parameter bytes are taken by position, so a value of 0x0D or 0x1B is a value, not an end
// or a start. Bytes before an ESC, an unknown letter, or a command whose last byte is no CR are skipped up to the
// next ESC (logged as "junk"). A command cut short waits for the next Feed().
//
// Every command is logged with its arrival time. Replies, by mode: AlwaysTS answers each command "TS" CR,
// FirstTS only the first since the last Reset, NeverTS and Silent nothing (Silent does not execute commands
// either: a hung laser), Error answers "TE1" CR ("TE" and the error code), Garbage answers bytes that are no
// text (invalid UTF-8) and do not start with ESC.
//
// Thread safety: every member may be called from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace lasersim {

class TRaycusEscEngine {
 public:
  using Clock = std::chrono::steady_clock;
  enum class TReplyMode { AlwaysTS, FirstTS, NeverTS, Error, Garbage, Silent };

  struct TEntry {
    Clock::time_point At;
    std::string Bytes;  // the whole command, ESC to CR; junk as received
    bool Junk = false;
  };
  struct TState {
    bool EmissionOn = false;
    int DiodeCurrent = 0;  // percent
    int PulseFreq = 0;     // Hz
    int PulseRatio = 0;    // percent
    int PulsePower = 0;    // percent
  };
  // Called after each command with its log entry and the reply sent back (empty when none).
  using TTraceHook = std::function<void(const TEntry& entry, const std::string& reply)>;

  TRaycusEscEngine();

  // Takes received bytes and returns the replies to send back.
  std::string Feed(std::string_view bytes);
  // Forgets a command cut short and the "first answer given" of FirstTS (a new line, a new laser power-up).
  void ResetInput();

  void SetReplyMode(TReplyMode mode);
  void SetErrorCode(int code);
  // The laser was switched off and on again: emission off, every setting 0, and FirstTS answers again.
  void PowerCycle();
  void SetTraceHook(TTraceHook hook);

  TState State() const;
  // The log: commands and junk in arrival order with times.
  std::vector<TEntry> Log() const;
  // The commands only (no junk), as byte strings.
  std::vector<std::string> Commands() const;
  size_t Count(std::string_view command) const;
  // Commands and junk received since the engine was made, also those cleared from the log or trimmed from it.
  size_t Received() const;
  void ClearLog();
  // Waits until `command` has arrived `times` times since the last ClearLog, or `timeout` passed.
  bool WaitFor(std::string_view command, std::chrono::milliseconds timeout, size_t times = 1) const;
  // The time the engine was made: log times count from here.
  Clock::time_point Started() const { return FStarted; }

 private:
  // The length of the command whose letter is `letter`, or 0 for none.
  static size_t CommandLength(uint8_t letter);
  std::string ExecuteLocked(const std::string& command);
  void AddLocked(std::string bytes, bool junk);
  size_t CountLocked(std::string_view command) const;

  const Clock::time_point FStarted;
  mutable std::mutex FMutex;
  mutable std::condition_variable FArrived;
  std::string FPending;
  TReplyMode FMode = TReplyMode::AlwaysTS;
  int FErrorCode = 1;
  bool FAnswered = false;
  TState FState;
  std::vector<TEntry> FLog;
  size_t FReceived = 0;
  TTraceHook FTrace;
};

const char* ReplyModeName(TRaycusEscEngine::TReplyMode mode);
// "always", "first", "never", "error", "garbage", "silent"; false for anything else.
bool ParseReplyMode(std::string_view text, TRaycusEscEngine::TReplyMode& mode);

}  // namespace lasersim
