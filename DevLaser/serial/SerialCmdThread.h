// The communication thread of a serial command-queue laser, shared by every maker: it alone owns the serial port,
// writes the commands that callers queue, repeats the latest value of one setting a few times in place of an
// acknowledgement the line does not have, and hands everything it receives to the maker's command set.
//
// One cycle: open the port if it is closed (retried every 20 ms, silently; a line lost after it was up drops what is
// queued, so that a reconnect never carries out a stale emission switch); read and hand over every chunk that
// is waiting, 20 ms apart; write at most one command, queued ones before repeats, and pause 20 ms after it; then
// wait 5 ms (longer on a line that has been quiet for a while), or less when a caller queues a command. Callers never
// wait for the line: they take a short lock to append and wake the thread. Nothing in here knows a maker; the maker's
// part is a TSerialCmdSet.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "frame/LaserThread.h"
#include "host/Transports.h"
#include "serial/CommCmd.h"

namespace devlaser {

// What the thread offers a command set while it handles received bytes.
class TSerialRun {
 public:
  virtual ~TSerialRun() = default;
  // Shows the connection message to the operator once per run of the thread.
  virtual void ShowConnectedOnce() = 0;
  // Pauses briefly and shows `prefix` + `what` to the operator if no fault has been shown in the thread's life.
  virtual void ReportFault(const std::string& prefix, const std::string& what) = 0;
};

// The receive buffer: its bytes stay from read to read, so a short chunk sits in front of what earlier reads left.
using TReceiveBuffer = std::array<uint8_t, 1024>;

// A maker's part of the serial thread: the repeated command and what received bytes mean.
class TSerialCmdSet {
 public:
  virtual ~TSerialCmdSet() = default;
  // The command that carries `value`, the latest value of the repeated setting.
  virtual TCommCmd RepeatedCmd(uint8_t value) const = 0;
  // One received chunk: the first `count` bytes of `buffer`.
  virtual void OnReceived(const TReceiveBuffer& buffer, size_t count, TSerialRun& run) = 0;
};

struct TSerialPacing {
  int32_t AfterChunkMs = 20;  // between two reads that returned data
  int32_t AfterWriteMs = 20;  // after a command went out
  int32_t IdleMs = 5;         // at the end of every cycle, cut short by a queued command
  // A line quiet for a while is read less often: the wait at the end of a cycle with nothing read or written
  // doubles, up to this, and falls back to IdleMs at the first byte either way. Queued commands still wake the
  // thread at once; only what the laser says unasked is seen up to this much later.
  int32_t QuietMaxMs = 40;
  int32_t ClosedMs = 20;  // before the next attempt to open the port
  int32_t FaultMs = 10;   // after a failed cycle
};

struct TSerialThreadOptions {
  std::string Name;          // the thread's name, e.g. "Raycus"
  std::string StartedText;   // logged in debug mode when the thread starts
  std::string FaultPrefix;   // precedes the message of the first failed cycle, e.g. "TRaycusLaser Exception:"
  int32_t CommPort = 0;      // the host's serial port number
  std::string CommSettings;  // e.g. "9600,n,8,1"
  int32_t RepeatCount = 5;   // how often the latest value of the repeated setting goes out
  TSerialPacing Pacing;
};

class TSerialCmdThread {
 public:
  static constexpr size_t kStopFlushLimit = 4;

  // Configures `port` (may be null: the line then never opens) and starts the thread.
  TSerialCmdThread(TSerialThreadOptions options, std::unique_ptr<TSerialCmdSet> cmdSet,
                   std::unique_ptr<nchost::TCommCtrl> port);
  // Stop().
  ~TSerialCmdThread();
  TSerialCmdThread(const TSerialCmdThread&) = delete;
  TSerialCmdThread& operator=(const TSerialCmdThread&) = delete;

  // Queues a command of 1 to 28 bytes; any other length is dropped without a word. False when dropped or stopped.
  bool LockAddCmd(std::span<const uint8_t> bytes);
  // The repeated setting takes `value`: it goes out RepeatCount times, in cycles with nothing queued. A newer value
  // replaces one not yet sent out and restarts the count.
  void SetRepeatedValue(uint8_t value);

  // Stops and joins the thread, writes the newest commands still queued (at most kStopFlushLimit, in order, 20 ms
  // apart, so that a laser switched off on the way down gets its last command; an older backlog is dropped), and
  // closes the port. Later calls, and commands queued after it, do nothing: from its return no byte goes to the
  // line. Never throws.
  void Stop() noexcept;
  bool Stopped() const;

  // For tests and benchmarks: commands written so far, and what still waits.
  uint64_t WrittenCount() const { return FWritten.load(); }
  size_t PendingCount() const;
  const TSerialThreadOptions& Options() const { return FOptions; }

 private:
  class TRun;

  void Execute(TLaserThread& thread);
  // One cycle; false when a stop cut it short.
  bool Cycle(TLaserThread& thread, TRun& run);
  // The wait at the end of a cycle: IdleMs after traffic, growing while the line stays quiet.
  int32_t IdleWaitMs(bool traffic);
  bool TakeNext(TCommCmd& cmd);
  // Writes `cmd`; true when bytes went out.
  bool WriteCmd(const TCommCmd& cmd);
  void ReportFault(TLaserThread& thread, const std::string& prefix, const std::string& what);

  const TSerialThreadOptions FOptions;
  const std::unique_ptr<TSerialCmdSet> FCmdSet;
  // Only the thread touches the port while it runs; Stop() takes it over after the join.
  std::unique_ptr<nchost::TCommCtrl> FPort;
  TReceiveBuffer FReceive{};
  int32_t FQuietWaitMs = 0;  // only touched by the thread
  bool FLineWasUp = false;   // only touched by the thread: the port has been open

  mutable std::mutex FQueueLock;
  // Guarded by FQueueLock.
  std::deque<TCommCmd> FQueue;
  uint8_t FRepeatValue = 0;
  int32_t FRepeatLeft = 0;
  bool FAccepting = true;

  std::mutex FStopLock;  // serialises Stop()
  std::atomic<bool> FStopped{false};
  std::atomic<bool> FShowFault{true};
  std::atomic<uint64_t> FWritten{0};
  TLaserThread FThread;
};

}  // namespace devlaser
