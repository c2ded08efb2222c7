#include "LogSinks.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>

#include "host/HostDefs.h"

namespace laserctl {
namespace {

// Bytes a laser sent can reach a log line; on a terminal, control bytes would move the cursor or change colours.
// JSON lines escape them already; text lines show them as \xNN.
std::string EscapeControlBytes(const std::string& text) {
  std::string shown;
  shown.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      shown += c;
      continue;
    }
    static constexpr char kHex[] = "0123456789abcdef";
    shown += "\\x";
    shown += kHex[byte >> 4];
    shown += kHex[byte & 15];
  }
  return shown;
}

// A text line gets the time in front; a JSON line gets it as its first member.
std::string Stamped(const std::string& line, bool json) {
  const std::string stamp = WallClockStamp();
  if (json && line.starts_with('{')) return "{\"time\":\"" + stamp + "\"," + line.substr(1);
  return stamp + " " + line;
}

class TStampedSink : public refhost::TMessageSink {
 public:
  TStampedSink(bool json, bool traces, std::FILE* file) : FJson(json), FTraces(traces), FFile(file) {}
  ~TStampedSink() override {
    if (FFile) std::fclose(FFile);
  }
  TStampedSink(const TStampedSink&) = delete;
  TStampedSink& operator=(const TStampedSink&) = delete;

  void Write(const refhost::TMessageEntry& entry) override {
    if (entry.Type == nchost::msgtype::kTrace && !FTraces) return;
    const std::string text = refhost::FormatLine(entry, FFormat());
    const std::string line = Stamped(FJson ? text : EscapeControlBytes(text), FJson) + "\n";
    std::lock_guard lock(FMutex);
    std::fwrite(line.data(), 1, line.size(), stderr);
    if (FFile) {
      std::fwrite(line.data(), 1, line.size(), FFile);
      std::fflush(FFile);  // the log is complete up to a crash
    }
  }

 private:
  refhost::TLineFormat FFormat() const { return FJson ? refhost::TLineFormat::JsonLines : refhost::TLineFormat::Text; }

  const bool FJson;
  const bool FTraces;
  std::FILE* const FFile;
  std::mutex FMutex;
};

}  // namespace

std::string WallClockStamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char buffer[40];
  const size_t n = std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(buffer + n, sizeof buffer - n, ".%03d", static_cast<int>(ms));
  return buffer;
}

std::shared_ptr<refhost::TMessageSink> MakeLaserctlSink(bool json, bool traces, const std::string& logFile,
                                                        std::string& error) {
  std::FILE* file = nullptr;
  if (!logFile.empty()) {
    file = std::fopen(logFile.c_str(), "ae");
    if (file == nullptr) {
      error = "cannot open the log file " + logFile + ": " + std::strerror(errno);
      return nullptr;
    }
  }
  return std::make_shared<TStampedSink>(json, traces, file);
}

}  // namespace laserctl
