// Where the reference host's operator messages and log lines end up: one entry per message or line, handed to a
// sink that the program chooses (stderr, a file, or a recorder for tests).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace refhost {

// What produced an entry: an operator message (ShowMsg), a log line (LogMsg) or a logger object.
enum class TEntryKind { Message, Log, Logger };

struct TMessageEntry {
  TEntryKind Kind = TEntryKind::Log;
  int Type = 0;          // the host's message type (2 information, 3 trace, 5 warning, 6 comm, 7 error, 8 laser log)
  std::string Category;  // empty for operator messages
  std::string Text;
  uint32_t Color = 0;  // display colour of an operator message, 0 when none was given
};

// How a text sink writes an entry: a readable line, or one JSON object per line for programs.
enum class TLineFormat { Text, JsonLines };

// "message", "log" or "logger".
const char* EntryKindName(TEntryKind kind);
// "info", "trace", "warning", "comm", "error", "laser log"; "type N" for any other type.
std::string MsgTypeName(int msgType);
// "[warning] Laser: text"; an operator message reads "[warning] Operator: text".
std::string FormatTextLine(const TMessageEntry& entry);
// {"kind":"log","type":5,"category":"Laser","text":"..."} (bytes that are not UTF-8 become U+FFFD).
std::string FormatJsonLine(const TMessageEntry& entry);
// The line for `format`, without the line end.
std::string FormatLine(const TMessageEntry& entry, TLineFormat format);

// Receives entries from any thread; implementations serialise them.
class TMessageSink {
 public:
  virtual ~TMessageSink() = default;
  virtual void Write(const TMessageEntry& entry) = 0;
};

// The sink that an application object and its loggers share, so that replacing it redirects all of them.
class TSinkSlot {
 public:
  explicit TSinkSlot(std::shared_ptr<TMessageSink> sink) : FSink(std::move(sink)) {}

  void Set(std::shared_ptr<TMessageSink> sink) {
    std::lock_guard lock(FMutex);
    FSink = std::move(sink);
  }
  std::shared_ptr<TMessageSink> Get() const {
    std::lock_guard lock(FMutex);
    return FSink;
  }
  // Writes to the current sink, if any; the sink is kept alive while it writes.
  void Write(const TMessageEntry& entry) const {
    if (auto sink = Get()) sink->Write(entry);
  }

 private:
  mutable std::mutex FMutex;
  std::shared_ptr<TMessageSink> FSink;
};

}  // namespace refhost
