// The laser side of the IPG YLR text-command protocol, without threads or descriptors: bytes in, reply bytes out.
// The TCP and pseudo-terminal front ends feed it what they read and write back what it returns; tests can feed it
// directly.
//
// Framing: a command is the text up to a carriage return (CR). Each input stream (a TCP client, the serial line)
// is framed on its own, so that one client's unfinished command never mixes with another's. Surrounding blanks and line
// feeds are dropped, an empty line is ignored, the mnemonic is case-insensitive and its parameter follows after blanks
// ("SDC 40"). Text without a CR waits for the next Feed(). A line that grows past kMaxLineLength without a CR is thrown
// away up to the next CR, answered with "ERR: Command too long" and sets status bit 0 (command buffer overload).
//
// The laser's replies follow its RS-232 manual. Every command gets exactly one reply line ended by CR:
//   readers        "STA: 4100" (decimal status word), "RCS: 40.0" (set point, %), "RDC: 4.0" (diode current, A),
//                  "RPRR: 1000", "RPW: 0.50", "RFWS: 1.0", "RSN: 12345", "RFV: 1.2.3", "RET: 123.4" (hours),
//                  "RCT: 25.3" (deg C), "RNC: 10.0" (%), "RMEC: 0", "ROP: Off" ("Off" without emission or
//                  during its start-up, "Low" below the minimum current, else watts)
//   value setters  the mnemonic and the value the laser took: "SDC: 40.0" (0..100 %, one decimal),
//                  "SPRR: 1000" (1..9999999 Hz), "SPW: 0.50" (0..50), "SFWS: 2.4" (0.2..5.0, cut down to a
//                  multiple of 0.2)
//   switches       the bare mnemonic: "EMON", "EMOFF", "ABN", "ABF", "EPM", "DPM", "EGM", "DGM", "EMOD", "DMOD",
//                  "EEC", "DEC", "EEABC", "DEABC", "ELE", "DLE", "SDS", "RERR"
//   unknown        "BCMD" (bad command): a mnemonic the laser does not know
//   refusals       "ERR: Out of Range", "ERR: Emission is on" ("EMOD", "DMOD", "EEC" and "DEC" while emission is
//                  on, also during its start-up), "ERR: Keyswitch in remote" ("EMON" and "EMOFF" while the key
//                  switch is in remote: emission then follows the hardware interface), "ERR: Power supply off",
//                  "ERR: Emission blocked by alarm", "ERR: Missing parameter", "ERR: Invalid parameter",
//                  "ERR: Command too long"
// A driver finds status lines by "STA" and current echoes by "RCS"/"SDC"; no other reply contains those texts, and
// error lines never repeat the received command.
//
// Lenient mode accepts the mode changes a real laser refuses during emission, as earlier versions of this simulator
// did, for software written against them; everything else stays as above.
//
// Laser behaviour: the status word (IpgYlrStatus.h) is the laser-state bits the commands switch OR the alarm word.
// "EMON" is refused while the power supply is off or a blocking alarm is set, and raising a blocking alarm ends
// emission, as a real laser drops emission on a fault. After "EMON" bit 15 shows the start-up phase for the set
// start-up time (0 by default). "RERR" clears the alarm word.
//
// Thread safety: every member may be called from any thread; the serving thread feeds while a test configures the
// laser and reads the command log.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/common/CommandLog.h"

namespace lasersim {

class TIpgYlrEngine {
 public:
  enum class TReplyMode { Normal, Silent, GarbageBytes, GarbageLines };
  // Called after each command with the command as logged and the bytes sent back (empty when silent).
  using TTraceHook = std::function<void(const std::string& command, const std::string& reply)>;

  static constexpr size_t kMaxLineLength = 256;

  // The framing state of one input stream: its unfinished command. Owned by whoever reads that stream.
  struct TInput {
    std::string Pending;
    bool DiscardingLongLine = false;
    void Reset() { *this = {}; }
  };

  TIpgYlrEngine();

  // Consumes bytes received on `input`'s stream; returns the replies to every command they complete, in order.
  std::string Feed(TInput& input, std::string_view bytes);
  // The same on the engine's own stream (the serial line, or a test feeding it directly).
  std::string Feed(std::string_view bytes);
  // Forgets an unfinished command on the engine's own stream.
  void ResetInput();

