// Sinks that write each entry as one line: to the process's standard error, or appended to a file.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "refhost/MessageSink.h"

namespace refhost {

class TStderrSink : public TMessageSink {
 public:
  explicit TStderrSink(TLineFormat format = TLineFormat::Text) : FFormat(format) {}
  void Write(const TMessageEntry& entry) override;

 private:
  TLineFormat FFormat;
  std::mutex FMutex;  // one whole line at a time, even when threads log together
};

// Appends lines to a file and flushes each one, so that the log is complete up to a crash.
class TFileSink : public TMessageSink {
 public:
  // Opens `path` for appending (creating it); null, with `error` naming the file and the reason, on failure.
  static std::unique_ptr<TFileSink> Open(const std::string& path, TLineFormat format, std::string& error);
  ~TFileSink() override;
  TFileSink(const TFileSink&) = delete;
  TFileSink& operator=(const TFileSink&) = delete;

  void Write(const TMessageEntry& entry) override;
  const std::string& Path() const { return FPath; }

 private:
  TFileSink(std::FILE* file, std::string path, TLineFormat format)
      : FFile(file), FPath(std::move(path)), FFormat(format) {}

  std::FILE* FFile;
  std::string FPath;
  TLineFormat FFormat;
  std::mutex FMutex;
};

}  // namespace refhost
