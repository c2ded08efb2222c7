// The laser side of the own-brand protocol, driven by the same description file as the driver ("ZorunLaser.json"):
// bytes in, reply bytes out, without threads or descriptors. The front ends (ZorunSimServer.h) feed it what they
// read; tests can feed it directly.
//
// From each command template of the chosen laser element the engine knows the frame it expects: its length, the
// bytes that never change, where a diode set's parameter sits and which bytes the CRC-16/MODBUS covers (the two
// CRC bytes, low byte first, follow the last covered byte). Received bytes are matched against every template; a
// frame whose CRC is wrong is logged as "BAD CRC <hex>" and not answered, bytes that start no frame are logged as
// "UNKNOWN <hex>" and skipped.
//
// Answers, as a laser with this description would give them:
//   state query     the alarm reply's pattern with the current alarm byte at its flag index, plus its CRC;
//   alarm reply     none: it acknowledges the alarm byte just reported;
//   any other type  that type's reply pattern when the file has one (the alarm byte at its flag index, plus a CRC
//                   when it declares one), else none.
//
// Fault modes: Silent logs every frame but neither executes nor answers it (a hung laser); Garbage executes and
// answers with bytes that start no frame and carry no alarm byte (a laser whose line is noisy). PowerCycle() is a
// laser that was switched off and on again: emission, aiming and the diode set are off, the alarm byte stays.
//
// Thread safety: every member may be called from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/common/CommandLog.h"

namespace lasersim {

class TZorunSimEngine {
 public:
  using TBytes = std::vector<uint8_t>;
  enum class TReplyMode { Normal, Silent, Garbage };
  // Command types of the description file.
  enum : int {
    kInit = 0,
    kEmissionOn,
    kEmissionOff,
    kDiodeSet,
    kAlarmReply,
    kStateQuery,
    kAimingOn,
    kAimingOff,
    kTypeCount
  };
  // Called after each frame with its type (-1 for unknown bytes), the log entry and the reply sent as hexadecimal
  // text (empty when none).
  using TTraceHook = std::function<void(int type, const std::string& entry, const std::string& reply)>;

  // The framing state of one byte stream (a TCP client, the serial line).
  struct TInput {
    TBytes Pending;
  };

  struct TFrame {
    int Type;
    std::string Hex;                   // "5A A5 01 12 00 2C 83 6F"
    std::optional<int64_t> Parameter;  // a checked diode set's parameter bytes read big-endian
  };

  TZorunSimEngine();
  ~TZorunSimEngine();

  // Reads laser element `laserIdx` of the description file. False with `error` when it cannot.
  bool Load(const std::string& path, int laserIdx, std::string& error);
  // The laser's name ("Desc") in the file.
  std::string Description() const;

  // Consumes stream bytes; returns the replies to every frame they complete.
  std::string Feed(TInput& input, std::string_view bytes);
  // One datagram: the frames in it, nothing carried over.
  std::string FeedDatagram(std::string_view bytes);

  // Every good frame as hexadecimal text ("5A A5 01 15 00 ..."), bad and unknown bytes as described above.
  TCommandLog& Log() { return FLog; }
  const TCommandLog& Log() const { return FLog; }
  // Good frames by type, oldest first (the latest TCommandLog::kCapacity).
  std::vector<TFrame> Frames() const;
  // Forgets the frames and the log received so far (a long run keeps its memory flat).
  void ClearLog();
  size_t BadFrames() const;
  // The frame a template would accept for `parameter`, as the laser expects it (for tests and traces).
  std::optional<TBytes> ExpectedFrame(int type, int64_t parameter = 0) const;

  // The alarm byte that state replies carry.
  void SetAlarmByte(uint8_t alarms);
  uint8_t AlarmByte() const;
  // True once an alarm reply came after the last state reply that carried a non-zero alarm byte.
  bool AlarmAcknowledged() const;

  // The laser's state as the commands left it.
  bool EmissionOn() const;
  bool AimingOn() const;
  std::optional<int64_t> DiodeParameter() const;

  void SetTraceHook(TTraceHook hook);

  void SetReplyMode(TReplyMode mode);
  TReplyMode ReplyMode() const;
  // The laser restarts: emission, aiming and the diode set are off.
  void PowerCycle();

 private:
  struct TFrameShape;
  struct TReply;
  struct TTrace {
    int Type;
    std::string Entry;
    std::string Reply;
  };
  std::string FeedLocked(TInput& input, bool endOfData, std::vector<TTrace>& traces);
  std::string Handle(const TFrameShape& shape, const TBytes& frame, std::vector<TTrace>& traces);
  std::string ReplyFor(int type) const;

  mutable std::mutex FMutex;
  std::vector<TFrameShape> FShapes;
  std::vector<std::optional<TReply>> FReplies;
  std::string FDesc;
  TCommandLog FLog;
  std::vector<TFrame> FFrames;
  size_t FBadFrames = 0;
  uint8_t FAlarmByte = 0;
  bool FAlarmReported = false;
  bool FAlarmAcknowledged = false;
  bool FEmission = false;
  bool FAiming = false;
  std::optional<int64_t> FDiode;
  TTraceHook FTraceHook;
  TReplyMode FReplyMode = TReplyMode::Normal;
  uint32_t FGarbageSeed = 20240601;
};

// "5A A5 01": bytes as blank-separated upper-case hexadecimal pairs.
std::string ZorunHex(const uint8_t* data, size_t size);
inline std::string ZorunHex(const std::vector<uint8_t>& bytes) { return ZorunHex(bytes.data(), bytes.size()); }

}  // namespace lasersim