  // Every command received (as framed above, without CR), including those ignored in silent or garbage mode.
  TCommandLog& Log() { return FLog; }
  const TCommandLog& Log() const { return FLog; }

  // Status: the word "STA" reports, and its parts.
  uint32_t StatusWord() const;
  uint32_t AlarmWord() const;
  // Replaces the alarm word. Laser-state bits in `word` are ignored (the commands own them; see PowerSupplyOff).
  void SetAlarmWord(uint32_t word);
  void RaiseAlarms(uint32_t bits);
  void SetPowerSupplyOff(bool off);
  // The key switch in remote (status bit 21): "EMON" and "EMOFF" are refused.
  void SetKeySwitchRemote(bool remote);
  // How long bit 15 shows after "EMON"; a real laser needs about 3 s. 0 (the default) never shows it.
  void SetEmissionStartupTime(std::chrono::milliseconds time);
  // The clock the start-up phase is timed by; tests replace it to step time by hand.
  using TClock = std::function<std::chrono::steady_clock::time_point()>;
  void SetClock(TClock clock);
  // Accept mode changes during emission (see above).
  void SetLenient(bool lenient);
  bool Lenient() const;

  void SetReplyMode(TReplyMode mode);
  TReplyMode ReplyMode() const;
  void SetTraceHook(TTraceHook hook);
  // The laser was switched off and on again: emission and the aiming beam are off, its modes back to their
  // defaults and the diode current at 0; the supply, the key switch, the alarms and the identity stay.
  void PowerCycle();

  // Set points as the laser holds them.
  double DiodeCurrent() const;
  int32_t PulseRate() const;
  double PulseWidth() const;
  double FilterWindow() const;

  // Identity and readings the laser reports.
  void SetSerialNumber(std::string serial);
  void SetFirmwareRevision(std::string revision);
  void SetElapsedHours(double hours);
  void SetTemperature(double celsius);
  void SetMinimumCurrent(double percent);
  void SetModuleErrorCode(int32_t code);
  void SetNominalPower(double watts);
  // The diode current at 100 % set point, in amperes ("RDC").
  void SetFullDiodeCurrent(double amperes);

 private:
  std::string FeedLocked(TInput& input, std::string_view bytes,
                         std::vector<std::pair<std::string, std::string>>& traces);
  std::string HandleLine(const std::string& line);
  std::string Execute(const std::string& mnemonic, const std::string& parameter);
  std::string Switch(const std::string& mnemonic, const std::string& parameter);
  std::string SetValue(const std::string& mnemonic, const std::string& parameter);
  std::string Read(const std::string& mnemonic, const std::string& parameter);
  std::string OutputPower() const;
  // Ends the start-up phase once its time has passed; called before the state is read.
  void SettleStartup() const;
  bool Emitting() const;
  std::string Garbage(bool asLine);
  void ApplyAlarmWord(uint32_t word);

  // Plain fields read and written under the engine's lock, as the server threads and the tests share them.
  template <typename T>
  T Locked(const T& field) const {
    std::lock_guard lock(FMutex);
    return field;
  }
  template <typename T>
  void Store(T& field, T value) {
    std::lock_guard lock(FMutex);
    field = std::move(value);
  }

  mutable std::mutex FMutex;
  TCommandLog FLog;
  TTraceHook FTraceHook;
  TInput FInput;
  TReplyMode FReplyMode = TReplyMode::Normal;
  std::minstd_rand FRandom{20190601};

  // Mutable: reading the status ends a start-up phase whose time has passed.
  mutable uint32_t FState = 0;
  uint32_t FAlarms = 0;
  bool FLenient = false;
  std::chrono::milliseconds FStartupTime{0};
  std::chrono::steady_clock::time_point FEmissionStart{};
  TClock FClock = [] { return std::chrono::steady_clock::now(); };
  double FDiodeCurrent = 0.0;
  int32_t FPulseRate = 1000;
  double FPulseWidth = 0.5;
  double FFilterWindow = 1.0;
  std::string FSerialNumber = "12345";
  std::string FFirmwareRevision = "1.2.3";
  double FElapsedHours = 123.4;
  double FTemperature = 25.3;
  double FMinimumCurrent = 10.0;
  int32_t FModuleErrorCode = 0;
  double FNominalPower = 1000.0;
  double FFullDiodeCurrent = 10.0;
};

}  // namespace lasersim
